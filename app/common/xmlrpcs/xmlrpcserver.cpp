// The server object: construction, destruction, the proxy link and the
// main loop.
#include "xmlrpcserver.h"

#include <cstdio>

#include <vxbase/callqueue.h>
#include <vxbase/es.h>
#include <vxbase/fileutil.h>
#include <vxbase/time.h>
#include <vxcore/property_values.h>
#include <xmlrpc/XmlRpcServer.h>

#include "dashboard_page.h"
#include "retry_schedule.h"

namespace xmlrpcs {

namespace {
constexpr const char* location = "app/common/xmlrpcs/xmlrpcserver";
constexpr const char* module = "XMLRPCServer";
constexpr const char* not_connected_text = "not connected to client proxy";
// The DNS-SD service type the listener is announced as.
const std::string service_type = "_corvane-xmlrpc._tcp";
// A turn's dispatch time, with a listener or without.
constexpr double dispatch_seconds = retry_schedule::turn_ms / 1000.0;
}  // namespace

xmlrpcserver::xmlrpcserver(vxcore::configuration_ptr config, bool use_constraint_files,
                           const std::string& config_path)
    : config_(std::move(config)),
      config_path_(config_path),
      shutdown_clock_(0),
      command_constraints_(0),
      connection_(this),
      not_connected_reply_(not_connected_reply_type, "not.connected.reply") {
  vxbase::callqueue::instance();
  vxcore::set_reporter(this);
  try {
    if (!config_->is_valid(0)) {
      std::string reason;
      config_->get_config_constraints().get_invalid_reason(config_->get_config(), reason, 0);
      vxbase::es::arg_raise(location, 412, "invalid configuration (%s)", reason.c_str());
    }
    configure_logging();
    vxcore::report(location, 417, module, vxcore::kind::lifecycle, vxbase::sev_debug,
                   "Starting up");
    load_command_database(use_constraint_files);
    if (config_->get_bool("services{xmlrpc}{active}")) {
      const int port = static_cast<int>(config_->get_int("services{xmlrpc}{listen-port}"));
      start_listening(port);
      // The table is registered a second time on purpose: registration
      // replaces methods by name, so repeating it changes nothing.
      register_methods();
      // Announced only once something listens on the port.
      if (config_->get_bool("services{xmlrpc}{publish}")) {
        listener_.when_listening([this, port] { publish(port); });
      }
    }
    write_back_configuration();
    link_source_ =
        std::make_unique<proxy_link_source>(connection_, dispatcher(), xmlrpc_server_ == nullptr);
    not_connected_reply_.set_property("error", new vxcore::property_string(not_connected_text));
  } catch (...) {
    // The destructor will not run: leave no dangling reporter behind.
    vxcore::set_reporter(nullptr);
    throw;
  }
}

xmlrpcserver::~xmlrpcserver() {
  vxcore::set_reporter(nullptr);
  // The link leaves the dispatcher before the dispatcher goes. Commands
  // still waiting for the proxy are dropped with the link, after their
  // XML-RPC connections have been closed with the listener.
  link_source_.reset();
  xmlrpc_server_.reset();
  // Withdraws the announcement, right after the listener has closed.
  service_.reset();
  // The remaining members go in reverse order of declaration: the
  // not-connected reply, the proxy link, the command constraints, the path
  // and the configuration.
}

void xmlrpcserver::start_listening(int port) {
  xmlrpc_server_.reset();
  xmlrpc_server_ = std::make_unique<XmlRpc::XmlRpcServer>();
  xmlrpc_server_->enableIntrospection(true);
  xmlrpc_server_->setStaticPage(dashboard_content_type, std::string(dashboard_page()));
  // A failure is reported by the engine itself; the loop runs on and tries
  // the port again every few seconds.
  listener_.listen(*xmlrpc_server_, port, listen_backlog);
  register_methods();
}

void xmlrpcserver::publish(int port) {
  // The schema allows ports above 65535: the announcement takes the low 16
  // bits. The outcome is neither checked nor reported; a failed publication
  // leaves the server running unannounced.
  service_ = std::make_unique<vxnet::service>(service_type, static_cast<std::uint16_t>(port),
                                              txt_record_, nullptr, nullptr, nullptr);
}

void xmlrpcserver::write_back_configuration() {
  if (config_path_.empty()) return;
  std::string buffer;
  config_->write_config(buffer, vxcore::configuration::format_readable);
  vxbase::fileutil::set_file_content(config_path_, buffer);
}

XmlRpc::XmlRpcDispatch& xmlrpcserver::dispatcher() {
  return xmlrpc_server_ ? xmlrpc_server_->getDispatch() : own_dispatch_;
}

void xmlrpcserver::send_to_proxy(const vxnet::vxp::packet& packet, reply_fn reply) {
  if (!connection_.is_connected()) {
    reply(not_connected_reply_);
    return;
  }
  connection_.send_async(packet, send_timeout, std::move(reply));
}

bool xmlrpcserver::status(vxcapi::result_code code, const std::string&, bool) {
  if (!attempt_pending_) return true;
  attempt_pending_ = false;
  schedule_.checked(code == vxcapi::rc_connected);
  if (code == vxcapi::rc_wrong_protocol)
    vxcore::report(location, 560, module, vxcore::kind::protocol, vxbase::sev_error,
                   "Local ClientProxy has wrong protocol version");
  return true;
}

void xmlrpcserver::disconnected(const std::string&, bool) {}

bool xmlrpcserver::handle(const vxnet::vxp::packet& in, vxnet::vxp::packet&) {
  (void)in.get_type();
  return true;
}

void xmlrpcserver::check_proxy_connection() {
  if (connection_.is_connected() || connection_.is_connecting()) {
    schedule_.checked(false);
    return;
  }
  std::fputs("trying to connect to client proxy\n", stdout);
  std::fflush(stdout);
  // status() hears the outcome, at once or from a later turn, and ends the
  // check.
  attempt_pending_ = true;
  connection_.connect(proxy_host, proxy_port, connect_timeout);
}

void xmlrpcserver::run(std::atomic<bool>& running) {
  vxbase::callqueue& queue = vxbase::callqueue::instance();
  const auto keep_going = [&running] { return running.load(); };
  while (running.load()) {
    if (shutdown_clock_.is_ringing()) {
      vxcore::report(location, 538, module, vxcore::kind::lifecycle, vxbase::sev_notice,
                     "shutting down... good bye");
      return;
    }
    if (!attempt_pending_ && schedule_.turn()) check_proxy_connection();
    queue.run();
    if (xmlrpc_server_) listener_.turn(*xmlrpc_server_);
    link_source_->work(dispatch_seconds, keep_going);
  }
  queue.run();
  queue.exit();
}

}  // namespace xmlrpcs
