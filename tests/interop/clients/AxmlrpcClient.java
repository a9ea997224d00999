// The gateway called with Java's aXMLRPC (see ../README.md for the checks and
// the submission every client sends).
import de.timroes.axmlrpc.XMLRPCClient;
import java.net.URL;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Calendar;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.TimeZone;

public class AxmlrpcClient {
  static final int CALLS = 200;
  static XMLRPCClient s;

  interface Check {
    String run() throws Exception;
  }

  static void report(String check, Check fn) {
    String line;
    try {
      String problem = fn.run();
      line = problem == null ? "pass" : "fail " + problem;
    } catch (Exception e) {
      line = "fail " + e.getClass().getSimpleName() + ": " + String.valueOf(e.getMessage()).replace('\n', ' ');
    }
    System.out.println("RESULT " + check + " " + line);
    System.out.flush();
  }

  // Arrays come back as Object[]; comparing their lists compares the elements.
  static Object plain(Object v) {
    if (v instanceof Object[]) return plain(Arrays.asList((Object[]) v));
    if (v instanceof List) {
      List<Object> out = new ArrayList<>();
      for (Object o : (List<?>) v) out.add(plain(o));
      return out;
    }
    return v;
  }

  static String expect(String what, Object got, Object want) {
    return plain(got).equals(plain(want)) ? null : what + ": got " + plain(got) + ", expected " + plain(want);
  }

  @SuppressWarnings("unchecked")
  static Map<String, Object> ok(Object reply) throws Exception {
    if (!(reply instanceof Map) || ((Map<String, Object>) reply).containsKey("error"))
      throw new Exception("unexpected reply " + plain(reply));
    return (Map<String, Object>) reply;
  }

  static Map<String, Object> struct(Object... kv) {
    Map<String, Object> m = new HashMap<>();
    for (int i = 0; i < kv.length; i += 2) m.put((String) kv[i], kv[i + 1]);
    return m;
  }

  @SuppressWarnings("unchecked")
  static Map<String, Object> member(Object v, String name) {
    return (Map<String, Object>) ((Map<String, Object>) v).get(name);
  }

  static Map<String, Map<String, Object>> jobs(String workflow) throws Exception {
    Map<String, Map<String, Object>> out = new HashMap<>();
    Object[] tasks = (Object[]) ok(s.call("statusTasks2", struct("workflow-ids", new Object[] {workflow}))).get("tasks");
    for (Object t : tasks) out.put((String) ((Map<?, ?>) t).get("job-id"), ok(t));
    return out;
  }

  static String waitState(String workflow, String job, String state) throws Exception {
    long deadline = System.nanoTime() + 60_000_000_000L;
    Object got = null;
    while (System.nanoTime() < deadline) {
      got = jobs(workflow).get(job).get("state");
      if (state.equals(got)) return null;
      Thread.sleep(100);
    }
    return "job " + job + " never reached " + state + " (last " + got + ")";
  }

