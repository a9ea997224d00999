// The simulated cluster's bookkeeping.
#include "sim_state.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace sim {

bool id_order::operator()(const std::string& a, const std::string& b) const noexcept {
  const auto split = [](const std::string& id) {
    const auto dash = id.rfind('-');
    const auto digits = dash == std::string::npos ? std::string::npos : dash + 1;
    const bool numbered = digits != std::string::npos && digits < id.size() &&
                          id.find_first_not_of("0123456789", digits) == std::string::npos;
    return numbered ? std::pair{std::string_view(id).substr(0, dash),
                                std::string_view(id).substr(digits)}
                    : std::pair{std::string_view(id), std::string_view()};
  };
  const auto [prefix_a, number_a] = split(a);
  const auto [prefix_b, number_b] = split(b);
  if (prefix_a != prefix_b) return prefix_a < prefix_b;
  // Same prefix: the shorter number is the smaller (ids carry no leading
  // zeros); equal lengths compare as text.
  if (number_a.size() != number_b.size()) return number_a.size() < number_b.size();
  if (number_a != number_b) return number_a < number_b;
  return a < b;
}

const workflow& sim_state::submit(const std::string& name, std::int64_t priority,
                                  const std::vector<std::string>& task_names) {
  workflow w;
  w.id = "wf-" + std::to_string(next_++);
  w.name = name;
  w.priority = priority;
  w.submitted_us = std::chrono::duration_cast<std::chrono::microseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  for (const auto& task : task_names) {
    job j;
    j.id = "job-" + std::to_string(next_++);
    j.workflow_id = w.id;
    j.name = task;
    j.priority = priority;
    w.job_ids.push_back(j.id);
    jobs_.emplace(j.id, j);
  }
  return workflows_.emplace(w.id, w).first->second;
}

namespace {

// The regular files directly in dir; none when it is no readable directory.
std::set<std::string> files_in(const std::string& dir) {
  std::set<std::string> files;
  std::error_code ec;
  if (dir.empty() || !std::filesystem::is_directory(dir, ec)) return files;
  for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec)) files.insert(it->path().filename().string());
  return files;
}

}  // namespace

bool wildcard_match(std::string_view pattern, std::string_view name) noexcept {
  // The classic greedy walk: remember the last '*' and how much of name it
  // has swallowed, and let it swallow one more byte on a mismatch.
  std::size_t p = 0, n = 0, star = std::string_view::npos, resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = n;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

const monitor& sim_state::add_monitor(const std::string& name, const std::string& path,
                                      const std::string& file_pattern, std::int64_t priority,
                                      std::vector<std::string> task_names) {
  monitor m;
  m.id = "mon-" + std::to_string(next_++);
  m.name = name;
  m.path = path;
  m.file_pattern = file_pattern;
  m.priority = priority;
  m.task_names = std::move(task_names);
  m.seen = files_in(path);
  return monitors_.emplace(m.id, m).first->second;
}

void sim_state::scan_watch_folders() {
  for (auto& [id, m] : monitors_) {
    if (m.state != "running") continue;
    for (const auto& file : files_in(m.path)) {
      if (!m.file_pattern.empty() && !wildcard_match(m.file_pattern, file)) continue;
      if (!m.seen.insert(file).second) continue;
      m.workflow_ids.push_back(submit(file, m.priority, m.task_names).id);
    }
  }
}

job& sim_state::find_job(const std::string& id) {
  const auto it = jobs_.find(id);
  if (it == jobs_.end()) throw command_error("unknown job '" + id + "'");
  return it->second;
}

workflow& sim_state::find_workflow(const std::string& id) {
  const auto it = workflows_.find(id);
  if (it == workflows_.end()) throw command_error("unknown workflow '" + id + "'");
  return it->second;
}

monitor& sim_state::find_monitor(const std::string& id) {
  const auto it = monitors_.find(id);
  if (it == monitors_.end()) throw command_error("unknown monitor '" + id + "'");
  return it->second;
}

void sim_state::transition(job& j, const std::vector<std::string>& from, const std::string& state) {
  if (std::find(from.begin(), from.end(), j.state) == from.end())
    throw command_error("job '" + j.id + "' is " + j.state + ", cannot become " + state);
  const std::string before = j.state;
  j.state = state;
  // A requeued job starts over; a resumed one goes on from where it was.
  if (state == "queued" && (before == "finished" || before == "failed" || before == "cancelled")) {
    j.progress = 0.0;
    j.run_ms = 0.0;
    j.failure.clear();
  }
}

void sim_state::run_until(std::int64_t now_ms) {
  const std::int64_t elapsed = last_run_ms_ < 0 ? 0 : now_ms - last_run_ms_;
  last_run_ms_ = now_ms;
  scan_watch_folders();
  if (job_duration_ms_ == 0) return;
  for (auto& [id, j] : jobs_) {
    if (j.state == "queued") {
      j.state = "running";  // starts now: the time before counts for nothing
      continue;
    }
    if (j.state != "running") continue;
    j.run_ms += static_cast<double>(elapsed);
    j.progress = std::min(1.0, j.run_ms / job_duration_ms_);
    if (j.progress < 1.0) continue;
    ++ended_;
    if (fail_every_ != 0 && ended_ % fail_every_ == 0) {
      j.state = "failed";
      j.failure = "simulated failure of job '" + j.id + "'";
    } else {
      j.state = "finished";
    }
  }
}

workflow_summary sim_state::summarize(const workflow& w) const {
  workflow_summary summary;
  std::set<std::string> states;
  for (const auto& job_id : w.job_ids) {
    const auto it = jobs_.find(job_id);
    if (it == jobs_.end()) continue;
    states.insert(it->second.state);
    summary.progress += it->second.progress;
  }
  if (!w.job_ids.empty()) summary.progress /= static_cast<double>(w.job_ids.size());
  // The first state of this list that a job is in names the workflow's.
  for (const char* state : {"running", "paused", "queued", "failed", "finished", "cancelled"}) {
    if (states.count(state) != 0) {
      summary.state = state;
      break;
    }
  }
  if (summary.state.empty()) summary.state = "finished";  // a workflow without jobs
  return summary;
}

void sim_state::remove_workflow(const std::string& id) {
  const workflow& w = find_workflow(id);
  for (const auto& job_id : w.job_ids) jobs_.erase(job_id);
  workflows_.erase(id);
}

void sim_state::remove_monitor(const std::string& id) {
  find_monitor(id);
  monitors_.erase(id);
}

}  // namespace sim
