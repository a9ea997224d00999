// Tests of XmlRpcServerConnection fed from memory: header rules, keep-alive,
// the call envelope, multicall, and responses and faults byte for byte.
#include <gtest/gtest.h>

#include <string>

#include "engine_test_platform.h"
#include "engine_test_util.h"
#include "memory_connection.h"
#include "test_methods.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

namespace {

constexpr unsigned kClose = 0;
constexpr unsigned kRead = XmlRpcDispatch::ReadableEvent;
constexpr unsigned kWrite = XmlRpcDispatch::WritableEvent;

const std::string kInt42 = "<value><i4>42</i4></value>";

std::string arrayOf(const std::string& values) {
  return "<value><array><data>" + values + "</data></array></value>";
}

class XmlRpcConnectionTest : public testing::Test {
 protected:
  XmlRpcConnectionTest() : echo_(&server_), fault_(&server_), noResult_(&server_) {
    server_.enableIntrospection(true);
  }

  // Sends one complete request and returns what the connection answered.
  std::string roundTrip(const std::string& request) {
    conn_.feed(request);
    lastMask_ = conn_.event();
    return conn_.output();
  }

  XmlRpcServer server_;
  Echo echo_;
  Fault fault_;
  NoResult noResult_;
  MemoryConnection conn_{&server_};
  RecordingErrorHandler errors_;
  unsigned lastMask_ = 0;
};

}  // namespace

TEST_F(XmlRpcConnectionTest, WholeResponseByteForByte) {
  std::string out = roundTrip(httpPost(methodCall("echo", {kInt42})));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_EQ(lastMask_, kRead);  // keep-alive: back to reading
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_HEADER);
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(XmlRpcConnectionTest, WholeFaultResponseByteForByte) {
  std::string out = roundTrip(httpPost(
      methodCall("fault", {"<value><i4>17</i4></value>", "<value>went &lt;wrong&gt;</value>"})));
  EXPECT_EQ(out, expectedResponse(faultBody(17, "went &lt;wrong&gt;")));
  EXPECT_EQ(lastMask_, kRead);  // a fault does not end the connection
}

TEST_F(XmlRpcConnectionTest, ContentLengthOfTheResponseIsTheBodySize) {
  std::string out = roundTrip(httpPost(methodCall("echo", {"<value>h\xc3\xa9llo</value>"})));
  size_t split = out.find("\r\n\r\n");
  ASSERT_NE(split, std::string::npos);
  std::string head = out.substr(0, split);
  size_t field = head.find("Content-length: ");
  ASSERT_NE(field, std::string::npos);
  EXPECT_EQ(std::stoul(head.substr(field + 16)), out.size() - split - 4);
}

TEST_F(XmlRpcConnectionTest, UnknownMethodFaultsWithItsName) {
  std::string out = roundTrip(httpPost(methodCall("no.such", {})));
  EXPECT_EQ(out, expectedResponse(faultBody(-1, "no.such: unknown method name")));
  EXPECT_EQ(lastMask_, kRead);
}

TEST_F(XmlRpcConnectionTest, EmptyMethodNameFaults) {
  std::string out = roundTrip(httpPost(methodCall("", {kInt42})));
  EXPECT_EQ(out, expectedResponse(faultBody(-1, ": unknown method name")));
}

TEST_F(XmlRpcConnectionTest, UnsetResultAnswersAnEmptyString) {
  std::string out = roundTrip(httpPost(methodCall("noResult", {})));
  EXPECT_EQ(out, expectedResponse(resultBody("<value></value>")));
}

TEST_F(XmlRpcConnectionTest, CallWithoutParamsPassesAnInvalidValue) {
  std::string body =
      "<?xml version=\"1.0\"?><methodCall><methodName>echo</methodName></methodCall>";
  std::string out = roundTrip(httpPost(body));
  // echo answers its (invalid) parameters, which the connection turns into "".
  EXPECT_EQ(out, expectedResponse(resultBody("<value></value>")));
}

