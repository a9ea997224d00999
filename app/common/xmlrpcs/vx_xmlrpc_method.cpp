// Running one method call: conversion, command check, proxy round trip.
#include "vx_xmlrpc_method.h"

#include <vxbase/strings.h>
#include <vxcore/property_all.h>

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

void vx_xmlrpc_method::execute(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue& result) {
  run_call(params, result,
           [this](const vxcore::properties& in, vxcore::properties& out) { run_command(in, out); });
}

void vx_xmlrpc_method::verify_and_send(const vxnet::vxp::packet& request, vxcore::properties& out) {
  const vxnet::vxp::command_db* db = server_->get_command_db();
  if (!db) {
    // Only reachable if a method runs before the server finished loading.
    out["error"] = make_refcount<vxcore::property_string>("Malformed method " + _name +
                                                          " (no command database loaded)");
    return;
  }
  answer_request(
      *db, request, [this](const vxnet::vxp::packet& p) { return server_->send_to_proxy(p); },
      _name, out);
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
                    const std::function<vxnet::vxp::packet(const vxnet::vxp::packet&)>& send,
                    const std::string& method, vxcore::properties& out) {
  std::string reason;
  if (db.verify_send(request, reason)) {
    out = send(request).get_properties();
    return;
  }
  out["error"] = make_refcount<vxcore::property_string>(
      vxbase::string_with_format("Malformed method %s (%s)", method.c_str(), reason.c_str()));
}

void run_call(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue& result,
              const std::function<void(const vxcore::properties&, vxcore::properties&)>& run) {
  params.setSize(1);
  vxcore::property_ptr in = to_property(params[0]);
  if (!in) in = make_refcount<vxcore::properties>(false);
  if (in->get_kind() != vxcore::kind_properties) {
    result["error"] = vxbase::string_with_format("Wrong input, expected a struct. got %s: \n%s",
                                                 vxcore::property::c_str(in->get_kind()),
                                                 in->to_string().c_str());
    return;
  }
  vxcore::properties out(false);
  try {
    run(static_cast<const vxcore::properties&>(*in), out);
  } catch (...) {
    // Dropped on purpose: the caller gets whatever out holds by now.
  }
  result = to_xmlrpc(out);
}

}  // namespace xmlrpcs
