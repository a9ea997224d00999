// vxnet::service on Windows: the DNS-SD API of Bonjour for Windows
// (dnssd.dll) when it is installed, otherwise Windows 10's own
// DnsServiceRegister (dnsapi.dll), otherwise unannounced. Both libraries
// are looked up at run time, so the program starts on systems without them
// and never fails because of publication.
#include <vxnet/service.h>

#include <winsock2.h>  // before windows.h, which would pull in the old winsock.h
#include <windows.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vxbase/es.h>
#include <vxcore/report.h>

namespace vxnet {

namespace {

constexpr const char* kLocation = "lib/vxnet/service";
constexpr const char* kModule = "vxnet";

// DNS labels are at most 63 bytes; service types are "_name._tcp" or
// "_name._udp" with a name of at most 15 characters.
constexpr std::size_t kMaxLabel = 63;
constexpr std::size_t kMaxServiceName = 15;
// How often the Bonjour thread looks whether it is to stop.
constexpr int kPollSliceMs = 200;

void report_debug(unsigned line, const std::string& message) {
  vxcore::report(kLocation, line, kModule, vxcore::kind::network, vxbase::sev_debug,
                 message.c_str());
}

bool valid_service_type(const std::string& type) {
  const auto dot = type.find('.');
  if (dot == std::string::npos || type.size() < 2 || type[0] != '_') return false;
  const std::string name = type.substr(1, dot - 1);
  const std::string proto = type.substr(dot + 1);
  if (proto != "_tcp" && proto != "_udp") return false;
  if (name.empty() || name.size() > kMaxServiceName || name.front() == '-' || name.back() == '-')
    return false;
  for (unsigned char c : name)
    if (!std::isalnum(c) && c != '-') return false;
  return true;
}

bool valid_instance_name(const std::string& name) {
  return !name.empty() && name.size() <= kMaxLabel && name.find('\0') == std::string::npos;
}

bool valid_domain(const std::string& domain) {
  if (domain.empty()) return false;
  std::size_t start = 0;
  while (start <= domain.size()) {
    auto end = domain.find('.', start);
    if (end == std::string::npos) end = domain.size();
    const std::size_t length = end - start;
    // A single trailing dot is allowed ("local.").
    if (length == 0 && !(end == domain.size() && start == domain.size() && start > 0)) return false;
    if (length > kMaxLabel) return false;
    start = end + 1;
  }
  return true;
}

std::wstring widen(const std::string& text) {
  if (text.empty()) return std::wstring();
  const int n =
      ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<std::size_t>(n), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
  return out;
}

std::string host_name() {
  char name[256] = {};
  DWORD size = sizeof name;
  if (::GetComputerNameExA(ComputerNameDnsHostname, name, &size)) return name;
  return "windows";
}

// --- Bonjour for Windows: the C API of dns_sd.h, declared here because the
// library is only looked up at run time.
using DNSServiceRef = struct _DNSServiceRef_t*;
using DNSServiceErrorType = std::int32_t;
using DNSServiceRegisterReply = void(__stdcall*)(DNSServiceRef, std::uint32_t flags,
                                                 DNSServiceErrorType, const char* name,
                                                 const char* regtype, const char* domain,
                                                 void* context);
using DNSServiceRegisterFn = DNSServiceErrorType(__stdcall*)(
    DNSServiceRef*, std::uint32_t flags, std::uint32_t interface_index, const char* name,
    const char* regtype, const char* domain, const char* host, std::uint16_t port_be,
    std::uint16_t txt_length, const void* txt, DNSServiceRegisterReply, void* context);
using DNSServiceRefSockFDFn = int(__stdcall*)(DNSServiceRef);
using DNSServiceProcessResultFn = DNSServiceErrorType(__stdcall*)(DNSServiceRef);
using DNSServiceRefDeallocateFn = void(__stdcall*)(DNSServiceRef);

// --- Windows 10's DNS-SD (windns.h), declared for the same reason.
struct dns_service_instance;
using DnsServiceRegisterComplete = void(WINAPI*)(DWORD status, void* context,
                                                 dns_service_instance* instance);
struct dns_service_register_request {
  ULONG version;
  ULONG interface_index;
  dns_service_instance* instance;
  DnsServiceRegisterComplete complete;
  void* context;
  HANDLE credentials;
  BOOL unicast_enabled;
};
struct dns_service_cancel {
  void* reserved;
};
using DnsServiceConstructInstanceFn = dns_service_instance*(
    WINAPI*)(PCWSTR service_name, PCWSTR host_name, void* ip4, void* ip6, WORD port, WORD priority,
             WORD weight, DWORD property_count, PCWSTR* keys, PCWSTR* values);
using DnsServiceFreeInstanceFn = void(WINAPI*)(dns_service_instance*);
using DnsServiceRegisterFn = DWORD(WINAPI*)(dns_service_register_request*, dns_service_cancel*);
using DnsServiceDeRegisterFn = DWORD(WINAPI*)(dns_service_register_request*, dns_service_cancel*);
using DnsServiceRegisterCancelFn = DWORD(WINAPI*)(dns_service_cancel*);
constexpr ULONG kDnsQueryRequestVersion1 = 1;
constexpr DWORD kDnsRequestPending = 9506;

// One registration through Windows' DNS-SD. DnsServiceRegister and
// DnsServiceDeRegister both answer later, on a thread of the system's,
// through the request's completion callback; until then the system may
// still use the request, the instance it names and the cancel handle. So
// they live here, apart from the publication, and the callback reaches them
// through its context: the owner frees this object only when no answer is
// outstanding. An owner that gave up waiting (a system that does not
// answer) marks it abandoned and leaves it to the late answer, which frees
// it then.
struct windows_registration {
  enum class phase {
    registering,    // DnsServiceRegister made, its answer outstanding
    registered,     // announced: to be withdrawn
    deregistering,  // DnsServiceDeRegister made, its answer outstanding
    ended           // nothing outstanding, nothing to withdraw
  };