TEST_F(XmlRpcConnectionTest, UnreadableParameterIsPassedAsInvalid) {
  std::string out = roundTrip(httpPost(methodCall("system.methodHelp", {"<value><nil/></value>"})));
  EXPECT_EQ(out, expectedResponse(faultBody(-1, "system.methodHelp: Invalid argument type")));
}

TEST_F(XmlRpcConnectionTest, MissingContentLengthIsDroppedWithoutAnswer) {
  conn_.feed("POST /RPC2 HTTP/1.1\r\nHost: x\r\n\r\n" + methodCall("echo", {}));
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_EQ(conn_.output(), "");
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readHeader: No Content-length specified");
}

TEST_F(XmlRpcConnectionTest, ZeroOrNegativeLengthIsDroppedWithoutAnswer) {
  for (const char* length : {"0", "-5"}) {
    MemoryConnection conn(&server_);
    conn.feed(std::string("POST / HTTP/1.1\r\nContent-length: ") + length + "\r\n\r\n<x/>");
    EXPECT_EQ(conn.event(), kClose);
    EXPECT_EQ(conn.output(), "");
  }
  ASSERT_EQ(errors_.messages.size(), 2u);
  EXPECT_EQ(errors_.messages[0],
            "XmlRpcServerConnection::readHeader: Invalid Content-length specified (0).");
  EXPECT_EQ(errors_.messages[1],
            "XmlRpcServerConnection::readHeader: Invalid Content-length specified (-5).");
}

TEST_F(XmlRpcConnectionTest, HeaderNameCaseIsIgnored) {
  std::string body = methodCall("echo", {kInt42});
  std::string out = roundTrip("POST / HTTP/1.1\r\ncontent-LENGTH: " + std::to_string(body.size()) +
                              "\r\n\r\n" + body);
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, HeaderNameWithoutBlankIsNotRecognised) {
  std::string body = methodCall("echo", {kInt42});
  conn_.feed("POST / HTTP/1.1\r\nContent-Length:" + std::to_string(body.size()) + "\r\n\r\n" +
             body);
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_EQ(conn_.output(), "");
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readHeader: No Content-length specified");
}

TEST_F(XmlRpcConnectionTest, LaterLengthFieldOverridesAnEarlierOne) {
  std::string body = methodCall("echo", {kInt42});
  conn_.feed("POST / HTTP/1.1\r\nContent-length: 0\r\nContent-length: " +
             std::to_string(body.size()) + "\r\n\r\n" + body);
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, BareLineFeedsEndTheHeader) {
  std::string body = methodCall("echo", {kInt42});
  std::string out =
      roundTrip("POST / HTTP/1.1\nContent-length: " + std::to_string(body.size()) + "\n\n" + body);
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, HeaderWithoutBodyYetWaits) {
  std::string body = methodCall("echo", {kInt42});
  std::string head =
      "POST / HTTP/1.1\r\nContent-length: " + std::to_string(body.size()) + "\r\n\r\n";
  conn_.feed(head);
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_HEADER);
  conn_.feed(body);
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, HeaderArrivingByteByByte) {
  std::string request = httpPost(methodCall("echo", {kInt42}));
  for (char c : request) {
    conn_.feed(std::string(1, c));
    EXPECT_EQ(conn_.event(), kRead);
  }
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
}

