// The command database: reading command documents and verifying packets.
#include <gtest/gtest.h>

#include <set>

#include <vxbase/es.h>
#include <vxcore/constraint_files.h>
#include <vxcore/property_all.h>
#include <vxcore/xml_document.h>
#include <vxnet/vxp/command_db.h>

#include "commanddb_test_util.h"

namespace {

using commanddb_test::parsed;
using vxbase::make_refcount;
using vxcore::properties;
using vxcore::property_ptr;
using vxnet::vxp::command_db;
using vxnet::vxp::packet;

constexpr const char* data_source = XMLRPCS_DATA_SOURCE_DIR;

// Every proxy command of the method table, each once.
const std::set<std::string> method_table_commands = {"proxy.general.version",
                                                     "proxy.node.info.cluster",
                                                     "proxy.node.submit.build",
                                                     "proxy.node.submit.submission",
                                                     "proxy.node.submission.recall",
                                                     "proxy.task.create.transfer",
                                                     "proxy.task.create.youtube",
                                                     "proxy.task.create.execute",
                                                     "proxy.task.create.mail",
                                                     "proxy.task.create.mbr",
                                                     "proxy.source.create.file-source",
                                                     "proxy.source.create.monitor-source",
                                                     "proxy.source.create.edl-source",
                                                     "proxy.source.create.iseq-source",
                                                     "proxy.node.status.tasks2",
                                                     "proxy.node.status.workflows2",
                                                     "proxy.node.status.monitors",
                                                     "proxy.status.bonjour",
                                                     "proxy.node.monitor.start",
                                                     "proxy.node.monitor.set-priority",
                                                     "proxy.node.monitor.stop",
                                                     "proxy.node.monitor.remove",
                                                     "proxy.node.job.cancel",
                                                     "proxy.node.job.pause",
                                                     "proxy.node.job.resume",
                                                     "proxy.node.job.requeue",
                                                     "proxy.node.job.set-priority",
                                                     "proxy.node.history.remove-workflow",
                                                     "proxy.analyze.file",
                                                     "proxy.node.status.tasks",
                                                     "proxy.node.status.workflows",
                                                     "proxy.node.monitor.list",
                                                     "proxy.network.info.bonjour"};

// The commands sent as node commands, which always carry target-node-info.
const std::set<std::string> node_commands = {"proxy.node.info.cluster",
                                             "proxy.node.submit.build",
                                             "proxy.node.submit.submission",
                                             "proxy.node.submission.recall",
                                             "proxy.node.status.tasks2",
                                             "proxy.node.status.workflows2",
                                             "proxy.node.status.monitors",
                                             "proxy.node.monitor.start",
                                             "proxy.node.monitor.set-priority",
                                             "proxy.node.monitor.stop",
                                             "proxy.node.monitor.remove",
                                             "proxy.node.job.cancel",
                                             "proxy.node.job.pause",
                                             "proxy.node.job.resume",
                                             "proxy.node.job.requeue",
                                             "proxy.node.job.set-priority",
                                             "proxy.node.history.remove-workflow",
                                             "proxy.analyze.file",
                                             "proxy.node.status.tasks",
                                             "proxy.node.status.workflows",
                                             "proxy.node.monitor.list"};

class CommandDb : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    constraints_ = new vxcore::constraint_db(0);
    vxcore::add_constraint_files(*constraints_, std::string(data_source) + "/xml",
                                 std::string(data_source) + "/rng/constraints.rng");
    vxcore::xml::reader r;
    vxcore::xml::read_document_file(r, std::string(data_source) + "/vxp_clientproxy.xml");
    commands_ = new command_db();
    commands_->read_commands(r, *constraints_);
  }
  static void TearDownTestSuite() {
    delete commands_;
    delete constraints_;
  }

  static std::string reason_for(const std::string& command, const properties& payload) {
    std::string reason;
    if (commands_->verify_send(packet(2, command, payload), reason)) return "(accepted)";
    return reason;
  }

  static property_ptr str(const std::string& s) {
    return make_refcount<vxcore::property_string>(s);
  }
  static property_ptr num(std::int64_t v) { return make_refcount<vxcore::property_int>(v); }
  static property_ptr list(std::initializer_list<property_ptr> items) {
    auto l = make_refcount<vxcore::property_list>();
    for (const property_ptr& p : items) l->push_back(p);
    return l;
  }
  // What the server adds to every node command.
  static property_ptr server_target(properties info = properties(false)) {
    info["iid"] = str("XMLRPC");
    info["persistent"] = make_refcount<vxcore::property_bool>(true);
    return make_refcount<properties>(info);
  }

  static inline vxcore::constraint_db* constraints_ = nullptr;
  static inline command_db* commands_ = nullptr;
};

