// xmlrpcserver: the program's centre. It is the process's reporter and the
// handler of the client proxy link; it brings up logging, the listener and
// its methods, and runs the main loop that keeps the proxy link alive.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include <vxbase/egg_clock.h>
#include <vxbase/ptr_refcount.h>
#include <vxcapi/connection.h>
#include <vxcapi/handler.h>
#include <vxcore/configuration.h>
#include <vxcore/constraint_db.h>
#include <vxcore/report.h>
#include <vxnet/service.h>
#include <vxnet/vxp/command_db.h>
#include <vxnet/vxp/packet.h>

#include <xmlrpc/XmlRpcDispatch.h>

#include "proxy_link_source.h"
#include "retry_schedule.h"
#include "listener_keeper.h"
#include "vx_xmlrpc_method.h"

namespace XmlRpc {
class XmlRpcServer;
}
namespace vxcore {
class file_rotation_logger;
}

namespace xmlrpcs {

class xmlrpcserver : public vxcore::reporter, public vxcapi::handler {
 public:
  // The proxy is always on this machine, at this port.
  static constexpr const char* proxy_host = "127.0.0.1";
  static constexpr const char* proxy_port = "40410";
  // Seconds a connection attempt may take.
  static constexpr unsigned connect_timeout = 2;
  // Seconds a command round trip may take before the proxy is given up on.
  static constexpr unsigned send_timeout = 5;
  // The listener's backlog: clients are few and short-lived.
  static constexpr int listen_backlog = 5;
  // The packet type of the preset reply while the proxy is unreachable.
  static constexpr int not_connected_reply_type = 4;

  // Brings the server up from a settled configuration (see the .cpp for the
  // order). use_constraint_files chooses the readable constraint files over
  // the compiled database; config_path is where the configuration is
  // written back (empty: nowhere). Raises vxbase::es::arg_error "invalid
  // configuration (<reason>)" when the configuration breaks a constraint.
  xmlrpcserver(vxcore::configuration_ptr config, bool use_constraint_files,
               const std::string& config_path);
  // Takes everything down in reverse order of construction.
  ~xmlrpcserver() override;

  xmlrpcserver(const xmlrpcserver&) = delete;
  xmlrpcserver& operator=(const xmlrpcserver&) = delete;

  // The main loop: runs turns of about 500 ms until running is found false
  // (or the shutdown clock rings), keeping the proxy link up. The link and
  // every XML-RPC connection are served by the one dispatcher.
  void run(std::atomic<bool>& running);

  // Sends packet to the proxy and hands reply the reply to use: the proxy's
  // (or the link's error reply on a time-out or a lost link) when it comes,
  // or at once the preset not-connected reply while the link is down.
  void send_to_proxy(const vxnet::vxp::packet& packet, reply_fn reply);

  // vxcore::reporter: routes a report to the sinks (xmlrpcserver_report.cpp).
  void report(const char* file, std::uint32_t line, const char* module, vxcore::kind k,
              vxbase::severity severity, const char* message) override;

  // vxcapi::handler. Unsolicited packets are accepted and ignored; a lost
  // link is noticed by the main loop's is_connected test.
  bool status(vxcapi::result_code code, const std::string& text, bool flag) override;
  void disconnected(const std::string& text, bool flag) override;
  bool handle(const vxnet::vxp::packet& in, vxnet::vxp::packet& out) override;

  const vxcore::configuration& get_configuration() const noexcept { return *config_; }
  XmlRpc::XmlRpcServer* get_xmlrpc_server() const noexcept { return xmlrpc_server_.get(); }
  // The commands that may be sent; null before load_command_database.
  const vxnet::vxp::command_db* get_command_db() const noexcept { return command_db_.get(); }

 private:
  // Sets up the file sink and the re-direction of the standard streams
  // (xmlrpcserver_report.cpp).
  void configure_logging();
  // Loads the command database that outgoing commands are checked against.
  void load_command_database(bool use_constraint_files);
  // Makes a new listener on port, with introspection, and registers the
  // methods.
  void start_listening(int port);
  // Registers the method table with the listener; safe to repeat.
  void register_methods();
  // Publishes the service on the network.
  void publish(int port);
  // Writes the configuration in use back to its file.
  void write_back_configuration();
  // The connection check of a main loop turn: starts an attempt when the
  // link is down; the schedule hears the outcome in status().
  void check_proxy_connection();
  // The dispatcher that serves the link: the listener's, or the program's
  // own when nothing listens.
  XmlRpc::XmlRpcDispatch& dispatcher();

  vxcore::configuration_ptr config_;
  std::string config_path_;
  vxbase::egg_clock shutdown_clock_;
  vxcore::constraint_db command_constraints_;
  vxcapi::connection connection_;
  // When the proxy link is looked at (main loop), and whether an attempt
  // started by it is still under way: its turns count nothing, as the
  // attempt's time never counted.
  retry_schedule schedule_;
  bool attempt_pending_ = false;
  // Serves the link when there is no listener.
  XmlRpc::XmlRpcDispatch own_dispatch_;
  // The link's socket in the dispatcher; made once the listener is up.
  std::unique_ptr<proxy_link_source> link_source_;
  // The DNS-SD announcement of the listener (publish); none until published.
  std::unique_ptr<vxnet::service> service_;
  // Passed to the publication: the server announces no TXT entries.
  const vxnet::txt_record* txt_record_ = nullptr;
  std::unique_ptr<XmlRpc::XmlRpcServer> xmlrpc_server_;
  // Binds the listener again while its port is taken.
  listener_keeper listener_;
  // Every method object register_methods made (method_table.cpp); the
  // listener's registry points into this list.
  std::list<vx_xmlrpc_method_ptr> methods_;
  vxnet::vxp::packet not_connected_reply_;
  // Set by load_command_database (command_database.cpp).
  vxnet::vxp::command_db_ptr command_db_;
  // The rotating log file made by configure_logging; null until then. Not
  // owned: a logger outlives its server (see report_routing.cpp).
  vxcore::file_rotation_logger* file_logger_ = nullptr;
};

}  // namespace xmlrpcs