  std::mutex mutex;
  std::condition_variable changed;
  phase state = phase::registering;
  bool abandoned = false;
  // Told the outcome of the registration; null once the service is going.
  publish_reply* reply = nullptr;
  std::string name;  // the name the reply is told

  std::wstring instance_name;
  std::wstring host_name;
  dns_service_instance* instance = nullptr;
  dns_service_register_request request{};
  dns_service_cancel cancel{};
  DnsServiceFreeInstanceFn free_instance = nullptr;

  ~windows_registration() {
    if (instance) free_instance(instance);
  }

  // The completion callback of both the registration and the
  // deregistration.
  static void WINAPI complete(DWORD status, void* context, dns_service_instance* answered) {
    auto* self = static_cast<windows_registration*>(context);
    // The instance of an answer is the system's copy, the caller's to free;
    // the one of the request stays until this object goes.
    if (answered && answered != self->instance) self->free_instance(answered);
    std::unique_lock<std::mutex> lock(self->mutex);
    switch (self->state) {
      case phase::registering:
        self->state = status == 0 ? phase::registered : phase::ended;
        // Under the lock: the owner's forgetting of the reply waits for it.
        if (self->reply) {
          if (status == 0)
            self->reply->published(self->name);
          else
            self->reply->not_published("DnsServiceRegister error " + std::to_string(status));
        }
        break;
      case phase::deregistering:
        self->state = phase::ended;
        break;
      case phase::registered:
      case phase::ended:
        break;  // no answer was asked for
    }
    self->changed.notify_all();
    // A registration that completes after the owner gave up stays
    // announced until the process ends: no one is left to withdraw it.
    const bool last = self->abandoned && self->state != phase::deregistering &&
                      self->state != phase::registering;
    lock.unlock();
    if (last) delete self;
  }
};

}  // namespace

namespace detail {

// One publication through whichever API the system has.
class publication {
 public:
  publication(const std::string& type, std::uint16_t port, std::vector<std::string> txt,
              std::string name, std::string domain, publish_reply* reply)
      : type_(type),
        port_(port),
        txt_(std::move(txt)),
        name_(std::move(name)),
        domain_(std::move(domain)),
        reply_(reply) {}

  ~publication() { stop(); }

  // Which API announced the service: "Bonjour", "Windows DNS-SD" or null.
  const char* start() {
    if (start_bonjour()) return "Bonjour (dnssd.dll)";
    if (start_windows()) return "Windows DNS-SD (dnsapi.dll)";
    return nullptr;
  }