// The header scan resumes where the previous read left it: wherever the
// stream is cut, the fields and the blank line are found as in one piece.
TEST_F(XmlRpcConnectionTest, RequestCutAnywhereGetsTheSameAnswer) {
  const std::string body = methodCall("echo", {kInt42});
  const std::string length = std::to_string(body.size());
  const std::string requests[] = {
      "POST / HTTP/1.1\r\nHost: a\r\nContent-length: " + length + "\r\nConnection: close\r\n\r\n",
      "POST / HTTP/1.1\nCONNECTION: close\ncontent-length: " + length + "\n\n",
      "POST / HTTP/1.1\r\nX-Content-length: " + length + "\r\nconnection: keep-alive\r\n\n",
  };
  for (const std::string& head : requests) {
    const std::string request = head + body;
    MemoryConnection whole(&server_);
    whole.feed(request);
    const unsigned wholeMask = whole.event();
    ASSERT_FALSE(whole.output().empty()) << head;
    for (size_t cut = 1; cut < request.size(); ++cut) {
      MemoryConnection split(&server_);
      split.feed(request.substr(0, cut));
      unsigned mask = split.event();
      if (mask != kClose) {
        split.feed(request.substr(cut));
        mask = split.event();
      }
      EXPECT_EQ(mask, wholeMask) << head << " cut at " << cut;
      EXPECT_EQ(split.output(), whole.output()) << head << " cut at " << cut;
    }
  }
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(XmlRpcConnectionTest, BodyInSeveralPiecesIsCollected) {
  std::string request = httpPost(methodCall("echo", {kInt42}));
  size_t bodyStart = request.find("\r\n\r\n") + 4;
  conn_.feed(request.substr(0, bodyStart + 10));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_REQUEST);
  conn_.feed(request.substr(bodyStart + 10, 30));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_REQUEST);
  EXPECT_EQ(conn_.output(), "");
  conn_.feed(request.substr(bodyStart + 40));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, BytesBeyondTheLengthAreParsedToo) {
  std::string body = methodCall("echo", {kInt42, "<value>tail</value>"});
  // Announce only the first 20 bytes; the whole body arrives and is parsed.
  std::string out = roundTrip("POST / HTTP/1.1\r\nContent-length: 20\r\n\r\n" + body);
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42 + "<value>tail</value>"))));
}

TEST_F(XmlRpcConnectionTest, ZeroByteInTheBodyIsAnsweredWithAFault) {
  std::string body = methodCall("echo", {"<value>a</value>"});
  body[body.find(">a<") + 1] = '\0';  // Python sends "a\0b" so
  const size_t offset = body.find('\0');
  std::string out = roundTrip(httpPost(body));
  EXPECT_EQ(out, expectedResponse(faultBody(XmlRpcServerConnection::kZeroByteFaultCode,
                                            "Invalid request: zero byte at offset " +
                                                std::to_string(offset) + " of the body")));
  EXPECT_EQ(lastMask_, kRead);  // the connection stays usable
  conn_.clearOutput();
  EXPECT_EQ(roundTrip(httpPost(methodCall("echo", {kInt42}))),
            expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, ZeroByteInALaterPieceOfTheBodyIsFoundToo) {
  std::string body = methodCall("echo", {kInt42}) + std::string(1, '\0') + "tail";
  std::string request = httpPost(body);
  // The header and the start of the body, then the rest with the zero byte.
  conn_.feed(request.substr(0, request.size() - 10));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_TRUE(conn_.output().empty());
  conn_.feed(request.substr(request.size() - 10));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(),
            expectedResponse(faultBody(XmlRpcServerConnection::kZeroByteFaultCode,
                                       "Invalid request: zero byte at offset " +
                                           std::to_string(body.size() - 5) + " of the body")));
}

TEST_F(XmlRpcConnectionTest, ZeroByteBeyondTheAnnouncedLengthIsNotThisRequests) {
  // Bytes that arrive with the body but lie beyond its length belong to
  // whatever the client sends next: a zero among them does not fault this
  // request.
  std::string out = roundTrip(httpPost(methodCall("echo", {kInt42})) + std::string("X\0Y", 3));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, Http10ClosesAfterTheResponse) {
  std::string out = roundTrip(httpPost(methodCall("echo", {kInt42}), "HTTP/1.0"));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_EQ(lastMask_, kClose);
  EXPECT_FALSE(conn_.getKeepAlive());
}

