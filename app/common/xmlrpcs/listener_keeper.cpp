// listener_keeper: the retries of a listener whose port was taken.
#include "listener_keeper.h"

#include <string>
#include <utility>

#include <vxbase/severity.h>
#include <vxcore/report.h>
#include <xmlrpc/XmlRpcServer.h>
#include <xmlrpc/XmlRpcUtil.h>

namespace xmlrpcs {

namespace {

constexpr const char* location = "app/common/xmlrpcs/listener_keeper";
constexpr const char* module = "XMLRPCServer";

// Swallows the engine's error lines while installed: the first failure has
// been reported, the retries are silent.
class quiet_errors : public XmlRpc::XmlRpcErrorHandler {
 public:
  quiet_errors() : previous_(getErrorHandler()) { setErrorHandler(this); }
  ~quiet_errors() { setErrorHandler(previous_); }
  quiet_errors(const quiet_errors&) = delete;
  quiet_errors& operator=(const quiet_errors&) = delete;
  void error(const char*) override {}

 private:
  XmlRpc::XmlRpcErrorHandler* previous_;
};

}  // namespace

bool listener_keeper::listen(XmlRpc::XmlRpcServer& server, int port, int backlog) {
  port_ = port;
  backlog_ = backlog;
  listening_ = server.bindAndListen(port, backlog);
  next_try_ = clock::now() + retry_interval;
  return listening_;
}

void listener_keeper::when_listening(std::function<void()> action) {
  if (listening_) {
    action();
  } else {
    on_listening_ = std::move(action);
  }
}

void listener_keeper::turn(XmlRpc::XmlRpcServer& server) {
  if (listening_ || clock::now() < next_try_) return;
  next_try_ = clock::now() + retry_interval;
  {
    quiet_errors quiet;
    listening_ = server.bindAndListen(port_, backlog_);
  }
  if (!listening_) return;
  vxcore::report(location, __LINE__, module, vxcore::kind::network, vxbase::sev_notice,
                 ("listening on port " + std::to_string(port_)).c_str());
  if (on_listening_) {
    std::function<void()> action = std::move(on_listening_);
    on_listening_ = nullptr;
    action();
  }
}

}  // namespace xmlrpcs
