// The proxy connection against ClientProxySim and against a scripted fake
// proxy: the hello, round trips, time-outs, lost links, misbehaving peers
// and the proxy's own packets.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <vxcapi/connection.h>
#include <vxcore/property_all.h>
#include <vxcore/report.h>

#include "echo_command.h"
#include "fake_proxy.h"
#include "link_driver.h"
#include "recording_handler.h"
#include "sim_process.h"
#include "vxp_sample_tree.h"

namespace {

using link_driver::connect_now;
using link_driver::pump_until;
using link_driver::round_trip;
using vxbase::make_refcount;
using vxcapi::connection;
using link_test::recording_handler;
using vxnet::vxp::packet;

std::string error_of(const packet& p) {
  const auto e = p.get_property("error");
  return e ? e->to_string() : std::string();
}

using link_test::echo_with;
using link_test::n_of;

TEST(ProxyLink, ConnectsAndExchangesHello) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  EXPECT_FALSE(c.is_connected());
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  EXPECT_TRUE(c.is_connected());
  EXPECT_EQ(c.peer_name(), "ClientProxySim");
  EXPECT_EQ(c.peer_version(), vxnet::vxp::protocol_version);
  ASSERT_EQ(h.statuses.size(), 1u);
  EXPECT_EQ(h.statuses[0].code, vxcapi::rc_connected);
  EXPECT_TRUE(h.statuses[0].connected);
  // A second connect on a live link keeps it.
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  EXPECT_TRUE(c.is_connected());
}

TEST(ProxyLink, WrongProtocolVersionIsResultTwo) {
  sim_process sim({"--protocol", "99"});
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_wrong_protocol);
  EXPECT_EQ(vxcapi::rc_wrong_protocol, 2);
  EXPECT_FALSE(c.is_connected());
  EXPECT_EQ(c.peer_version(), 99u);
  ASSERT_EQ(h.statuses.size(), 1u);
  EXPECT_FALSE(h.statuses[0].connected);
  EXPECT_NE(h.statuses[0].text.find("99"), std::string::npos) << h.statuses[0].text;
}

TEST(ProxyLink, NothingListeningFails) {
  recording_handler h;
  connection c(&h);
  const auto rc = connect_now(c, h, "127.0.0.1", std::to_string(unused_port()), 2);
  EXPECT_EQ(rc, vxcapi::rc_unreachable);
  EXPECT_FALSE(c.is_connected());
  ASSERT_EQ(h.statuses.size(), 1u);
  EXPECT_EQ(h.statuses[0].code, rc);
  EXPECT_FALSE(h.statuses[0].connected);
  EXPECT_TRUE(h.disconnects.empty());
}

TEST(ProxyLink, SilentPeerGivesTimeOut) {
  fake_proxy fake([](fake_peer& peer) {
    peer.read_message();  // the hello, never answered
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 1), vxcapi::rc_timed_out);
  EXPECT_FALSE(c.is_connected());
}

TEST(ProxyLink, UnresolvablePortIsBadAddress) {
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", "no-such-service-name", 1), vxcapi::rc_bad_address);
  EXPECT_FALSE(c.is_connected());
}

TEST(ProxyLink, DeclinedByTheHandler) {
  sim_process sim;
  recording_handler h;
  h.accept_links = false;
  connection c(&h);
  // The handler heard of the new link and declined it: it is dropped again.
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  EXPECT_FALSE(c.is_connected());
  EXPECT_FALSE(c.is_connecting());
  EXPECT_EQ(error_of(round_trip(c, echo_with(1), 1)), vxcapi::error_not_connected);
}

TEST(ProxyLink, VersionRoundTrip) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  const packet reply = round_trip(c, packet(vxnet::vxp::type_command, "proxy.general.version"), 5);
  EXPECT_EQ(reply.get_type(), vxnet::vxp::type_reply);
  EXPECT_EQ(reply.get_command(), "proxy.general.version");
  EXPECT_FALSE(reply.get_properties().is_present("error")) << error_of(reply);
  const auto version = reply.get_property("version");
  ASSERT_TRUE(version);
  EXPECT_EQ(version->get_kind(), vxcore::kind_version);
  EXPECT_EQ(version->to_string(), "7.0.0.0");
  ASSERT_TRUE(reply.get_property("product"));
  EXPECT_EQ(reply.get_property("product")->get_kind(), vxcore::kind_string);
  const auto protocol = reply.get_property("protocol");
  ASSERT_TRUE(protocol);
  EXPECT_EQ(protocol->to_string(), std::to_string(vxnet::vxp::protocol_version));
}

