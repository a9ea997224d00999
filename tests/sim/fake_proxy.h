// A scripted stand-in for the proxy on a loopback port, for the behaviours
// the simulator never shows: junk, oversized frames, stray replies, requests
// of its own. The script runs on a thread against the one accepted client.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <vxnet/vxp/wire.h>

// The accepted link, as the script sees it. Blocking I/O.
class fake_peer {
 public:
  explicit fake_peer(int fd) : fd_(fd) {}
  // The next message from the client, or nullopt on end of file, time-out
  // (a few seconds) or garbage.
  std::optional<vxnet::vxp::message> read_message();
  void send(const vxnet::vxp::message& m);
  void send_raw(const std::string& bytes);
  // Answers the client's hello with this build's version (or another).
  bool do_hello(std::uint32_t version = vxnet::vxp::protocol_version);
  // True when the client closed the link (end of file within a few seconds,
  // or within wait_ms without data meanwhile).
  bool sees_close(int wait_ms = 5000);
  // Makes the close at the script's end a reset (linger time 0): the
  // client's next write fails instead of going out.
  void reset_on_close();

 private:
  int fd_;
  vxnet::vxp::frame_reader reader_;
};

class fake_proxy {
 public:
  explicit fake_proxy(std::function<void(fake_peer&)> script);
  // Waits for the script to end.
  ~fake_proxy();
  std::string port_text() const { return std::to_string(port_); }

 private:
  int listen_fd_ = -1;
  std::uint16_t port_ = 0;
  std::thread thread_;
};
