// listener_keeper: keeps the XML-RPC listener listening. A port that is
// taken at start-up is tried again every few seconds without a line per try,
// and the DNS-SD announcement stands only while the listener listens.
#pragma once

#include <chrono>
#include <functional>

namespace XmlRpc {
class XmlRpcServer;
}

namespace xmlrpcs {

class listener_keeper {
 public:
  // How long a failed listener waits before it tries its port again: soon
  // enough that a service restarted after a crash is back within seconds
  // of the old process letting go of the port, rare enough to cost nothing.
  static constexpr std::chrono::seconds retry_interval{5};

  // Binds `server` to `port` as the engine always has: a failure is
  // reported once by the engine; the keeper then tries again at turn().
  // Returns whether the listener listens now.
  bool listen(XmlRpc::XmlRpcServer& server, int port, int backlog);

  // Runs `action` (the service announcement) as soon as the listener
  // listens: at once if it does already, else when a later try succeeds.
  void when_listening(std::function<void()> action);

  // Called every loop turn: when the listener does not listen and a try is
  // due, binds again silently; reports "listening on port N" when that
  // succeeds and runs the when_listening action.
  void turn(XmlRpc::XmlRpcServer& server);

  bool listening() const noexcept { return listening_; }

 private:
  using clock = std::chrono::steady_clock;

  int port_ = 0;
  int backlog_ = 0;
  bool listening_ = false;
  clock::time_point next_try_{};
  std::function<void()> on_listening_;
};

}  // namespace xmlrpcs