TEST(ProxyLink, EchoCarriesEveryKindBothWays) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  const packet request(vxnet::vxp::type_command, "proxy.sim.echo", *vxp_samples::every_kind());
  const packet reply = round_trip(c, request, 5);
  EXPECT_TRUE(reply.get_properties().equals(request.get_properties()))
      << reply.get_properties().to_string();
}

TEST(ProxyLink, UnknownCommandGetsErrorMember) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  const packet reply = round_trip(c, packet(vxnet::vxp::type_command, "proxy.no.such"), 5);
  EXPECT_NE(error_of(reply).find("proxy.no.such"), std::string::npos) << error_of(reply);
  EXPECT_TRUE(c.is_connected());
}

TEST(ProxyLink, SendWithoutLinkSaysNotConnected) {
  recording_handler h;
  connection c(&h);
  const packet reply = round_trip(c, packet(vxnet::vxp::type_command, "proxy.general.version"), 5);
  EXPECT_EQ(error_of(reply), vxcapi::error_not_connected);
  EXPECT_EQ(reply.get_type(), vxnet::vxp::type_reply);
  EXPECT_EQ(reply.get_command(), "proxy.general.version");
}

TEST(ProxyLink, TimeOutKeepsTheLinkAndDropsTheLateReply) {
  sim_process sim({"--delay-ms", "1300"});
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  const packet late = round_trip(c, echo_with(1), 1);
  EXPECT_EQ(error_of(late), vxcapi::error_timed_out);
  EXPECT_EQ(late.get_command(), "proxy.sim.echo");
  EXPECT_TRUE(c.is_connected());
  // The reply to the first call arrives during this one and must not be
  // taken for its answer.
  const packet next = round_trip(c, echo_with(2), 5);
  EXPECT_EQ(error_of(next), "");
  EXPECT_EQ(n_of(next), 2);
  EXPECT_TRUE(c.is_connected());
  EXPECT_TRUE(h.disconnects.empty());
}

TEST(ProxyLink, DroppedLinkGivesLostErrorAndCanBeRemade) {
  sim_process sim({"--drop-after", "1"});
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  EXPECT_EQ(n_of(round_trip(c, echo_with(1), 5)), 1);
  const packet lost = round_trip(c, echo_with(2), 5);
  EXPECT_EQ(error_of(lost), vxcapi::error_lost);
  EXPECT_FALSE(c.is_connected());
  ASSERT_EQ(h.disconnects.size(), 1u);
  EXPECT_FALSE(h.disconnects[0].second);  // the proxy closed it in order
  EXPECT_EQ(error_of(round_trip(c, echo_with(3), 5)), vxcapi::error_not_connected);
  // The object makes a fresh link.
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  EXPECT_EQ(n_of(round_trip(c, echo_with(4), 5)), 4);
}

