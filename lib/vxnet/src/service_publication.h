// The Avahi side of a DNS-SD publication: the client, its entry group and
// their callbacks, all run by an event loop on a thread of its own.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/thread-watch.h>

#include <vxnet/publish_reply.h>

namespace vxnet::detail {

// Owns the Avahi event loop and everything made on it. After start() every
// Avahi object is touched only on the loop's thread (its callbacks) or under
// the loop's lock (stop()), which is how Avahi wants its threaded loop used.
class publication {
 public:
  // name and domain empty mean the daemon's defaults.
  publication(std::string type, std::uint16_t port, std::vector<std::string> txt, std::string name,
              std::string domain, publish_reply* reply);
  // Frees the event loop; stop() must have run if start() succeeded.
  ~publication();

  publication(const publication&) = delete;
  publication& operator=(const publication&) = delete;

  // Makes the event loop and starts its thread, which then connects to the
  // daemon. Does not wait for anything. On false nothing runs, and the
  // reason has gone to the reply object.
  bool start();

  // Withdraws the service and ends the loop's thread. Blocks for as long as
  // the loop's thread is inside a call to the daemon (a frozen one holds it
  // up to D-Bus's 25 s time-out): call it where waiting is harmless.
  void stop();

  // After this returns the reply object is never called again. Never waits
  // for the daemon, only for a reply call in progress.
  void forget_reply();

 private:
  static void on_retry(AvahiTimeout* timeout, void* self);
  static void on_client(AvahiClient* client, AvahiClientState state, void* self);
  static void on_group(AvahiEntryGroup* group, AvahiEntryGroupState state, void* self);

  // Loop thread only, from here on.
  void connect();
  void retry_after(unsigned milliseconds);
  void drop_client();
  void add_and_commit();
  void take_alternative_name();
  void tell_published();
  void tell_not_published(const std::string& reason);

  const std::string type_;
  const std::uint16_t port_;
  const std::vector<std::string> txt_;
  const std::string domain_;
  std::string name_;  // empty until the default (the host name) is known

  AvahiThreadedPoll* loop_ = nullptr;
  bool running_ = false;   // the loop's thread was started
  bool stopping_ = false;  // set by stop() under the loop's lock; callbacks then do nothing
  AvahiClient* client_ = nullptr;
  AvahiEntryGroup* group_ = nullptr;
  AvahiTimeout* retry_ = nullptr;  // the next (re)connection attempt; disabled when none is due

  // Guards reply_ only, so forgetting it never waits on the daemon.
  std::mutex reply_mutex_;
  publish_reply* reply_;
};

}  // namespace vxnet::detail