TEST_F(CommandDb, HoldsExactlyTheCommandsOfTheMethodTable) {
  const auto names = commands_->command_names();
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), method_table_commands);
  EXPECT_EQ(commands_->size(), 33u);
}

TEST_F(CommandDb, EveryNodeCommandTakesTheServersTargetNodeInfo) {
  for (const std::string& c : node_commands) {
    const auto props = commands_->find(c);
    ASSERT_TRUE(props) << c;
    const auto* e = props->find("target-node-info");
    ASSERT_NE(e, nullptr) << c;
    std::string reason;
    EXPECT_TRUE(e->rule->check(*server_target(), "target-node-info", reason)) << c << reason;
  }
  // Generic commands never get one.
  for (const std::string& c : method_table_commands) {
    if (node_commands.count(c)) continue;
    EXPECT_EQ(commands_->find(c)->find("target-node-info"), nullptr) << c;
  }
}

TEST_F(CommandDb, VersionTakesNothing) {
  EXPECT_EQ(reason_for("proxy.general.version", properties(false)), "(accepted)");
  properties p(false);
  p["verbose"] = make_refcount<vxcore::property_bool>(true);
  EXPECT_EQ(reason_for("proxy.general.version", p), "verbose: unknown key");
}

TEST_F(CommandDb, UnknownCommandIsNamed) {
  EXPECT_EQ(reason_for("proxy.node.job.explode", properties(false)),
            "unknown command 'proxy.node.job.explode'");
}

TEST_F(CommandDb, JobCommandsNeedAJobId) {
  properties p(false);
  p["target-node-info"] = server_target();
  const std::string missing = reason_for("proxy.node.job.pause", p);
  EXPECT_EQ(missing.rfind("job-id: missing", 0), 0u) << missing;
  p["job-id"] = str("j-17");
  EXPECT_EQ(reason_for("proxy.node.job.pause", p), "(accepted)");
  p["job-id"] = num(17);
  const std::string wrong = reason_for("proxy.node.job.pause", p);
  EXPECT_EQ(wrong.rfind("job-id: expected", 0), 0u) << wrong;
}

TEST_F(CommandDb, PriorityOutOfRangeNamesThePropertyAndValue) {
  properties p(false);
  p["target-node-info"] = server_target();
  p["job-id"] = str("j-1");
  EXPECT_EQ(reason_for("proxy.node.job.set-priority", p).rfind("priority: missing", 0), 0u);
  p["priority"] = num(10);
  EXPECT_EQ(reason_for("proxy.node.job.set-priority", p), "(accepted)");
  p["priority"] = num(11);
  EXPECT_EQ(reason_for("proxy.node.job.set-priority", p),
            "priority: 11 is out of range, expected an integer from 0 to 10");
  p["priority"] = num(-1);
  EXPECT_NE(reason_for("proxy.node.job.set-priority", p).find("-1 is out of range"),
            std::string::npos);
}

TEST_F(CommandDb, TargetNodeInfoMembersAreChecked) {
  properties info(false);
  info["host"] = str("alpha");
  info["port"] = num(40410);
  info["cluster"] = str("main");
  properties p(false);
  p["target-node-info"] = server_target(info);
  EXPECT_EQ(reason_for("proxy.node.info.cluster", p), "(accepted)");
  info["port"] = num(0);
  p["target-node-info"] = server_target(info);
  EXPECT_EQ(reason_for("proxy.node.info.cluster", p).rfind("target-node-info{port}: 0 is out", 0),
            0u);
  info["port"] = num(1);
  info["colour"] = str("red");
  p["target-node-info"] = server_target(info);
  EXPECT_EQ(reason_for("proxy.node.info.cluster", p), "target-node-info{colour}: unknown key");
  p["target-node-info"] = str("alpha");
  EXPECT_EQ(reason_for("proxy.node.info.cluster", p).rfind("target-node-info: expected", 0), 0u);
}

TEST_F(CommandDb, UnknownPropertyIsNamed) {
  properties p(false);
  p["target-node-info"] = server_target();
  p["job-id"] = str("j");
  p["jobid"] = str("j");
  EXPECT_EQ(reason_for("proxy.node.job.resume", p), "jobid: unknown key");
}

