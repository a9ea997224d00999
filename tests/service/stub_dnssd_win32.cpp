// A stand-in for Bonjour for Windows' dnssd.dll, built as dnssd.dll for
// service_seam_tests: the four calls vxnet::service makes, each recorded.
// The "daemon's answer" is one datagram the stand-in sends itself on a
// loopback UDP socket, the socket DNSServiceRefSockFD hands out; reading
// it, DNSServiceProcessResult calls the reply callback the way Bonjour
// does. References are never really freed, so a call on one that was
// deallocated is seen (a violation, recorded).
#include <winsock2.h>  // before windows.h, which would pull in the old winsock.h
#include <windows.h>

#include <cstdint>
#include <string>

#include "dns_stub.h"
#include "stub_record_win32.h"

namespace {

using reply_fn = void(__stdcall*)(void* ref, std::uint32_t flags, std::int32_t error,
                                  const char* name, const char* regtype, const char* domain,
                                  void* context);

struct service_ref {
  SOCKET socket;
  reply_fn reply;
  void* context;
  std::string regtype;
  std::string name;
  bool deallocated;
};

dns_stub::record calls;
std::int32_t register_error = 0;

}  // namespace

extern "C" {

__declspec(dllexport) std::int32_t __stdcall DNSServiceRegister(
    service_ref** ref, std::uint32_t flags, std::uint32_t interface_index, const char* name,
    const char* regtype, const char* domain, const char* host, std::uint16_t port_be,
    std::uint16_t txt_length, const void* txt, reply_fn reply, void* context) {
  std::string line = std::string("register ") + regtype + " name " + (name ? name : "(default)") +
                     " domain " + (domain ? domain : "(default)") + " port " +
                     std::to_string(ntohs(port_be)) + " flags " + std::to_string(flags) +
                     " interface " + std::to_string(interface_index) + (host ? " host" : "");
  // The TXT record: length-prefixed strings.
  const auto* bytes = static_cast<const unsigned char*>(txt);
  for (std::uint16_t at = 0; bytes && at < txt_length; at = at + 1 + bytes[at])
    line += " txt " + std::string(reinterpret_cast<const char*>(bytes + at + 1), bytes[at]);
  calls.add(line);
  if (register_error != 0) return register_error;

  WSADATA data{};
  ::WSAStartup(MAKEWORD(2, 2), &data);
  auto* made = new service_ref{INVALID_SOCKET, reply, context, regtype,
                               name ? name : "stub host", false};
  made->socket = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  ::bind(made->socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(made->socket, reinterpret_cast<sockaddr*>(&address), &length);
  ::sendto(made->socket, "!", 1, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
  *ref = made;
  return 0;
}

__declspec(dllexport) int __stdcall DNSServiceRefSockFD(service_ref* ref) {
  if (ref->deallocated) calls.add("violation: socket of a deallocated reference");
  return static_cast<int>(ref->socket);
}

__declspec(dllexport) std::int32_t __stdcall DNSServiceProcessResult(service_ref* ref) {
  if (ref->deallocated) {
    calls.add("violation: result processed on a deallocated reference");
    return -65537;  // kDNSServiceErr_Unknown
  }
  char byte = 0;
  if (::recv(ref->socket, &byte, 1, 0) != 1) return -65537;
  calls.add("process");
  ref->reply(ref, 0, 0, ref->name.c_str(), ref->regtype.c_str(), "local.", ref->context);
  return 0;
}

__declspec(dllexport) void __stdcall DNSServiceRefDeallocate(service_ref* ref) {
  if (ref->deallocated) {
    calls.add("violation: reference deallocated twice");
    return;
  }
  calls.add("deallocate");
  ref->deallocated = true;
  ::closesocket(ref->socket);
  ::WSACleanup();
}

__declspec(dllexport) void stub_configure(int a, int, int, int) {
  calls.clear();
  register_error = a;
}

__declspec(dllexport) int stub_record(char* buffer, int size) { return calls.copy(buffer, size); }

// Bonjour answers on the caller's thread: nothing is ever outstanding here.
__declspec(dllexport) bool stub_wait_idle(int) { return true; }

}  // extern "C"
