// XmlRpcServerConnection: one accepted HTTP connection, reading XML-RPC calls
// and writing their responses until it is closed.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "xmlrpc/XmlRpcSource.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

class XmlRpcServer;
class XmlRpcServerMethod;

class XmlRpcServerConnection : public XmlRpcSource {
 public:
  // The states of the request cycle. EXECUTE_PENDING: the request has been
  // read and a method answers later through its XmlRpcCompletion; the
  // connection reads nothing meanwhile (it only notices the client leaving
  // or failing) and is not subject to the request time-outs.
  enum ServerConnectionState {
    READ_HEADER = 0,
    READ_REQUEST = 1,
    WRITE_RESPONSE = 2,
    EXECUTE_PENDING = 3
  };

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
  // ReadableEvent otherwise; while a result is awaited, ReadableEvent (to
  // notice the client closing) or, once the client has sent more bytes that
  // must wait, Exception only. The event type is not looked at.
  unsigned handleEvent(unsigned eventType) override;

  ServerConnectionState getState() const { return _connectionState; }
  bool getKeepAlive() const { return _keepAlive; }

  // The request time-outs (see XmlRpcConnectionLimits): true when the
  // connection has waited too long at `now` (XmlRpcDispatch::getTime()) and
  // is to be closed; a dropped request is logged, an idle connection goes
  // quietly. Never true while a result is awaited.
  bool timedOut(double now);
  // Waiting for a next request of which nothing has arrived: the kind the
  // server closes first, longest idle first, when descriptors run short.
  bool isIdle() const { return _connectionState == READ_HEADER && _header.empty(); }
  // True when bytes have arrived that the connection has not read yet (or
  // the peer has closed): then it is not really idle.
  bool hasDataWaiting();
  // When the current wait began: the last response sent (or the accept), the
  // header's first byte, the last body byte received, the last byte sent.
  double waitingSince() const { return _waitingSince; }

  // A body holding a zero byte is answered with this fault (XML allows no
  // such character); the text names the offset. The code is the one XML-RPC
  // servers commonly use for a character not allowed by the encoding.
  static constexpr int kZeroByteFaultCode = -32702;

 protected:
  // Parses the request in the buffer and starts it: fills the response, or
  // leaves the connection in EXECUTE_PENDING when a method answers later.
  virtual void executeRequest();

  // The transport: the connection's socket unless a subclass feeds the
  // request path from elsewhere (tests, the fuzzer). Same contracts as
  // XmlRpcSocket::nbRead and XmlRpcSocket::nbWrite.
  virtual bool readAvailable(std::string& s, bool* eof, size_t maxSize);
  virtual bool writeAvailable(const std::string& s, int* bytesSoFar);
  // Looks without taking anything: *eof when the peer has closed, *data when
  // bytes wait. False on a real error.
  virtual bool peekAvailable(bool* eof, bool* data);

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

  // The response is built in place: a body is appended to _response behind
  // room for its header, which is put in front once the body's length is
  // known, so that a big result is never copied whole.
  void beginResponse(std::string_view bodyStart);
  void endResponse(std::string_view bodyEnd);
  void generateResponse(const XmlRpcValue& result);
  void generateFaultResponse(const std::string& message, int code = -1);

  XmlRpcServer* _server;
  ServerConnectionState _connectionState = READ_HEADER;

  std::string _header;  // raw bytes received while reading the header
  int _contentLength = 0;
  std::string _request;  // body bytes received so far
  // The response being sent: from _bytesWritten on is still to go. It
  // starts behind the unused part of the header room.
  std::string _response;
  int _responseStart = 0;
  int _bytesWritten = 0;
  bool _keepAlive = true;
  // Close once the response is written completely (bodiless answers that
  // end the connection).
  bool _closeWhenWritten = false;
  double _waitingSince = 0.0;

  // Where the header scan resumes, and what it has found so far (offsets
  // into _header, -1: not seen). A rescan from the start would find the
  // same; resuming keeps a header arriving byte by byte linear.
  int _scanPosition = 0;
  int _lengthValue = -1;
  int _connectionValue = -1;

  // The call in progress: the method's name and parameters, and for
  // "system.multicall" the number of entries and the next one. The
  // entries' results go into the response as they come.
  std::string _methodName;
  XmlRpcValue _params;
  bool _multicall = false;
  int _entries = 0;
  int _nextEntry = 0;

 private:
  class PendingResult;
  friend class PendingResult;

  // What a method delivered through its completion.
  struct Outcome {
    bool fault = false;
    XmlRpcValue value;  // the result (invalid: sent as "")
    std::string message;
    int code = -1;
  };

  // The connection is waiting for a result; `eventType` is the event that
  // woke it (none when the call has just started).
  unsigned watchWhilePending(unsigned eventType);
  // Starts the call: a registered method, "system.multicall", or the
  // unknown-method fault.
  void startRequest();
  // Hands `params` to `method` through a fresh completion.
  void startCall(XmlRpcServerMethod* method, XmlRpcValue& params);
  // Moves the call on as far as results are in: takes a delivered outcome,
  // starts the next multicall entry, and completes the response once all is
  // done. Runs as a loop, so that a long multicall whose entries finish at
  // once does not nest a call per entry.
  void runCalls();
  // Starts the multicall entry _nextEntry, or answers it at once (a
  // malformed entry, an unknown or nested name).
  void startEntry();
  // Appends one multicall entry's result or fault to the response.
  void appendEntry(Outcome&& outcome);
  // A completion delivered its outcome.
  void deliver(Outcome&& outcome);
  // Turns an outcome into the response of a single call.
  void respond(Outcome&& outcome);
  // A response has gone out whole: back to waiting for the next request.
  void resetForNextRequest();
  double now();

  std::shared_ptr<PendingResult> _pending;  // the call that is out, if any
  bool _haveOutcome = false;
  Outcome _outcome;
  bool _runningCalls = false;  // runCalls() is on the stack
  bool _executing = false;     // a method's executeAsync is on the stack
};

}  // namespace XmlRpc
