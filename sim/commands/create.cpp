// proxy.task.create.* and proxy.source.create.*: building the task and
// source structs that a later proxy.node.submit.build takes.
#include <string>
#include <vector>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

// What one create command needs before it can make its struct.
struct create_spec {
  const char* command;
  const char* result;                 // "task" or "source"
  const char* type;                   // the struct's `type` member
  std::vector<const char*> required;  // properties it cannot work without
};

// Answers with {result: {type, every property of the request}}.
command_handler creator(create_spec spec) {
  return [spec](const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context&) {
    for (const char* name : spec.required)
      if (!in.get_property(name))
        throw command_error(std::string("property '") + name + "' is required");
    auto made = vxbase::make_refcount<vxcore::properties>(false);
    for (const auto& [key, value] : in.get_properties())
      if (key != "target-node-info") made->set(key, value);
    made->set("type", make::text(spec.type));
    out.set_property(spec.result, made);
  };
}

}  // namespace

void register_create_commands(command_registry& registry) {
  const create_spec specs[] = {
      {"proxy.task.create.transfer", "task", "transfer", {"destination"}},
      {"proxy.task.create.youtube", "task", "youtube", {"username", "password", "title"}},
      {"proxy.task.create.execute", "task", "execute", {"command"}},
      {"proxy.task.create.mail", "task", "mail", {"to"}},
      {"proxy.task.create.mbr", "task", "mbr", {"bitrates"}},
      {"proxy.source.create.file-source", "source", "file-source", {"files"}},
      {"proxy.source.create.monitor-source", "source", "monitor-source", {"path"}},
      {"proxy.source.create.edl-source", "source", "edl-source", {"clips"}},
      {"proxy.source.create.iseq-source", "source", "iseq-source", {"path"}},
  };
  for (const auto& spec : specs) registry.add(spec.command, creator(spec));
}

}  // namespace sim
