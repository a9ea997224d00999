// XmlRpcServerConnection: the HTTP request cycle of one connection (header,
// body, response) and the XML-RPC envelopes it reads and writes.
#include "xmlrpc/XmlRpcServerConnection.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "XmlRpcText.h"
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

const char kServerBanner[] = "Corvane-XMLRPCServer/7.0";
const char kMulticallName[] = "system.multicall";

// Room for the decimal body length and the blank line after it.
constexpr int kLengthFieldSize = 40;

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

}  // namespace

XmlRpcServerConnection::XmlRpcServerConnection(int fd, XmlRpcServer* server, bool deleteOnClose)
    : XmlRpcSource(fd, deleteOnClose), _server(server) {
  XmlRpcUtil::log(2, "XmlRpcServerConnection: new socket %d.", fd);
}

XmlRpcServerConnection::~XmlRpcServerConnection() {
  XmlRpcUtil::log(4, "XmlRpcServerConnection dtor.");
  _server->removeConnection(this);
}

unsigned XmlRpcServerConnection::handleEvent(unsigned /*eventType*/) {
  if (_connectionState == READ_HEADER && !readHeader()) return 0;
  if (_connectionState == READ_REQUEST && !readRequest()) return 0;
  if (_connectionState == WRITE_RESPONSE && !writeResponse()) return 0;
  return _connectionState == WRITE_RESPONSE ? XmlRpcDispatch::WritableEvent
                                            : XmlRpcDispatch::ReadableEvent;
}

bool XmlRpcServerConnection::readAvailable(std::string& s, bool* eof, size_t maxSize) {
  return XmlRpcSocket::nbRead(getfd(), s, eof, maxSize);
}

bool XmlRpcServerConnection::writeAvailable(const std::string& s, int* bytesSoFar) {
  return XmlRpcSocket::nbWrite(getfd(), s, bytesSoFar);
}

