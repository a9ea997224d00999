// XmlRpcServerConnection: the HTTP request cycle of one connection (header,
// body, response) and the XML-RPC envelopes it reads and writes.
#include "xmlrpc/XmlRpcServerConnection.h"

#include <cctype>
#include <charconv>
#include <climits>
#include <cstring>

#include "XmlRpcText.h"
#include "xmlrpc/XmlRpcBodilessRequest.h"
#include "xmlrpc/XmlRpcCompletion.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

namespace {

// The header fields the connection looks for. Each must be followed by
// exactly one blank; case does not matter (they are written in lower case
// for the comparison).
constexpr std::string_view kContentLengthField = "content-length: ";
constexpr std::string_view kConnectionField = "connection: ";

// The fixed fields of a response header, up to the body's length.
constexpr std::string_view kHeaderFields =
    "HTTP/1.1 200 OK\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
    "Access-Control-Allow-Origin: *\r\nContent-Type: text/xml\r\nContent-length: ";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";

const char kMulticallName[] = "system.multicall";

// Room for the decimal body length.
constexpr int kLengthFieldSize = 24;

// Room kept in front of a response body for its header: the fixed fields
// take 126 bytes and the length at most 20 digits.
constexpr size_t kHeaderRoom = 160;
static_assert(kHeaderFields.size() + kLengthFieldSize + kHeaderEnd.size() <= kHeaderRoom);

// A kept-alive connection keeps buffers up to this size between requests
// (a typical call fits, so they are not reallocated each time); larger ones,
// left by a big request or response, are given back once it is done.
constexpr size_t kKeptBufferBytes = 64 * 1024;

// The envelopes of a result and of a fault around the value's XML.
constexpr std::string_view kResultStart =
    "<?xml version=\"1.0\"?>\r\n<methodResponse><params><param>\r\n\t";
constexpr std::string_view kResultEnd = "\r\n</param></params></methodResponse>\r\n";
constexpr std::string_view kFaultStart = "<?xml version=\"1.0\"?>\r\n<methodResponse><fault>\r\n\t";
constexpr std::string_view kFaultEnd = "\r\n</fault></methodResponse>\r\n";
// A multicall's result array, written entry by entry; each result is a
// one-element array of its own.
constexpr std::string_view kArrayStart = "<value><array><data>";
constexpr std::string_view kArrayEnd = "</data></array></value>";

// Case folding of ASCII letters only: header names are ASCII, and the C
// library's tolower() would consult the locale for every byte scanned.
inline char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// True when `text` holds `word` (given in lower case) at `pos`, ignoring
// case; never reads past the end of `text`.
bool matchesAt(const std::string& text, size_t pos, std::string_view word) {
  if (text.size() - pos < word.size()) return false;
  for (size_t i = 0; i < word.size(); ++i) {
    if (asciiLower(text[pos + i]) != word[i]) return false;
  }
  return true;
}

// The first `byte` in text[from, to), or null.
const char* nextByte(const char* text, char byte, size_t from, size_t to) {
  if (from >= to) return nullptr;
  return static_cast<const char*>(std::memchr(text + from, byte, to - from));
}

// The decimal number at `pos` as atoi reads it (leading white space, a sign,
// digits up to the first other byte), saturated to the int range.
int parseLength(const std::string& text, size_t pos) {
  while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos]))) ++pos;
  bool negative = false;
  if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negative = text[pos++] == '-';
  long long value = 0;
  while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
    value = value * 10 + (text[pos++] - '0');
    // Held at one past the int range once beyond it, so it cannot overflow.
    if (value > INT_MAX) value = static_cast<long long>(INT_MAX) + 1;
  }
  if (negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

// A multicall entry's fault, in the shape of a fault response's value.
XmlRpcValue faultStruct(int code, const std::string& message) {
  XmlRpcValue fault;
  fault["faultCode"] = code;
  fault["faultString"] = message;
  return fault;
}

// Sets a flag for as long as it lives, however the scope is left.
class FlagScope {
 public:
  explicit FlagScope(bool& flag) : _flag(flag) { _flag = true; }
  ~FlagScope() { _flag = false; }
  FlagScope(const FlagScope&) = delete;
  FlagScope& operator=(const FlagScope&) = delete;

 private:
  bool& _flag;
};

// Empties `s`, giving its storage back when it has grown large.
void release(std::string& s) {
  if (s.capacity() > kKeptBufferBytes) {
    std::string().swap(s);
  } else {
    s.clear();
  }
}

}  // namespace

