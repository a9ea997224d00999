// Tests of the answers to requests without a body (GET, HEAD, OPTIONS and
// the rest): the unit alone, and through a connection fed from memory,
// where an XML-RPC POST must stay exactly as it was.
#include <gtest/gtest.h>

#include <string>

#include "engine_test_util.h"
#include "memory_connection.h"
#include "test_methods.h"
#include "xmlrpc/XmlRpcBodilessRequest.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcServer.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

namespace {

constexpr unsigned kClose = 0;
constexpr unsigned kRead = XmlRpcDispatch::ReadableEvent;

const XmlRpcStaticPage kPage{"text/html; charset=utf-8", "<!DOCTYPE html><p>hello</p>"};

std::string pageResponse(bool withBody, bool close = false) {
  return std::string("HTTP/1.1 200 OK\r\nServer: Corvane-XMLRPCServer/7.0\r\n") +
         (close ? "Connection: close\r\n" : "") +
         "Cache-Control: no-cache\r\n"
         "Content-Type: text/html; charset=utf-8\r\n"
         "Content-Length: 27\r\n\r\n" +
         (withBody ? kPage.body : "");
}

const std::string kPreflight =
    "HTTP/1.1 204 No Content\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
    "Access-Control-Allow-Origin: *\r\n"
    "Access-Control-Allow-Methods: POST\r\n"
    "Access-Control-Allow-Headers: Content-Type\r\n"
    "Access-Control-Max-Age: 600\r\n\r\n";

const std::string k405 =
    "HTTP/1.1 405 Method Not Allowed\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
    "Connection: close\r\n"
    "Allow: GET, HEAD, POST, OPTIONS\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n"
    "Content-Length: 23\r\n\r\n405 Method Not Allowed\n";

}  // namespace

TEST(BodilessRequest, OnlyPostIsAnXmlRpcCall) {
  EXPECT_FALSE(isBodilessRequest("POST / HTTP/1.1\r\n\r\n"));
  EXPECT_TRUE(isBodilessRequest("GET / HTTP/1.1\r\n\r\n"));
  EXPECT_TRUE(isBodilessRequest("OPTIONS / HTTP/1.1\r\n\r\n"));
  EXPECT_TRUE(isBodilessRequest("post / HTTP/1.1\r\n\r\n"));  // methods are case-sensitive
}

TEST(BodilessRequest, GetAndHeadOfTheRootAnswerThePage) {
  for (const char* target : {"/", "/index.html", "/?server=x"}) {
    const auto get =
        answerBodilessRequest(std::string("GET ") + target + " HTTP/1.1\r\n\r\n", &kPage);
    EXPECT_EQ(get.response, pageResponse(true)) << target;
    EXPECT_FALSE(get.close);
  }
  const auto head = answerBodilessRequest("HEAD / HTTP/1.1\r\nHost: x\r\n\r\n", &kPage);
  EXPECT_EQ(head.response, pageResponse(false));
  EXPECT_FALSE(head.close);
}

TEST(BodilessRequest, KeepAliveFollowsHttpRules) {
  auto a = answerBodilessRequest("GET / HTTP/1.0\r\n\r\n", &kPage);
  EXPECT_TRUE(a.close);
  EXPECT_EQ(a.response, pageResponse(true, true));
  a = answerBodilessRequest("GET / HTTP/1.0\r\nconnection: Keep-Alive\r\n\r\n", &kPage);
  EXPECT_FALSE(a.close);
  a = answerBodilessRequest("GET / HTTP/1.1\r\nConnection:close\r\n\r\n", &kPage);
  EXPECT_TRUE(a.close);
}

TEST(BodilessRequest, OptionsIsAPreflightAnswerForAnyTarget) {
  const auto a = answerBodilessRequest(
      "OPTIONS /RPC2 HTTP/1.1\r\nOrigin: http://example.com\r\n"
      "Access-Control-Request-Method: POST\r\nAccess-Control-Request-Headers: content-type\r\n\r\n",
      nullptr);
  EXPECT_EQ(a.response, kPreflight);
  EXPECT_FALSE(a.close);
}

