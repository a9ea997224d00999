// The method table: names, commands, classes and help texts, in order.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "vx_xmlrpc_method.h"

namespace {

TEST(MethodTable, FortyOneMethodsInRegistrationOrder) {
  const auto rows = xmlrpcs::method_rows();
  ASSERT_EQ(rows.size(), 41u);
  EXPECT_STREQ(rows[0].name, "getVersion");
  EXPECT_STREQ(rows[0].command, "proxy.general.version");
  EXPECT_FALSE(rows[0].node);
  EXPECT_STREQ(rows[25].name, "jobCancel");
  EXPECT_STREQ(rows[25].help, "Cacncel jobs");
  EXPECT_STREQ(rows[40].name, "monitorRemove");
  std::set<std::string> names;
  std::set<std::string> commands;
  for (const auto& r : rows) {
    names.insert(r.name);
    commands.insert(r.command);
  }
  EXPECT_EQ(names.size(), 41u);     // no name twice
  EXPECT_EQ(commands.size(), 33u);  // several aliases share a command
}

TEST(MethodTable, AliasesShareTheirCommand) {
  std::map<std::string, std::string> command_of;
  for (const auto& r : xmlrpcs::method_rows()) command_of[r.name] = r.command;
  EXPECT_EQ(command_of["taskCreateUploader"], command_of["taskCreateTransfer"]);
  EXPECT_EQ(command_of["sourceCreateMonitor"], "proxy.source.create.monitor-source");
  EXPECT_EQ(command_of["sourceCreateWatchFolder"], "proxy.source.create.monitor-source");
  EXPECT_EQ(command_of["statusWatchFolders"], "proxy.node.status.monitors");
  EXPECT_EQ(command_of["statusMonitors"], "proxy.node.status.monitors");
  EXPECT_EQ(command_of["monitorList"], "proxy.node.monitor.list");
  EXPECT_EQ(command_of["jobKill"], "proxy.node.job.cancel");
  EXPECT_EQ(command_of["jobCancel"], "proxy.node.job.cancel");
  EXPECT_EQ(command_of["statusBonjour"], "proxy.status.bonjour");
  EXPECT_EQ(command_of["networkInfoBonjour"], "proxy.network.info.bonjour");
  for (const char* pair : {"Start", "SetPriority", "Stop", "Remove"}) {
    EXPECT_EQ(command_of[std::string("watchFolder") + pair],
              command_of[std::string("monitor") + pair])
        << pair;
  }
}

TEST(MethodTable, NodeAndGenericClasses) {
  for (const auto& r : xmlrpcs::method_rows()) {
    const std::string c = r.command;
    const bool proxy_itself = c == "proxy.general.version" || c.rfind("proxy.task.", 0) == 0 ||
                              c.rfind("proxy.source.", 0) == 0 ||
                              c.find("bonjour") != std::string::npos;
    EXPECT_EQ(r.node, !proxy_itself) << r.name;
  }
}

TEST(MethodTable, MethodObjectsCarryTheRowAndTheHelpFormat) {
  const auto methods = xmlrpcs::make_methods(nullptr);
  const auto rows = xmlrpcs::method_rows();
  ASSERT_EQ(methods.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(methods[i]->name(), rows[i].name);
    EXPECT_EQ(methods[i]->command(), rows[i].command);
    EXPECT_EQ(methods[i]->help(), std::string(rows[i].help) +
                                      " (Corresponding vxp_clientproxy.xml command: '" +
                                      rows[i].command + "')");
  }
  EXPECT_EQ(methods[25]->help(),
            "Cacncel jobs (Corresponding vxp_clientproxy.xml command: 'proxy.node.job.cancel')");
}

}  // namespace
