// Helpers shared by the engine's unit tests: a recording error handler,
// loopback socket pairs, and builders of HTTP requests and XML-RPC calls.
#pragma once

#include <string>
#include <vector>

#include "engine_test_platform.h"
#include "xmlrpc/XmlRpcUtil.h"

namespace XmlRpcTest {

// Collects the engine's error messages while installed; puts the previous
// handler back when it goes.
class RecordingErrorHandler : public XmlRpc::XmlRpcErrorHandler {
 public:
  RecordingErrorHandler() : previous_(getErrorHandler()) { setErrorHandler(this); }
  ~RecordingErrorHandler() { setErrorHandler(previous_); }
  void error(const char* message) override { messages.emplace_back(message); }

  std::vector<std::string> messages;

 private:
  XmlRpc::XmlRpcErrorHandler* previous_;
};

// Two connected TCP sockets on loopback; both closed by the destructor
// unless taken (set to -1) by the test.
struct SocketPair {
  int a = -1;
  int b = -1;
  SocketPair() { connectedPair(&a, &b); }
  ~SocketPair() {
    if (a >= 0) closeSocket(a);
    if (b >= 0) closeSocket(b);
  }
  SocketPair(const SocketPair&) = delete;
  SocketPair& operator=(const SocketPair&) = delete;
};

// An XML-RPC call of `name` with the given <value> texts as parameters.
inline std::string methodCall(const std::string& name, const std::vector<std::string>& values) {
  std::string xml =
      "<?xml version=\"1.0\"?>\r\n<methodCall><methodName>" + name + "</methodName>\r\n<params>";
  for (const auto& v : values) xml += "<param>" + v + "</param>";
  return xml + "</params></methodCall>\r\n";
}

// A POST request carrying `body`, announcing its exact length.
inline std::string httpPost(const std::string& body, const std::string& version = "HTTP/1.1",
                            const std::string& extraHeaders = "") {
  return "POST /RPC2 " + version + "\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n" +
         extraHeaders + "Content-length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// The response the server must send for a body, byte for byte.
inline std::string expectedResponse(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
         "Access-Control-Allow-Origin: *\r\nContent-Type: text/xml\r\nContent-length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

inline std::string resultBody(const std::string& valueXml) {
  return "<?xml version=\"1.0\"?>\r\n<methodResponse><params><param>\r\n\t" + valueXml +
         "\r\n</param></params></methodResponse>\r\n";
}

inline std::string faultBody(int code, const std::string& message) {
  return "<?xml version=\"1.0\"?>\r\n<methodResponse><fault>\r\n\t"
         "<value><struct><member><name>faultCode</name><value><i4>" +
         std::to_string(code) + "</i4></value></member><member><name>faultString</name><value>" +
         message + "</value></member></struct></value>\r\n</fault></methodResponse>\r\n";
}

}  // namespace XmlRpcTest
