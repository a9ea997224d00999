// Tests of XmlRpcDispatch: the mask rules, closing and self-destruction of
// sources, clear() during work, the time-out forms, sources removed inside
// handlers, and many sources. (test_dispatch_posix.cpp has the cases that
// need signals or chosen descriptor numbers.)
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "engine_test_platform.h"
#include "engine_test_util.h"
#include "fake_source.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcSource.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

TEST(XmlRpcDispatch, EmptyListReturnsWithoutSelecting) {
  RecordingErrorHandler errors;
  XmlRpcDispatch disp;
  // A negative time-out would wait forever if select were called.
  disp.work(-1.0);
  disp.work(0.5);
  EXPECT_TRUE(errors.messages.empty());
}

TEST(XmlRpcDispatch, NegativeTimeoutWaitsUntilNoSourceRemains) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  source.setKeepOpen(true);  // the pair closes its own descriptors
  source.handler = [](unsigned) { return 0u; };
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);

  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(sendByte(pair.a));
  });
  disp.work(-1.0);  // returns only once the handler has dropped the source
  late.join();
  ASSERT_EQ(source.events.size(), 1u);
  EXPECT_EQ(source.events[0], XmlRpcDispatch::ReadableEvent);
}

TEST(XmlRpcDispatch, NothingToWatchEndsWorkThroughTheSelectError) {
  RecordingErrorHandler errors;
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  disp.addSource(&source, 0);
  disp.work(-1.0);
  ASSERT_EQ(errors.messages.size(), 1u);
  EXPECT_EQ(errors.messages[0], "Error in XmlRpcDispatch::work: error in select (-1).");
  EXPECT_EQ(source.closes, 0);  // the source stays registered, untouched
}

TEST(XmlRpcDispatch, TimedWorkReturnsAfterItsBudgetWithoutTraffic) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);
  double start = disp.getTime();
  disp.work(0.5);
  // It cannot end before a pass has finished past the end time.
  EXPECT_GT(disp.getTime() - start, 0.5);
  EXPECT_TRUE(source.events.empty());
  EXPECT_EQ(source.closes, 0);
}

TEST(XmlRpcDispatch, ZeroMaskRemovesAndClosesTheSource) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  pair.b = -1;  // the source's close() closes it now
  source.handler = [](unsigned) { return 0u; };
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);
  ASSERT_TRUE(sendByte(pair.a));
  int fd = source.getfd();
  disp.work(0.0);
  EXPECT_EQ(source.events.size(), 1u);
  EXPECT_EQ(source.closes, 1);
  EXPECT_EQ(source.getfd(), -1);
  EXPECT_FALSE(isSocketOpen(fd));
  disp.work(0.0);  // nothing watched any more
  EXPECT_EQ(source.events.size(), 1u);
}

TEST(XmlRpcDispatch, ZeroMaskOnKeepOpenSourceRemovesWithoutClosing) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  source.setKeepOpen(true);
  source.handler = [](unsigned) { return 0u; };
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);
  ASSERT_TRUE(sendByte(pair.a));
  disp.work(0.0);
  EXPECT_EQ(source.closes, 0);
  EXPECT_EQ(source.getfd(), pair.b);
  EXPECT_TRUE(isSocketOpen(pair.b));
  disp.work(0.0);
  EXPECT_EQ(source.events.size(), 1u);  // removed from the list all the same
}

TEST(XmlRpcDispatch, AllOnesKeepsTheMaskAndOtherValuesReplaceIt) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  source.setKeepOpen(true);
  disp.addSource(&source, XmlRpcDispatch::WritableEvent);

  source.handler = [](unsigned) { return kKeepMask; };
  disp.work(0.0);
  disp.work(0.0);
  ASSERT_EQ(source.events.size(), 2u);  // still watched for writing
  EXPECT_EQ(source.events[1], XmlRpcDispatch::WritableEvent);

  source.handler = [](unsigned) { return unsigned(XmlRpcDispatch::ReadableEvent); };
  disp.work(0.0);
  ASSERT_EQ(source.events.size(), 3u);
  disp.work(0.0);  // now only readable, and nothing to read
  EXPECT_EQ(source.events.size(), 3u);
  ASSERT_TRUE(sendByte(pair.a));
  disp.work(0.0);
  ASSERT_EQ(source.events.size(), 4u);
  EXPECT_EQ(source.events[3], XmlRpcDispatch::ReadableEvent);
}

TEST(XmlRpcDispatch, SourceInSeveralSetsIsCalledOncePerSetInOrder) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  source.setKeepOpen(true);
  source.handler = [](unsigned) { return unsigned(XmlRpcDispatch::ReadableEvent); };
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent | XmlRpcDispatch::WritableEvent);
  ASSERT_TRUE(sendByte(pair.a));
  disp.work(0.0);
  ASSERT_EQ(source.events.size(), 2u);
  EXPECT_EQ(source.events[0], XmlRpcDispatch::ReadableEvent);
  EXPECT_EQ(source.events[1], XmlRpcDispatch::WritableEvent);
}