// The completion of one call. It points at its connection only while the
// connection lives and waits for it: the connection's destructor and the
// first finish()/fail() both cut the link.
class XmlRpcServerConnection::PendingResult
    : public XmlRpcCompletion,
      public std::enable_shared_from_this<XmlRpcServerConnection::PendingResult> {
 public:
  explicit PendingResult(XmlRpcServerConnection* connection) : _connection(connection) {}

  void finish(const XmlRpcValue& result) override {
    Outcome outcome;
    outcome.value = result;
    deliver(std::move(outcome));
  }
  void finish(XmlRpcValue&& result) override {
    Outcome outcome;
    outcome.value = std::move(result);
    deliver(std::move(outcome));
  }
  void fail(const std::string& message, int code) override {
    Outcome outcome;
    outcome.fault = true;
    outcome.message = message;
    outcome.code = code;
    deliver(std::move(outcome));
  }
  bool abandoned() const override { return _abandoned; }

  // The connection is closing.
  void abandon() {
    _connection = nullptr;
    _abandoned = true;
  }

 private:
  void deliver(Outcome&& outcome) {
    XmlRpcServerConnection* connection = _connection;
    if (connection == nullptr) return;  // delivered already, or the client left
    _connection = nullptr;
    // The connection may let go of this handle while it moves on.
    auto self = shared_from_this();
    connection->deliver(std::move(outcome));
  }

  XmlRpcServerConnection* _connection;
  bool _abandoned = false;
};

XmlRpcServerConnection::XmlRpcServerConnection(int fd, XmlRpcServer* server, bool deleteOnClose)
    : XmlRpcSource(fd, deleteOnClose), _server(server) {
  XmlRpcUtil::log(2, "XmlRpcServerConnection: new socket %d.", fd);
  // The clock itself, not the pass's time: connections accepted in one pass
  // (up to 64) then stay in the order they came, so the one that has been
  // idle longest is the one closed to make room near the descriptor limit.
  _waitingSince = _server->getDispatch().getTime();
}

double XmlRpcServerConnection::now() { return _server->getDispatch().passTime(); }

bool XmlRpcServerConnection::timedOut(double at) {
  const XmlRpcConnectionLimits& limits = _server->getConnectionLimits();
  const double waited = at - _waitingSince;
  switch (_connectionState) {
    case READ_HEADER:
      if (_header.empty()) {
        // Idle between requests: closed without a word, as a client would
        // expect of an HTTP server.
        if (waited <= limits.idleSeconds) return false;
        XmlRpcUtil::log(3, "XmlRpcServerConnection: idle for %d s, closing.",
                        static_cast<int>(waited));
        return true;
      }
      if (waited <= limits.headerSeconds) return false;
      XmlRpcUtil::error(
          "XmlRpcServerConnection::readHeader: header not complete within %d s, dropped.",
          static_cast<int>(limits.headerSeconds));
      return true;
    case READ_REQUEST:
      if (waited <= limits.stallSeconds) return false;
      XmlRpcUtil::error("XmlRpcServerConnection::readRequest: no data for %d s, dropped.",
                        static_cast<int>(limits.stallSeconds));
      return true;
    case WRITE_RESPONSE:
      if (waited <= limits.stallSeconds) return false;
      XmlRpcUtil::error(
          "XmlRpcServerConnection::writeResponse: client took no data for %d s, dropped.",
          static_cast<int>(limits.stallSeconds));
      return true;
    case EXECUTE_PENDING:
      break;  // the method's own business
  }
  return false;
}

XmlRpcServerConnection::~XmlRpcServerConnection() {
  XmlRpcUtil::log(4, "XmlRpcServerConnection dtor.");
  // A method still working for this connection finds its handle abandoned.
  if (_pending) _pending->abandon();
  _server->removeConnection(this);
}

