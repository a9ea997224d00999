// Fuzz target: arbitrary bytes from the client proxy's side of the link and
// in the command-database files: the vxp frame reader, the msgpack message
// and property decoders, the compiled constraint database, and the
// constraint and command documents.
//
// Input layout: byte 0 picks the reader (below), byte 1 how the rest is cut
// into pieces for the frame reader (0: one piece); the remaining bytes are
// its input. A reader may refuse its input only with its documented error
// (vxnet::vxp::protocol_error, vxbase::es::base); anything else, a crash or
// a sanitizer report is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <vxbase/es.h>
#include <vxcore/constraint_db.h>
#include <vxcore/xml_reader.h>
#include <vxnet/vxp/command_db.h>
#include <vxnet/vxp/wire.h>

namespace {

// The constraints the command documents of the fuzzer may refer to.
const vxcore::constraint_db& known_constraints() {
  static const vxcore::constraint_db db = [] {
    vxcore::constraint_db d(0);
    vxcore::xml::reader r;
    r.parse(
        "<constraints><constraint name=\"text\" type=\"string\"/>"
        "<constraint name=\"priority\" type=\"int\" range=\"0..10\"/>"
        "<constraint name=\"text-list\" type=\"list\" of=\"text\"/></constraints>");
    d.add_constraints(r, nullptr, "constraints", true);
    return d;
  }();
  return db;
}

void frames(std::string_view in, std::size_t piece) {
  vxnet::vxp::frame_reader reader;
  try {
    for (std::size_t at = 0; at < in.size(); at += piece) {
      const std::string_view part = in.substr(at, piece);
      reader.feed(part.data(), part.size());
      while (auto body = reader.next()) {
        try {
          const vxnet::vxp::message m = vxnet::vxp::decode_message(*body);
          // What was decoded encodes again (a message too big to send is
          // refused with protocol_error as well).
          (void)vxnet::vxp::encode_message(m);
        } catch (const vxnet::vxp::protocol_error&) {
        }
      }
    }
  } catch (const vxnet::vxp::protocol_error&) {
    // An oversized frame header ends the stream, as it ends the link.
  }
}

void property(std::string_view in) {
  try {
    const vxcore::property_ptr p = vxnet::vxp::decode_property(in);
    // A decoded tree encodes to exactly the bytes of a canonical encoding,
    // which decodes to an equal tree.
    const std::string again = vxnet::vxp::encode_property(p);
    const vxcore::property_ptr q = vxnet::vxp::decode_property(again);
    if ((p == nullptr) != (q == nullptr) || (p && !p->equals(*q))) __builtin_trap();
  } catch (const vxnet::vxp::protocol_error&) {
  }
}

void compiled_constraints(std::string_view in) {
  try {
    vxcore::constraint_db db{std::string(in)};
    (void)db.to_compiled();
  } catch (const vxbase::es::base&) {
  }
}

void documents(std::string_view in) {
  vxcore::xml::reader reader;
  if (!reader.parse(in)) return;
  try {
    vxcore::constraint_db db(0);
    db.add_constraints(reader, &known_constraints(), reader.root().name, true);
  } catch (const vxbase::es::base&) {
  }
  try {
    vxnet::vxp::command_db commands;
    commands.read_commands(reader, known_constraints());
  } catch (const vxbase::es::base&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view in(reinterpret_cast<const char*>(data) + 2, size - 2);
  switch (data[0] % 4) {
    case 0:
      frames(in, data[1] == 0 ? in.size() + 1 : data[1]);
      break;
    case 1:
      property(in);
      break;
    case 2:
      compiled_constraints(in);
      break;
    default:
      documents(in);
      break;
  }
  return 0;
}