bool XmlRpcServerConnection::readHeader() {
  bool eof = false;
  // One byte over the limit is enough to tell a header that is too long.
  if (!readAvailable(_header, &eof, kMaxHeaderBytes + 1)) {
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
  int bodyStart = -1;
  size_t pos = static_cast<size_t>(_scanPosition);
  const char* h = _header.data();
  for (; bodyStart < 0 && pos < end; ++pos) {
    const size_t left = end - pos;
    switch (h[pos]) {
      case 'C':
      case 'c':
        if (left > kContentLengthField.size() && matchesAt(_header, pos, kContentLengthField)) {
          _lengthValue = static_cast<int>(pos + kContentLengthField.size());
        } else if (left > kConnectionField.size() && matchesAt(_header, pos, kConnectionField)) {
          _connectionValue = static_cast<int>(pos + kConnectionField.size());
        }
        break;
      case '\r':
        if (left > 4 && h[pos + 1] == '\n' && h[pos + 2] == '\r' && h[pos + 3] == '\n') {
          bodyStart = static_cast<int>(pos + 4);
        }
        break;
      case '\n':
        if (left > 2 && h[pos + 1] == '\n') bodyStart = static_cast<int>(pos + 2);
        break;
      default:
        break;
    }
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

  // The body is taken as text: a zero byte ends it.
  size_t bodyEnd = _header.find('\0', static_cast<size_t>(bodyStart));
  if (bodyEnd == std::string::npos) bodyEnd = end;
  _request.assign(_header, static_cast<size_t>(bodyStart), bodyEnd - bodyStart);

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

  _header.clear();
  _scanPosition = 0;
  _lengthValue = -1;
  _connectionValue = -1;
  _connectionState = READ_REQUEST;
  return true;
}

bool XmlRpcServerConnection::readRequest() {
  if (_request.length() < static_cast<size_t>(_contentLength)) {
    bool eof = false;
    // Reading stops once the announced length is in (bytes that came along
    // in the same read stay); the rest waits in the socket.
    if (!readAvailable(_request, &eof, static_cast<size_t>(_contentLength))) {
      XmlRpcUtil::error("XmlRpcServerConnection::readRequest: read error (%s).",
                        XmlRpcSocket::getErrorMsg().c_str());
      return false;
    }
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
  return true;
}

bool XmlRpcServerConnection::writeResponse() {
  if (_response.empty()) {
    executeRequest();
    _bytesWritten = 0;
    if (_response.empty()) {
      XmlRpcUtil::error("XmlRpcServerConnection::writeResponse: empty response.");
      return false;
    }
  }

  if (!writeAvailable(_response, &_bytesWritten)) {
    XmlRpcUtil::error("XmlRpcServerConnection::writeResponse: write error (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  XmlRpcUtil::log(3, "XmlRpcServerConnection::writeResponse: wrote %d of %d bytes.", _bytesWritten,
                  static_cast<int>(_response.length()));

  if (_bytesWritten == static_cast<int>(_response.length())) {
    // A pipelined request read along with this one goes with _request.
    _header.clear();
    _request.clear();
    _response.clear();
    _connectionState = READ_HEADER;
  }
  // Without keep-alive the connection closes after this pass even when the
  // response did not fit into it.
  return _keepAlive;
}

void XmlRpcServerConnection::executeRequest() {
  XmlRpcValue params;
  XmlRpcValue result;
  std::string name = parseRequest(params);
  XmlRpcUtil::log(2, "XmlRpcServerConnection::executeRequest: server calling method '%s'",
                  name.c_str());
  try {
    if (!executeMethod(name, params, result) && !executeMulticall(name, params, result)) {
      generateFaultResponse(name + ": unknown method name");
    } else {
      generateResponse(result.toXml());
    }
  } catch (const XmlRpcException& fault) {
    XmlRpcUtil::log(2, "XmlRpcServerConnection::executeRequest: fault %s.",
                    fault.getMessage().c_str());
    generateFaultResponse(fault.getMessage(), fault.getCode());
  }
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

bool XmlRpcServerConnection::executeMethod(const std::string& name, XmlRpcValue& params,
                                           XmlRpcValue& result) {
  XmlRpcServerMethod* method = _server->findMethod(name);
  if (method == nullptr) return false;
  method->execute(params, result);
  if (!result.valid()) result = std::string();
  return true;
}

bool XmlRpcServerConnection::executeMulticall(const std::string& name, XmlRpcValue& params,
                                              XmlRpcValue& result) {
  if (name != kMulticallName) return false;
  if (_inMulticall) {
    throw XmlRpcException(name + ": Recursive system.multicall forbidden");
  }
  if (params.getType() != XmlRpcValue::TypeArray || params.size() != 1 ||
      params[0].getType() != XmlRpcValue::TypeArray) {
    throw XmlRpcException(name + ": Invalid argument (expected an array)");
  }

  struct MulticallScope {
    bool& flag;
    explicit MulticallScope(bool& f) : flag(f) { flag = true; }
    ~MulticallScope() { flag = false; }
  } scope(_inMulticall);

  XmlRpcValue& calls = params[0];
  const int n = calls.size();
  result.setSize(n);
  for (int i = 0; i < n; ++i) {
    XmlRpcValue& call = calls[i];
    if (call.getType() != XmlRpcValue::TypeStruct || !call.hasMember("methodName") ||
        !call.hasMember("params")) {
      result[i] = faultStruct(-1, name +
                                      ": Invalid argument (expected a struct with members "
                                      "methodName and params)");
      continue;
    }
    try {
      const std::string& methodName = call["methodName"];
      XmlRpcValue inner;
      inner.setSize(1);
      if (!executeMethod(methodName, call["params"], inner[0]) &&
          !executeMulticall(methodName, params, inner[0])) {
        result[i] = faultStruct(-1, methodName + ": unknown method name");
      } else {
        result[i] = std::move(inner);
      }
    } catch (const XmlRpcException& fault) {
      result[i] = faultStruct(fault.getCode(), fault.getMessage());
    }
  }
  return true;
}

void XmlRpcServerConnection::generateResponse(const std::string& resultXml) {
  static constexpr std::string_view kBodyStart =
      "<?xml version=\"1.0\"?>\r\n<methodResponse><params><param>\r\n\t";
  static constexpr std::string_view kBodyEnd = "\r\n</param></params></methodResponse>\r\n";
  std::string body;
  body.reserve(kBodyStart.size() + resultXml.size() + kBodyEnd.size());
  body.append(kBodyStart).append(resultXml).append(kBodyEnd);
  _response = generateHeader(body);
  _response += body;
  XmlRpcUtil::log(5, "XmlRpcServerConnection::generateResponse:\n%s\n", _response.c_str());
}

void XmlRpcServerConnection::generateFaultResponse(const std::string& message, int code) {
  static constexpr std::string_view kBodyStart =
      "<?xml version=\"1.0\"?>\r\n<methodResponse><fault>\r\n\t";
  static constexpr std::string_view kBodyEnd = "\r\n</fault></methodResponse>\r\n";
  std::string body;
  body.append(kBodyStart).append(faultStruct(code, message).toXml()).append(kBodyEnd);
  _response = generateHeader(body);
  _response += body;
}

std::string XmlRpcServerConnection::generateHeader(const std::string& body) {
  char length[kLengthFieldSize];
  std::snprintf(length, sizeof(length), "%d\r\n\r\n", static_cast<int>(body.size()));
  std::string header = "HTTP/1.1 200 OK\r\nServer: ";
  // Room for the rest of the header and for the body the caller appends.
  header.reserve(header.size() + 128 + body.size());
  header += kServerBanner;
  header += "\r\nAccess-Control-Allow-Origin: *\r\nContent-Type: text/xml\r\nContent-length: ";
  header += length;
  return header;
}

}  // namespace XmlRpc