TEST(ProxyLink, GarbageInsteadOfHelloIsNotAPeer) {
  fake_proxy fake([](fake_peer& peer) {
    peer.read_message();
    peer.send_raw("HTTP/1.0 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_bad_peer);
  EXPECT_FALSE(c.is_connected());
}

TEST(ProxyLink, PacketBeforeHelloIsNotAPeer) {
  fake_proxy fake([](fake_peer& peer) {
    peer.read_message();
    peer.send(vxnet::vxp::make_notice(packet(vxnet::vxp::type_notice, "early")));
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_bad_peer);
}

// The fake proxy answers the hello, then misbehaves with bytes; the link is
// dropped as a protocol error and the process goes on.
void expect_dropped_for(const std::string& junk, const std::string& reason_part) {
  std::atomic<bool> closed{false};
  {
    fake_proxy fake([&](fake_peer& peer) {
      if (!peer.do_hello()) return;
      peer.send_raw(junk);
      // Generous: a sanitizer build takes seconds to decode a large frame.
      closed = peer.sees_close(60000);
    });
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
    EXPECT_TRUE(pump_until(
        c, [&] { return !c.is_connected(); }, std::chrono::seconds(60)));
    ASSERT_EQ(h.disconnects.size(), 1u);
    EXPECT_TRUE(h.disconnects[0].second);
    EXPECT_NE(h.disconnects[0].first.find(reason_part), std::string::npos)
        << h.disconnects[0].first;
    EXPECT_EQ(error_of(round_trip(c, echo_with(1), 1)), vxcapi::error_not_connected);
  }
  EXPECT_TRUE(closed) << "the client did not close the link";
}

TEST(ProxyLink, GarbageOnALiveLinkDropsIt) {
  expect_dropped_for(std::string("\0\0\0\x05\xc1junk", 9), "protocol error");
}

TEST(ProxyLink, OversizedFrameDropsTheLink) {
  expect_dropped_for("\xff\xff\xff\xff", "exceeds the limit");
}

TEST(ProxyLink, AFrameBeyondItsDecodeBudgetDropsTheLink) {
  // A largest frame of the cheapest values: 3 bytes each on the wire.
  const std::string body =
      vxp_samples::reply_with_lists("\x92\x03\xc3", vxnet::vxp::max_frame_size);
  std::string frame;
  for (int shift = 24; shift >= 0; shift -= 8)
    frame += static_cast<char>((body.size() >> shift) & 0xff);
  expect_dropped_for(frame + body, "budget");
}

TEST(ProxyLink, ReplyToUnknownRequestDropsTheLink) {
  std::string frame;
  vxnet::vxp::append_frame(frame,
                           vxnet::vxp::make_reply(424242, packet(vxnet::vxp::type_reply, "x")));
  expect_dropped_for(frame, "unknown request 424242");
}

TEST(ProxyLink, SecondHelloDropsTheLink) {
  std::string frame;
  vxnet::vxp::append_frame(frame, vxnet::vxp::make_hello("again"));
  expect_dropped_for(frame, "hello");
}

TEST(ProxyLink, GarbageDuringACallGivesLostError) {
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.do_hello()) return;
    peer.read_message();
    peer.send_raw("this is not vxp at all");
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  EXPECT_EQ(error_of(round_trip(c, echo_with(1), 5)), vxcapi::error_lost);
  EXPECT_FALSE(c.is_connected());
  EXPECT_EQ(h.disconnects.size(), 1u);
}

TEST(ProxyLink, NoticeDuringACallReachesHandle) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  packet request(vxnet::vxp::type_command, "proxy.sim.notify");
  request.set_property("x", make_refcount<vxcore::property_string>("y"));
  const packet reply = round_trip(c, request, 5);
  EXPECT_EQ(error_of(reply), "");
  ASSERT_EQ(h.handled.size(), 1u);
  EXPECT_EQ(h.handled[0].get_type(), vxnet::vxp::type_notice);
  EXPECT_EQ(h.handled[0].get_command(), "proxy.sim.event");
  EXPECT_TRUE(h.handled[0].get_properties().equals(request.get_properties()));
}

TEST(ProxyLink, NoticeBetweenCallsReachesHandleOnWait) {
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.do_hello()) return;
    packet notice(vxnet::vxp::type_notice, "proxy.event.job");
    notice.set_property("job", make_refcount<vxcore::property_int>(7));
    peer.send(vxnet::vxp::make_notice(notice));
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  EXPECT_TRUE(pump_until(c, [&] { return !h.handled.empty(); }));
  ASSERT_EQ(h.handled.size(), 1u);
  EXPECT_EQ(h.handled[0].get_command(), "proxy.event.job");
  EXPECT_EQ(h.handled[0].get_property("job")->to_string(), "7");
  EXPECT_TRUE(c.is_connected());
}

TEST(ProxyLink, NoticeRightBehindTheHelloIsHandled) {
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.read_message()) return;
    std::string both;
    vxnet::vxp::append_frame(both, vxnet::vxp::make_hello("fake"));
    vxnet::vxp::append_frame(both,
                             vxnet::vxp::make_notice(packet(vxnet::vxp::type_notice, "first")));
    peer.send_raw(both);
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  // Handled as the link comes up, not left waiting for more input.
  ASSERT_EQ(h.handled.size(), 1u);
  EXPECT_EQ(h.handled[0].get_command(), "first");
}