  void stop() {
    stopping_ = true;
    if (bonjour_thread_.joinable()) bonjour_thread_.join();
    if (bonjour_ref_) bonjour_deallocate_(bonjour_ref_);
    bonjour_ref_ = nullptr;
    bool library_in_use = false;
    if (windows_) library_in_use = !stop_windows();
    windows_ = nullptr;
    if (library_ && !library_in_use) ::FreeLibrary(library_);
    library_ = nullptr;
  }

  void forget_reply() {
    reply_ = nullptr;
    if (windows_) {
      std::lock_guard<std::mutex> lock(windows_->mutex);
      windows_->reply = nullptr;
    }
  }

 private:
  template <typename F>
  F lookup(const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(library_, name)));
  }

  bool start_bonjour() {
    library_ = ::LoadLibraryA("dnssd.dll");
    if (!library_) return false;
    auto reg = lookup<DNSServiceRegisterFn>("DNSServiceRegister");
    auto sockfd = lookup<DNSServiceRefSockFDFn>("DNSServiceRefSockFD");
    auto process = lookup<DNSServiceProcessResultFn>("DNSServiceProcessResult");
    bonjour_deallocate_ = lookup<DNSServiceRefDeallocateFn>("DNSServiceRefDeallocate");
    if (!reg || !sockfd || !process || !bonjour_deallocate_) return unload();
    std::string txt;
    for (const auto& entry : txt_) txt.append(1, static_cast<char>(entry.size())).append(entry);
    const DNSServiceErrorType rc =
        reg(&bonjour_ref_, 0, 0, name_.empty() ? nullptr : name_.c_str(), type_.c_str(),
            domain_.empty() ? nullptr : domain_.c_str(), nullptr, htons(port_),
            static_cast<std::uint16_t>(txt.size()), txt.empty() ? nullptr : txt.data(),
            &publication::bonjour_reply, this);
    if (rc != 0) {
      bonjour_ref_ = nullptr;
      return unload();
    }
    const int fd = sockfd(bonjour_ref_);
    bonjour_thread_ = std::thread([this, fd, process] {
      while (!stopping_) {
        WSAPOLLFD p{};
        p.fd = static_cast<SOCKET>(static_cast<unsigned>(fd));
        p.events = POLLIN;
        const int n = ::WSAPoll(&p, 1, kPollSliceMs);
        if (n < 0) break;
        if (n > 0 && process(bonjour_ref_) != 0) break;
      }
    });
    return true;
  }

  static void __stdcall bonjour_reply(DNSServiceRef, std::uint32_t, DNSServiceErrorType error,
                                      const char* name, const char*, const char*, void* context) {
    auto* self = static_cast<publication*>(context);
    publish_reply* reply = self->reply_.load();
    if (!reply) return;
    if (error == 0)
      reply->published(name ? name : "");
    else
      reply->not_published("Bonjour error " + std::to_string(error));
  }

