// The simulator's echo command numbered n, and the number read back from a
// reply: how the link tests tell their commands and replies apart.
#pragma once

#include <cstdint>

#include <vxbase/ptr_refcount.h>
#include <vxcore/property_all.h>
#include <vxnet/vxp/packet.h>

namespace link_test {

inline vxnet::vxp::packet echo_with(std::int64_t n) {
  vxnet::vxp::packet p(vxnet::vxp::type_command, "proxy.sim.echo");
  p.set_property("n", vxbase::make_refcount<vxcore::property_int>(n));
  return p;
}

// The number of an echo reply, or -1 when it has none.
inline std::int64_t n_of(const vxnet::vxp::packet& p) {
  const auto n = p.get_property("n");
  if (!n || n->get_kind() != vxcore::kind_int) return -1;
  return static_cast<const vxcore::property_int&>(*n).value();
}

}  // namespace link_test
