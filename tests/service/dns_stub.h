// The control functions of the stand-ins for dnssd.dll (Bonjour) and
// dnsapi.dll (Windows DNS-SD) that service_seam_tests loads in place of the
// system's (stub_dnssd_win32.cpp, stub_dnsapi_win32.cpp). Each stand-in
// records the calls it gets, one line each, and checks that nothing it
// handed out is used after it was given back.
#pragma once

#include <windows.h>

extern "C" {

// Forgets the record and sets the behaviour of the calls to come.
//   dnssd.dll:  a = the error DNSServiceRegister returns (0: it succeeds)
//   dnsapi.dll: a = ms before DnsServiceRegister answers (-1: only a cancel
//                   answers it), b = the status it answers with,
//               c = what DnsServiceRegister returns (9506: pending),
//               d = ms before DnsServiceDeRegister answers
using stub_configure_fn = void (*)(int a, int b, int c, int d);
// Copies the record ("\n" after each line) into buffer; returns its length.
using stub_record_fn = int (*)(char* buffer, int size);
// Waits until no answer is outstanding; false after ms.
using stub_wait_idle_fn = bool (*)(int ms);
}