TEST(BodilessRequest, EverythingElseIs405AndCloses) {
  for (const char* request : {"DELETE / HTTP/1.1\r\n\r\n", "BREW / HTTP/1.1\n\n"}) {
    const auto a = answerBodilessRequest(request, &kPage);
    EXPECT_EQ(a.response, k405) << request;
    EXPECT_TRUE(a.close);
  }
  // Other targets, and the root without a page, take XML-RPC calls only.
  const std::string postOnly =
      "HTTP/1.1 405 Method Not Allowed\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
      "Connection: close\r\n"
      "Allow: POST, OPTIONS\r\n"
      "Content-Type: text/plain; charset=utf-8\r\n"
      "Content-Length: 23\r\n\r\n";
  EXPECT_EQ(answerBodilessRequest("GET /favicon.ico HTTP/1.1\r\n\r\n", &kPage).response,
            postOnly + "405 Method Not Allowed\n");
  EXPECT_EQ(answerBodilessRequest("PUT /x HTTP/1.1\r\n\r\n", &kPage).response,
            postOnly + "405 Method Not Allowed\n");
  EXPECT_EQ(answerBodilessRequest("garbage\r\n\r\n", &kPage).response,
            postOnly + "405 Method Not Allowed\n");
  const auto noPage = answerBodilessRequest("GET / HTTP/1.1\r\n\r\n", nullptr);
  EXPECT_EQ(noPage.response, postOnly + "405 Method Not Allowed\n");
  EXPECT_TRUE(noPage.close);
  // HEAD gets the header alone.
  EXPECT_EQ(answerBodilessRequest("HEAD /x HTTP/1.1\r\n\r\n", &kPage).response, postOnly);
}

namespace {

class BodilessConnectionTest : public testing::Test {
 protected:
  BodilessConnectionTest() : echo_(&server_) {
    server_.setStaticPage(kPage.contentType, kPage.body);
  }
  XmlRpcServer server_;
  Echo echo_;
  MemoryConnection conn_{&server_};
  RecordingErrorHandler errors_;
};

}  // namespace

TEST_F(BodilessConnectionTest, GetEndingAtItsBlankLineIsAnsweredAndKeptOpen) {
  conn_.feed("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), pageResponse(true));
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_HEADER);
  // The same connection then carries an XML-RPC call as before.
  conn_.clearOutput();
  conn_.feed(httpPost(methodCall("echo", {"<value><i4>42</i4></value>"})));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(),
            expectedResponse(resultBody(
                "<value><array><data><value><i4>42</i4></value></data></array></value>")));
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(BodilessConnectionTest, AHeaderArrivingInPiecesIsAnsweredOnceComplete) {
  conn_.feed("OPTIONS / HTTP/1.1\r\nOrigin: null\r\n");
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), "");
  conn_.feed("\r\n");
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), kPreflight);
}

TEST_F(BodilessConnectionTest, OtherMethodsGet405AndTheConnectionCloses) {
  conn_.feed("DELETE / HTTP/1.1\r\n\r\n");
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_EQ(conn_.output(), k405);
}

TEST_F(BodilessConnectionTest, AClosingAnswerLargerThanOneSendGoesOutWhole) {
  conn_.setWriteLimit(10);
  conn_.feed("GET / HTTP/1.0\r\n\r\n");
  unsigned mask = conn_.event();
  while (mask == XmlRpcDispatch::WritableEvent) mask = conn_.event();
  EXPECT_EQ(mask, kClose);
  EXPECT_EQ(conn_.output(), pageResponse(true, true));
}

TEST_F(BodilessConnectionTest, PostWithoutContentLengthIsStillDroppedWithoutAnswer) {
  conn_.feed("POST / HTTP/1.1\r\nHost: x\r\n\r\n" + methodCall("echo", {}));
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_EQ(conn_.output(), "");
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readHeader: No Content-length specified");
}

TEST_F(BodilessConnectionTest, PostEndingAtItsBlankLineStillWaitsForItsBody) {
  conn_.feed("POST / HTTP/1.1\r\nContent-length: 5\r\n\r\n");
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), "");
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_HEADER);
  EXPECT_TRUE(errors_.messages.empty());
}