  public static void main(String[] args) throws Exception {
    String url = args[0], tag = args[1], mode = args[2];
    String name = tag + " <b>&amp;</b> \"q\" 'a' café 日本";
    // The server writes strings as untyped <value>text</value>; without
    // FLAGS_DEFAULT_TYPE_STRING aXMLRPC refuses them. Its XML parser already
    // decodes entities; without FLAGS_NO_STRING_DECODE it decodes them a
    // second time (a text "&amp;" would come back as "&").
    int flags = XMLRPCClient.FLAGS_DEFAULT_TYPE_STRING | XMLRPCClient.FLAGS_NO_STRING_DECODE;
    s = new XMLRPCClient(new URL(url), flags);
    if (mode.equals("calls")) {
      XMLRPCClient client = new XMLRPCClient(new URL(url), flags);
      long start = System.nanoTime();
      for (int i = 0; i < CALLS; i++) ok(client.call("getVersion"));
      System.out.printf("TIME %.3f%n", (System.nanoTime() - start) / 1e6 / CALLS);
      return;
    }
    report("list-methods", () -> {
      List<Object> methods = Arrays.asList((Object[]) s.call("system.listMethods"));
      for (String m : new String[] {"getVersion", "submitSubmission", "system.multicall"})
        if (!methods.contains(m)) return m + " missing";
      return expect("number of methods", methods.size(), 44);
    });
    report("method-help", () -> {
      String text = (String) s.call("system.methodHelp", "jobPause");
      return text.contains("'proxy.node.job.pause'") ? null : "unexpected help " + text;
    });
    report("get-version", () -> expect("version", ok(s.call("getVersion")).get("version"), "7.0.0.0"));
    report("submit", () -> {
      Calendar when = Calendar.getInstance(TimeZone.getTimeZone("UTC"));
      when.clear();
      when.set(2024, Calendar.JANUARY, 2, 3, 4, 5);
      Map<String, Object> submission = struct(
          "name", name,
          "priority", 7,
          "sources", new Object[] {struct("type", "file-source", "files", new Object[] {"/media/in/a.mov"})},
          "tasks", new Object[] {struct("type", "transfer", "destination", "/media/out")},
          "ints", new Object[] {0, -1, 2147483647, -2147483648},
          "yes", true,
          "no", false,
          "ratio", 2.5,
          "small", -0.125,
          "when", when.getTime(),
          "blob", new byte[] {0, 1, (byte) 0xfe, (byte) 0xff, 'b', 'i', 'n', 'a', 'r', 'y'},
          "nested", struct("level", 1, "inner", struct("level", 2, "items",
              new Object[] {1, "two", new Object[] {3.5, struct("four", false)}})),
          "empty-string", "",
          "empty-array", new Object[] {},
          "empty-struct", struct(),
          "empty-blob", new byte[] {});
      Map<String, Object> reply = ok(s.call("submitSubmission", struct("submission", submission)));
      Object[] jobIds = (Object[]) reply.get("job-ids");
      if (jobIds.length != 1) return "job-ids " + plain(jobIds);
      Object[] wfs = (Object[]) ok(s.call("statusWorkflows2",
          struct("workflow-ids", new Object[] {reply.get("workflow-id")}))).get("workflows");
      return expect("workflow name", ok(wfs[0]).get("name"), name);
    });
    report("empties", () -> {
      Map<String, Object> src = member(ok(s.call("sourceCreateFileList",
          struct("name", "", "files", new Object[] {"a", "", "b"}))), "source");
      String problem = expect("source", Arrays.asList(src.get("name"), src.get("files")),
          Arrays.asList("", new Object[] {"a", "", "b"}));
      if (problem != null) return problem;
      Map<String, Object> task = member(ok(s.call("taskCreateExecute",
          struct("command", "/bin/true", "arguments", new Object[] {}))), "task");
      return expect("task", Arrays.asList(task.get("command"), task.get("arguments")),
          Arrays.asList("/bin/true", new Object[] {}));
    });
    report("multicall", () -> {
      Object[] calls = {
          struct("methodName", "getVersion", "params", new Object[] {struct()}),
          struct("methodName", "jobPause", "params", new Object[] {struct("job-id", "no-such-job")}),
          struct("methodName", "sourceCreateFileList", "params", new Object[] {struct("files", new Object[] {"x"})})};
      Object[] results = (Object[]) s.call("system.multicall", (Object) calls);
      if (results.length != 3) return results.length + " results for 3 calls: " + plain(results);
      Object[] r0 = (Object[]) results[0], r1 = (Object[]) results[1], r2 = (Object[]) results[2];
      if (!"7.0.0.0".equals(ok(r0[0]).get("version"))) return "first result " + plain(r0);
      if (!((Map<?, ?>) r1[0]).containsKey("error")) return "second result " + plain(r1);
      return expect("third result files", member(r2[0], "source").get("files"), new Object[] {"x"});
    });
    report("job-life", () -> {
      Object source = ok(s.call("sourceCreateFileList", struct("files", new Object[] {"/media/in/a.mov"}))).get("source");
      Object task = ok(s.call("taskCreateTransfer", struct("destination", "/media/out"))).get("task");
      Map<String, Object> built = ok(s.call("submitBuildSubmission", struct("name", tag + " life",
          "sources", new Object[] {source}, "tasks", new Object[] {task, task})));
      String wf = (String) built.get("workflow-id");
      Object[] ids = (Object[]) built.get("job-ids");
      String first = (String) ids[0], second = (String) ids[1];
      String problem = expect("paused", ok(s.call("jobPause", struct("job-id", second))).get("state"), "paused");
      if (problem == null) problem = waitState(wf, first, "finished");
      if (problem == null) problem = expect("still paused", jobs(wf).get(second).get("state"), "paused");
      if (problem != null) return problem;
      if ("paused".equals(ok(s.call("jobResume", struct("job-id", second))).get("state")))
        return "resumed job still paused";
      ok(s.call("jobCancel", struct("job-id", second)));
      return waitState(wf, second, "cancelled");
    });
  }
}
