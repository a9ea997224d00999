// The proxy link in the server's dispatcher writes the commands that the
// handlers of one pass send in one write at the end of the pass, and a turn
// of it ends after the pass in which a stop was asked for.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <vxcapi/connection.h>
#include <vxcore/property_all.h>
#include <xmlrpc/XmlRpcDispatch.h>
#include <xmlrpc/XmlRpcSource.h>

#include "echo_command.h"
#include "engine_test_platform.h"
#include "fake_proxy.h"
#include "proxy_link_source.h"

namespace {

using vxbase::make_refcount;
using vxnet::vxp::packet;

class quiet_handler : public vxcapi::handler {
 public:
  bool status(vxcapi::result_code, const std::string&, bool) override { return true; }
  void disconnected(const std::string&, bool) override {}
  bool handle(const packet&, packet&) override { return true; }
};

using link_test::echo_with;
using link_test::n_of;

// Stands for an XML-RPC connection: one end of a socket pair, always
// writable, whose handler sends one command and leaves the dispatcher.
class sending_source : public XmlRpc::XmlRpcSource {
 public:
  sending_source(int fd, std::function<void()> send) : XmlRpcSource(fd), send_(std::move(send)) {
    setKeepOpen(true);
  }
  unsigned handleEvent(unsigned) override {
    send_();
    return 0;
  }

 private:
  std::function<void()> send_;
};

TEST(ProxyLinkBatch, CommandsOfOnePassGoOutInOneWriteAtItsEnd) {
  constexpr int count = 40;
  std::vector<std::int64_t> received, answered;
  int pairs[count][2];
  for (auto& p : pairs) ASSERT_TRUE(XmlRpcTest::connectedPair(&p[0], &p[1]));
  {
    fake_proxy fake([&](fake_peer& peer) {
      if (!peer.do_hello()) return;
      for (int i = 0; i < count; ++i) {
        auto m = peer.read_message();
        if (!m) return;
        received.push_back(n_of(m->body));
        packet reply(vxnet::vxp::type_reply, m->body.get_command(), m->body.get_properties());
        peer.send(vxnet::vxp::make_reply(m->id, reply));
      }
      peer.sees_close();
    });
    quiet_handler h;
    vxcapi::connection link(&h);
    XmlRpc::XmlRpcDispatch dispatch;
    xmlrpcs::proxy_link_source source(link, dispatch);
    EXPECT_TRUE(link.batched_writes());
    link.connect("127.0.0.1", fake.port_text(), 2);
    const auto give_up = vxcapi::connection::now_ms() + 5000;
    while (!link.is_connected() && vxcapi::connection::now_ms() < give_up)
      source.work(0.02, [] { return true; });
    ASSERT_TRUE(link.is_connected());

    std::vector<std::unique_ptr<sending_source>> senders;
    for (int i = 0; i < count; ++i) {
      senders.push_back(std::make_unique<sending_source>(pairs[i][0], [&, i] {
        link.send_async(echo_with(i), 5, [&](const packet& r) { answered.push_back(n_of(r)); });
      }));
      dispatch.addSource(senders.back().get(), XmlRpc::XmlRpcDispatch::WritableEvent);
    }
    const auto before = link.write_calls();
    dispatch.work(0.0);  // one pass: every sender is writable
    EXPECT_EQ(link.outstanding(), static_cast<std::size_t>(count));
    EXPECT_EQ(link.write_calls(), before + 1);
    EXPECT_FALSE(link.wants_write());
    while (answered.size() < count && vxcapi::connection::now_ms() < give_up + 5000)
      source.work(0.02, [] { return true; });
    source.detach();
    EXPECT_FALSE(link.batched_writes());
  }
  for (auto& p : pairs) {
    XmlRpcTest::closeSocket(p[0]);
    XmlRpcTest::closeSocket(p[1]);
  }
  std::vector<std::int64_t> expected;
  for (int i = 0; i < count; ++i) expected.push_back(i);
  EXPECT_EQ(received, expected);
  EXPECT_EQ(answered, expected);
}

}  // namespace

// Always readable (data waits unread): each pass calls it again. On its
// third call it asks the turn to stop.
class busy_source : public XmlRpc::XmlRpcSource {
 public:
  busy_source(int fd, bool& running) : XmlRpcSource(fd), running_(running) { setKeepOpen(true); }
  unsigned handleEvent(unsigned) override {
    if (++calls == 3) running_ = false;
    return XmlRpc::XmlRpcDispatch::ReadableEvent;
  }
  int calls = 0;

 private:
  bool& running_;
};

TEST(ProxyLinkTurn, AStopAskedForWhileHandlersRunEndsTheTurnAfterThatPass) {
  int pair[2];
  ASSERT_TRUE(XmlRpcTest::connectedPair(&pair[0], &pair[1]));
  ASSERT_EQ(XmlRpcTest::sendBytes(pair[1], "x", 1), 1);
  quiet_handler h;
  vxcapi::connection link(&h);
  XmlRpc::XmlRpcDispatch dispatch;
  xmlrpcs::proxy_link_source source(link, dispatch);
  bool running = true;
  busy_source busy(pair[0], running);
  dispatch.addSource(&busy, XmlRpc::XmlRpcDispatch::ReadableEvent);
  // A busy server never waits in the poll, where a signal would end the
  // turn at once: the stop is seen at the end of the pass instead of when
  // the turn's time is up.
  source.work(5.0, [&running] { return running; });
  EXPECT_EQ(busy.calls, 3);
  dispatch.removeSource(&busy);
  source.detach();
  for (int fd : pair) XmlRpcTest::closeSocket(fd);
}
