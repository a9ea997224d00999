// vxnet::service on Linux (Avahi): checks its arguments, hands the
// publication to its own event-loop thread and takes it down again without
// waiting on the daemon.
#include <vxnet/service.h>

#include <pthread.h>
#include <signal.h>

#include <future>
#include <system_error>
#include <thread>

#include <avahi-common/domain.h>

#include <vxbase/es.h>
#include <vxcore/report.h>

#include "service_publication.h"

namespace vxnet {

namespace {

constexpr const char* kLocation = "lib/vxnet/service";
constexpr const char* kModule = "vxnet";

void report_debug(unsigned line, const std::string& message) {
  vxcore::report(kLocation, line, kModule, vxcore::kind::network, vxbase::sev_debug,
                 message.c_str());
}

// Signals sent to the process are meant for the program's own thread, not
// for Avahi's: the loop's thread is started with every signal blocked (it
// inherits the mask of the thread that starts it).
bool start_with_signals_blocked(detail::publication& publication) {
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  const bool masked = pthread_sigmask(SIG_SETMASK, &all, &previous) == 0;
  const bool started = publication.start();
  if (masked) pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return started;
}

}  // namespace

service::service(const std::string& type, std::uint16_t port, const txt_record* txt,
                 const char* name, const char* domain, publish_reply* reply)
    : type_(type), port_(port) {
  if (!avahi_is_valid_service_type_generic(type.c_str())) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid service type \"%s\"", type.c_str());
  }
  if (name && !avahi_is_valid_service_name(name)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid service name \"%s\"", name);
  }
  if (domain && !avahi_is_valid_domain_name(domain)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid domain \"%s\"", domain);
  }
  publication_ = std::make_unique<detail::publication>(
      type, port, txt ? txt->entries() : std::vector<std::string>{}, name ? name : "",
      domain ? domain : "", reply);
  if (!start_with_signals_blocked(*publication_)) {
    report_debug(__LINE__, "cannot start publishing " + type_ + ": the service stays unannounced");
    publication_.reset();
    return;
  }
  report_debug(__LINE__, "publishing " + type_ + " on port " + std::to_string(port_));
}

// The withdrawal may block for as long as a frozen daemon holds a call, so
// it runs on a thread of its own that this destructor waits for a little
// while only. A withdrawal left running owns the publication and frees it.
service::~service() {
  if (!publication_) return;
  publication_->forget_reply();
  report_debug(__LINE__, "withdrawing " + type_ + " on port " + std::to_string(port_));
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  detail::publication* publication = publication_.release();
  auto withdraw = [publication, done] {
    publication->stop();
    delete publication;
    done->set_value();
  };
  try {
    std::thread withdrawal(withdraw);
    if (finished.wait_for(kWithdrawWait) == std::future_status::ready) {
      withdrawal.join();
    } else {
      withdrawal.detach();
      report_debug(__LINE__, "the Avahi daemon does not answer: withdrawing " + type_ +
                                 " goes on in the background");
    }
  } catch (const std::system_error&) {
    // No thread to spare: withdraw here, however long it takes.
    withdraw();
  }
}

}  // namespace vxnet
