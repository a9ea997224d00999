// Drives a proxy connection from a test the way the server's loop does: a
// poll of its descriptor, its event calls and its timers, until something
// holds.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <vxbase/net.h>
#include <vxcapi/connection.h>

namespace link_driver {

// One turn: waits up to max_ms (less when a deadline comes first) and
// hands the connection what is ready.
inline void turn(vxcapi::connection& c, int max_ms = 20) {
  int wait = max_ms;
  if (const std::int64_t next = c.next_deadline_ms(); next >= 0)
    wait =
        static_cast<int>(std::clamp<std::int64_t>(next - vxcapi::connection::now_ms(), 0, max_ms));
  const int fd = c.descriptor();
  if (fd >= 0) {
    pollfd p = vxbase::net::watch(fd, static_cast<short>(POLLIN | (c.wants_write() ? POLLOUT : 0)));
    if (vxbase::net::poll(&p, 1, wait) > 0) {
      if (p.revents & POLLOUT) c.on_writable();
      if ((p.revents & (POLLIN | POLLHUP | POLLERR)) && c.descriptor() == fd) c.on_readable();
    }
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(wait));
  }
  c.run_timers();
}

// Turns until cond holds or limit passes; returns whether it held.
inline bool pump_until(vxcapi::connection& c, const std::function<bool()>& cond,
                       std::chrono::milliseconds limit = std::chrono::seconds(8)) {
  const auto give_up = std::chrono::steady_clock::now() + limit;
  while (!cond()) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    turn(c);
  }
  return true;
}

// Connects and turns until the attempt ends; the outcome as the handler's
// last status() heard it.
template <typename Handler>
vxcapi::result_code connect_now(vxcapi::connection& c, Handler& h, const std::string& host,
                                const std::string& port, unsigned timeout_seconds) {
  const std::size_t before = h.statuses.size();
  const auto rc = c.connect(host, port, timeout_seconds);
  if (rc != vxcapi::rc_in_progress && rc != vxcapi::rc_connected) return rc;
  pump_until(c, [&] { return h.statuses.size() > before; });
  if (h.statuses.size() == before) return vxcapi::rc_in_progress;
  return h.statuses.back().code;
}

// Sends request and turns until its answer comes.
inline vxnet::vxp::packet round_trip(vxcapi::connection& c, const vxnet::vxp::packet& request,
                                     unsigned timeout_seconds) {
  std::optional<vxnet::vxp::packet> reply;
  c.send_async(request, timeout_seconds, [&](const vxnet::vxp::packet& p) { reply = p; });
  pump_until(
      c, [&] { return reply.has_value(); }, std::chrono::seconds(timeout_seconds + 3));
  return reply ? *reply : vxnet::vxp::packet();
}

}  // namespace link_driver