unsigned XmlRpcServerConnection::handleEvent(unsigned eventType) {
  if (_connectionState == EXECUTE_PENDING) return watchWhilePending(eventType);
  if (_connectionState == READ_HEADER && !readHeader()) return 0;
  if (_connectionState == READ_REQUEST && !readRequest()) return 0;
  if (_connectionState == WRITE_RESPONSE && !writeResponse()) return 0;
  if (_connectionState == EXECUTE_PENDING) return XmlRpcDispatch::ReadableEvent;
  return _connectionState == WRITE_RESPONSE ? XmlRpcDispatch::WritableEvent
                                            : XmlRpcDispatch::ReadableEvent;
}

bool XmlRpcServerConnection::hasDataWaiting() {
  bool eof = false;
  bool data = false;
  return !peekAvailable(&eof, &data) || eof || data;
}

unsigned XmlRpcServerConnection::watchWhilePending(unsigned eventType) {
  // Only an error, a hang-up or urgent data raise the exception event here
  // (the dispatcher reports errors and hang-ups as every watched event).
  // None of them goes away by itself while bytes sent ahead still wait in
  // the socket, so watching on would wake every pass: the client is
  // dropped and its call abandoned.
  if (eventType & XmlRpcDispatch::Exception) return 0;
  bool eof = false;
  bool data = false;
  // A client that has gone is closed at once: its call is abandoned.
  if (!peekAvailable(&eof, &data) || eof) return 0;
  // Bytes the client sent ahead wait in the socket for the next request;
  // watching them for reading would wake every pass, so only errors and
  // hang-ups are watched until the result is in.
  return data ? XmlRpcDispatch::Exception : XmlRpcDispatch::ReadableEvent;
}

bool XmlRpcServerConnection::readAvailable(std::string& s, bool* eof, size_t maxSize) {
  return XmlRpcSocket::nbRead(getfd(), s, eof, maxSize);
}

bool XmlRpcServerConnection::writeAvailable(const std::string& s, int* bytesSoFar) {
  return XmlRpcSocket::nbWrite(getfd(), s, bytesSoFar);
}

bool XmlRpcServerConnection::peekAvailable(bool* eof, bool* data) {
  return XmlRpcSocket::nbPeek(getfd(), eof, data);
}

bool XmlRpcServerConnection::readHeader() {
  bool eof = false;
  const bool wasEmpty = _header.empty();
  // One byte over the limit is enough to tell a header that is too long.
  const bool readOk = readAvailable(_header, &eof, kMaxHeaderBytes + 1);
  // The header's time runs from its first byte.
  if (wasEmpty && !_header.empty()) _waitingSince = now();
  if (!readOk) {
    // A connection that never sent anything is dropped silently.
    if (!_header.empty()) {
      XmlRpcUtil::error("XmlRpcServerConnection::readHeader: error while reading header (%s).",
                        XmlRpcSocket::getErrorMsg().c_str());
    }
    return false;
  }
  return parseHeader(eof);
}