TEST_F(XmlRpcConnectionTest, Http10WithKeepAliveStaysOpen) {
  roundTrip(httpPost(methodCall("echo", {kInt42}), "HTTP/1.0", "Connection: Keep-Alive\r\n"));
  EXPECT_EQ(lastMask_, kRead);
  EXPECT_TRUE(conn_.getKeepAlive());
}

TEST_F(XmlRpcConnectionTest, Http11StaysOpenUnlessAskedToClose) {
  roundTrip(httpPost(methodCall("echo", {kInt42}), "HTTP/1.1", "Connection: keep-alive\r\n"));
  EXPECT_EQ(lastMask_, kRead);
  conn_.clearOutput();
  std::string out =
      roundTrip(httpPost(methodCall("echo", {kInt42}), "HTTP/1.1", "connection: CLOSE\r\n"));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_EQ(lastMask_, kClose);
}

TEST_F(XmlRpcConnectionTest, KeepAliveServesManyRequests) {
  for (int i = 0; i < 50; ++i) {
    conn_.clearOutput();
    std::string value = "<value><i4>" + std::to_string(i) + "</i4></value>";
    EXPECT_EQ(roundTrip(httpPost(methodCall("echo", {value}))),
              expectedResponse(resultBody(arrayOf(value))));
    EXPECT_EQ(lastMask_, kRead);
  }
}

TEST_F(XmlRpcConnectionTest, PipelinedRequestReadAlongIsLost) {
  std::string one = httpPost(methodCall("echo", {kInt42}));
  EXPECT_EQ(roundTrip(one + one), expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_EQ(lastMask_, kRead);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_HEADER);
}

TEST_F(XmlRpcConnectionTest, SlowWriterIsWatchedForWriting) {
  conn_.setWriteLimit(16);
  std::string expected = expectedResponse(resultBody(arrayOf(kInt42)));
  conn_.feed(httpPost(methodCall("echo", {kInt42})));
  EXPECT_EQ(conn_.event(), kWrite);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::WRITE_RESPONSE);
  unsigned mask = kWrite;
  int passes = 1;
  while (mask == kWrite && passes < 1000) {
    mask = conn_.handleEvent(XmlRpcDispatch::WritableEvent);
    ++passes;
  }
  EXPECT_EQ(mask, kRead);
  EXPECT_EQ(conn_.output(), expected);
  EXPECT_EQ(passes, static_cast<int>((expected.size() + 15) / 16));
}

TEST_F(XmlRpcConnectionTest, ResponseWithoutKeepAliveIsWrittenInFullThenClosed) {
  conn_.setWriteLimit(16);
  std::string expected = expectedResponse(resultBody(arrayOf(kInt42)));
  conn_.feed(httpPost(methodCall("echo", {kInt42}), "HTTP/1.1", "Connection: close\r\n"));
  unsigned mask = conn_.event();
  int passes = 1;
  while (mask == kWrite && passes < 1000) {
    mask = conn_.handleEvent(XmlRpcDispatch::WritableEvent);
    ++passes;
  }
  EXPECT_EQ(mask, kClose);  // closed after the last byte, not before
  EXPECT_EQ(conn_.output(), expected);
  EXPECT_EQ(passes, static_cast<int>((expected.size() + 15) / 16));
}

