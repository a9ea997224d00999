// The record the DNS-SD stand-ins keep (header-only: each stand-in is a DLL
// of its own).
#pragma once

#include <windows.h>

#include <cstring>
#include <string>

namespace dns_stub {

class record {
 public:
  record() { ::InitializeCriticalSection(&lock_); }

  void add(const std::string& line) {
    ::EnterCriticalSection(&lock_);
    text_ += line;
    text_ += '\n';
    ::LeaveCriticalSection(&lock_);
  }

  void clear() {
    ::EnterCriticalSection(&lock_);
    text_.clear();
    ::LeaveCriticalSection(&lock_);
  }

  int copy(char* buffer, int size) {
    ::EnterCriticalSection(&lock_);
    const int n = static_cast<int>(text_.size()) < size - 1 ? static_cast<int>(text_.size())
                                                            : size - 1;
    std::memcpy(buffer, text_.data(), static_cast<std::size_t>(n));
    buffer[n] = '\0';
    ::LeaveCriticalSection(&lock_);
    return n;
  }

 private:
  CRITICAL_SECTION lock_;
  std::string text_;
};

}  // namespace dns_stub
