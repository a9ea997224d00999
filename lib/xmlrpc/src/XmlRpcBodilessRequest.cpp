// XmlRpcBodilessRequest: answers to requests without a body.
#include "xmlrpc/XmlRpcBodilessRequest.h"

#include <cstdio>

namespace XmlRpc {

namespace {

// The same banner and cross-origin header as the XML-RPC responses.
constexpr std::string_view kServerBanner = "Corvane-XMLRPCServer/7.0";
// How long a browser may keep the preflight answer before asking again.
constexpr int kPreflightMaxAgeSeconds = 600;

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

struct RequestLine {
  std::string_view method;
  std::string_view target;
  std::string_view version;
};

RequestLine parseRequestLine(std::string_view header) {
  RequestLine line;
  const std::string_view first = header.substr(0, header.find('\n'));
  const size_t methodEnd = first.find(' ');
  line.method = first.substr(0, methodEnd);
  if (methodEnd == std::string_view::npos) return line;
  const size_t targetStart = methodEnd + 1;
  const size_t targetEnd = first.find(' ', targetStart);
  line.target = first.substr(targetStart, targetEnd - targetStart);
  if (targetEnd != std::string_view::npos) {
    line.version = first.substr(targetEnd + 1);
    if (!line.version.empty() && line.version.back() == '\r') line.version.remove_suffix(1);
  }
  return line;
}

// The value of the field `name` (case ignored), blanks around it trimmed;
// empty when absent.
std::string_view fieldValue(std::string_view header, std::string_view name) {
  size_t pos = header.find('\n');
  while (pos != std::string_view::npos && pos + 1 < header.size()) {
    const size_t start = pos + 1;
    const size_t end = header.find('\n', start);
    std::string_view line = header.substr(start, end - start);
    const size_t colon = line.find(':');
    if (colon != std::string_view::npos && equalsIgnoringCase(line.substr(0, colon), name)) {
      std::string_view value = line.substr(colon + 1);
      while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
        value.remove_prefix(1);
      while (!value.empty() &&
             (value.back() == '\r' || value.back() == ' ' || value.back() == '\t'))
        value.remove_suffix(1);
      return value;
    }
    pos = end;
  }
  return {};
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool keepsAlive(std::string_view header, const RequestLine& line) {
  const std::string_view connection = fieldValue(header, "Connection");
  if (line.version == "HTTP/1.0") return startsWithIgnoringCase(connection, "keep-alive");
  return !startsWithIgnoringCase(connection, "close");
}

std::string responseHeader(std::string_view status, bool close) {
  std::string header = "HTTP/1.1 ";
  header.append(status).append("\r\nServer: ").append(kServerBanner).append("\r\n");
  if (close) header += "Connection: close\r\n";
  return header;
}

void finish(std::string& response, std::string_view contentType, size_t length) {
  char field[64];
  std::snprintf(field, sizeof field, "Content-Length: %zu\r\n\r\n", length);
  if (!contentType.empty()) response.append("Content-Type: ").append(contentType).append("\r\n");
  response += field;
}

// A short plain-text answer (405).
XmlRpcBodilessAnswer textAnswer(std::string_view status, std::string_view extraFields,
                                bool withBody, bool close) {
  XmlRpcBodilessAnswer answer;
  answer.close = close;
  const std::string body = std::string(status) + "\n";
  answer.response = responseHeader(status, close);
  answer.response.append(extraFields);
  finish(answer.response, "text/plain; charset=utf-8", body.size());
  if (withBody) answer.response += body;
  return answer;
}

}  // namespace

bool isBodilessRequest(std::string_view header) { return header.substr(0, 5) != "POST "; }

XmlRpcBodilessAnswer answerBodilessRequest(std::string_view header, const XmlRpcStaticPage* page) {
  const RequestLine line = parseRequestLine(header);
  const bool close = !keepsAlive(header, line);
  const bool isGet = line.method == "GET";
  const bool isHead = line.method == "HEAD";

  if (line.method == "OPTIONS") {
    XmlRpcBodilessAnswer answer;
    answer.close = close;
    answer.response = responseHeader("204 No Content", close);
    answer.response +=
        "Access-Control-Allow-Origin: *\r\n"
        "Access-Control-Allow-Methods: POST\r\n"
        "Access-Control-Allow-Headers: Content-Type\r\n"
        "Access-Control-Max-Age: " +
        std::to_string(kPreflightMaxAgeSeconds) + "\r\n\r\n";
    return answer;
  }
  // The query string does not choose another page.
  const std::string_view path = line.target.substr(0, line.target.find('?'));
  const bool isPage = page != nullptr && (path == "/" || path == "/index.html");
  if ((isGet || isHead) && isPage) {
    XmlRpcBodilessAnswer answer;
    answer.close = close;
    answer.response = responseHeader("200 OK", close);
    // The page is built into the program: it changes only with the program.
    answer.response += "Cache-Control: no-cache\r\n";
    finish(answer.response, page->contentType, page->body.size());
    if (isGet) answer.response += page->body;
    return answer;
  }
  // Every other target takes XML-RPC calls only.
  return textAnswer("405 Method Not Allowed",
                    isPage ? "Allow: GET, HEAD, POST, OPTIONS\r\n" : "Allow: POST, OPTIONS\r\n",
                    !isHead, true);
}

}  // namespace XmlRpc