bool XmlRpcServerConnection::parseHeader(bool eof) {
  XmlRpcUtil::log(4, "XmlRpcServerConnection::readHeader: read %d bytes.",
                  static_cast<int>(_header.length()));

  // Each test needs strictly more bytes than it compares, so a buffer ending
  // right at "\r\n\r\n" is not complete yet: no body has arrived.
  const size_t end = _header.size();
  const size_t scanStart = static_cast<size_t>(_scanPosition);
  const char* h = _header.data();

  // The blank line: the first "\r\n\r\n" or "\n\n" at or after the scan
  // position. Both contain a line feed, so only line feeds are visited.
  int bodyStart = -1;
  size_t blankLine = end;  // where the blank line's first byte is
  for (size_t from = scanStart; from < end;) {
    const void* found = std::memchr(h + from, '\n', end - from);
    if (found == nullptr) break;
    const size_t q = static_cast<size_t>(static_cast<const char*>(found) - h);
    if (q > scanStart && h[q - 1] == '\r' && q + 3 < end && h[q + 1] == '\r' &&
        h[q + 2] == '\n') {
      blankLine = q - 1;
      bodyStart = static_cast<int>(q + 3);
      break;
    }
    if (q + 2 < end && h[q + 1] == '\n') {
      blankLine = q;
      bodyStart = static_cast<int>(q + 2);
      break;
    }
    from = q + 1;
  }

  // The fields, wherever their names appear before the blank line (a later
  // one overrides an earlier one). Both names start with a 'c': only those
  // bytes are compared, found by memchr for each case, in order.
  const char* lower = nextByte(h, 'c', scanStart, blankLine);
  const char* upper = nextByte(h, 'C', scanStart, blankLine);
  while (lower != nullptr || upper != nullptr) {
    const char* at = (upper == nullptr || (lower != nullptr && lower < upper)) ? lower : upper;
    const size_t pos = static_cast<size_t>(at - h);
    if (at == lower) {
      lower = nextByte(h, 'c', pos + 1, blankLine);
    } else {
      upper = nextByte(h, 'C', pos + 1, blankLine);
    }
    const size_t left = end - pos;
    if (left > kContentLengthField.size() && matchesAt(_header, pos, kContentLengthField)) {
      _lengthValue = static_cast<int>(pos + kContentLengthField.size());
    } else if (left > kConnectionField.size() && matchesAt(_header, pos, kConnectionField)) {
      _connectionValue = static_cast<int>(pos + kConnectionField.size());
    }
  }

  // A request without a body (GET, HEAD, OPTIONS, ...) is complete at its
  // blank line, even when nothing follows it.
  if (_lengthValue < 0 && isBodilessRequest(_header)) {
    if (bodyStart >= 0) return answerBodiless(static_cast<size_t>(bodyStart));
    if (_header.ends_with("\r\n\r\n") || _header.ends_with("\n\n")) return answerBodiless(end);
  }

  if (bodyStart < 0) {
    if (eof) {
      XmlRpcUtil::log(4, "XmlRpcServerConnection::readHeader: EOF");
      if (!_header.empty()) {
        XmlRpcUtil::error("XmlRpcServerConnection::readHeader: EOF while reading header");
      }
      return false;
    }
    if (_header.size() > static_cast<size_t>(kMaxHeaderBytes)) {
      XmlRpcUtil::error("XmlRpcServerConnection::readHeader: header too long (%d bytes).",
                        static_cast<int>(_header.size()));
      return false;
    }
    // The last positions were judged on too few bytes; they are looked at
    // again when more data is in.
    const size_t settled = end > kContentLengthField.size() ? end - kContentLengthField.size() : 0;
    if (settled > static_cast<size_t>(_scanPosition)) _scanPosition = static_cast<int>(settled);
    return true;
  }

  if (_lengthValue < 0) {
    XmlRpcUtil::error("XmlRpcServerConnection::readHeader: No Content-length specified");
    return false;
  }
  _contentLength = parseLength(_header, static_cast<size_t>(_lengthValue));
  if (_contentLength <= 0) {
    XmlRpcUtil::error("XmlRpcServerConnection::readHeader: Invalid Content-length specified (%d).",
                      _contentLength);
    return false;
  }
  if (_contentLength > kMaxContentLength) {
    XmlRpcUtil::error("XmlRpcServerConnection::readHeader: Content-length too large (%d).",
                      _contentLength);
    return false;
  }
  XmlRpcUtil::log(3, "XmlRpcServerConnection::readHeader: specified content length is %d.",
                  _contentLength);

  // Whatever of the body came with the header (a zero byte in it is
  // answered once the whole body is in).
  _request.assign(_header, static_cast<size_t>(bodyStart), end - bodyStart);

  // HTTP/1.0 closes unless asked to keep alive; later versions keep alive
  // unless asked to close.
  const bool sawConnection = _connectionValue >= 0;
  const size_t connection = static_cast<size_t>(_connectionValue);
  if (_header.find("HTTP/1.0") != std::string::npos) {
    _keepAlive = sawConnection && matchesAt(_header, connection, "keep-alive");
  } else {
    _keepAlive = !(sawConnection && matchesAt(_header, connection, "close"));
  }
  XmlRpcUtil::log(3, "KeepAlive: %d", _keepAlive ? 1 : 0);

  release(_header);
  _scanPosition = 0;
  _lengthValue = -1;
  _connectionValue = -1;
  _connectionState = READ_REQUEST;
  _waitingSince = now();
  return true;
}

