// A handler of the proxy connection that records every call made on it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <vxcapi/connection.h>
#include <vxcore/property_all.h>

namespace link_test {

using vxnet::vxp::packet;

// Every call the connection makes on its handler, in order.
class recording_handler : public vxcapi::handler {
 public:
  struct status_call {
    vxcapi::result_code code;
    std::string text;
    bool connected;
  };
  bool status(vxcapi::result_code code, const std::string& text, bool connected) override {
    statuses.push_back({code, text, connected});
    return accept_links;
  }
  void disconnected(const std::string& reason, bool error) override {
    disconnects.emplace_back(reason, error);
  }
  bool handle(const packet& in, packet& out) override {
    handled.push_back(in);
    if (in.get_command() != "proxy.ask") return false;
    out.set_property("answer", vxbase::make_refcount<vxcore::property_int>(42));
    return true;
  }

  bool accept_links = true;
  std::vector<status_call> statuses;
  std::vector<std::pair<std::string, bool>> disconnects;
  std::vector<packet> handled;
};

}  // namespace link_test
