// The Avahi client and entry group behind vxnet::service, driven by
// callbacks on the publication's own event-loop thread.
#include "service_publication.h"

#include <sys/time.h>

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/timeval.h>

namespace vxnet::detail {

namespace {

// While the system bus itself is missing Avahi cannot watch for it, so the
// loop tries again on a timer; a bus comes back within seconds of a restart,
// and a failed attempt costs one refused connect().
constexpr unsigned kReconnectDelayMs = 1000;

// A group the daemon refused outright (not a collision) is tried again this
// much later, slowly enough not to flood a daemon that keeps refusing.
constexpr unsigned kGroupRetryDelayMs = 5000;

// avahi_alternative_service_name gives "name #2", "#3", ...; a local
// collision is resolved on the next number unless someone holds them all.
// Past this many tries in one go the publication waits for kGroupRetryDelayMs.
constexpr int kMaxRenamesAtOnce = 100;

std::string avahi_reason(const char* what, int error) {
  return std::string(what) + ": " + avahi_strerror(error);
}

}  // namespace

publication::publication(std::string type, std::uint16_t port, std::vector<std::string> txt,
                         std::string name, std::string domain, publish_reply* reply)
    : type_(std::move(type)),
      port_(port),
      txt_(std::move(txt)),
      domain_(std::move(domain)),
      name_(std::move(name)),
      reply_(reply) {}

publication::~publication() {
  if (loop_) avahi_threaded_poll_free(loop_);
}

bool publication::start() {
  loop_ = avahi_threaded_poll_new();
  if (!loop_) {
    tell_not_published("cannot make the Avahi event loop");
    return false;
  }
  // The first connection attempt is the retry timer, due now, so that even
  // avahi_client_new, which calls the daemon, runs on the loop's thread. The
  // thread is not running yet, so no lock is needed here.
  retry_after(0);
  if (!retry_) {
    tell_not_published("cannot make an Avahi timer");
    return false;
  }
  if (avahi_threaded_poll_start(loop_) < 0) {
    tell_not_published("cannot start the Avahi event loop thread");
    return false;
  }
  running_ = true;
  return true;
}

void publication::stop() {
  if (!running_) return;
  avahi_threaded_poll_lock(loop_);
  stopping_ = true;
  // Freeing the group (inside drop_client) is what withdraws the records.
  drop_client();
  if (retry_) {
    avahi_threaded_poll_get(loop_)->timeout_free(retry_);
    retry_ = nullptr;
  }
  avahi_threaded_poll_unlock(loop_);
  avahi_threaded_poll_stop(loop_);
  running_ = false;
}

void publication::forget_reply() {
  std::lock_guard<std::mutex> lock(reply_mutex_);
  reply_ = nullptr;
}

void publication::on_retry(AvahiTimeout*, void* self) {
  auto* p = static_cast<publication*>(self);
  if (p->stopping_) return;
  // A disabled timer is cheaper to keep than to remake for the next retry.
  avahi_threaded_poll_get(p->loop_)->timeout_update(p->retry_, nullptr);
  p->drop_client();
  p->connect();
}

// Makes the client. With AVAHI_CLIENT_NO_FAIL a missing daemon is not an
// error: the client waits for it in AVAHI_CLIENT_CONNECTING. What makes
// avahi_client_new fail is the system bus (missing, refusing us, or a call
// to a frozen daemon timing out); that is retried on a timer.
void publication::connect() {
  int error = 0;
  AvahiClient* client = avahi_client_new(avahi_threaded_poll_get(loop_), AVAHI_CLIENT_NO_FAIL,
                                         &publication::on_client, this, &error);
  if (!client) {
    // The callback may have run inside the failed call; what it kept is
    // freed by now.
    client_ = nullptr;
    group_ = nullptr;
    tell_not_published(avahi_reason("cannot reach the system bus", error));
    retry_after(kReconnectDelayMs);
    return;
  }
  client_ = client;
}

void publication::retry_after(unsigned milliseconds) {
  struct timeval when;
  avahi_elapse_time(&when, milliseconds, 0);
  const AvahiPoll* api = avahi_threaded_poll_get(loop_);
  if (retry_) {
    api->timeout_update(retry_, &when);
  } else {
    retry_ = api->timeout_new(api, &when, &publication::on_retry, this);
  }
}

void publication::drop_client() {
  // Freeing the client frees its group as well; the group goes first so
  // that its records are withdrawn while the client still talks to the daemon.
  if (group_) {
    avahi_entry_group_free(group_);
    group_ = nullptr;
  }
  if (client_) {
    avahi_client_free(client_);
    client_ = nullptr;
  }
}

// Called from within avahi_client_new too (before it has returned the
// client), hence client_ is set from the argument.
void publication::on_client(AvahiClient* client, AvahiClientState state, void* self) {
  auto* p = static_cast<publication*>(self);
  p->client_ = client;
  switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
      if (p->name_.empty()) {
        const char* host = avahi_client_get_host_name(client);
        p->name_ = host ? host : "";
      }
      if (!p->group_ || avahi_entry_group_is_empty(p->group_)) p->add_and_commit();
      break;
    case AVAHI_CLIENT_S_COLLISION:
    case AVAHI_CLIENT_S_REGISTERING:
      // The host name is being (re)established: records naming the host are
      // not reachable meanwhile; they are added again on RUNNING.
      if (p->group_) avahi_entry_group_reset(p->group_);
      break;
    case AVAHI_CLIENT_CONNECTING:
      p->tell_not_published("waiting for the Avahi daemon");
      break;
    case AVAHI_CLIENT_FAILURE: {
      const int error = avahi_client_errno(client);
      p->tell_not_published(avahi_reason("lost the Avahi daemon", error));
      // A client must not be freed inside its own callback: a timer due now
      // drops it and makes a new one, which waits for the daemon again.
      p->retry_after(error == AVAHI_ERR_DISCONNECTED ? 0 : kReconnectDelayMs);
      break;
    }
  }
}