TEST_F(CommandDb, ListsAreCheckedElementByElement) {
  properties p(false);
  p["target-node-info"] = server_target();
  EXPECT_EQ(reason_for("proxy.node.history.remove-workflow", p).rfind("workflow-ids: missing", 0),
            0u);
  p["workflow-ids"] = list({str("w1"), str("w2")});
  EXPECT_EQ(reason_for("proxy.node.history.remove-workflow", p), "(accepted)");
  p["workflow-ids"] = list({str("w1"), num(2)});
  EXPECT_EQ(
      reason_for("proxy.node.history.remove-workflow", p).rfind("workflow-ids[1]: expected", 0),
      0u);
  p["workflow-ids"] = list({});
  EXPECT_EQ(reason_for("proxy.node.history.remove-workflow", p), "(accepted)");
}

TEST_F(CommandDb, StatusFiltersAreOptional) {
  properties p(false);
  p["target-node-info"] = server_target();
  EXPECT_EQ(reason_for("proxy.node.status.tasks2", p), "(accepted)");
  p["states"] = list({str("running"), str("paused")});
  p["max-results"] = num(100);
  EXPECT_EQ(reason_for("proxy.node.status.tasks2", p), "(accepted)");
  p["states"] = list({str("sleeping")});
  EXPECT_EQ(reason_for("proxy.node.status.tasks2", p).rfind("states[0]: expected one of", 0), 0u);
}

TEST_F(CommandDb, SubmitBuildNeedsSourcesAndTasks) {
  properties p(false);
  p["target-node-info"] = server_target();
  p["sources"] = list({});
  EXPECT_EQ(reason_for("proxy.node.submit.build", p).rfind("tasks: missing", 0), 0u);
  properties task(false);
  task["type"] = str("transfer");
  task["destination"] = str("/out");  // open: members the proxy made are passed on
  p["tasks"] = list({make_refcount<properties>(task)});
  p["priority"] = num(5);
  EXPECT_EQ(reason_for("proxy.node.submit.build", p), "(accepted)");
  p["tasks"] = list({str("transfer")});
  EXPECT_EQ(reason_for("proxy.node.submit.build", p).rfind("tasks[0]: expected", 0), 0u);
}

TEST_F(CommandDb, TaskAndSourceCommandsNeedWhatTheyCannotWorkWithout) {
  EXPECT_EQ(
      reason_for("proxy.task.create.transfer", properties(false)).rfind("destination: missing", 0),
      0u);
  EXPECT_EQ(
      reason_for("proxy.source.create.monitor-source", properties(false)).rfind("path: missing", 0),
      0u);
  EXPECT_EQ(
      reason_for("proxy.source.create.file-source", properties(false)).rfind("files: missing", 0),
      0u);
  EXPECT_EQ(reason_for("proxy.analyze.file", properties(false)).rfind("file: missing", 0), 0u);
  properties t(false);
  t["destination"] = str("/srv/out");
  EXPECT_EQ(reason_for("proxy.task.create.transfer", t), "(accepted)");
}

TEST(CommandDocuments, ErrorsNameCommandPropertyAndLine) {
  vxcore::constraint_db constraints(0);
  constraints.add_constraint("text", make_refcount<vxcore::constraint_string>(), 0);
  command_db db;
  try {
    db.read_commands(parsed(R"(<commands>
      <command name="a.b"><property name="x" ref="text"/></command>
      <command name="c.d"><property name="y" ref="missing"/></command>
    </commands>)"),
                     constraints);
    FAIL() << "accepted an unknown constraint";
  } catch (const vxbase::es::call_error& e) {
    const std::string msg = e.what();
    EXPECT_NE(msg.find("line 3"), std::string::npos) << msg;
    EXPECT_NE(msg.find("'c.d'"), std::string::npos) << msg;
    EXPECT_NE(msg.find("'missing'"), std::string::npos) << msg;
    EXPECT_NE(msg.find("'y'"), std::string::npos) << msg;
  }
  EXPECT_EQ(db.size(), 0u);  // nothing half-read

  EXPECT_THROW(
      db.read_commands(parsed(R"(<commands><command name="a.b"/><command name="a.b"/></commands>)"),
                       constraints),
      vxbase::es::call_error);
  EXPECT_THROW(db.read_commands(parsed("<constraints/>"), constraints), vxbase::es::call_error);
  EXPECT_THROW(
      db.read_commands(
          parsed(R"(<commands><command name="a.b"><property name="x"/></command></commands>)"),
          constraints),
      vxbase::es::call_error);
}

}  // namespace
