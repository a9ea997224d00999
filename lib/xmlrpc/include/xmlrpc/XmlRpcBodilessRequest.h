// XmlRpcBodilessRequest: the answers to HTTP requests that carry no body
// (GET, HEAD, OPTIONS, ...), which are not XML-RPC calls: a static page the
// program may give the server, the cross-origin preflight, and 405 for the rest.
#pragma once

#include <string>
#include <string_view>

namespace XmlRpc {

// A page served for "GET /" (and "/index.html"), given by the program.
struct XmlRpcStaticPage {
  std::string contentType;  // e.g. "text/html; charset=utf-8"
  std::string body;
};

struct XmlRpcBodilessAnswer {
  std::string response;  // the whole HTTP response, header and body
  bool close = false;    // close the connection once it is written
};

// True when `header` (the request line and fields, up to the blank line) is
// a request that the XML-RPC path does not take: any method but POST.
bool isBodilessRequest(std::string_view header);

// The answer to such a request. `page` may be null (no page).
//   GET / and GET /index.html   200 with the page
//   HEAD of the same            the same header, no body
//   OPTIONS (any target)        204, allowing POST from any origin with a
//                               Content-Type header (CORS preflight)
//   anything else               405 with an Allow header (every target
//                               takes POST); always closes
// The connection stays open as HTTP's rules say (HTTP/1.0 only with
// "Connection: keep-alive", later versions unless "Connection: close").
XmlRpcBodilessAnswer answerBodilessRequest(std::string_view header, const XmlRpcStaticPage* page);

}  // namespace XmlRpc
