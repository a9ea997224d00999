// proxy.node.submit.*, proxy.node.submission.recall and
// proxy.node.history.remove-workflow: workflows coming and going.
#include <string>
#include <vector>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

bool is_final(const std::string& state) {
  return state == "finished" || state == "failed" || state == "cancelled";
}

// The `name`, else the `type`, of a task or source struct; fallback when it
// is not a struct or has neither.
std::string struct_name(const vxcore::property_ptr& p, const std::string& fallback) {
  if (!p || p->get_kind() != vxcore::kind_properties) return fallback;
  const auto& s = static_cast<const vxcore::properties&>(*p);
  for (const char* key : {"name", "type"})
    if (const auto v = s.get(key); v && v->get_kind() == vxcore::kind_string) return v->to_string();
  return fallback;
}

void answer_workflow(vxnet::vxp::packet& out, const workflow& w) {
  out.set_property("workflow-id", make::text(w.id));
  out.set_property("job-ids", make::texts(w.job_ids));
}

// Submits a workflow of one job per task; a monitor-source among the
// sources also makes a watch folder, which waits for
// proxy.node.monitor.start.
void submit_build(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  const auto sources = args::required_list(in, "sources");
  const auto tasks = args::required_list(in, "tasks");
  if (tasks->empty()) throw command_error("property 'tasks' is empty");
  const std::string name = args::text(in, "name").value_or("build");
  const std::int64_t priority = args::priority(in, false);
  std::vector<std::string> task_names;
  for (std::size_t i = 0; i < tasks->size(); ++i)
    task_names.push_back(struct_name((*tasks)[i], "task-" + std::to_string(i + 1)));
  std::vector<std::string> monitor_ids;
  for (const auto& source : *sources) {
    if (!source || source->get_kind() != vxcore::kind_properties) continue;
    const auto& s = static_cast<const vxcore::properties&>(*source);
    const auto type = s.get("type");
    if (type && type->to_string() == "monitor-source") {
      const auto path = s.get("path");
      const auto pattern = s.get("file-pattern");
      monitor_ids.push_back(ctx.state()
                                .add_monitor(name, path ? path->to_string() : "",
                                             pattern ? pattern->to_string() : "", priority,
                                             task_names)
                                .id);
    }
  }
  answer_workflow(out, ctx.state().submit(name, priority, task_names));
  if (!monitor_ids.empty()) out.set_property("monitor-ids", make::texts(monitor_ids));
}

void submit_submission(const vxnet::vxp::packet& in, vxnet::vxp::packet& out,
                       command_context& ctx) {
  const auto submission = in.get_property("submission");
  if (!submission) throw command_error("property 'submission' is required");
  if (submission->get_kind() != vxcore::kind_properties)
    throw command_error("property 'submission' must be a struct");
  const auto& s = static_cast<const vxcore::properties&>(*submission);
  const auto priority = s.get("priority");
  const std::int64_t p = priority && priority->get_kind() == vxcore::kind_int
                             ? static_cast<const vxcore::property_int&>(*priority).value()
                             : 5;
  const std::string name = struct_name(submission, "submission");
  answer_workflow(out, ctx.state().submit(name, p, {name}));
}

void recall(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  const std::string id = args::required_text(in, "workflow-id");
  workflow& w = ctx.state().find_workflow(id);
  std::vector<std::string> cancelled;
  for (const auto& job_id : w.job_ids) {
    job& j = ctx.state().find_job(job_id);
    if (is_final(j.state)) continue;
    j.state = "cancelled";
    cancelled.push_back(j.id);
  }
  out.set_property("workflow-id", make::text(id));
  out.set_property("cancelled-job-ids", make::texts(cancelled));
}

// Removes finished workflows from the history; one with a job still to do
// is refused, naming it.
void remove_workflow(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  const auto ids = args::text_list(in, "workflow-ids");
  if (!ids) throw command_error("property 'workflow-ids' is required");
  for (const auto& id : *ids)
    for (const auto& job_id : ctx.state().find_workflow(id).job_ids)
      if (!is_final(ctx.state().find_job(job_id).state))
        throw command_error("workflow '" + id + "' is not finished (job '" + job_id + "')");
  for (const auto& id : *ids) ctx.state().remove_workflow(id);
  out.set_property("removed", make::texts(*ids));
}

}  // namespace

void register_submit_commands(command_registry& registry) {
  registry.add("proxy.node.submit.build", submit_build);
  registry.add("proxy.node.submit.submission", submit_submission);
  registry.add("proxy.node.submission.recall", recall);
  registry.add("proxy.node.history.remove-workflow", remove_workflow);
}

}  // namespace sim
