// A stress test of the proxy link in the server's dispatcher: random
// interleavings of commands, callbacks that send more or drop the link,
// forgotten commands (clients that went away), time-outs, links closed by
// either side and reconnects, against a simulator that answers out of order
// and drops every link after a number of packets. Run under the sanitizers
// it looks for use after free and double answers; everywhere it checks that
// every command not forgotten is answered exactly once, with its own reply
// or one of the link's error texts.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>

#include <vxcapi/connection.h>
#include <vxcore/property_all.h>
#include <xmlrpc/XmlRpcDispatch.h>

#include "echo_command.h"
#include "proxy_link_source.h"
#include "sim_process.h"

namespace {

using vxbase::make_refcount;
using vxnet::vxp::packet;

// How long the test runs: XMLRPCS_STRESS_SECONDS, else a short run (the
// sanitizer configuration's test command sets a minute).
std::chrono::seconds run_time() {
  if (const char* s = std::getenv("XMLRPCS_STRESS_SECONDS"))
    return std::chrono::seconds(std::atoi(s));
  return std::chrono::seconds(8);
}

class quiet_handler : public vxcapi::handler {
 public:
  bool status(vxcapi::result_code, const std::string&, bool) override { return true; }
  void disconnected(const std::string&, bool) override { ++losses; }
  bool handle(const packet&, packet&) override { return true; }
  int losses = 0;
};

using link_test::echo_with;
using link_test::n_of;

std::string error_of(const packet& p) {
  const auto e = p.get_property("error");
  return e ? e->to_string() : std::string();
}

TEST(ProxyLinkStress, RandomCommandsClosesAndLinkLossesKeepEveryPromise) {
  sim_process sim({"--jitter-ms", "20", "--drop-after", "300"});
  quiet_handler h;
  vxcapi::connection link(&h);
  XmlRpc::XmlRpcDispatch dispatch;
  xmlrpcs::proxy_link_source source(link, dispatch);
  std::mt19937 random(12345);
  auto chance = [&](int percent) {
    return std::uniform_int_distribution<int>(0, 99)(random) < percent;
  };

  std::int64_t next_n = 1;
  // n -> link id of the commands that still expect their answer.
  std::map<std::int64_t, vxcapi::connection::request_id> expected;
  std::set<std::int64_t> forgotten;
  std::map<std::string, int> outcomes;
  int double_answers = 0, wrong_replies = 0, answers_of_forgotten = 0;

  std::function<void(int)> send_some = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const std::int64_t n = next_n++;
      // Most wait long; some time out at once or soon.
      const unsigned timeout = chance(5) ? 0u : (chance(10) ? 1u : 5u);
      expected[n] = 0;
      const auto id = link.send_async(echo_with(n), timeout, [&, n](const packet& reply) {
        if (forgotten.count(n)) ++answers_of_forgotten;
        const auto it = expected.find(n);
        if (it == expected.end()) {
          ++double_answers;
          return;
        }
        expected.erase(it);
        const std::string error = error_of(reply);
        if (error.empty()) {
          if (n_of(reply) != n) ++wrong_replies;
          ++outcomes["reply"];
        } else {
          ++outcomes[error];
        }
        // Callbacks act too: send more, or drop the link under everyone.
        if (chance(20)) send_some(1);
        if (chance(1)) link.close();
      });
      if (expected.count(n)) expected[n] = id;
    }
  };

  const auto end = std::chrono::steady_clock::now() + run_time();
  int connects = 0;
  while (std::chrono::steady_clock::now() < end) {
    if (!link.is_connected() && !link.is_connecting()) {
      link.connect("127.0.0.1", sim.port_text(), 2);
      ++connects;
    }
    if (link.is_connected()) {
      send_some(std::uniform_int_distribution<int>(0, 8)(random));
      // A client that went away: its command is forgotten.
      if (chance(15) && !expected.empty()) {
        auto it = expected.begin();
        std::advance(it,
                     std::uniform_int_distribution<std::size_t>(0, expected.size() - 1)(random));
        if (it->second != 0) {
          link.forget(it->second);
          forgotten.insert(it->first);
          expected.erase(it);
        }
      }
      if (chance(1)) link.close();
    }
    source.work(0.005, [] { return true; });
  }
  // Whatever is still waiting ends with the link.
  link.close();
  EXPECT_TRUE(expected.empty()) << expected.size() << " commands never answered";
  EXPECT_EQ(double_answers, 0);
  EXPECT_EQ(wrong_replies, 0);
  EXPECT_EQ(answers_of_forgotten, 0);
  for (const auto& [outcome, count] : outcomes) {
    const bool known = outcome == "reply" || outcome == vxcapi::error_lost ||
                       outcome == vxcapi::error_timed_out || outcome == vxcapi::error_not_connected;
    EXPECT_TRUE(known) << outcome;
    std::printf("%-50s %d\n", outcome.c_str(), count);
  }
  std::printf("connects %d, links lost %d, commands %lld\n", connects, h.losses,
              static_cast<long long>(next_n - 1));
  EXPECT_GT(outcomes["reply"], 100);
  EXPECT_GT(outcomes[vxcapi::error_lost], 0);
  EXPECT_GT(connects, 2);
}

}  // namespace
