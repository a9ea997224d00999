// vx_xmlrpc_method: an XML-RPC method bound to one client proxy command,
// and the steps of a call that do not depend on the server object.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>
#include <vxcore/properties.h>
#include <vxnet/vxp/command_db.h>
#include <vxnet/vxp/packet.h>
#include <xmlrpc/XmlRpcCompletion.h>
#include <xmlrpc/XmlRpcServerMethod.h>
#include <xmlrpc/XmlRpcValue.h>

namespace xmlrpcs {

class xmlrpcserver;

// The steps of a call hand their results on through these, now or later
// (once the proxy answered), exactly once each.
// The answer of a command step: the properties to return.
using answer_fn = std::function<void(const vxcore::properties& out)>;
// The reply to use for a sent request.
using reply_fn = std::function<void(const vxnet::vxp::packet& reply)>;
// Sends a request and hands its reply to the reply_fn.
using send_fn = std::function<void(const vxnet::vxp::packet& request, reply_fn reply)>;
// A command step: runs with the converted input and answers through done.
using command_fn = std::function<void(const vxcore::properties& in, answer_fn done)>;
// Takes the result value of a call.
using finish_fn = std::function<void(XmlRpc::XmlRpcValue& result)>;

// A method of the table. Failures of the command never become faults: they
// come back as a struct with the one member "error".
class vx_xmlrpc_method : public XmlRpc::XmlRpcServerMethod, public vxbase::object_refcount {
 public:
  // The method is not filed with any XmlRpcServer here; the method table
  // adds it to the server's registry itself. server is not owned and must
  // outlive the method.
  vx_xmlrpc_method(const std::string& name, const std::string& command, const std::string& help,
                   xmlrpcserver* server);
  ~vx_xmlrpc_method() override = default;

  // Converts params[0] to properties, sends the command and, when its reply
  // comes, finishes the call with the reply converted back (see run_call).
  // Returns at once: the call waits for the proxy without holding up the
  // server. Throws XmlRpcException "type error: expected an array" only when
  // params is neither invalid nor an array.
  void executeAsync(XmlRpc::XmlRpcValue& params,
                    const XmlRpc::XmlRpcCompletionPtr& completion) override;
  // The same for a caller that cannot wait: answers what needs no reply
  // from the proxy (wrong input, a rejected command, no link); a call that
  // would wait for the proxy raises XmlRpcException instead. The engine
  // always takes executeAsync.
  void execute(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue& result) override;
  std::string help() override = 0;

  const std::string& command() const noexcept { return command_; }
  const std::string& help_text() const noexcept { return help_; }

 protected:
  // Sends in as the method's command and answers through done.
  virtual void run_command(const vxcore::properties& in, answer_fn done) = 0;

  // Verifies request against the server's command database; sends it and
  // answers with the reply's properties, or answers at once with "error" =
  // "Malformed method <name> (<reason>)" without sending.
  void verify_and_send(const vxnet::vxp::packet& request, answer_fn done);

  std::string command_;
  std::string help_;
  xmlrpcserver* server_;
};

using vx_xmlrpc_method_ptr = vxbase::ptr_refcount<vx_xmlrpc_method>;

// One row of the method table.
struct method_row {
  const char* name;     // the XML-RPC method name
  const char* command;  // the proxy command it sends
  bool node;            // sent to a node (node_client_proxy_cmd) or to the proxy itself
  const char* help;
};

// The number of methods the server offers.
inline constexpr std::size_t method_count = 41;

// The method table in registration order (method_table.cpp).
std::span<const method_row> method_rows();

// One new method object per row, in order, each bound to server (which may
// be null for inspection, but then must not be executed).
std::vector<vx_xmlrpc_method_ptr> make_methods(xmlrpcserver* server);

// The help text of a method: "<help> (Corresponding vxp_clientproxy.xml
// command: '<command>')".
std::string method_help(const std::string& help, const std::string& command);

// The packet type of every command sent to the proxy.
inline constexpr std::uint32_t command_packet_type = 2;

// The request for command: type 2 with in as payload. For a node command
// "target-node-info" is replaced by a copy of the caller's (when it is a
// map) with "iid" = "XMLRPC" and "persistent" = true set over it.
vxnet::vxp::packet make_request(const std::string& command, const vxcore::properties& in,
                                bool node_command);

// Verification and sending, apart from the server: a request that db
// accepts is handed to send and done gets the reply's properties; otherwise
// done gets at once "error" = "Malformed method <method> (<reason>)" and
// nothing is sent.
void answer_request(const vxnet::vxp::command_db& db, const vxnet::vxp::packet& request,
                    const send_fn& send, const std::string& method, answer_fn done);

// The call itself, apart from the server: makes params an array of at least
// one element (throwing "type error: expected an array" for another type),
// converts element 0 (null becomes an empty map), finishes at once with the
// "Wrong input, expected a struct. got <kind>: \n<text>" error for a value
// that is not a map, else runs run with it; the answer run gives, converted
// to its XML-RPC form, goes to finish. An exception from run before it
// answered is dropped and the call finishes with an empty struct.
void run_call(XmlRpc::XmlRpcValue& params, const command_fn& run, const finish_fn& finish);

}  // namespace xmlrpcs
