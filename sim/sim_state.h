// The simulated cluster behind the simulator's node commands: workflows,
// their jobs and the watch folders (monitors), shared by every client.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

// A command's own refusal: its text becomes the reply's `error` member as
// it stands ("unknown job 'job-9'").
class command_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct job {
  std::string id;           // "job-<n>"
  std::string workflow_id;  // "wf-<n>"
  std::string name;
  std::string state = "queued";  // queued, running, paused, finished, failed, cancelled
  std::int64_t priority = 5;
  double progress = 0.0;
  double run_ms = 0.0;  // running time so far, for the clock-driven progress
  std::string failure;  // why a failed job failed
};

struct workflow {
  std::string id;
  std::string name;
  std::int64_t priority = 5;
  std::int64_t submitted_us = 0;  // microseconds since 1970
  std::vector<std::string> job_ids;
};

struct monitor {
  std::string id;  // "mon-<n>"
  std::string name;
  std::string path;
  std::string state = "running";  // running, stopped
  std::int64_t priority = 5;
  // The tasks each new file gets, and the files of path already taken
  // (those present when the watch folder was made count as taken).
  std::vector<std::string> task_names;
  std::set<std::string> seen;
  std::vector<std::string> workflow_ids;  // made from new files
};

// The priority range of jobs and monitors.
inline constexpr std::int64_t min_priority = 0;
inline constexpr std::int64_t max_priority = 10;

class sim_state {
 public:
  // Adds a workflow with one job per task name; returns it.
  const workflow& submit(const std::string& name, std::int64_t priority,
                         const std::vector<std::string>& task_names);
  // A watch folder on path: while it runs, each new regular file that
  // appears there (when path is a real directory) becomes a workflow with
  // one job per task name.
  const monitor& add_monitor(const std::string& name, const std::string& path,
                             std::int64_t priority, std::vector<std::string> task_names);

  // The job or monitor under id; throws command_error when there is none.
  job& find_job(const std::string& id);
  workflow& find_workflow(const std::string& id);
  monitor& find_monitor(const std::string& id);

  // Moves a job to state, when its present state is one of from; throws
  // command_error naming the job and its state otherwise.
  void transition(job& j, const std::vector<std::string>& from, const std::string& state);

  // Lets the clock drive the jobs: each one runs duration_ms of wall-clock
  // time (0: jobs move only when advanced by hand).
  void set_job_duration(unsigned duration_ms) noexcept { job_duration_ms_ = duration_ms; }
  // Makes every nth job that runs to its end fail instead (0: none fails).
  void set_fail_every(unsigned n) noexcept { fail_every_ = n; }

  // Brings the cluster to the time now_ms (a steady clock): running watch
  // folders take their new files; with a job duration, queued jobs start,
  // running ones gain progress in proportion to the time they ran and end at
  // 1, and paused jobs keep their progress.
  void run_until(std::int64_t now_ms);

  // Removes a workflow and its jobs.
  void remove_workflow(const std::string& id);
  void remove_monitor(const std::string& id);

  const std::map<std::string, job>& jobs() const noexcept { return jobs_; }
  const std::map<std::string, workflow>& workflows() const noexcept { return workflows_; }
  const std::map<std::string, monitor>& monitors() const noexcept { return monitors_; }

 private:
  void scan_watch_folders();

  std::uint64_t next_ = 1;
  unsigned job_duration_ms_ = 0;
  unsigned fail_every_ = 0;
  std::uint64_t ended_ = 0;
  std::int64_t last_run_ms_ = -1;
  std::map<std::string, job> jobs_;
  std::map<std::string, workflow> workflows_;
  std::map<std::string, monitor> monitors_;
};

}  // namespace sim
