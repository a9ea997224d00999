// XmlRpcException: the XML-RPC engine's one exception, a message and a code;
// a call that throws it is answered with a fault response.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace XmlRpc {

class XmlRpcException : public std::exception {
 public:
  // The code a fault carries when the thrower gives none.
  static constexpr int kNoCode = -1;

  explicit XmlRpcException(std::string message, int code = kNoCode)
      : _message(std::move(message)), _code(code) {}

  const std::string& getMessage() const noexcept { return _message; }
  int getCode() const noexcept { return _code; }

  const char* what() const noexcept override { return _message.c_str(); }

 private:
  std::string _message;
  int _code;
};

}  // namespace XmlRpc
