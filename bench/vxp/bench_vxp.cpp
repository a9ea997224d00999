// Throughput of the vxp wire form and latency of a proxy round trip, each
// beside a reference measured in the same run (see README.md).
#include <benchmark/benchmark.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <msgpack.hpp>

#include <vxcapi/connection.h>
#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

#include "link_driver.h"

namespace {

using vxbase::make_refcount;
using namespace vxnet::vxp;

// Tasks in the status reply: a busy node's task list.
constexpr int status_tasks = 100;

// A status reply: a list of task maps with the member kinds such replies
// carry (uuid, texts, int, real, time, bool, path).
packet status_reply() {
  auto tasks = make_refcount<vxcore::property_list>();
  for (int i = 0; i < status_tasks; ++i) {
    auto t = make_refcount<vxcore::properties>(false);
    vxcore::property_uuid::bytes id{};
    id[15] = static_cast<std::uint8_t>(i);
    t->set("id", make_refcount<vxcore::property_uuid>(id));
    t->set("name", make_refcount<vxcore::property_string>("encode-" + std::to_string(i)));
    t->set("state", make_refcount<vxcore::property_string>("running"));
    t->set("priority", make_refcount<vxcore::property_int>(50 + i));
    t->set("progress", make_refcount<vxcore::property_real>(i / 100.0));
    t->set("started", make_refcount<vxcore::property_time>(std::int64_t{1795000000000000} + i));
    t->set("paused", make_refcount<vxcore::property_bool>(i % 7 == 0));
    t->set("source",
           make_refcount<vxcore::property_path>("media/in/clip-" + std::to_string(i) + ".mxf"));
    tasks->push_back(t);
  }
  packet p(type_reply, "proxy.node.status.tasks");
  p.set_property("tasks", tasks);
  return p;
}

std::string status_frame_body() { return encode_message(make_reply(1, status_reply())); }

void BM_EncodeStatusReply(benchmark::State& state) {
  const message m = make_reply(1, status_reply());
  std::size_t bytes = 0;
  for (auto _ : state) {
    std::string out;
    append_frame(out, m);
    bytes += out.size();
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_EncodeStatusReply);

void BM_DecodeStatusReply(benchmark::State& state) {
  const std::string body = status_frame_body();
  for (auto _ : state) {
    message m = decode_message(body);
    benchmark::DoNotOptimize(&m);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}
BENCHMARK(BM_DecodeStatusReply);

// Reference: msgpack-cxx parsing the same bytes into its generic objects,
// without building properties: the floor of any decoder built on it.
void BM_ReferenceMsgpackParse(benchmark::State& state) {
  const std::string body = status_frame_body();
  for (auto _ : state) {
    msgpack::object_handle h = msgpack::unpack(body.data(), body.size());
    benchmark::DoNotOptimize(h.get().type);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}
BENCHMARK(BM_ReferenceMsgpackParse);

// ClientProxySim on a free port for the round-trip benchmark.
class sim_child {
 public:
  sim_child() {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], STDOUT_FILENO);
      const int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, STDERR_FILENO);
      ::execl(CLIENT_PROXY_SIM, CLIENT_PROXY_SIM, "--port", "0", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(fds[1]);
    char line[256] = {};
    FILE* f = ::fdopen(fds[0], "r");
    if (!std::fgets(line, sizeof line, f)) throw std::runtime_error("simulator did not start");
    std::fclose(f);
    const char* colon = std::strrchr(line, ':');
    port_ = colon ? std::atoi(colon + 1) : 0;
  }
  ~sim_child() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  std::string port() const { return std::to_string(port_); }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
};

class quiet_handler : public vxcapi::handler {
 public:
  struct status_call {
    vxcapi::result_code code;
  };
  std::vector<status_call> statuses;
  bool status(vxcapi::result_code code, const std::string&, bool) override {
    statuses.push_back({code});
    return true;
  }
  void disconnected(const std::string&, bool) override {}
  bool handle(const packet&, packet&) override { return true; }
};

// One command at a time through the event-driven link, driven by a poll
// loop as the server's dispatcher drives it.
void BM_RoundTripVersion(benchmark::State& state) {
  sim_child sim;
  quiet_handler h;
  vxcapi::connection c(&h);
  if (link_driver::connect_now(c, h, "127.0.0.1", sim.port(), 2) != vxcapi::rc_connected) {
    state.SkipWithError("cannot connect to the simulator");
    return;
  }
  const packet request(type_command, "proxy.general.version");
  for (auto _ : state) {
    packet reply = link_driver::round_trip(c, request, 5);
    if (reply.get_properties().is_present("error")) {
      state.SkipWithError("the round trip failed");
      break;
    }
  }
}
BENCHMARK(BM_RoundTripVersion)->UseRealTime();

// Reference: the same request and reply bytes bounced over a loopback TCP
// connection by a thread that answers each request frame with the reply
// frame, with blocking calls and no encoding: the floor of a round trip on
// this machine.
void BM_ReferenceTcpPingPong(benchmark::State& state) {
  std::string request, reply;
  append_frame(request, make_request(1, packet(type_command, "proxy.general.version")));
  {
    packet r(type_reply, "proxy.general.version");
    r.set_property("product", make_refcount<vxcore::property_string>("Corvane Client Proxy"));
    r.set_property("version", make_refcount<vxcore::property_version>(7, 0, 0, 0));
    r.set_property("build", make_refcount<vxcore::property_string>("simulator"));
    r.set_property("protocol", make_refcount<vxcore::property_int>(1));
    append_frame(reply, make_reply(1, r));
  }
  const int lfd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(lfd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::listen(lfd, 1);
  socklen_t len = sizeof addr;
  ::getsockname(lfd, reinterpret_cast<sockaddr*>(&addr), &len);
  const int one = 1;
  std::thread server([&] {
    const int fd = ::accept(lfd, nullptr, nullptr);
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    std::string buf(request.size(), '\0');
    for (;;) {
      if (::recv(fd, buf.data(), buf.size(), MSG_WAITALL) != static_cast<ssize_t>(buf.size()))
        break;
      ::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
    ::close(fd);
  });
  const int cfd = ::socket(AF_INET, SOCK_STREAM, 0);
  ::connect(cfd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::setsockopt(cfd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  std::string in(reply.size(), '\0');
  for (auto _ : state) {
    ::send(cfd, request.data(), request.size(), MSG_NOSIGNAL);
    ::recv(cfd, in.data(), in.size(), MSG_WAITALL);
  }
  ::close(cfd);
  server.join();
  ::close(lfd);
}
BENCHMARK(BM_ReferenceTcpPingPong)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
