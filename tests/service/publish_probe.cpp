// vxnet-publish-probe: publishes one DNS-SD service through vxnet::service
// until SIGTERM or SIGINT, so that tests can watch it from a browser.
//
//   vxnet-publish-probe [--no-reply] [--txt KEY=VALUE]... TYPE PORT [NAME]
//
// PORT is taken as the server takes its configured port: its low 16 bits.
// Standard output gets one line per event: "ready" once the service object
// is made, "published NAME" and "not-published REASON" from the reply object
// (unless --no-reply), "pong" for each "ping" line read from standard input,
// "withdrawn" once the object is destroyed. Exit 0 after a signal or end of
// input, 2 on bad arguments.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include <vxbase/es.h>
#include <vxnet/service.h>

namespace {

std::mutex output_mutex;

void say(const std::string& line) {
  std::lock_guard<std::mutex> lock(output_mutex);
  std::fprintf(stdout, "%s\n", line.c_str());
  std::fflush(stdout);
}

class printing_reply : public vxnet::publish_reply {
 public:
  void published(const std::string& name) override { say("published " + name); }
  void not_published(const std::string& reason) override { say("not-published " + reason); }
};

int usage() {
  std::fprintf(stderr,
               "usage: vxnet-publish-probe [--no-reply] [--txt KEY=VALUE]... TYPE PORT [NAME]\n");
  return 2;
}

// Reads stdin lines and answers "ping" until a signal arrives or input ends.
void serve_until_stopped(int signals) {
  std::string pending;
  for (;;) {
    pollfd fds[2] = {{signals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) continue;
    if (fds[0].revents & POLLIN) return;
    if (fds[1].revents & (POLLIN | POLLHUP)) {
      char buffer[256];
      const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
      if (n <= 0) return;
      pending.append(buffer, static_cast<std::size_t>(n));
      for (std::size_t end; (end = pending.find('\n')) != std::string::npos;) {
        if (pending.compare(0, end, "ping") == 0) say("pong");
        pending.erase(0, end + 1);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool with_reply = true;
  vxnet::txt_record txt;
  int arg = 1;
  try {
    for (; arg < argc && std::strncmp(argv[arg], "--", 2) == 0; ++arg) {
      const std::string option = argv[arg];
      if (option == "--no-reply") {
        with_reply = false;
      } else if (option == "--txt" && arg + 1 < argc) {
        const std::string entry = argv[++arg];
        const std::size_t equals = entry.find('=');
        if (equals == std::string::npos) return usage();
        txt.set(entry.substr(0, equals), entry.substr(equals + 1));
      } else {
        return usage();
      }
    }
  } catch (const vxbase::es::base& e) {
    std::fprintf(stderr, "vxnet-publish-probe: %s\n", e.what());
    return 2;
  }
  if (argc - arg < 2 || argc - arg > 3) return usage();
  const std::string type = argv[arg];
  char* end = nullptr;
  const long long configured = std::strtoll(argv[arg + 1], &end, 10);
  if (*end != '\0') return usage();
  const auto port = static_cast<std::uint16_t>(configured);
  const char* name = argc - arg == 3 ? argv[arg + 2] : nullptr;

  // Signals are taken through a descriptor, so they are blocked first.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  sigprocmask(SIG_BLOCK, &stop_signals, nullptr);
  const int signals = signalfd(-1, &stop_signals, SFD_CLOEXEC);
  if (signals < 0) {
    std::perror("vxnet-publish-probe: signalfd");
    return 1;
  }

  printing_reply reply;
  try {
    auto service = std::make_unique<vxnet::service>(type, port, txt.empty() ? nullptr : &txt, name,
                                                    nullptr, with_reply ? &reply : nullptr);
    say("ready");
    serve_until_stopped(signals);
    service.reset();
  } catch (const vxbase::es::base& e) {
    std::fprintf(stderr, "vxnet-publish-probe: %s\n", e.what());
    return 2;
  }
  say("withdrawn");
  close(signals);
  return 0;
}
