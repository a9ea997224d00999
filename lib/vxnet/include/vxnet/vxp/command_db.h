// vxp::command_db: the commands the client proxy accepts, each with the
// properties it takes, and the check of an outgoing packet against them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>
#include <vxcore/constraint_db.h>
#include <vxcore/properties.h>
#include <vxnet/vxp/packet.h>

namespace vxcore::xml {
class reader;
}

namespace vxnet::vxp {

class command_db : public vxbase::object_refcount {
 public:
  command_db() = default;

  // Adds the commands of a parsed command document (root <commands>, one
  // <command name="..."> per command with a <property name="..."
  // ref="..." [required="true"] [nullable="true"]/> per property it
  // takes). Every ref names an entry of constraints. Raises
  // vxbase::es::call_error naming the command, the property and the line
  // when the document is not such a document, a ref is unknown or a
  // command is defined twice; the database is then left as it was.
  void read_commands(const vxcore::xml::reader& reader, const vxcore::constraint_db& constraints);

  // Whether packet may be sent: its command is known, every required
  // property is present, no property is unknown and every value has the
  // kind and range its constraint asks. On false, reason says what is wrong
  // and names the property ("priority: 11 is out of range, expected an
  // integer from 0 to 10"; "unknown command 'x'").
  bool verify_send(const packet& p, std::string& reason) const;

  // verify_send for a command name and payload.
  bool verify(const std::string& command, const vxcore::properties& payload,
              std::string& reason) const;

  bool knows(const std::string& command) const { return commands_.count(command) != 0; }
  // The properties a command takes; null for an unknown command.
  vxcore::constraint_db_ptr find(const std::string& command) const;
  // Every command name, sorted.
  std::vector<std::string> command_names() const;
  std::size_t size() const noexcept { return commands_.size(); }

 private:
  std::map<std::string, vxcore::constraint_db_ptr> commands_;
};

using command_db_ptr = vxbase::ptr_refcount<command_db>;

}  // namespace vxnet::vxp