TEST_F(XmlRpcConnectionTest, BigBuffersAreGivenBackAfterTheResponse) {
  std::string big(1024 * 1024, 'b');
  std::string expected = expectedResponse(resultBody(arrayOf("<value>" + big + "</value>")));
  EXPECT_EQ(roundTrip(httpPost(methodCall("echo", {"<value>" + big + "</value>"}))), expected);
  EXPECT_EQ(lastMask_, kRead);
  EXPECT_LE(conn_.bufferCapacity(), 3u * 64 * 1024);
  // Small buffers are kept for the next request.
  conn_.clearOutput();
  EXPECT_EQ(roundTrip(httpPost(methodCall("echo", {kInt42}))),
            expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, TimeLimitsOfEachState) {
  const XmlRpcConnectionLimits limits;  // the defaults
  XmlRpcDispatch& disp = server_.getDispatch();
  // Idle: closed quietly after the idle limit.
  double t = disp.getTime();
  EXPECT_FALSE(conn_.timedOut(t + limits.idleSeconds - 1));
  EXPECT_TRUE(conn_.timedOut(t + limits.idleSeconds + 1));
  EXPECT_TRUE(errors_.messages.empty());

  // A header begun: its limit runs from its first byte.
  MemoryConnection header(&server_);
  header.feed("POST / HTTP/1.1\r\nConte");
  t = disp.getTime();
  EXPECT_EQ(header.event(), kRead);
  EXPECT_FALSE(header.timedOut(t + limits.headerSeconds - 1));
  EXPECT_TRUE(header.timedOut(t + limits.headerSeconds + 1));
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0],
            "XmlRpcServerConnection::readHeader: header not complete within 30 s, dropped.");

  // A body stalled: its limit runs from the last byte received.
  MemoryConnection body(&server_);
  body.feed("POST / HTTP/1.1\r\nContent-length: 100\r\n\r\n<methodCall>");
  body.event();
  ASSERT_EQ(body.getState(), XmlRpcServerConnection::READ_REQUEST);
  t = disp.getTime();
  EXPECT_FALSE(body.timedOut(t + limits.stallSeconds - 1));
  EXPECT_TRUE(body.timedOut(t + limits.stallSeconds + 1));
  ASSERT_EQ(errors_.messages.size(), 2u);
  EXPECT_EQ(errors_.messages[1], "XmlRpcServerConnection::readRequest: no data for 30 s, dropped.");

  // A response the client does not take.
  MemoryConnection reader(&server_);
  reader.setWriteLimit(0);
  reader.feed(httpPost(methodCall("echo", {kInt42})));
  EXPECT_EQ(reader.event(), kWrite);
  t = disp.getTime();
  EXPECT_FALSE(reader.timedOut(t + limits.stallSeconds - 1));
  EXPECT_TRUE(reader.timedOut(t + limits.stallSeconds + 1));
  ASSERT_EQ(errors_.messages.size(), 3u);
  EXPECT_EQ(errors_.messages[2],
            "XmlRpcServerConnection::writeResponse: client took no data for 30 s, dropped.");
}

TEST_F(XmlRpcConnectionTest, ReadErrorIsReportedOnlyWhenDataHadArrived) {
  conn_.failNextRead();
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_TRUE(errors_.messages.empty());

  MemoryConnection partial(&server_);
  partial.feed("POST / HT");
  EXPECT_EQ(partial.event(), kRead);
  partial.failNextRead();
  EXPECT_EQ(partial.event(), kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0],
            "XmlRpcServerConnection::readHeader: error while reading header (error " +
                std::to_string(errorConnectionReset()) + ").");
}

