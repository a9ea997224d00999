// Catching what a piece of code sends to the system log: the code runs in a
// child process whose private mount namespace has a socket of the test's
// own at /dev/log.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace logging_test {

struct syslog_capture {
  // False when the private namespace could not be made (not root, no mount
  // rights): the test must skip, saying why_not.
  bool ran = false;
  std::string why_not;
  // Every datagram that arrived at /dev/log while action ran, in order, as
  // syslog(3) sent it: "<priority>timestamp source[pid]: text".
  std::vector<std::string> datagrams;
  // The child's exit status: 0 unless action ended the process.
  int status = 0;
};

// Runs action in a forked child inside a private mount namespace where
// /dev/log is a datagram socket bound by the child itself (an overlay over
// /dev, so the host's /dev is untouched and other processes see nothing).
// Returns what arrived. Needs root. With log_daemon false, /dev/log is a
// plain file instead: every system log message fails to be sent, as when
// no log daemon runs.
syslog_capture capture_syslog(const std::function<void()>& action, bool log_daemon = true);

// Splits a datagram into its priority number and the text after the
// "source[pid]: " that syslog(3) puts first. source is what openlog got.
struct syslog_line {
  int priority = -1;
  std::string source;  // the ident before "[pid]"
  std::string text;
};
syslog_line parse_syslog_datagram(const std::string& datagram);

}  // namespace logging_test
