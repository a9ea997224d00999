// proxy.node.job.*: the life of one job.
#include <string>
#include <vector>

#include "../command_args.h"
#include "../command_registry.h"

namespace sim {
namespace {

void answer_job(vxnet::vxp::packet& out, const job& j) {
  out.set_property("job-id", make::text(j.id));
  out.set_property("state", make::text(j.state));
  out.set_property("priority", make::integer(j.priority));
}

// A command that moves the job named by `job-id` from one of from to to.
command_handler mover(std::vector<std::string> from, std::string to) {
  return [from = std::move(from), to = std::move(to)](
             const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
    job& j = ctx.state().find_job(args::required_text(in, "job-id"));
    ctx.state().transition(j, from, to);
    answer_job(out, j);
  };
}

void set_priority(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& ctx) {
  job& j = ctx.state().find_job(args::required_text(in, "job-id"));
  const std::int64_t priority = args::priority(in, true);
  if (j.state == "finished" || j.state == "failed" || j.state == "cancelled")
    throw command_error("job '" + j.id + "' is " + j.state + ", its priority cannot change");
  j.priority = priority;
  answer_job(out, j);
}

}  // namespace

void register_job_commands(command_registry& registry) {
  registry.add("proxy.node.job.pause", mover({"queued", "running"}, "paused"));
  registry.add("proxy.node.job.resume", mover({"paused"}, "queued"));
  registry.add("proxy.node.job.cancel", mover({"queued", "running", "paused"}, "cancelled"));
  registry.add("proxy.node.job.requeue", mover({"finished", "failed", "cancelled"}, "queued"));
  registry.add("proxy.node.job.set-priority", set_priority);
}

}  // namespace sim