TEST(XmlRpcDispatch, DeleteOnCloseSourceIsDestroyedExactlyOnce) {
  SocketPair pair;
  XmlRpcDispatch disp;
  int destroyed = 0;
  auto* dying = new FakeSource(pair.b, true, &destroyed);
  pair.b = -1;
  dying->handler = [](unsigned) { return 0u; };
  FakeSource after(pair.a);
  after.setKeepOpen(true);
  after.handler = [](unsigned) { return kKeepMask; };
  disp.addSource(dying, XmlRpcDispatch::WritableEvent);
  disp.addSource(&after, XmlRpcDispatch::WritableEvent);

  disp.work(0.0);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(after.events.size(), 1u);  // the loop went on past the dead entry
  disp.work(0.0);
  pair.a = -1;  // the clear closes it through `after`
  disp.clear();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(after.events.size(), 2u);
}

TEST(XmlRpcDispatch, ClearDuringWorkClosesEverySourceAfterThePass) {
  SocketPair first, second;
  XmlRpcDispatch disp;
  int destroyed = 0;
  FakeSource clearing(first.b);
  FakeSource later(second.b);
  auto* owned = new FakeSource(first.a, true, &destroyed);
  first.a = first.b = second.b = -1;  // closed by the sources
  clearing.handler = [&](unsigned) {
    disp.clear();
    EXPECT_EQ(later.closes, 0);  // deferred to the end of the pass
    return kKeepMask;
  };
  disp.addSource(&clearing, XmlRpcDispatch::WritableEvent);
  disp.addSource(&later, XmlRpcDispatch::WritableEvent);
  disp.addSource(owned, XmlRpcDispatch::WritableEvent);

  disp.work(-1.0);                     // returns: the clear leaves nothing to watch
  EXPECT_EQ(later.events.size(), 1u);  // still got its event of that pass
  EXPECT_EQ(clearing.closes, 1);
  EXPECT_EQ(later.closes, 1);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(clearing.getfd(), -1);
}

TEST(XmlRpcDispatch, ClearOutsideWorkClosesAtOnce) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  pair.b = -1;
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);
  disp.clear();
  EXPECT_EQ(source.closes, 1);
  EXPECT_EQ(source.getfd(), -1);
}

TEST(XmlRpcDispatch, RemoveSourceForgetsWithoutClosing) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  disp.addSource(&source, XmlRpcDispatch::WritableEvent);
  disp.removeSource(&source);
  disp.work(0.0);
  EXPECT_TRUE(source.events.empty());
  EXPECT_EQ(source.closes, 0);
  EXPECT_TRUE(isSocketOpen(pair.b));
}

TEST(XmlRpcDispatch, SetSourceEventsReplacesTheMask) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  disp.addSource(&source, XmlRpcDispatch::ReadableEvent);
  disp.setSourceEvents(&source, XmlRpcDispatch::WritableEvent);
  disp.work(0.0);
  ASSERT_EQ(source.events.size(), 1u);
  EXPECT_EQ(source.events[0], XmlRpcDispatch::WritableEvent);
}

TEST(XmlRpcDispatch, HandlerMayRemoveItsOwnAndTheNextEntry) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource first(pair.a), second(pair.b);
  first.handler = [&](unsigned) {
    disp.removeSource(&first);
    disp.removeSource(&second);
    return unsigned(XmlRpcDispatch::ReadableEvent);
  };
  disp.addSource(&first, XmlRpcDispatch::WritableEvent);
  disp.addSource(&second, XmlRpcDispatch::WritableEvent);
  disp.work(0.0);
  EXPECT_EQ(first.events.size(), 1u);
  EXPECT_TRUE(second.events.empty());
  EXPECT_EQ(first.closes + second.closes, 0);
  disp.work(-1.0);  // both gone: returns at once
}

TEST(XmlRpcDispatch, EverySourceIsWatchedInEveryPass) {
  // Far more than a 64-entry set; each pair takes two descriptors.
  constexpr int kSources = 300;
  const int limit = XmlRpcSocket::getDescriptorLimit();
  if (limit < 2 * kSources + 64) {
    GTEST_SKIP() << "descriptor limit " << limit << " is below " << 2 * kSources + 64;
  }
  XmlRpcDispatch disp;
  std::vector<std::unique_ptr<SocketPair>> pairs;
  std::vector<std::unique_ptr<FakeSource>> sources;
  for (int i = 0; i < kSources; ++i) {
    pairs.push_back(std::make_unique<SocketPair>());
    sources.push_back(std::make_unique<FakeSource>(pairs.back()->b));
    sources.back()->setKeepOpen(true);
    disp.addSource(sources.back().get(), XmlRpcDispatch::WritableEvent);
  }
  disp.work(0.0);
  for (auto& s : sources) ASSERT_EQ(s->events.size(), 1u);
  disp.work(0.0);
  for (auto& s : sources) ASSERT_EQ(s->events.size(), 2u);
}

