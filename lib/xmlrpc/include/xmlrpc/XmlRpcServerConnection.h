// XmlRpcServerConnection: one accepted HTTP connection, reading XML-RPC calls
// and writing their responses until it is closed.
#pragma once

#include <string>

#include "xmlrpc/XmlRpcSource.h"

namespace XmlRpc {

class XmlRpcServer;
class XmlRpcValue;

class XmlRpcServerConnection : public XmlRpcSource {
 public:
  // The states of the request cycle, each with its own function.
  enum ServerConnectionState { READ_HEADER = 0, READ_REQUEST = 1, WRITE_RESPONSE = 2 };

  // Largest header (request line and fields up to the blank line) that is
  // waited for. Real clients send a few hundred bytes; without a bound a
  // client that never ends its header would grow the buffer forever.
  static constexpr int kMaxHeaderBytes = 64 * 1024;
  // Largest accepted body. Far above any call this system carries (its
  // biggest values are base64 payloads of a few megabytes), yet it keeps a
  // single announced length from reserving gigabytes.
  static constexpr int kMaxContentLength = 64 * 1024 * 1024;

  // `server` (not owned) runs the calls. The server makes every connection
  // with deleteOnClose set, so it destroys itself when closed.
  XmlRpcServerConnection(int fd, XmlRpcServer* server, bool deleteOnClose = false);
  // Takes the connection out of the server's dispatcher (if still there).
  ~XmlRpcServerConnection() override;

  // Advances the request cycle as far as the data allows: one readable event
  // can carry a request from its header to the written response. Returns 0
  // to be closed, WritableEvent while a response is waiting to be sent,
  // ReadableEvent otherwise. The event type is not looked at.
  unsigned handleEvent(unsigned eventType) override;

  ServerConnectionState getState() const { return _connectionState; }
  bool getKeepAlive() const { return _keepAlive; }

 protected:
  // Parses the request in the buffer, runs it and fills the response.
  virtual void executeRequest();

  // The transport: the connection's socket unless a subclass feeds the
  // request path from elsewhere (tests, the fuzzer). Same contracts as
  // XmlRpcSocket::nbRead and XmlRpcSocket::nbWrite.
  virtual bool readAvailable(std::string& s, bool* eof, size_t maxSize);
  virtual bool writeAvailable(const std::string& s, int* bytesSoFar);

  // The state functions; false means "close the connection".
  bool readHeader();
  bool readRequest();
  bool writeResponse();

  // Looks for the end of the header in what has arrived and, once found,
  // takes the length, the start of the body and the keep-alive decision.
  bool parseHeader(bool eof);

  // A complete header of a request without a body (not a POST) ends at
  // headerEnd: answer it as XmlRpcBodilessRequest says.
  bool answerBodiless(size_t headerEnd);

  // Reads the method name (returned) and the parameters of the request.
  std::string parseRequest(XmlRpcValue& params);
  // False when `name` is not a registered method.
  bool executeMethod(const std::string& name, XmlRpcValue& params, XmlRpcValue& result);
  // False when `name` is not "system.multicall"; throws XmlRpcException
  // when its argument is not a single array.
  bool executeMulticall(const std::string& name, XmlRpcValue& params, XmlRpcValue& result);

  void generateResponse(const std::string& resultXml);
  void generateFaultResponse(const std::string& message, int code = -1);
  std::string generateHeader(const std::string& body);

  XmlRpcServer* _server;
  ServerConnectionState _connectionState = READ_HEADER;

  std::string _header;  // raw bytes received while reading the header
  int _contentLength = 0;
  std::string _request;   // body bytes received so far
  std::string _response;  // the whole response (header and body) being sent
  int _bytesWritten = 0;
  bool _keepAlive = true;
  // Close once the response is written completely (bodiless answers that
  // end the connection).
  bool _closeWhenWritten = false;

  // Where the header scan resumes, and what it has found so far (offsets
  // into _header, -1: not seen). A rescan from the start would find the
  // same; resuming keeps a header arriving byte by byte linear.
  int _scanPosition = 0;
  int _lengthValue = -1;
  int _connectionValue = -1;

  // Nested "system.multicall" entries are refused: re-running the outer
  // list from inside itself would never end.
  bool _inMulticall = false;
};

}  // namespace XmlRpc
