// The method table: every XML-RPC method of the server, the proxy command
// behind it and its help text, and their registration.
#include <array>
#include <span>

#include <xmlrpc/XmlRpcServer.h>

#include "vx_xmlrpc_method.h"
#include "xmlrpcserver.h"

namespace xmlrpcs {

namespace {

// A command the proxy answers itself.
class generic_client_proxy_cmd : public vx_xmlrpc_method {
 public:
  using vx_xmlrpc_method::vx_xmlrpc_method;
  std::string help() override { return method_help(help_, command_); }

 protected:
  void run_command(const vxcore::properties& in, answer_fn done) override {
    verify_and_send(make_request(command_, in, false), std::move(done));
  }
};

// A command the proxy forwards to a node: it always says which one.
class node_client_proxy_cmd : public vx_xmlrpc_method {
 public:
  using vx_xmlrpc_method::vx_xmlrpc_method;
  std::string help() override { return method_help(help_, command_); }

 protected:
  void run_command(const vxcore::properties& in, answer_fn done) override {
    verify_and_send(make_request(command_, in, true), std::move(done));
  }
};

// In registration order. Help texts are kept exactly as clients know them,
// misspellings included.
constexpr std::array<method_row, method_count> method_table = {{
    {"getVersion", "proxy.general.version", false, "Retrieve the API and product version"},
    {"nodeInfoCluster", "proxy.node.info.cluster", true,
     "Get cluster information as reported by a node"},
    {"submitBuildSubmission", "proxy.node.submit.build", true, "Build and submit a submission"},
    {"submitSubmission", "proxy.node.submit.submission", true, "Submit a submission"},
    {"submissionRecall", "proxy.node.submission.recall", true, "Recall a submission"},
    {"taskCreateTransfer", "proxy.task.create.transfer", false, "Create transfer task"},
    {"taskCreateUploader", "proxy.task.create.transfer", false,
     "Create transfer task - Deprecated"},
    {"taskCreateYouTube", "proxy.task.create.youtube", false, "Create YouTube task"},
    {"taskCreateExecute", "proxy.task.create.execute", false, "Create execute task"},
    {"taskCreateMail", "proxy.task.create.mail", false, "Create mail task"},
    {"taskCreateMBR", "proxy.task.create.mbr", false, "Create MBR task"},
    {"sourceCreateFileList", "proxy.source.create.file-source", false, "Create file-list source"},
    {"sourceCreateMonitor", "proxy.source.create.monitor-source", false,
     "Create monitor source. Deprecated"},
    {"sourceCreateWatchFolder", "proxy.source.create.monitor-source", false,
     "Create watch folder source"},
    {"sourceCreateEDL", "proxy.source.create.edl-source", false, "Create edit list source"},
    {"sourceCreateISEQ", "proxy.source.create.iseq-source", false, "Create image sequence source"},
    {"statusTasks2", "proxy.node.status.tasks2", true, "Get task status"},
    {"statusWorkflows2", "proxy.node.status.workflows2", true, "Get workflow status"},
    {"statusWatchFolders", "proxy.node.status.monitors", true, "List watch folders"},
    {"statusBonjour", "proxy.status.bonjour", false, "Get cluster information as seen on Bonjour"},
    {"watchFolderStart", "proxy.node.monitor.start", true, "Start watch folder"},
    {"watchFolderSetPriority", "proxy.node.monitor.set-priority", true,
     "Set priority on watch folder's workflow"},
    {"watchFolderStop", "proxy.node.monitor.stop", true, "Stop watch folder"},
    {"watchFolderRemove", "proxy.node.monitor.remove", true, "Remove watch folder"},
    {"jobKill", "proxy.node.job.cancel", true, "Stop a job"},
    {"jobCancel", "proxy.node.job.cancel", true, "Cacncel jobs"},
    {"jobPause", "proxy.node.job.pause", true, "Pause a job"},
    {"jobResume", "proxy.node.job.resume", true, "Resume a job"},
    {"jobRequeue", "proxy.node.job.requeue", true, "Requeue a job"},
    {"jobSetPriority", "proxy.node.job.set-priority", true, "Sets a job's priority"},
    {"historyRemoveWorkflow", "proxy.node.history.remove-workflow", true,
     "Remove workflow(s) from the CorvaneNode's history"},
    {"analyzeFile", "proxy.analyze.file", true, "Analyze a media file"},
    {"statusTasks", "proxy.node.status.tasks", true,
     "DEPRECATED (use statusTasks2). Get task status"},
    {"statusWorkflows", "proxy.node.status.workflows", true,
     "DEPRECATED (use statusWorkflows2). Get workflow status"},
    {"monitorList", "proxy.node.monitor.list", true,
     "DEPRECATED (use statusWatchFolders). List monitors"},
    {"networkInfoBonjour", "proxy.network.info.bonjour", false,
     "Get cluster information as seen on Bonjour"},
    {"statusMonitors", "proxy.node.status.monitors", true,
     "DEPRECATED (use statusWatchFolders). List monitors"},
    {"monitorStart", "proxy.node.monitor.start", true,
     "DEPRECATED (use watchFolderStart) Start monitor"},
    {"monitorSetPriority", "proxy.node.monitor.set-priority", true,
     "DEPRECATED (use watchFolderSetPriority) Set priority on monitor's workflow"},
    {"monitorStop", "proxy.node.monitor.stop", true,
     "DEPRECATED (use watchFolderStop) Stop monitor"},
    {"monitorRemove", "proxy.node.monitor.remove", true,
     "DEPRECATED (use watchFolderRemove) Remove monitor"},
}};

}  // namespace

std::span<const method_row> method_rows() { return method_table; }

std::vector<vx_xmlrpc_method_ptr> make_methods(xmlrpcserver* server) {
  std::vector<vx_xmlrpc_method_ptr> made;
  made.reserve(method_table.size());
  for (const method_row& row : method_table) {
    if (row.node) {
      made.emplace_back(new node_client_proxy_cmd(row.name, row.command, row.help, server));
    } else {
      made.emplace_back(new generic_client_proxy_cmd(row.name, row.command, row.help, server));
    }
  }
  return made;
}

void xmlrpcserver::register_methods() {
  for (vx_xmlrpc_method_ptr& m : make_methods(this)) methods_.push_back(std::move(m));
  if (!xmlrpc_server_) return;
  // The second call registers a second set: the registry files methods by
  // name, so the newer object replaces the older one, while methods_ keeps
  // both alive until the server object goes.
  for (const vx_xmlrpc_method_ptr& m : methods_) xmlrpc_server_->addMethod(m.get());
}

}  // namespace xmlrpcs
