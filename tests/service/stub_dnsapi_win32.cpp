// A stand-in for the DNS-SD part of Windows' dnsapi.dll, built as
// dnsapi.dll for service_seam_tests: the calls vxnet::service makes, each
// recorded, with answers on threads of its own after a delay the test
// chooses, the way the system answers. Instances are never really freed,
// so that an answer can tell whether the instance of its request was given
// back before the system was done with it (a violation, recorded).
#include <windows.h>

#include <string>
#include <vector>

#include "dns_stub.h"
#include "stub_record_win32.h"

namespace {

constexpr DWORD kRequestPending = 9506;  // DNS_REQUEST_PENDING
constexpr DWORD kCancelled = 1223;       // ERROR_CANCELLED

struct instance {
  int id;
  bool freed;
  bool answer;  // made by an answer, not by DnsServiceConstructInstance
};

using complete_fn = void(WINAPI*)(DWORD status, void* context, instance* answered);
struct register_request {
  ULONG version;
  ULONG interface_index;
  instance* service_instance;
  complete_fn complete;
  void* context;
  HANDLE credentials;
  BOOL unicast_enabled;
};
struct cancel_handle {
  void* reserved;
};

dns_stub::record calls;
CRITICAL_SECTION lock;
std::vector<instance*> instances;
int next_id = 1;
LONG outstanding = 0;
HANDLE cancel_event = nullptr;

int register_delay_ms = 20;
DWORD register_status = 0;
DWORD register_result = kRequestPending;
int deregister_delay_ms = 20;

instance* make_instance(bool answer) {
  ::EnterCriticalSection(&lock);
  auto* made = new instance{next_id++, false, answer};
  instances.push_back(made);
  ::LeaveCriticalSection(&lock);
  return made;
}

bool known(instance* which) {
  ::EnterCriticalSection(&lock);
  bool found = false;
  for (instance* i : instances) found = found || i == which;
  ::LeaveCriticalSection(&lock);
  return found;
}

struct answer_job {
  const char* what;  // "register" or "deregister"
  register_request* request;
  instance* requested;  // the request's instance when the call was made
  int delay_ms;
};

DWORD WINAPI answer(void* param) {
  auto* job = static_cast<answer_job*>(param);
  DWORD status = 0;
  if (std::string(job->what) == "register") {
    const DWORD waited = ::WaitForSingleObject(
        cancel_event, job->delay_ms < 0 ? INFINITE : static_cast<DWORD>(job->delay_ms));
    status = waited == WAIT_OBJECT_0 ? kCancelled : register_status;
  } else {
    ::Sleep(static_cast<DWORD>(job->delay_ms));
  }
  // The system reads the request only now: it must still be the caller's.
  if (job->requested->freed)
    calls.add(std::string("violation: instance #") + std::to_string(job->requested->id) +
              " freed before the " + job->what + " answer");
  if (!job->request->complete) {
    calls.add(std::string("violation: no completion callback for the ") + job->what + " answer");
  } else {
    calls.add(std::string("answer ") + job->what + " " + std::to_string(status));
    job->request->complete(status, job->request->context, make_instance(true));
    calls.add(std::string("answered ") + job->what);
  }
  delete job;
  ::InterlockedDecrement(&outstanding);
  return 0;
}

void start_answer(const char* what, register_request* request, int delay_ms) {
  ::InterlockedIncrement(&outstanding);
  auto* job = new answer_job{what, request, request->service_instance, delay_ms};
  HANDLE thread = ::CreateThread(nullptr, 0, answer, job, 0, nullptr);
  if (thread) ::CloseHandle(thread);
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    ::InitializeCriticalSection(&lock);
    cancel_event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  }
  return TRUE;
}

extern "C" {

__declspec(dllexport) instance* WINAPI DnsServiceConstructInstance(
    PCWSTR service_name, PCWSTR host_name, void*, void*, WORD port, WORD, WORD,
    DWORD property_count, PCWSTR* keys, PCWSTR* values) {
  instance* made = make_instance(false);
  char name[256] = {}, host[256] = {};
  ::WideCharToMultiByte(CP_UTF8, 0, service_name, -1, name, sizeof name - 1, nullptr, nullptr);
  ::WideCharToMultiByte(CP_UTF8, 0, host_name, -1, host, sizeof host - 1, nullptr, nullptr);
  std::string line = "construct #" + std::to_string(made->id) + " " + name + " host " + host +
                     " port " + std::to_string(port);
  for (DWORD i = 0; i < property_count; ++i) {
    char key[128] = {}, value[128] = {};
    ::WideCharToMultiByte(CP_UTF8, 0, keys[i], -1, key, sizeof key - 1, nullptr, nullptr);
    ::WideCharToMultiByte(CP_UTF8, 0, values[i], -1, value, sizeof value - 1, nullptr, nullptr);
    line += std::string(" ") + key + "=" + value;
  }
  calls.add(line);
  return made;
}

__declspec(dllexport) void WINAPI DnsServiceFreeInstance(instance* which) {
  if (!which) return;
  if (!known(which)) {
    calls.add("violation: free of an instance this library never made");
    return;
  }
  if (which->freed) {
    calls.add("violation: instance #" + std::to_string(which->id) + " freed twice");
    return;
  }
  which->freed = true;
  if (!which->answer) calls.add("free #" + std::to_string(which->id));
}

__declspec(dllexport) DWORD WINAPI DnsServiceRegister(register_request* request,
                                                      cancel_handle* cancel) {
  calls.add(std::string("register #") + std::to_string(request->service_instance->id) +
            (cancel ? " cancellable" : ""));
  if (register_result != kRequestPending) return register_result;
  ::ResetEvent(cancel_event);
  start_answer("register", request, register_delay_ms);
  return kRequestPending;
}

__declspec(dllexport) DWORD WINAPI DnsServiceDeRegister(register_request* request,
                                                        cancel_handle*) {
  calls.add("deregister #" + std::to_string(request->service_instance->id));
  start_answer("deregister", request, deregister_delay_ms);
  return kRequestPending;
}

__declspec(dllexport) DWORD WINAPI DnsServiceRegisterCancel(cancel_handle*) {
  calls.add("cancel");
  ::SetEvent(cancel_event);
  return 0;
}

__declspec(dllexport) void stub_configure(int a, int b, int c, int d) {
  calls.clear();
  register_delay_ms = a;
  register_status = static_cast<DWORD>(b);
  register_result = static_cast<DWORD>(c);
  deregister_delay_ms = d;
}

__declspec(dllexport) int stub_record(char* buffer, int size) { return calls.copy(buffer, size); }

__declspec(dllexport) bool stub_wait_idle(int ms) {
  for (int waited = 0; waited < ms; waited += 10) {
    if (::InterlockedCompareExchange(&outstanding, 0, 0) == 0) return true;
    ::Sleep(10);
  }
  return false;
}

}  // extern "C"
