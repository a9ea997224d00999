// The simulated cluster behind the simulator's node commands: workflows,
// their jobs and the watch folders (monitors), shared by every client.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
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
  // Which file names it takes, as a shell wildcard ("*.mov"); empty: all.
  std::string file_pattern;
  // A new watch folder waits to be started, as a cluster's does.
  std::string state = "stopped";  // running, stopped
  std::int64_t priority = 5;
  // The tasks each new file gets, and the files of path already taken
  // (those present when the watch folder was made count as taken).
  std::vector<std::string> task_names;
  std::set<std::string> seen;
  std::vector<std::string> workflow_ids;  // made from new files
};

// Orders ids the way the simulator hands them out: "wf-2" before "wf-11"
// (by the text before the last '-', then by the number after it).
struct id_order {
  bool operator()(const std::string& a, const std::string& b) const noexcept;
};

// A workflow's state and progress, as its jobs make them: running while
// any job runs; paused while one is paused and none runs; queued while one
// waits; otherwise (all ended) failed if one failed, finished if one
// finished, else cancelled. Progress is the mean of the jobs' progress.
struct workflow_summary {
  std::string state;
  double progress = 0.0;
};

// True when name matches the shell wildcard pattern: '*' any run of
// characters, '?' any one, everything else itself (case counts).
bool wildcard_match(std::string_view pattern, std::string_view name) noexcept;

// The priority range of jobs and monitors.
inline constexpr std::int64_t min_priority = 0;
inline constexpr std::int64_t max_priority = 10;

class sim_state {
 public:
  // Adds a workflow with one job per task name; returns it.
  const workflow& submit(const std::string& name, std::int64_t priority,
                         const std::vector<std::string>& task_names);
  // A stopped watch folder on path: once started, each new regular file
  // whose name matches file_pattern (all when empty) that appears there
  // (when path is a real directory) becomes a workflow with one job per
  // task name. The files already there when it is made are not new.
  const monitor& add_monitor(const std::string& name, const std::string& path,
                             const std::string& file_pattern, std::int64_t priority,
                             std::vector<std::string> task_names);

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

  workflow_summary summarize(const workflow& w) const;

  // Removes a workflow and its jobs.
  void remove_workflow(const std::string& id);
  void remove_monitor(const std::string& id);

  template <typename T>
  using by_id = std::map<std::string, T, id_order>;

  const by_id<job>& jobs() const noexcept { return jobs_; }
  const by_id<workflow>& workflows() const noexcept { return workflows_; }
  const by_id<monitor>& monitors() const noexcept { return monitors_; }

 private:
  void scan_watch_folders();

  std::uint64_t next_ = 1;
  unsigned job_duration_ms_ = 0;
  unsigned fail_every_ = 0;
  std::uint64_t ended_ = 0;
  std::int64_t last_run_ms_ = -1;
  by_id<job> jobs_;
  by_id<workflow> workflows_;
  by_id<monitor> monitors_;
};

}  // namespace sim
