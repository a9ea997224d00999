// vxp::packet: one command or reply of the vxp protocol: a type code, a
// command name and a properties payload.
#pragma once

#include <cstdint>
#include <string>

#include <vxcore/properties.h>
#include <vxcore/property.h>

namespace vxnet::vxp {

// The type codes in use. The code is carried as a number, so a peer may send
// any value; these are the ones the libraries and the program give meaning.
enum packet_type : std::uint32_t {
  type_none = 0,     // a default-made packet: nothing to send
  type_notice = 1,   // an event the proxy sends on its own
  type_command = 2,  // a command sent to the proxy
  type_reply = 4,    // an answer to a command
};

// A value type: copies are independent (the payload map is copied; the
// property values it points to are immutable and shared).
class packet {
 public:
  packet() = default;
  packet(std::uint32_t type, std::string command,
         vxcore::properties payload = vxcore::properties(false))
      : type_(type), command_(std::move(command)), payload_(std::move(payload)) {}

  std::uint32_t get_type() const noexcept { return type_; }
  void set_type(std::uint32_t type) noexcept { type_ = type; }

  // The command name, such as "proxy.general.version".
  const std::string& get_command() const noexcept { return command_; }
  void set_command(std::string command) { command_ = std::move(command); }

  const vxcore::properties& get_properties() const noexcept { return payload_; }
  vxcore::properties& get_properties() noexcept { return payload_; }
  void set_properties(vxcore::properties payload) { payload_ = std::move(payload); }

  // Sets one top-level payload entry, replacing any present; value may be null.
  void set_property(const std::string& name, vxcore::property_ptr value) {
    payload_.set(name, std::move(value));
  }
  // The top-level entry under name; null when absent.
  vxcore::property_ptr get_property(const std::string& name) const { return payload_.get(name); }

  // Same type, command and payload (values compared deeply).
  bool equals(const packet& other) const {
    return type_ == other.type_ && command_ == other.command_ && payload_.equals(other.payload_);
  }

 private:
  std::uint32_t type_ = type_none;
  std::string command_;
  vxcore::properties payload_{false};
};

}  // namespace vxnet::vxp