TEST_F(XmlRpcConnectionTest, EofInTheHeaderIsReportedOnlyWhenDataHadArrived) {
  conn_.feed("", true);
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_TRUE(errors_.messages.empty());

  MemoryConnection partial(&server_);
  partial.feed("POST / HTTP/1.1\r\nContent-le", true);
  EXPECT_EQ(partial.event(), kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readHeader: EOF while reading header");
}

TEST_F(XmlRpcConnectionTest, EofInTheBodyIsReported) {
  conn_.feed("POST / HTTP/1.1\r\nContent-length: 500\r\n\r\n<methodCall>", true);
  EXPECT_EQ(conn_.event(), kClose);
  EXPECT_EQ(conn_.output(), "");
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readRequest: EOF while reading request");
}

TEST_F(XmlRpcConnectionTest, ReadErrorInTheBodyIsReported) {
  conn_.feed("POST / HTTP/1.1\r\nContent-length: 500\r\n\r\n<methodCall>");
  EXPECT_EQ(conn_.event(), kRead);
  conn_.failNextRead();
  EXPECT_EQ(conn_.event(), kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readRequest: read error (error " +
                                    std::to_string(errorConnectionReset()) + ").");
}

TEST_F(XmlRpcConnectionTest, EndlessHeaderIsDropped) {
  std::string line = "X-Filler: " + std::string(1000, 'f') + "\r\n";
  unsigned mask = kRead;
  conn_.feed("POST / HTTP/1.1\r\n");
  for (int i = 0; i < 100 && mask == kRead; ++i) {
    conn_.feed(line);
    mask = conn_.event();
  }
  EXPECT_EQ(mask, kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0].rfind("XmlRpcServerConnection::readHeader: header too long", 0),
            0u);
}

TEST_F(XmlRpcConnectionTest, LengthOverTheCapIsRefusedBeforeTheBody) {
  const int cap = XmlRpcServerConnection::kMaxContentLength;
  conn_.feed("POST / HTTP/1.1\r\nContent-length: " + std::to_string(cap + 1) + "\r\n\r\n<x/>");
  EXPECT_EQ(conn_.event(), kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0], "XmlRpcServerConnection::readHeader: Content-length too large (" +
                                     std::to_string(cap + 1) + ").");
}

TEST_F(XmlRpcConnectionTest, LengthAtTheCapIsRead) {
  const int cap = XmlRpcServerConnection::kMaxContentLength;
  conn_.feed("POST / HTTP/1.1\r\nContent-length: " + std::to_string(cap) + "\r\n\r\n<x/>");
  EXPECT_EQ(conn_.event(), kRead);  // waits for the rest of the body
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_REQUEST);
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(XmlRpcConnectionTest, HugeLengthIsRefused) {
  conn_.feed("POST / HTTP/1.1\r\nContent-length: 99999999999\r\n\r\n<x/>");
  EXPECT_EQ(conn_.event(), kClose);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0],
            "XmlRpcServerConnection::readHeader: Content-length too large (2147483647).");
}

TEST_F(XmlRpcConnectionTest, ListMethodsOverTheConnection) {
  std::string out = roundTrip(httpPost(methodCall("system.listMethods", {})));
  std::string names;
  for (const char* n : {"echo", "fault", "noResult", "system.listMethods", "system.methodHelp",
                        "system.multicall"}) {
    names += std::string("<value>") + n + "</value>";
  }
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(names))));
}

// A multicall entry {methodName: name, params: [values...]}.
std::string callEntry(const std::string& name, const std::string& params) {
  return "<value><struct><member><name>methodName</name><value>" + name +
         "</value></member><member><name>params</name>" + arrayOf(params) +
         "</member></struct></value>";
}

std::string faultEntry(int code, const std::string& message) {
  return "<value><struct><member><name>faultCode</name><value><i4>" + std::to_string(code) +
         "</i4></value></member><member><name>faultString</name><value>" + message +
         "</value></member></struct></value>";
}

TEST_F(XmlRpcConnectionTest, MulticallWithMixedEntries) {
  std::string lacksParams =
      "<value><struct><member><name>methodName</name><value>echo</value></member></struct></value>";
  std::string calls = callEntry("echo", kInt42) + lacksParams +
                      callEntry("fault", "<value><i4>5</i4></value><value>bad</value>") +
                      callEntry("nope", "") + callEntry("noResult", "") + kInt42;
  std::string out = roundTrip(httpPost(methodCall("system.multicall", {arrayOf(calls)})));

  const std::string badEntry =
      "system.multicall: Invalid argument (expected a struct with members methodName and params)";
  std::string expected = arrayOf(arrayOf(kInt42)) + faultEntry(-1, badEntry) +
                         faultEntry(5, "bad") + faultEntry(-1, "nope: unknown method name") +
                         arrayOf("<value></value>") + faultEntry(-1, badEntry);
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(expected))));
  EXPECT_EQ(lastMask_, kRead);
}

