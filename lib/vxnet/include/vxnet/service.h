// DNS-SD publication: announces a TCP service on the local network for as
// long as the service object lives: through the Avahi daemon on Linux
// (service_posix.cpp), through Bonjour's dnssd.dll or else Windows' own
// DnsServiceRegister on Windows (service_win32.cpp).
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <vxnet/publish_reply.h>
#include <vxnet/txt_record.h>

namespace vxnet {

namespace detail {
class publication;
}

// One announced service. Publication runs on a thread of its own, so neither
// the constructor nor the destructor waits for the Avahi daemon: a missing
// daemon is waited for, a restarted one gets the service again, and a name
// taken by another host or program is replaced by an alternative
// ("name #2", ...). A publication that cannot be made leaves the caller
// running unannounced; only the reply object, if any, hears of it.
class service {
 public:
  // A live daemon answers the withdrawal in milliseconds; a frozen one can
  // hold a call for D-Bus's 25 s time-out. Half a second covers the first on
  // a loaded machine and keeps a stopping program prompt in the second.
  static constexpr std::chrono::milliseconds kWithdrawWait{500};

  // Announces type (such as "_corvane-xmlrpc._tcp") on port. txt, if any, is
  // copied; name and domain may be null for the daemon's defaults (the host
  // name, "local"); reply, if any, is told the outcome on the publication's
  // thread and must outlive this object.
  // Throws vxbase::es::arg_error when type, name or domain is not a valid
  // DNS-SD label; nothing is published then.
  service(const std::string& type, std::uint16_t port, const txt_record* txt = nullptr,
          const char* name = nullptr, const char* domain = nullptr, publish_reply* reply = nullptr);

  // Withdraws the announcement. Returns at once when the daemon answers and
  // after at most kWithdrawWait when it does not; the withdrawal then ends
  // in the background (the daemon also drops the records of a client that
  // goes away). The reply object is not called after this returns.
  virtual ~service();

  service(const service&) = delete;
  service& operator=(const service&) = delete;

  const std::string& type() const noexcept { return type_; }
  std::uint16_t port() const noexcept { return port_; }

 private:
  std::string type_;
  std::uint16_t port_;
  // Null when the event loop could not be made; nothing is announced then.
  std::unique_ptr<detail::publication> publication_;
};

}  // namespace vxnet
