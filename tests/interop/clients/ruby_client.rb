# The gateway called with Ruby's xmlrpc (see ../README.md for the checks and
# the submission every client sends).
require "xmlrpc/client"

URL, TAG, MODE = ARGV
NAME = "#{TAG} <b>&amp;</b> \"q\" 'a' café 日本"
CALLS = 200

def report(check)
  problem = yield
  puts(problem.nil? ? "RESULT #{check} pass" : "RESULT #{check} fail #{problem}")
rescue StandardError => e
  puts "RESULT #{check} fail #{e.class}: #{e.message.gsub("\n", " ")}"
ensure
  $stdout.flush
end

def expect(what, got, want)
  got == want ? nil : "#{what}: got #{got.inspect}, expected #{want.inspect}"
end

def ok(reply)
  raise "unexpected reply #{reply.inspect}" if !reply.is_a?(Hash) || reply.key?("error")
  reply
end

S = XMLRPC::Client.new2(URL)

def jobs(workflow)
  ok(S.call("statusTasks2", { "workflow-ids" => [workflow] }))["tasks"].to_h { |t| [t["job-id"], t] }
end

def wait_state(workflow, job, state)
  deadline = Time.now + 60
  got = nil
  while Time.now < deadline
    got = jobs(workflow)[job]["state"]
    return nil if got == state
    sleep 0.1
  end
  "job #{job} never reached #{state} (last #{got})"
end

if MODE == "checks"
  report("list-methods") do
    methods = S.call("system.listMethods")
    missing = %w[getVersion submitSubmission system.multicall] - methods
    missing.empty? ? expect("number of methods", methods.size, 44) : "#{missing} missing"
  end
  report("method-help") do
    text = S.call("system.methodHelp", "jobPause")
    text.include?("'proxy.node.job.pause'") ? nil : "unexpected help #{text.inspect}"
  end
  report("get-version") { expect("version", ok(S.call("getVersion"))["version"], "7.0.0.0") }
  report("submit") do
    submission = {
      "name" => NAME,
      "priority" => 7,
      "sources" => [{ "type" => "file-source", "files" => ["/media/in/a.mov"] }],
      "tasks" => [{ "type" => "transfer", "destination" => "/media/out" }],
      "ints" => [0, -1, 2_147_483_647, -2_147_483_648],
      "yes" => true,
      "no" => false,
      "ratio" => 2.5,
      "small" => -0.125,
      "when" => XMLRPC::DateTime.new(2024, 1, 2, 3, 4, 5),
      "blob" => XMLRPC::Base64.new("\x00\x01\xfe\xffbinary".b),
      "nested" => { "level" => 1, "inner" => { "level" => 2, "items" => [1, "two", [3.5, { "four" => false }]] } },
      "empty-string" => "",
      "empty-array" => [],
      "empty-struct" => {},
      "empty-blob" => XMLRPC::Base64.new("".b)
    }
    reply = ok(S.call("submitSubmission", { "submission" => submission }))
    next "job-ids #{reply["job-ids"].inspect}" unless reply["job-ids"].size == 1
    wf = ok(S.call("statusWorkflows2", { "workflow-ids" => [reply["workflow-id"]] }))["workflows"]
    expect("workflow name", wf[0]["name"], NAME)
  end
  report("empties") do
    src = ok(S.call("sourceCreateFileList", { "name" => "", "files" => ["a", "", "b"] }))["source"]
    problem = expect("source", [src["name"], src["files"]], ["", ["a", "", "b"]])
    next problem if problem
    task = ok(S.call("taskCreateExecute", { "command" => "/bin/true", "arguments" => [] }))["task"]
    expect("task", [task["command"], task["arguments"]], ["/bin/true", []])
  end
  report("multicall") do
    results = S.multicall(["getVersion", {}], ["jobPause", { "job-id" => "no-such-job" }],
                          ["sourceCreateFileList", { "files" => ["x"] }])
    if results.size != 3
      "#{results.size} results for 3 calls: #{results.inspect}"
    elsif results[0]["version"] != "7.0.0.0"
      "first result #{results[0].inspect}"
    elsif !results[1].key?("error")
      "second result #{results[1].inspect}"
    else
      expect("third result files", results[2]["source"]["files"], ["x"])
    end
  end
  report("job-life") do
    source = ok(S.call("sourceCreateFileList", { "files" => ["/media/in/a.mov"] }))["source"]
    task = ok(S.call("taskCreateTransfer", { "destination" => "/media/out" }))["task"]
    built = ok(S.call("submitBuildSubmission", { "name" => "#{TAG} life", "sources" => [source],
                                                 "tasks" => [task, task] }))
    wf = built["workflow-id"]
    first, second = built["job-ids"]
    problem = expect("paused", ok(S.call("jobPause", { "job-id" => second }))["state"], "paused")
    problem ||= wait_state(wf, first, "finished")
    problem ||= expect("still paused", jobs(wf)[second]["state"], "paused")
    next problem if problem
    next "resumed job still paused" if ok(S.call("jobResume", { "job-id" => second }))["state"] == "paused"
    ok(S.call("jobCancel", { "job-id" => second }))
    wait_state(wf, second, "cancelled")
  end
else
  client = XMLRPC::Client.new2(URL)
  start = Process.clock_gettime(Process::CLOCK_MONOTONIC)
  CALLS.times { ok(client.call("getVersion")) }
  puts format("TIME %.3f", (Process.clock_gettime(Process::CLOCK_MONOTONIC) - start) * 1000.0 / CALLS)
end