TEST_F(XmlRpcConnectionTest, MulticallWithANonArrayParameterFaults) {
  std::string out = roundTrip(httpPost(methodCall("system.multicall", {kInt42})));
  EXPECT_EQ(out, expectedResponse(
                     faultBody(-1, "system.multicall: Invalid argument (expected an array)")));
}

TEST_F(XmlRpcConnectionTest, MulticallWithoutOrWithTwoParametersFaults) {
  for (auto params : {std::vector<std::string>{}, std::vector<std::string>{arrayOf(""), kInt42}}) {
    conn_.clearOutput();
    std::string out = roundTrip(httpPost(methodCall("system.multicall", params)));
    EXPECT_EQ(out, expectedResponse(
                       faultBody(-1, "system.multicall: Invalid argument (expected an array)")));
  }
}

TEST_F(XmlRpcConnectionTest, EmptyMulticallAnswersAnEmptyArray) {
  std::string out = roundTrip(httpPost(methodCall("system.multicall", {arrayOf("")})));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(""))));
}

TEST_F(XmlRpcConnectionTest, NestedMulticallIsRefusedPerEntry) {
  std::string calls = callEntry("system.multicall", "") + callEntry("echo", kInt42);
  std::string out = roundTrip(httpPost(methodCall("system.multicall", {arrayOf(calls)})));
  std::string expected = faultEntry(-1, "system.multicall: Recursive system.multicall forbidden") +
                         arrayOf(arrayOf(kInt42));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(expected))));
}

TEST_F(XmlRpcConnectionTest, MulticallEntryWithANonStringNameFaultsThatEntry) {
  std::string entry =
      "<value><struct><member><name>methodName</name><value><i4>3</i4></value></member>"
      "<member><name>params</name>" +
      arrayOf("") + "</member></struct></value>";
  std::string out = roundTrip(httpPost(methodCall("system.multicall", {arrayOf(entry)})));
  EXPECT_EQ(out, expectedResponse(resultBody(arrayOf(faultEntry(-1, "type error")))));
}

TEST_F(XmlRpcConnectionTest, QuietCycleAtVerbosityZero) {
  XmlRpcLogHandler::setVerbosity(0);
  testing::internal::CaptureStdout();
  roundTrip(httpPost(methodCall("echo", {kInt42})));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(XmlRpcConnectionTest, BodyReadStopsAtTheAnnouncedLength) {
  std::string request = httpPost(methodCall("echo", {kInt42}));
  size_t bodyStart = request.find("\r\n\r\n") + 4;
  conn_.feed(request.substr(0, bodyStart + 10));
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.getState(), XmlRpcServerConnection::READ_REQUEST);
  // The rest of the body and, far behind it, the next request: only the
  // reads needed for the body are taken, the rest is the next request.
  std::string filler(3 * MemoryConnection::kChunk, ' ');
  conn_.feed(request.substr(bodyStart + 10) + filler + request);
  EXPECT_EQ(conn_.event(), kRead);
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
  conn_.clearOutput();
  EXPECT_EQ(conn_.event(), kRead);  // the blanks lead the next header
  EXPECT_EQ(conn_.output(), expectedResponse(resultBody(arrayOf(kInt42))));
}

TEST_F(XmlRpcConnectionTest, FloodedHeaderIsCutAtTheLimit) {
  conn_.feed("POST / HTTP/1.1\r\n" +
             std::string(10 * XmlRpcServerConnection::kMaxHeaderBytes, 'x'));
  EXPECT_EQ(conn_.event(), kClose);
  // Reading stopped just past the limit instead of taking in everything.
  EXPECT_GT(conn_.pending(), 8u * XmlRpcServerConnection::kMaxHeaderBytes);
  ASSERT_EQ(errors_.messages.size(), 1u);
  EXPECT_EQ(errors_.messages[0].rfind("XmlRpcServerConnection::readHeader: header too long", 0),
            0u);
}