TEST(XmlRpcDispatch, ExceptionFromAHandlerLeavesWorkAndTheDispatcherUsable) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource throwing(pair.a), other(pair.b);
  throwing.handler = [](unsigned) -> unsigned { throw std::runtime_error("handler failed"); };
  disp.addSource(&throwing, XmlRpcDispatch::WritableEvent);
  disp.addSource(&other, XmlRpcDispatch::WritableEvent);
  EXPECT_THROW(disp.work(0.0), std::runtime_error);
  // Removing works at once again outside a pass, and work() goes on.
  disp.removeSource(&throwing);
  disp.work(0.0);
  EXPECT_EQ(throwing.events.size(), 1u);
  EXPECT_EQ(other.events.size(), 1u);
  EXPECT_EQ(throwing.closes + other.closes, 0);
}

namespace {

// Makes `fd` ready for `event`: data to read, out-of-band data for the
// exception event; a connected socket is writable anyway.
void makeReady(const SocketPair& pair, unsigned event) {
  if (event == XmlRpcDispatch::ReadableEvent) {
    ASSERT_TRUE(sendByte(pair.a));
  } else if (event == XmlRpcDispatch::Exception) {
    ASSERT_TRUE(sendOutOfBand(pair.a, '!'));
  }
}

}  // namespace

// A handler of each event kind destroys another source that is ready in the
// same pass, and the dispatcher must not call it (under ASan a call would
// be a use after free).
TEST(XmlRpcDispatch, HandlerOfEachEventKindMayDestroyALaterReadySource) {
  for (unsigned event : watchableEvents()) {
    SCOPED_TRACE(event);
    SocketPair first, second;
    XmlRpcDispatch disp;
    int destroyed = 0;
    FakeSource killer(first.b);
    killer.setKeepOpen(true);
    auto* victim = new FakeSource(second.b, true, &destroyed);
    second.b = -1;  // the victim's close() closes it
    killer.handler = [&](unsigned) {
      if (destroyed == 0) {
        disp.removeSource(victim);
        victim->close();  // destroys it
      }
      return kKeepMask;
    };
    disp.addSource(&killer, event);
    disp.addSource(victim, event);
    makeReady(first, event);
    makeReady(second, event);
    disp.work(0.0);
    EXPECT_EQ(killer.events.size(), 1u);
    EXPECT_EQ(destroyed, 1);
    disp.work(0.0);  // the blanked entry is gone
    EXPECT_EQ(killer.events.size(), 2u);
  }
}

// A source ready for every event kind at once destroys itself in one of its
// handlers: the later handlers of that pass are not called.
TEST(XmlRpcDispatch, SourceDestroyedByOneHandlerGetsNoFurtherEvent) {
  for (unsigned dyingAt : watchableEvents()) {
    SCOPED_TRACE(dyingAt);
    SocketPair pair;
    XmlRpcDispatch disp;
    int destroyed = 0;
    std::vector<unsigned> seen;
    auto* source = new FakeSource(pair.b, true, &destroyed);
    pair.b = -1;
    source->handler = [&, source](unsigned event) {
      seen.push_back(event);
      if (event == dyingAt) {
        disp.removeSource(source);
        source->close();  // destroys it
      }
      return kKeepMask;
    };
    disp.addSource(source, XmlRpcDispatch::ReadableEvent | XmlRpcDispatch::WritableEvent |
                               XmlRpcDispatch::Exception);
    makeReady(pair, XmlRpcDispatch::ReadableEvent);
    makeReady(pair, XmlRpcDispatch::Exception);
    disp.work(0.0);
    EXPECT_EQ(destroyed, 1);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), dyingAt);
  }
}

// A handler removes another source and adds a new one: the removed one gets
// no event, the added one is watched from the next pass on.
TEST(XmlRpcDispatch, SourceAddedDuringAPassWaitsForTheNext) {
  SocketPair pair, other;
  XmlRpcDispatch disp;
  FakeSource adder(pair.b), removed(other.b), added(other.a);
  for (FakeSource* s : {&adder, &removed, &added}) s->setKeepOpen(true);
  adder.handler = [&](unsigned) {
    disp.removeSource(&removed);
    disp.addSource(&added, XmlRpcDispatch::WritableEvent);
    return 0u;
  };
  disp.addSource(&adder, XmlRpcDispatch::WritableEvent);
  disp.addSource(&removed, XmlRpcDispatch::WritableEvent);
  disp.work(0.0);
  EXPECT_EQ(adder.events.size(), 1u);
  EXPECT_TRUE(removed.events.empty());
  EXPECT_TRUE(added.events.empty());
  disp.work(0.0);
  EXPECT_EQ(added.events.size(), 1u);
  EXPECT_TRUE(removed.events.empty());
}

