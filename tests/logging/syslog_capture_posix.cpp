// A private /dev/log for tests, in a mount namespace of a child process.
#include "syslog_capture.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace logging_test {

namespace {

// syslog(3) sends one datagram per message and cuts long ones far below this.
constexpr std::size_t max_datagram = 64 * 1024;

// Child-to-parent records: a tag byte, a 32-bit length, the bytes.
// How long the child waits for a datagram before it looks whether the
// action has ended.
constexpr int poll_interval_ms = 10;

constexpr char tag_setup_failed = 'S';
constexpr char tag_datagram = 'D';
constexpr char tag_exit_status = 'E';

void write_all(int fd, const void* data, std::size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
}

void send_record(int fd, char tag, const std::string& bytes) {
  const auto size = static_cast<std::uint32_t>(bytes.size());
  write_all(fd, &tag, 1);
  write_all(fd, &size, sizeof size);
  write_all(fd, bytes.data(), bytes.size());
}

// Sets up the namespace and binds /dev/log. Returns the socket, or -1 with
// why filled in.
int make_private_dev_log(const std::string& scratch, bool log_daemon, std::string& why) {
  const auto fail = [&why](const char* step) {
    why = std::string(step) + ": " + std::strerror(errno);
    return -1;
  };
  if (::unshare(CLONE_NEWNS) != 0) return fail("unshare(CLONE_NEWNS)");
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return fail("making / private");
  }
  if (::mount("none", scratch.c_str(), "tmpfs", 0, nullptr) != 0) return fail("tmpfs on scratch");
  const std::string upper = scratch + "/upper";
  const std::string work = scratch + "/work";
  if (::mkdir(upper.c_str(), 0755) != 0 || ::mkdir(work.c_str(), 0755) != 0) {
    return fail("overlay folders");
  }
  const std::string options = "lowerdir=/dev,upperdir=" + upper + ",workdir=" + work;
  if (::mount("overlay", "/dev", "overlay", 0, options.c_str()) != 0) {
    return fail("overlay on /dev");
  }
  ::unlink("/dev/log");  // a log daemon's socket of the host, hidden in the overlay only
  if (!log_daemon) {
    // A plain file: syslog(3) cannot connect to it and drops every message.
    const int file = ::open("/dev/log", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0) return fail("plain /dev/log");
    ::close(file);
    const int unused = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (unused < 0) return fail("socket");
    return unused;  // nothing will ever arrive on it
  }
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail("socket");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return fail("bind /dev/log");
  }
  return fd;
}

}  // namespace

syslog_capture capture_syslog(const std::function<void()>& action, bool log_daemon) {
  syslog_capture result;
  if (::geteuid() != 0) {
    result.why_not = "capturing the system log needs root (a private mount namespace)";
    return result;
  }
  char scratch_template[] = "/tmp/syslog-capture.XXXXXX";
  const char* scratch = ::mkdtemp(scratch_template);
  int pipe_fds[2];
  if (scratch == nullptr || ::pipe(pipe_fds) != 0) {
    result.why_not = std::string("scratch folder or pipe: ") + std::strerror(errno);
    return result;
  }
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipe_fds[0]);
    std::string why;
    const int log_fd = make_private_dev_log(scratch, log_daemon, why);
    if (log_fd < 0) {
      send_record(pipe_fds[1], tag_setup_failed, why);
      ::_exit(0);
    }
    const pid_t grandchild = ::fork();
    if (grandchild == 0) {
      // The action runs in a process of its own so that one that ends the
      // process (a fatal report) is observed as such; syslog(3) sends
      // synchronously, so when it has ended its datagrams wait on log_fd.
      ::close(pipe_fds[1]);
      action();
      std::fflush(nullptr);
      ::_exit(0);
    }
    // Read while the action runs: the socket queues only a few datagrams
    // (net.unix.max_dgram_qlen) before the sender would block or drop.
    const auto drain = [log_fd, out_fd = pipe_fds[1]] {
      std::string buffer(max_datagram, '\0');
      for (;;) {
        const ssize_t n = ::recv(log_fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (n < 0) return;
        send_record(out_fd, tag_datagram, buffer.substr(0, static_cast<std::size_t>(n)));
      }
    };
    int status = 0;
    for (;;) {
      pollfd readable{log_fd, POLLIN, 0};
      ::poll(&readable, 1, poll_interval_ms);
      drain();
      const pid_t done = ::waitpid(grandchild, &status, WNOHANG);
      if (done == grandchild || (done < 0 && errno != EINTR)) break;
    }
    drain();  // syslog(3) sends synchronously: all is queued by now
    send_record(pipe_fds[1], tag_exit_status, std::to_string(status));
    ::_exit(0);
  }
  ::close(pipe_fds[1]);
  std::string bytes;
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(pipe_fds[0], buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(pipe_fds[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  ::rmdir(scratch);

  result.ran = true;
  std::size_t at = 0;
  while (at + 5 <= bytes.size()) {
    const char tag = bytes[at];
    std::uint32_t size = 0;
    std::memcpy(&size, bytes.data() + at + 1, sizeof size);
    const std::string payload = bytes.substr(at + 5, size);
    at += 5 + size;
    if (tag == tag_setup_failed) {
      result.ran = false;
      result.why_not = "private /dev/log could not be set up: " + payload;
    } else if (tag == tag_datagram) {
      result.datagrams.push_back(payload);
    } else {
      result.status = std::atoi(payload.c_str());
    }
  }
  return result;
}

syslog_line parse_syslog_datagram(const std::string& datagram) {
  syslog_line line;
  if (datagram.empty() || datagram[0] != '<') return line;
  const auto close = datagram.find('>');
  if (close == std::string::npos) return line;
  line.priority = std::atoi(datagram.substr(1, close - 1).c_str());
  // After the priority: "Mmm dd hh:mm:ss " (15 characters and a blank).
  constexpr std::size_t timestamp_length = 16;
  const std::size_t source_at = close + 1 + timestamp_length;
  const auto pid_open = datagram.find('[', source_at);
  const auto text_at = datagram.find("]: ", source_at);
  if (pid_open == std::string::npos || text_at == std::string::npos) return line;
  line.source = datagram.substr(source_at, pid_open - source_at);
  line.text = datagram.substr(text_at + 3);
  return line;
}

}  // namespace logging_test