  bool start_windows() {
    library_ = ::LoadLibraryA("dnsapi.dll");
    if (!library_) return false;
    auto construct = lookup<DnsServiceConstructInstanceFn>("DnsServiceConstructInstance");
    auto reg = lookup<DnsServiceRegisterFn>("DnsServiceRegister");
    auto free_instance = lookup<DnsServiceFreeInstanceFn>("DnsServiceFreeInstance");
    windows_deregister_ = lookup<DnsServiceDeRegisterFn>("DnsServiceDeRegister");
    // Optional: without it a pending registration is waited for instead.
    windows_cancel_ = lookup<DnsServiceRegisterCancelFn>("DnsServiceRegisterCancel");
    if (!construct || !reg || !free_instance || !windows_deregister_) return unload();
    auto registration = std::make_unique<windows_registration>();
    registration->free_instance = free_instance;
    const std::string host = host_name();
    const std::string domain = domain_.empty() ? "local" : domain_;
    registration->name = name_.empty() ? host : name_;
    registration->instance_name = widen(registration->name + "." + type_ + "." + domain);
    registration->host_name = widen(host + "." + domain);
    std::vector<std::wstring> keys, values;
    for (const auto& entry : txt_) {
      const auto eq = entry.find('=');
      keys.push_back(widen(entry.substr(0, eq)));
      values.push_back(widen(eq == std::string::npos ? "" : entry.substr(eq + 1)));
    }
    std::vector<PCWSTR> key_ptrs, value_ptrs;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      key_ptrs.push_back(keys[i].c_str());
      value_ptrs.push_back(values[i].c_str());
    }
    registration->instance =
        construct(registration->instance_name.c_str(), registration->host_name.c_str(), nullptr,
                  nullptr, port_, 0, 0, static_cast<DWORD>(keys.size()),
                  key_ptrs.empty() ? nullptr : key_ptrs.data(),
                  value_ptrs.empty() ? nullptr : value_ptrs.data());
    if (!registration->instance) return unload();
    registration->reply = reply_.load();
    registration->request = dns_service_register_request{kDnsQueryRequestVersion1,
                                                          0,
                                                          registration->instance,
                                                          &windows_registration::complete,
                                                          registration.get(),
                                                          nullptr,
                                                          FALSE};
    // The answer may come before the call returns; it finds the object
    // complete, in the registering phase.
    if (reg(&registration->request, &registration->cancel) != kDnsRequestPending) {
      // Refused at once: no answer will come.
      registration.reset();
      return unload();
    }
    windows_ = registration.release();
    return true;
  }

  // Withdraws the Windows registration: cancels one still pending (or
  // waits for it), deregisters one that was made, and frees it all once the
  // system has answered. Waits at most service::kWithdrawWait; true when the
  // registration is freed, false when it was left to a late answer (which
  // may still run code of the library, so the library stays loaded).
  bool stop_windows() {
    windows_registration* r = windows_;
    using phase = windows_registration::phase;
    const auto deadline = std::chrono::steady_clock::now() + service::kWithdrawWait;
    std::unique_lock<std::mutex> lock(r->mutex);
    r->reply = nullptr;
    if (r->state == phase::registering) {
      if (windows_cancel_) {
        lock.unlock();
        windows_cancel_(&r->cancel);
        lock.lock();
      }
      r->changed.wait_until(lock, deadline, [&] { return r->state != phase::registering; });
    }
    if (r->state == phase::registered) {
      r->state = phase::deregistering;
      lock.unlock();
      const DWORD rc = windows_deregister_(&r->request, nullptr);
      lock.lock();
      // Refused at once: no answer will come.
      if (rc != kDnsRequestPending && r->state == phase::deregistering) r->state = phase::ended;
      r->changed.wait_until(lock, deadline, [&] { return r->state != phase::deregistering; });
    }
    if (r->state != phase::ended) {
      r->abandoned = true;
      return false;
    }
    lock.unlock();
    delete r;
    return true;
  }

  bool unload() {
    ::FreeLibrary(library_);
    library_ = nullptr;
    return false;
  }

  std::string type_;
  std::uint16_t port_;
  std::vector<std::string> txt_;
  std::string name_;
  std::string domain_;
  std::atomic<publish_reply*> reply_;
  std::atomic<bool> stopping_{false};
  HMODULE library_ = nullptr;

  DNSServiceRef bonjour_ref_ = nullptr;
  DNSServiceRefDeallocateFn bonjour_deallocate_ = nullptr;
  std::thread bonjour_thread_;

  // Owned until stop_windows() frees or abandons it.
  windows_registration* windows_ = nullptr;
  DnsServiceDeRegisterFn windows_deregister_ = nullptr;
  DnsServiceRegisterCancelFn windows_cancel_ = nullptr;
};

}  // namespace detail

service::service(const std::string& type, std::uint16_t port, const txt_record* txt,
                 const char* name, const char* domain, publish_reply* reply)
    : type_(type), port_(port) {
  if (!valid_service_type(type)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid service type \"%s\"", type.c_str());
  }
  if (name && !valid_instance_name(name)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid service name \"%s\"", name);
  }
  if (domain && !valid_domain(domain)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid domain \"%s\"", domain);
  }
  publication_ = std::make_unique<detail::publication>(
      type, port, txt ? txt->entries() : std::vector<std::string>{}, name ? name : "",
      domain ? domain : "", reply);
  const char* api = publication_->start();
  if (!api) {
    report_debug(__LINE__, "neither Bonjour nor Windows DNS-SD is available: " + type_ +
                               " stays unannounced");
    publication_.reset();
    if (reply) reply->not_published("no DNS-SD service on this system");
    return;
  }
  report_debug(__LINE__,
               "publishing " + type_ + " on port " + std::to_string(port_) + " through " + api);
}

service::~service() {
  if (!publication_) return;
  publication_->forget_reply();
  report_debug(__LINE__, "withdrawing " + type_ + " on port " + std::to_string(port_));
  publication_->stop();
}

}  // namespace vxnet
