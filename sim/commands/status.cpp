// proxy.node.status.tasks(2) and proxy.node.status.workflows(2): what the
// cluster is doing, filtered as asked.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

bool wanted(const std::optional<std::vector<std::string>>& filter, const std::string& value) {
  return !filter || std::find(filter->begin(), filter->end(), value) != filter->end();
}

// The offset / max-results window of the "2" variants; everything for the
// others.
struct window {
  std::int64_t offset = 0;
  std::optional<std::int64_t> max;

  static window of(const vxnet::vxp::packet& in, bool paged) {
    window w;
    if (!paged) return w;
    w.offset = std::max<std::int64_t>(0, args::integer(in, "offset").value_or(0));
    w.max = args::integer(in, "max-results");
    return w;
  }
  // Appends item when its index falls inside the window.
  void add(vxcore::property_list& to, std::int64_t index, vxcore::property_ptr item) const {
    if (index >= offset && (!max || index < offset + *max)) to.push_back(std::move(item));
  }
};

vxcore::property_ptr job_struct(const job& j) {
  auto s = vxbase::make_refcount<vxcore::properties>(false);
  s->set("job-id", make::text(j.id));
  s->set("workflow-id", make::text(j.workflow_id));
  s->set("name", make::text(j.name));
  s->set("state", make::text(j.state));
  s->set("priority", make::integer(j.priority));
  s->set("progress", make::real(j.progress));
  if (!j.failure.empty()) s->set("failure", make::text(j.failure));
  return s;
}

command_handler tasks(bool paged) {
  return [paged](const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
    const auto job_ids = args::text_list(in, "job-ids");
    const auto workflow_ids = args::text_list(in, "workflow-ids");
    const auto states = args::text_list(in, "states");
    const window w = window::of(in, paged);
    auto list = vxbase::make_refcount<vxcore::property_list>();
    std::int64_t matched = 0;
    for (const auto& [id, j] : ctx.state().jobs()) {
      if (!wanted(job_ids, id) || !wanted(workflow_ids, j.workflow_id) || !wanted(states, j.state))
        continue;
      w.add(*list, matched++, job_struct(j));
    }
    out.set_property("tasks", list);
    out.set_property("total", make::integer(matched));
  };
}

command_handler workflows(bool paged) {
  return [paged](const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
    const auto workflow_ids = args::text_list(in, "workflow-ids");
    const auto states = args::text_list(in, "states");
    const window w = window::of(in, paged);
    auto list = vxbase::make_refcount<vxcore::property_list>();
    std::int64_t matched = 0;
    for (const auto& [id, wf] : ctx.state().workflows()) {
      if (!wanted(workflow_ids, id)) continue;
      // The states filter asks for the workflow's own state.
      const workflow_summary summary = ctx.state().summarize(wf);
      if (!wanted(states, summary.state)) continue;
      auto s = vxbase::make_refcount<vxcore::properties>(false);
      s->set("workflow-id", make::text(wf.id));
      s->set("name", make::text(wf.name));
      s->set("state", make::text(summary.state));
      s->set("progress", make::real(summary.progress));
      s->set("priority", make::integer(wf.priority));
      s->set("submitted", vxbase::make_refcount<vxcore::property_time>(wf.submitted_us));
      s->set("job-ids", make::texts(wf.job_ids));
      w.add(*list, matched++, s);
    }
    out.set_property("workflows", list);
    out.set_property("total", make::integer(matched));
  };
}

}  // namespace

void register_status_commands(command_registry& registry) {
  registry.add("proxy.node.status.tasks", tasks(false));
  registry.add("proxy.node.status.tasks2", tasks(true));
  registry.add("proxy.node.status.workflows", workflows(false));
  registry.add("proxy.node.status.workflows2", workflows(true));
}

}  // namespace sim
