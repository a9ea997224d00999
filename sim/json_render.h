// Property trees as JSON text, for the simulator's record of the commands it
// receives (read by tests and people, not by programs of the system).
#pragma once

#include <string>

#include <vxcore/property.h>
#include <vxnet/vxp/packet.h>

namespace sim {

// One JSON value for p: null for a null pointer; a string for string and
// path; a number for int and real (non-finite reals as the strings "nan",
// "inf", "-inf"); true/false for bool; an array for a list; an object for a
// map; the text rendering as a string for uuid, time and version; and
// {"binary": "<lowercase hex>"} for binary. Text that is not valid UTF-8 has
// each stray byte written as \u00XX.
std::string to_json(const vxcore::property_ptr& p);

// {"client": n, "id": id, "type": t, "command": "...", "properties": {...}}
std::string record_line(std::uint64_t client, std::uint64_t id, const vxnet::vxp::packet& p);

}  // namespace sim
