// Running one method call: conversion, command check, proxy round trip.
#include "vx_xmlrpc_method.h"

#include <memory>
#include <optional>

#include <vxbase/strings.h>
#include <vxcore/property_all.h>

#include <xmlrpc/XmlRpcException.h>

#include "value_conversion.h"
#include "xmlrpcserver.h"

namespace xmlrpcs {

namespace {

using vxbase::make_refcount;

// Where the node a node command goes to is described, and what the server
// always says there about itself.
constexpr const char* target_node_info = "target-node-info";
constexpr const char* server_iid = "XMLRPC";

}  // namespace

vx_xmlrpc_method::vx_xmlrpc_method(const std::string& name, const std::string& command,
                                   const std::string& help, xmlrpcserver* server)
    : XmlRpc::XmlRpcServerMethod(name, nullptr), command_(command), help_(help), server_(server) {}

void vx_xmlrpc_method::executeAsync(XmlRpc::XmlRpcValue& params,
                                    const XmlRpc::XmlRpcCompletionPtr& completion) {
  run_call(
      params, [this](const vxcore::properties& in, answer_fn done) { run_command(in, done); },
      [completion](XmlRpc::XmlRpcValue& result) { completion->finish(std::move(result)); });
}

void vx_xmlrpc_method::execute(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue& result) {
  // Shared with the finish step, which may run after this returns.
  auto answer = std::make_shared<std::optional<XmlRpc::XmlRpcValue>>();
  run_call(
      params, [this](const vxcore::properties& in, answer_fn done) { run_command(in, done); },
      [answer](XmlRpc::XmlRpcValue& value) { *answer = value; });
  if (!answer->has_value())
    throw XmlRpc::XmlRpcException(_name + " waits for the client proxy: call it asynchronously");
  result = std::move(**answer);
}

void vx_xmlrpc_method::verify_and_send(const vxnet::vxp::packet& request, answer_fn done) {
  const vxnet::vxp::command_db* db = server_->get_command_db();
  if (!db) {
    // Only reachable if a method runs before the server finished loading.
    vxcore::properties out(false);
    out["error"] = make_refcount<vxcore::property_string>("Malformed method " + _name +
                                                          " (no command database loaded)");
    done(out);
    return;
  }
  answer_request(
      *db, request,
      [this](const vxnet::vxp::packet& p, reply_fn reply) {
        server_->send_to_proxy(p, std::move(reply));
      },
      _name, std::move(done));
}

std::string method_help(const std::string& help, const std::string& command) {
  return vxbase::string_with_format("%s (Corresponding vxp_clientproxy.xml command: '%s')",
                                    help.c_str(), command.c_str());
}

vxnet::vxp::packet make_request(const std::string& command, const vxcore::properties& in,
                                bool node_command) {
  vxnet::vxp::packet request(command_packet_type, command, in);
  if (node_command) {
    auto info = make_refcount<vxcore::properties>(false);
    if (in.is_present(target_node_info)) {
      if (const vxcore::properties_ptr given = in.get_properties_value(target_node_info))
        *info = *given;
    }
    (*info)["iid"] = make_refcount<vxcore::property_string>(server_iid);
    (*info)["persistent"] = make_refcount<vxcore::property_bool>(true);
    request.set_property(target_node_info, info);
  }
  return request;
}

void answer_request(const vxnet::vxp::command_db& db, const vxnet::vxp::packet& request,
                    const send_fn& send, const std::string& method, answer_fn done) {
  std::string reason;
  if (db.verify_send(request, reason)) {
    send(request, [done = std::move(done)](const vxnet::vxp::packet& reply) {
      done(reply.get_properties());
    });
    return;
  }
  vxcore::properties out(false);
  out["error"] = make_refcount<vxcore::property_string>(
      vxbase::string_with_format("Malformed method %s (%s)", method.c_str(), reason.c_str()));
  done(out);
}

void run_call(XmlRpc::XmlRpcValue& params, const command_fn& run, const finish_fn& finish) {
  params.setSize(1);
  vxcore::property_ptr in = to_property(params[0]);
  if (!in) in = make_refcount<vxcore::properties>(false);
  if (in->get_kind() != vxcore::kind_properties) {
    XmlRpc::XmlRpcValue result;
    result["error"] = vxbase::string_with_format("Wrong input, expected a struct. got %s: \n%s",
                                                 vxcore::property::c_str(in->get_kind()),
                                                 in->to_string().c_str());
    finish(result);
    return;
  }
  // The first answer counts; the flag is shared with answers that come later.
  auto answered = std::make_shared<bool>(false);
  answer_fn done = [answered, finish](const vxcore::properties& out) {
    if (*answered) return;
    *answered = true;
    XmlRpc::XmlRpcValue result = to_xmlrpc(out);
    finish(result);
  };
  try {
    run(static_cast<const vxcore::properties&>(*in), done);
  } catch (...) {
    // Dropped on purpose: the caller gets an empty struct, as the command
    // step had gathered nothing.
    done(vxcore::properties(false));
  }
}

}  // namespace xmlrpcs