TEST(ProxyLink, RequestFromTheProxyIsAnsweredByTheHandler) {
  std::atomic<std::int64_t> answer{-1};
  std::atomic<bool> refused{false};
  {
    fake_proxy fake([&](fake_peer& peer) {
      if (!peer.do_hello()) return;
      peer.send(vxnet::vxp::make_request(7, packet(vxnet::vxp::type_command, "proxy.ask")));
      auto m = peer.read_message();
      if (m && m->kind == vxnet::vxp::message_kind::reply && m->id == 7) {
        const auto a = m->body.get_property("answer");
        if (a && a->get_kind() == vxcore::kind_int)
          answer = static_cast<const vxcore::property_int&>(*a).value();
      }
      peer.send(vxnet::vxp::make_request(8, packet(vxnet::vxp::type_command, "proxy.other")));
      m = peer.read_message();
      refused = m && m->id == 8 && m->body.get_properties().is_present("error");
      peer.send(vxnet::vxp::make_notice(packet(vxnet::vxp::type_notice, "done")));
      peer.sees_close();
    });
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
    EXPECT_TRUE(pump_until(c, [&] { return h.handled.size() >= 3; }));
  }
  EXPECT_EQ(answer, 42);
  EXPECT_TRUE(refused);
}

TEST(ProxyLink, SeveralClientsAtOnce) {
  sim_process sim;
  recording_handler h1, h2, h3;
  connection a(&h1), b(&h2), c(&h3);
  ASSERT_EQ(connect_now(a, h1, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  ASSERT_EQ(connect_now(b, h2, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  ASSERT_EQ(connect_now(c, h3, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(n_of(round_trip(a, echo_with(i), 5)), i);
    EXPECT_EQ(n_of(round_trip(b, echo_with(100 + i), 5)), 100 + i);
    EXPECT_EQ(n_of(round_trip(c, echo_with(200 + i), 5)), 200 + i);
  }
}

// The fake proxy reads count requests, then answers them last first; each
// answer echoes the request's "n".
TEST(ProxyLinkAsync, RepliesInAnyOrderReachTheirOwnCallers) {
  constexpr int count = 8;
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.do_hello()) return;
    std::vector<vxnet::vxp::message> got;
    while (got.size() < count) {
      auto m = peer.read_message();
      if (!m) return;
      got.push_back(std::move(*m));
    }
    for (auto it = got.rbegin(); it != got.rend(); ++it) {
      packet reply(vxnet::vxp::type_reply, it->body.get_command(), it->body.get_properties());
      peer.send(vxnet::vxp::make_reply(it->id, reply));
    }
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  std::vector<int> order;
  int mismatches = 0;
  for (int i = 0; i < count; ++i) {
    const auto id = c.send_async(echo_with(i), 5, [&, i](const packet& reply) {
      if (n_of(reply) != i) ++mismatches;
      order.push_back(i);
    });
    EXPECT_NE(id, 0u);
  }
  EXPECT_EQ(c.outstanding(), static_cast<std::size_t>(count));
  ASSERT_TRUE(pump_until(c, [&] { return order.size() == count; }));
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(order, (std::vector<int>{7, 6, 5, 4, 3, 2, 1, 0}));
  EXPECT_EQ(c.outstanding(), 0u);
  EXPECT_TRUE(c.is_connected());
}

TEST(ProxyLinkAsync, ForgottenCommandsAreNeverAnsweredAndTheirRepliesDropped) {
  sim_process sim({"--delay-ms", "100"});
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  std::vector<std::int64_t> answered;
  std::vector<connection::request_id> ids;
  for (int i = 0; i < 6; ++i)
    ids.push_back(
        c.send_async(echo_with(i), 5, [&](const packet& r) { answered.push_back(n_of(r)); }));
  c.forget(ids[1]);
  c.forget(ids[4]);
  c.forget(987654);  // unknown: ignored
  EXPECT_EQ(c.outstanding(), 4u);
  ASSERT_TRUE(pump_until(c, [&] { return answered.size() == 4; }));
  // The two late replies arrive too, and are dropped without harm.
  EXPECT_EQ(n_of(round_trip(c, echo_with(77), 5)), 77);
  std::sort(answered.begin(), answered.end());
  EXPECT_EQ(answered, (std::vector<std::int64_t>{0, 2, 3, 5}));
  EXPECT_TRUE(c.is_connected());
  EXPECT_TRUE(h.disconnects.empty());
}

TEST(ProxyLinkAsync, LateRepliesOfAnyNumberOfGivenUpCommandsAreDropped) {
  // More calls given up on than any memory of them would hold: their
  // replies, and a second reply to an answered request, keep the link.
  constexpr int count = 2000;
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.do_hello()) return;
    std::vector<vxnet::vxp::message> held;
    for (int i = 0; i < count; ++i) {
      auto m = peer.read_message();
      if (!m) return;
      held.push_back(std::move(*m));
    }
    for (const auto& m : held) {
      packet reply(vxnet::vxp::type_reply, m.body.get_command(), m.body.get_properties());
      peer.send(vxnet::vxp::make_reply(m.id, reply));
    }
    // Then one more call, answered twice.
    auto last = peer.read_message();
    if (!last) return;
    packet reply(vxnet::vxp::type_reply, last->body.get_command(), last->body.get_properties());
    peer.send(vxnet::vxp::make_reply(last->id, reply));
    peer.send(vxnet::vxp::make_reply(last->id, reply));
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  int answered = 0;
  std::vector<connection::request_id> ids;
  for (int i = 0; i < count; ++i)
    ids.push_back(c.send_async(echo_with(i), 5, [&](const packet&) { ++answered; }));
  ASSERT_TRUE(pump_until(c, [&] { return c.write_calls() > 0 && !c.wants_write(); }));
  for (auto id : ids) c.forget(id);
  EXPECT_EQ(n_of(round_trip(c, echo_with(77), 5)), 77);
  // The repeated reply comes with it or right after: the link stays.
  pump_until(c, [] { return false; }, std::chrono::milliseconds(300));
  EXPECT_EQ(answered, 0);
  EXPECT_TRUE(c.is_connected());
  EXPECT_TRUE(h.disconnects.empty());
}

TEST(ProxyLinkAsync, AWriteThatLosesTheLinkAnswersBeforeSendAsyncReturns) {
  fake_proxy fake([](fake_peer& peer) {
    if (peer.do_hello()) peer.reset_on_close();
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  // The proxy's reset arrives; the link has not read it yet, so the
  // command's write is what finds the link gone.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  int calls = 0;
  std::string error;
  const auto id = c.send_async(echo_with(1), 5, [&](const packet& r) {
    ++calls;
    error = error_of(r);
  });
  EXPECT_EQ(id, 0u);  // answered already
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(error, vxcapi::error_lost);
  EXPECT_FALSE(c.is_connected());
}

TEST(ProxyLinkAsync, ALostLinkAnswersEveryOutstandingCommandAtOnce) {
  constexpr int count = 100;
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.do_hello()) return;
    for (int i = 0; i < count; ++i)
      if (!peer.read_message()) return;
    // Closing unanswered: the fake's destructor-side close ends the link.
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  int turns = 0;
  std::vector<int> answered_in_turn;
  int lost = 0;
  for (int i = 0; i < count; ++i)
    c.send_async(echo_with(i), 5, [&](const packet& r) {
      answered_in_turn.push_back(turns);
      if (error_of(r) == vxcapi::error_lost && r.get_command() == "proxy.sim.echo") ++lost;
    });
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(8);
  while (answered_in_turn.size() < count && std::chrono::steady_clock::now() < give_up) {
    ++turns;
    link_driver::turn(c);
  }
  ASSERT_EQ(answered_in_turn.size(), static_cast<std::size_t>(count));
  EXPECT_EQ(lost, count);
  // All in the one turn that saw the link end.
  EXPECT_EQ(std::count(answered_in_turn.begin(), answered_in_turn.end(), answered_in_turn[0]),
            count);
  EXPECT_FALSE(c.is_connected());
  EXPECT_EQ(c.outstanding(), 0u);
  ASSERT_EQ(h.disconnects.size(), 1u);
}

TEST(ProxyLinkAsync, TimedOutCommandsGetTheTimeOutErrorAndLaterOnesStillWork) {
  sim_process sim({"--delay-ms", "1500"});
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  int timed_out = 0, answered = 0;
  for (int i = 0; i < 10; ++i)
    c.send_async(echo_with(i), 1, [&](const packet& r) {
      ++answered;
      if (error_of(r) == vxcapi::error_timed_out) ++timed_out;
    });
  ASSERT_TRUE(pump_until(c, [&] { return answered == 10; }));
  EXPECT_EQ(timed_out, 10);
  // The late replies come during this call and are not taken for its own.
  EXPECT_EQ(n_of(round_trip(c, echo_with(42), 5)), 42);
  EXPECT_TRUE(c.is_connected());
}

TEST(ProxyLinkAsync, ACallbackMaySendTheNextCommand) {
  sim_process sim;
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
  std::vector<std::int64_t> seen;
  std::function<void(const packet&)> next = [&](const packet& r) {
    seen.push_back(n_of(r));
    if (seen.size() < 10) c.send_async(echo_with(static_cast<int>(seen.size())), 5, next);
  };
  c.send_async(echo_with(0), 5, next);
  ASSERT_TRUE(pump_until(c, [&] { return seen.size() == 10; }));
  EXPECT_EQ(seen, (std::vector<std::int64_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(ProxyLinkAsync, WithoutALinkTheCallbackIsAnsweredAtOnce) {
  recording_handler h;
  connection c(&h);
  std::string error;
  EXPECT_EQ(c.send_async(echo_with(1), 5, [&](const packet& r) { error = error_of(r); }), 0u);
  EXPECT_EQ(error, vxcapi::error_not_connected);
}

TEST(ProxyLinkAsync, AHelloNamingThisLibraryIsRefusedLikeNothingListening) {
  fake_proxy fake([](fake_peer& peer) {
    if (!peer.read_message()) return;
    peer.send(vxnet::vxp::make_hello(vxcapi::client_name));
    peer.sees_close();
  });
  recording_handler h;
  connection c(&h);
  EXPECT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_unreachable);
  EXPECT_FALSE(c.is_connected());
  ASSERT_FALSE(h.statuses.empty());
  EXPECT_NE(h.statuses.back().text.find("itself"), std::string::npos) << h.statuses.back().text;
}

// A proxy that takes the hello and then reads nothing: the commands pile
// up until the outbox bound, and the next gets its error at once.
TEST(ProxyLinkAsync, TheQueueToAStalledProxyIsBounded) {
  std::atomic<bool> done{false};
  fake_proxy fake([&](fake_peer& peer) {
    if (!peer.do_hello()) return;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done && std::chrono::steady_clock::now() < give_up)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  });
  recording_handler h;
  connection c(&h);
  ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
  // 4 MiB commands: the bound takes several, and the kernel's buffers a few.
  const std::string blob(4u << 20, 'x');
  packet big(vxnet::vxp::type_command, "proxy.sim.echo");
  big.set_property("blob", make_refcount<vxcore::property_binary>(
                               reinterpret_cast<const std::uint8_t*>(blob.data()), blob.size()));
  std::string refusal;
  int accepted = 0;
  for (int i = 0; i < 64 && refusal.empty(); ++i) {
    const auto id = c.send_async(big, 30, [&](const packet& r) { refusal = error_of(r); });
    if (id != 0) ++accepted;
    link_driver::turn(c, 1);
  }
  done = true;
  EXPECT_GE(accepted, static_cast<int>(vxcapi::max_outbox_bytes / blob.size()) - 1);
  EXPECT_EQ(refusal.rfind(vxcapi::error_cannot_send, 0), 0u) << refusal;
  EXPECT_NE(refusal.find("full"), std::string::npos) << refusal;
  EXPECT_TRUE(c.is_connected());
  EXPECT_EQ(c.outstanding(), static_cast<std::size_t>(accepted));
}

// A fake proxy that reads count requests, keeps their n in received (in
// the order they arrived) and answers each at once.
void answer_in_order(fake_peer& peer, int count, std::vector<std::int64_t>& received) {
  if (!peer.do_hello()) return;
  for (int i = 0; i < count; ++i) {
    auto m = peer.read_message();
    if (!m) return;
    received.push_back(n_of(m->body));
    packet reply(vxnet::vxp::type_reply, m->body.get_command(), m->body.get_properties());
    peer.send(vxnet::vxp::make_reply(m->id, reply));
  }
  peer.sees_close();
}

std::vector<std::int64_t> zero_to(int count) {
  std::vector<std::int64_t> v;
  for (int i = 0; i < count; ++i) v.push_back(i);
  return v;
}

// Batched writes: commands queued one after another go out in a single
// write at flush_batch(), none lost, in the order they were sent.
TEST(ProxyLinkBatch, QueuedCommandsGoOutInOneWriteInTheirOrder) {
  constexpr int count = 50;
  std::vector<std::int64_t> received, answered;
  {
    fake_proxy fake([&](fake_peer& peer) { answer_in_order(peer, count, received); });
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
    c.set_batched_writes(true);
    const auto before = c.write_calls();
    for (int i = 0; i < count; ++i)
      EXPECT_NE(c.send_async(echo_with(i), 5,
                             [&](const packet& r) { answered.push_back(n_of(r)); }),
                0u);
    EXPECT_EQ(c.write_calls(), before);  // held back
    EXPECT_TRUE(c.wants_write());        // so a loop that forgets to flush still writes
    c.flush_batch();
    EXPECT_EQ(c.write_calls(), before + 1);
    EXPECT_FALSE(c.wants_write());
    c.flush_batch();  // nothing waits: no write
    EXPECT_EQ(c.write_calls(), before + 1);
    ASSERT_TRUE(pump_until(c, [&] { return answered.size() == count; }));
    EXPECT_EQ(c.outstanding(), 0u);
  }
  EXPECT_EQ(received, zero_to(count));
  EXPECT_EQ(answered, zero_to(count));
}

// A batch that reaches batch_write_bytes is written at once, without
// waiting for flush_batch(); switching batching off writes the rest.
TEST(ProxyLinkBatch, SixtyFourKibibytesAreWrittenAtOnce) {
  constexpr int count = 10;
  std::vector<std::int64_t> received, answered;
  {
    fake_proxy fake([&](fake_peer& peer) { answer_in_order(peer, count, received); });
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", fake.port_text(), 2), vxcapi::rc_connected);
    c.set_batched_writes(true);
    // About 10 KB a frame: six stay below 64 KiB, the seventh passes it.
    const std::string blob(10000, 'b');
    std::vector<std::uint64_t> writes_after;
    for (int i = 0; i < count; ++i) {
      packet p = echo_with(i);
      p.set_property("blob", make_refcount<vxcore::property_binary>(
                                 reinterpret_cast<const std::uint8_t*>(blob.data()), blob.size()));
      c.send_async(p, 5, [&](const packet& r) { answered.push_back(n_of(r)); });
      writes_after.push_back(c.write_calls());
    }
    const auto first = writes_after[0];
    for (int i = 0; i < 6; ++i) EXPECT_EQ(writes_after[i], first) << "command " << i;
    EXPECT_GT(writes_after[6], first);
    EXPECT_EQ(writes_after[9], writes_after[6]);  // the last three wait again
    EXPECT_TRUE(c.wants_write());
    c.set_batched_writes(false);
    EXPECT_GT(c.write_calls(), writes_after[9]);
    EXPECT_FALSE(c.wants_write());
    ASSERT_TRUE(pump_until(c, [&] { return answered.size() == count; }));
  }
  EXPECT_EQ(received, zero_to(count));
  EXPECT_EQ(answered, zero_to(count));
}

// Link events reach the process's reporter under the module "vxcapi".
class recording_reporter : public vxcore::reporter {
 public:
  recording_reporter() { previous_ = vxcore::set_reporter(this); }
  ~recording_reporter() override { vxcore::set_reporter(previous_); }
  void report(const char*, std::uint32_t, const char* module, vxcore::kind k,
              vxbase::severity severity, const char* message) override {
    lines.push_back(std::string(module) + "|" + vxcore::cstr_with_kind(k) + "|" +
                    vxbase::cstr_with_severity(severity) + "|" + (message ? message : ""));
  }
  bool has(const std::string& part) const {
    for (const auto& l : lines)
      if (l.find(part) != std::string::npos) return true;
    return false;
  }
  std::vector<std::string> lines;

 private:
  vxcore::reporter* previous_;
};

TEST(ProxyLink, LinkEventsAreReported) {
  recording_reporter reports;
  {
    sim_process sim({"--drop-after", "0"});
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
    EXPECT_TRUE(reports.has("vxcapi|network|info|connected to client proxy at 127.0.0.1:" +
                            sim.port_text()));
    round_trip(c, echo_with(1), 5);
    EXPECT_TRUE(reports.has("vxcapi|network|info|link to client proxy lost: the proxy closed"));
  }
  recording_handler h;
  connection c(&h);
  connect_now(c, h, "127.0.0.1", std::to_string(unused_port()), 1);
  EXPECT_TRUE(reports.has("vxcapi|network|debug|cannot connect to client proxy at 127.0.0.1:"));
  for (const auto& line : reports.lines) EXPECT_EQ(line.rfind("vxcapi|", 0), 0u) << line;
}

TEST(ClientProxySim, ListeningLineNamesPortAndProtocol) {
  sim_process sim({"--protocol", "5"});
  EXPECT_EQ(sim.listening_line(),
            "ClientProxySim listening on 127.0.0.1:" + sim.port_text() + " (protocol 5)");
}

}  // namespace