TEST(XmlRpcDispatch, PeriodicTaskRunsWithoutTrafficAndWithNothingWatched) {
  RecordingErrorHandler errors;
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource idle(pair.b);
  idle.setKeepOpen(true);
  disp.addSource(&idle, 0);  // watched for nothing
  int runs = 0;
  disp.setPeriodicTask([&] { ++runs; }, 0.05);
  double start = disp.getTime();
  disp.work(0.3);
  double took = disp.getTime() - start;
  EXPECT_GE(took, 0.3);  // waited, no error return
  EXPECT_GE(runs, 3);
  EXPECT_TRUE(errors.messages.empty());
  disp.setPeriodicTask(nullptr, 0.0);
}

TEST(XmlRpcDispatch, ExitEndsWorkAfterThePassInProgress) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource source(pair.b);
  source.handler = [&](unsigned) {
    disp.exit();
    return kKeepMask;
  };
  disp.addSource(&source, XmlRpcDispatch::WritableEvent);
  disp.work(-1.0);  // would run forever: the source stays writable
  EXPECT_EQ(source.events.size(), 1u);
  EXPECT_EQ(source.closes, 0);
}

TEST(XmlRpcDispatch, ASourceListedTwiceIsFoundAgainAfterItsFirstEntryGoes) {
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource twice(pair.b);
  twice.setKeepOpen(true);
  disp.addSource(&twice, XmlRpcDispatch::ReadableEvent);
  disp.addSource(&twice, XmlRpcDispatch::ReadableEvent);
  disp.removeSource(&twice);                                    // the first entry goes
  disp.setSourceEvents(&twice, XmlRpcDispatch::WritableEvent);  // the second one changes
  disp.work(0.0);
  ASSERT_EQ(twice.events.size(), 1u);
  EXPECT_EQ(twice.events[0], XmlRpcDispatch::WritableEvent);
  disp.removeSource(&twice);
  EXPECT_TRUE(disp.empty());
}

// The pass-end task runs once per pass, after every handler of the pass,
// also when no source was ready; it may remove sources, and an empty task
// switches it off.
TEST(XmlRpcDispatch, PassEndTaskRunsOnceAfterTheHandlersOfEachPass) {
  SocketPair pair, other;
  XmlRpcDispatch disp;
  FakeSource first(pair.b), second(other.b), quiet(pair.a);
  for (FakeSource* s : {&first, &second, &quiet}) s->setKeepOpen(true);
  std::vector<std::string> log;
  first.handler = [&](unsigned) {
    log.push_back("first");
    return kKeepMask;
  };
  second.handler = [&](unsigned) {
    log.push_back("second");
    return kKeepMask;
  };
  disp.addSource(&first, XmlRpcDispatch::WritableEvent);
  disp.addSource(&second, XmlRpcDispatch::WritableEvent);
  disp.addSource(&quiet, XmlRpcDispatch::ReadableEvent);  // never ready: nothing was sent
  bool removeFirst = false;
  disp.setPassEndTask([&] {
    log.push_back("end");
    if (removeFirst) disp.removeSource(&first);
  });

  disp.work(0.0);  // one pass
  EXPECT_EQ(log, (std::vector<std::string>{"first", "second", "end"}));

  // A pass in which nothing is ready ends with the task all the same.
  log.clear();
  disp.setSourceEvents(&first, XmlRpcDispatch::ReadableEvent);
  disp.setSourceEvents(&second, XmlRpcDispatch::ReadableEvent);
  disp.work(0.0);
  EXPECT_EQ(log, (std::vector<std::string>{"end"}));

  // The task removes a source: the next pass goes without it.
  log.clear();
  disp.setSourceEvents(&first, XmlRpcDispatch::WritableEvent);
  disp.setSourceEvents(&second, XmlRpcDispatch::WritableEvent);
  removeFirst = true;
  disp.work(0.0);
  EXPECT_EQ(log, (std::vector<std::string>{"first", "second", "end"}));
  removeFirst = false;
  log.clear();
  disp.work(0.0);
  EXPECT_EQ(log, (std::vector<std::string>{"second", "end"}));

  // Switched off.
  log.clear();
  disp.setPassEndTask(nullptr);
  disp.work(0.0);
  EXPECT_EQ(log, (std::vector<std::string>{"second"}));
}