bool XmlRpcServerConnection::answerBodiless(size_t headerEnd) {
  XmlRpcBodilessAnswer answer =
      answerBodilessRequest(std::string_view(_header).substr(0, headerEnd), _server->staticPage());
  XmlRpcUtil::log(3, "XmlRpcServerConnection::readHeader: answered a request without a body.");
  _header.clear();
  _scanPosition = 0;
  _lengthValue = -1;
  _connectionValue = -1;
  _request.clear();
  _response = std::move(answer.response);
  _bytesWritten = 0;
  _responseStart = 0;
  // Kept alive while it is written, so a response larger than one send pass
  // still goes out whole.
  _keepAlive = true;
  _closeWhenWritten = answer.close;
  _connectionState = WRITE_RESPONSE;
  return true;
}

bool XmlRpcServerConnection::readRequest() {
  if (_request.length() < static_cast<size_t>(_contentLength)) {
    bool eof = false;
    // Reading stops once the announced length is in (bytes that came along
    // in the same read stay); the rest waits in the socket.
    const size_t had = _request.size();
    if (!readAvailable(_request, &eof, static_cast<size_t>(_contentLength))) {
      XmlRpcUtil::error("XmlRpcServerConnection::readRequest: read error (%s).",
                        XmlRpcSocket::getErrorMsg().c_str());
      return false;
    }
    if (_request.size() > had) _waitingSince = now();
    if (_request.length() < static_cast<size_t>(_contentLength)) {
      if (eof) {
        XmlRpcUtil::error("XmlRpcServerConnection::readRequest: EOF while reading request");
        return false;
      }
      return true;  // wait for the rest
    }
  }
  // Bytes beyond the announced length stay and are parsed with the rest.
  XmlRpcUtil::log(3, "XmlRpcServerConnection::readRequest read %d bytes.",
                  static_cast<int>(_request.length()));
  _connectionState = WRITE_RESPONSE;
  _waitingSince = now();
  // XML has no zero character: such a body is no call. It is answered with
  // a fault saying so (not cut at the zero byte, which would leave the body
  // shorter than announced and the client waiting for ever).
  const size_t zero =
      std::string_view(_request).substr(0, static_cast<size_t>(_contentLength)).find('\0');
  if (zero != std::string::npos) {
    generateFaultResponse(
        "Invalid request: zero byte at offset " + std::to_string(zero) + " of the body",
        kZeroByteFaultCode);
  }
  return true;
}

