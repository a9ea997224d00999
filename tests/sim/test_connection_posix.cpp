// ClientProxySim ends cleanly on the signals a service manager sends.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <string>

#include <vxcapi/connection.h>

#include "link_driver.h"
#include "recording_handler.h"
#include "sim_process.h"

namespace {

using link_driver::connect_now;
using link_driver::pump_until;
using link_test::recording_handler;
using vxcapi::connection;

TEST(ClientProxySim, StopsCleanlyOnSigtermAndSigint) {
  for (int sig : {SIGTERM, SIGINT}) {
    sim_process sim;
    recording_handler h;
    connection c(&h);
    ASSERT_EQ(connect_now(c, h, "127.0.0.1", sim.port_text(), 2), vxcapi::rc_connected);
    const int status = sim.stop(sig);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << sig;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(sim.rest_of_output().find("ClientProxySim stopped"), std::string::npos);
    // The client sees the link end.
    EXPECT_TRUE(pump_until(c, [&] { return !c.is_connected(); }));
  }
}

}  // namespace