void publication::on_group(AvahiEntryGroup* group, AvahiEntryGroupState state, void* self) {
  auto* p = static_cast<publication*>(self);
  p->group_ = group;
  switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
      p->tell_published();
      break;
    case AVAHI_ENTRY_GROUP_COLLISION:
      // Another host announces this name: the daemon has removed our
      // records; take the next alternative and announce again.
      p->tell_not_published("the name \"" + p->name_ + "\" is taken on the network");
      p->take_alternative_name();
      avahi_entry_group_reset(group);
      p->add_and_commit();
      break;
    case AVAHI_ENTRY_GROUP_FAILURE:
      p->tell_not_published(avahi_reason("the Avahi daemon refused the service",
                                         avahi_client_errno(avahi_entry_group_get_client(group))));
      p->retry_after(kGroupRetryDelayMs);
      break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
      break;
  }
}

// Adds the service to the (possibly new) group and commits it. A name that
// the daemon already holds for another local client is refused at once with
// AVAHI_ERR_COLLISION rather than through the group's state, so that case
// renames here.
void publication::add_and_commit() {
  if (!group_) {
    group_ = avahi_entry_group_new(client_, &publication::on_group, this);
    if (!group_) {
      tell_not_published(
          avahi_reason("cannot make an Avahi entry group", avahi_client_errno(client_)));
      retry_after(kGroupRetryDelayMs);
      return;
    }
  }
  AvahiStringList* txt = nullptr;
  for (const std::string& entry : txt_) {
    txt = avahi_string_list_add_arbitrary(txt, reinterpret_cast<const std::uint8_t*>(entry.data()),
                                          entry.size());
  }
  // The list is built back to front; browsers show the order it is given in.
  txt = avahi_string_list_reverse(txt);
  int result = AVAHI_ERR_COLLISION;
  for (int tries = 0; tries < kMaxRenamesAtOnce && result == AVAHI_ERR_COLLISION; ++tries) {
    result = avahi_entry_group_add_service_strlst(
        group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, static_cast<AvahiPublishFlags>(0),
        name_.c_str(), type_.c_str(), domain_.empty() ? nullptr : domain_.c_str(), nullptr, port_,
        txt);
    if (result == AVAHI_ERR_COLLISION) take_alternative_name();
  }
  avahi_string_list_free(txt);
  if (result >= 0) result = avahi_entry_group_commit(group_);
  if (result < 0) {
    tell_not_published(avahi_reason("cannot announce the service", result));
    avahi_entry_group_reset(group_);
    retry_after(kGroupRetryDelayMs);
  }
}

void publication::take_alternative_name() {
  char* next = avahi_alternative_service_name(name_.c_str());
  if (next) {
    name_ = next;
    avahi_free(next);
  }
}

void publication::tell_published() {
  std::lock_guard<std::mutex> lock(reply_mutex_);
  if (reply_) reply_->published(name_);
}

void publication::tell_not_published(const std::string& reason) {
  std::lock_guard<std::mutex> lock(reply_mutex_);
  if (reply_) reply_->not_published(reason);
}

}  // namespace vxnet::detail