bool XmlRpcServerConnection::writeResponse() {
  if (_response.empty()) {
    executeRequest();
    if (_connectionState == EXECUTE_PENDING) return true;  // answered later
    if (_response.empty()) {
      XmlRpcUtil::error("XmlRpcServerConnection::writeResponse: empty response.");
      return false;
    }
  }

  const int had = _bytesWritten;
  if (!writeAvailable(_response, &_bytesWritten)) {
    XmlRpcUtil::error("XmlRpcServerConnection::writeResponse: write error (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  if (_bytesWritten > had) _waitingSince = now();
  XmlRpcUtil::log(3, "XmlRpcServerConnection::writeResponse: wrote %d of %d bytes.",
                  _bytesWritten - _responseStart,
                  static_cast<int>(_response.length()) - _responseStart);

  if (_bytesWritten < static_cast<int>(_response.length())) {
    return true;  // the rest goes when the socket takes it
  }
  resetForNextRequest();
  // Without keep-alive, or after a bodiless answer that ends the connection,
  // it closes now, after the last byte.
  return _keepAlive && !_closeWhenWritten;
}

void XmlRpcServerConnection::resetForNextRequest() {
  // A pipelined request read along with this one goes with _request.
  release(_header);
  release(_request);
  release(_response);
  _bytesWritten = 0;
  _responseStart = 0;
  _connectionState = READ_HEADER;
  _waitingSince = now();
}

void XmlRpcServerConnection::executeRequest() {
  _params = XmlRpcValue();
  _methodName = parseRequest(_params);
  // The text is not needed once parsed: its memory goes before the call
  // builds its response.
  release(_request);
  XmlRpcUtil::log(2, "XmlRpcServerConnection::executeRequest: server calling method '%s'",
                  _methodName.c_str());
  startRequest();
}

std::string XmlRpcServerConnection::parseRequest(XmlRpcValue& params) {
  int offset = 0;
  std::string name = XmlRpcUtil::parseTag("<methodName>", _request, &offset);
  if (name.empty()) return name;
  // "<params/>": a call without parameters, like one without the element.
  int afterName = offset;
  if (detail::nextEmptyElementIs("<params", _request, &afterName)) return name;
  if (!XmlRpcUtil::findTag("<params>", _request, &offset)) return name;

  int nArgs = 0;
  // The parameters share one scan of the request, so that many parameters
  // lacking their closing tags cost linear time instead of one search to the
  // end of the request each.
  XmlRpcValue::TextScan scan;
  while (XmlRpcUtil::nextTagIs("<param>", _request, &offset)) {
    // A value that cannot be read is kept as an invalid parameter.
    params[nArgs++].fromXml(_request, &offset, scan);
    XmlRpcUtil::nextTagIs("</param>", _request, &offset);
  }
  XmlRpcUtil::nextTagIs("</params>", _request, &offset);
  return name;
}

void XmlRpcServerConnection::startRequest() {
  XmlRpcServerMethod* method = _server->findMethod(_methodName);
  _multicall = false;
  if (method != nullptr) {
    startCall(method, _params);
  } else if (_methodName == kMulticallName) {
    if (_params.getType() != XmlRpcValue::TypeArray || _params.size() != 1 ||
        _params[0].getType() != XmlRpcValue::TypeArray) {
      Outcome outcome;
      outcome.fault = true;
      outcome.message = _methodName + ": Invalid argument (expected an array)";
      respond(std::move(outcome));
      return;
    }
    _multicall = true;
    _entries = _params[0].size();
    _nextEntry = 0;
    beginResponse(kResultStart);
    _response += kArrayStart;
  } else {
    _params = XmlRpcValue();
    generateFaultResponse(_methodName + ": unknown method name");
    return;
  }
  runCalls();
}

void XmlRpcServerConnection::startCall(XmlRpcServerMethod* method, XmlRpcValue& params) {
  auto completion = std::make_shared<PendingResult>(this);
  _pending = completion;
  _haveOutcome = false;
  // An outcome delivered from inside executeAsync is only recorded: the
  // caller goes on from here.
  FlagScope scope(_executing);
  try {
    method->executeAsync(params, completion);
  } catch (const XmlRpcException& fault) {
    // Counts only when the method had not delivered yet.
    completion->fail(fault.getMessage(), fault.getCode());
  }
}

void XmlRpcServerConnection::runCalls() {
  if (_runningCalls) return;  // the loop further up the stack carries on
  FlagScope scope(_runningCalls);

  for (;;) {
    if (_pending) {
      if (!_haveOutcome) {
        _connectionState = EXECUTE_PENDING;
        return;
      }
      _pending.reset();
      _haveOutcome = false;
      if (!_multicall) {
        respond(std::move(_outcome));
        return;
      }
      appendEntry(std::move(_outcome));
    }
    if (!_multicall) return;
    if (_nextEntry >= _entries) {
      _params = XmlRpcValue();
      _response += kArrayEnd;
      endResponse(kResultEnd);
      return;
    }
    // An entry answered at once leaves nothing pending: the loop goes on
    // with the next one.
    startEntry();
  }
}

void XmlRpcServerConnection::startEntry() {
  XmlRpcValue& call = _params[0][_nextEntry];
  Outcome answer;
  answer.fault = true;
  if (call.getType() != XmlRpcValue::TypeStruct || !call.hasMember("methodName") ||
      !call.hasMember("params")) {
    answer.message = std::string(kMulticallName) +
                     ": Invalid argument (expected a struct with members methodName and params)";
    appendEntry(std::move(answer));
    return;
  }
  try {
    const std::string& methodName = call["methodName"];
    XmlRpcServerMethod* method = _server->findMethod(methodName);
    if (method != nullptr) {
      startCall(method, call["params"]);
      return;
    }
    // A nested "system.multicall" would re-run the outer list from inside
    // itself, which never ends: it is refused.
    if (methodName == kMulticallName) {
      answer.message = methodName + ": Recursive system.multicall forbidden";
    } else {
      answer.message = methodName + ": unknown method name";
    }
  } catch (const XmlRpcException& fault) {
    answer.message = fault.getMessage();
    answer.code = fault.getCode();
  }
  appendEntry(std::move(answer));
}

void XmlRpcServerConnection::appendEntry(Outcome&& outcome) {
  // The entry's parameters are done with: their memory goes as the
  // response grows.
  _params[0][_nextEntry] = XmlRpcValue();
  ++_nextEntry;
  if (outcome.fault) {
    faultStruct(outcome.code, outcome.message).appendXml(_response);
    return;
  }
  if (!outcome.value.valid()) outcome.value = std::string();
  _response += kArrayStart;
  outcome.value.appendXml(_response);
  _response += kArrayEnd;
}

void XmlRpcServerConnection::deliver(Outcome&& outcome) {
  _outcome = std::move(outcome);
  _haveOutcome = true;
  if (_runningCalls || _executing) return;  // delivered from inside executeAsync
  runCalls();
  if (_connectionState == WRITE_RESPONSE) {
    // Delivered from outside the connection's own handler: the response
    // goes out once the socket can take it.
    _waitingSince = now();
    _server->getDispatch().setSourceEvents(this, XmlRpcDispatch::WritableEvent);
  }
}

void XmlRpcServerConnection::respond(Outcome&& outcome) {
  _params = XmlRpcValue();
  if (outcome.fault) {
    XmlRpcUtil::log(2, "XmlRpcServerConnection::executeRequest: fault %s.",
                    outcome.message.c_str());
    generateFaultResponse(outcome.message, outcome.code);
    return;
  }
  if (!outcome.value.valid()) outcome.value = std::string();
  generateResponse(outcome.value);
}

void XmlRpcServerConnection::beginResponse(std::string_view bodyStart) {
  _response.assign(kHeaderRoom, ' ');
  _response += bodyStart;
}

void XmlRpcServerConnection::endResponse(std::string_view bodyEnd) {
  _response += bodyEnd;
  // The header goes straight into the room in front of the body: the fixed
  // fields, then the length.
  char length[kLengthFieldSize];
  const auto [lengthEnd, failed] =
      std::to_chars(length, length + sizeof(length), _response.size() - kHeaderRoom);
  (void)failed;  // a size_t always fits in kLengthFieldSize digits
  const size_t lengthSize = static_cast<size_t>(lengthEnd - length);
  const size_t headerSize = kHeaderFields.size() + lengthSize + kHeaderEnd.size();
  const size_t start = kHeaderRoom - headerSize;
  char* out = _response.data() + start;
  std::memcpy(out, kHeaderFields.data(), kHeaderFields.size());
  out += kHeaderFields.size();
  std::memcpy(out, length, lengthSize);
  out += lengthSize;
  std::memcpy(out, kHeaderEnd.data(), kHeaderEnd.size());
  _responseStart = static_cast<int>(start);
  _bytesWritten = _responseStart;
  _connectionState = WRITE_RESPONSE;
}

void XmlRpcServerConnection::generateResponse(const XmlRpcValue& result) {
  beginResponse(kResultStart);
  result.appendXml(_response);
  endResponse(kResultEnd);
  XmlRpcUtil::log(5, "XmlRpcServerConnection::generateResponse:\n%s\n",
                  _response.c_str() + _responseStart);
}

void XmlRpcServerConnection::generateFaultResponse(const std::string& message, int code) {
  beginResponse(kFaultStart);
  faultStruct(code, message).appendXml(_response);
  endResponse(kFaultEnd);
}

}  // namespace XmlRpc
