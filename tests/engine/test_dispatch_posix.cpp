// Dispatcher tests that only POSIX systems can make: a signal interrupting
// the wait (pthread_kill) and a descriptor number beyond FD_SETSIZE (dup2
// under a raised RLIMIT_NOFILE). Windows has neither signals to threads nor
// descriptor numbers of its own.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "engine_test_util.h"
#include "fake_source.h"
#include "xmlrpc/XmlRpcDispatch.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

namespace {
void ignoreSignal(int) {}
}  // namespace

TEST(XmlRpcDispatch, InterruptingSignalEndsWorkQuietly) {
  struct sigaction action {
  }, previous{};
  action.sa_handler = ignoreSignal;  // no SA_RESTART: select is interrupted
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
  RecordingErrorHandler errors;
  SocketPair pair;
  XmlRpcDispatch disp;
  FakeSource idle(pair.b);
  disp.addSource(&idle, XmlRpcDispatch::ReadableEvent);

  pthread_t worker = ::pthread_self();
  std::atomic<bool> returned{false};
  // Signals again until work() has returned, in case one lands before the
  // wait has begun.
  std::thread interrupter([worker, &returned] {
    while (!returned) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (!returned) ::pthread_kill(worker, SIGUSR1);
    }
  });
  disp.work(-1.0);  // would wait forever without the signal
  returned = true;
  interrupter.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_TRUE(errors.messages.empty());
  EXPECT_TRUE(idle.events.empty());
}

TEST(XmlRpcDispatch, DescriptorBeyondTheSelectSetSizeIsWatched) {
  // Descriptor numbers of FD_SETSIZE and above do not fit a select() set;
  // the dispatcher watches them all the same.
  const int high = FD_SETSIZE + 10;
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max <= static_cast<rlim_t>(high)) {
    GTEST_SKIP() << "descriptor limit " << limit.rlim_max << " is below " << high;
  }
  rlimit raised = limit;
  if (raised.rlim_cur <= static_cast<rlim_t>(high)) raised.rlim_cur = high + 1;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &raised), 0);

  SocketPair pair;
  ASSERT_EQ(::dup2(pair.b, high), high);
  XmlRpcDispatch disp;
  FakeSource beyond(high);
  beyond.setKeepOpen(true);
  beyond.handler = [](unsigned) { return unsigned(XmlRpcDispatch::ReadableEvent); };
  disp.addSource(&beyond, XmlRpcDispatch::ReadableEvent);
  disp.work(0.0);
  EXPECT_TRUE(beyond.events.empty());  // nothing to read yet
  ASSERT_TRUE(sendByte(pair.a));
  disp.work(0.0);
  ASSERT_EQ(beyond.events.size(), 1u);
  EXPECT_EQ(beyond.events[0], XmlRpcDispatch::ReadableEvent);
  ::close(high);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}
