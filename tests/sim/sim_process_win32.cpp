// Starting and stopping ClientProxySim for the link tests on Windows, with
// CreateProcess and an anonymous pipe for its standard output. Windows has
// no signals a test could send, so stopping ends the process.
#include "sim_process.h"

#include <windows.h>

#include <regex>
#include <stdexcept>

#ifndef CLIENT_PROXY_SIM
#error "CLIENT_PROXY_SIM must name the simulator executable"
#endif

namespace {

// The simulator prints its line at once; this only bounds a broken start.
constexpr DWORD start_timeout_ms = 10000;

HANDLE handle_of(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

// One argument quoted for the command line (the tests pass no quotes).
std::string quoted(const std::string& arg) { return "\"" + arg + "\""; }

}  // namespace

sim_process::sim_process(const std::vector<std::string>& args) {
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE read_end = nullptr;
  HANDLE write_end = nullptr;
  if (!::CreatePipe(&read_end, &write_end, &inherit, 0)) throw std::runtime_error("CreatePipe failed");
  ::SetHandleInformation(read_end, HANDLE_FLAG_INHERIT, 0);
  std::string command = quoted(CLIENT_PROXY_SIM) + " --port 0";
  for (const auto& a : args) command += " " + quoted(a);
  STARTUPINFOA start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
  start.hStdOutput = write_end;
  start.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION info{};
  const BOOL made = ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                     nullptr, &start, &info);
  ::CloseHandle(write_end);
  if (!made) {
    ::CloseHandle(read_end);
    throw std::runtime_error("cannot start " + command);
  }
  ::CloseHandle(info.hThread);
  process_ = reinterpret_cast<std::intptr_t>(info.hProcess);
  out_ = reinterpret_cast<std::intptr_t>(read_end);
  std::string got;
  const ULONGLONG deadline = ::GetTickCount64() + start_timeout_ms;
  while (got.find('\n') == std::string::npos && ::GetTickCount64() < deadline) {
    DWORD available = 0;
    if (!::PeekNamedPipe(read_end, nullptr, 0, nullptr, &available, nullptr)) break;
    if (available == 0) {
      ::Sleep(10);
      continue;
    }
    char buf[256];
    DWORD n = 0;
    if (!::ReadFile(read_end, buf, sizeof buf < available ? sizeof buf : available, &n, nullptr) ||
        n == 0)
      break;
    got.append(buf, n);
  }
  line_ = got.substr(0, got.find('\n'));
  if (!line_.empty() && line_.back() == '\r') line_.pop_back();
  std::smatch m;
  if (!std::regex_search(line_, m, std::regex("listening on 127\\.0\\.0\\.1:([0-9]+)"))) {
    stop(0);
    throw std::runtime_error("simulator did not start: \"" + got + "\"");
  }
  port_ = static_cast<std::uint16_t>(std::stoi(m[1].str()));
}

sim_process::~sim_process() {
  if (process_ != -1) stop(0);
  if (out_ != -1) ::CloseHandle(handle_of(out_));
}

int sim_process::stop(int) {
  if (process_ == -1) return -1;
  HANDLE process = handle_of(process_);
  DWORD code = 0;
  if (::GetExitCodeProcess(process, &code) && code == STILL_ACTIVE) ::TerminateProcess(process, 1);
  ::WaitForSingleObject(process, INFINITE);
  ::GetExitCodeProcess(process, &code);
  ::CloseHandle(process);
  process_ = -1;
  return static_cast<int>(code);
}

std::string sim_process::rest_of_output() {
  std::string out;
  char buf[256];
  DWORD n = 0;
  while (::ReadFile(handle_of(out_), buf, sizeof buf, &n, nullptr) && n > 0) out.append(buf, n);
  return out;
}
