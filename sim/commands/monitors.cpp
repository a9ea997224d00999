// proxy.node.monitor.* and proxy.node.status.monitors: watch folders.
#include <algorithm>
#include <string>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

vxcore::property_ptr monitor_struct(const monitor& m) {
  auto s = vxbase::make_refcount<vxcore::properties>(false);
  s->set("monitor-id", make::text(m.id));
  s->set("name", make::text(m.name));
  s->set("path", make::text(m.path));
  if (!m.file_pattern.empty()) s->set("file-pattern", make::text(m.file_pattern));
  s->set("workflow-ids", make::texts(m.workflow_ids));
  s->set("state", make::text(m.state));
  s->set("priority", make::integer(m.priority));
  return s;
}

void answer_monitor(vxnet::vxp::packet& out, const monitor& m) {
  out.set_property("monitor-id", make::text(m.id));
  out.set_property("state", make::text(m.state));
  out.set_property("priority", make::integer(m.priority));
}

command_handler switcher(std::string to) {
  return [to = std::move(to)](const vxnet::vxp::packet& in, vxnet::vxp::packet& out,
                              command_context& ctx) {
    monitor& m = ctx.state().find_monitor(args::required_text(in, "monitor-id"));
    if (m.state == to) throw command_error("monitor '" + m.id + "' is " + to + " already");
    m.state = to;
    answer_monitor(out, m);
  };
}

void set_priority(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  monitor& m = ctx.state().find_monitor(args::required_text(in, "monitor-id"));
  m.priority = args::priority(in, true);
  answer_monitor(out, m);
}

void remove(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  const std::string id = args::required_text(in, "monitor-id");
  ctx.state().remove_monitor(id);
  out.set_property("monitor-id", make::text(id));
  out.set_property("removed", make::boolean(true));
}

// Every monitor, or those named in monitor-ids.
void list(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  const auto wanted = args::text_list(in, "monitor-ids");
  auto monitors = vxbase::make_refcount<vxcore::property_list>();
  for (const auto& [id, m] : ctx.state().monitors())
    if (!wanted || std::find(wanted->begin(), wanted->end(), id) != wanted->end())
      monitors->push_back(monitor_struct(m));
  out.set_property("monitors", monitors);
}

}  // namespace

void register_monitor_commands(command_registry& registry) {
  registry.add("proxy.node.monitor.start", switcher("running"));
  registry.add("proxy.node.monitor.stop", switcher("stopped"));
  registry.add("proxy.node.monitor.set-priority", set_priority);
  registry.add("proxy.node.monitor.remove", remove);
  registry.add("proxy.node.monitor.list", list);
  registry.add("proxy.node.status.monitors", list);
}

}  // namespace sim
