// The bridge's own cost per call: checking a command against the command
// database and converting values both ways, each beside a reference (a plain
// copy of the same packet or value) measured in the same run.
//   bench/commanddb/run.sh <build-dir>   (ratios to the references)
#include <benchmark/benchmark.h>

#include <vxcore/constraint_files.h>
#include <vxcore/property_all.h>
#include <vxcore/xml_document.h>
#include <vxnet/vxp/command_db.h>
#include <xmlrpc/XmlRpcValue.h>

#include "value_conversion.h"
#include "vx_xmlrpc_method.h"

namespace {

using vxbase::make_refcount;

struct databases {
  vxcore::constraint_db constraints{0};
  vxnet::vxp::command_db commands;
  databases() {
    const std::string data = XMLRPCS_DATA_SOURCE_DIR;
    vxcore::add_constraint_files(constraints, data + "/xml", data + "/rng/constraints.rng");
    vxcore::xml::reader r;
    vxcore::xml::read_document_file(r, data + "/vxp_clientproxy.xml");
    commands.read_commands(r, constraints);
  }
};

const databases& db() {
  static const databases d;
  return d;
}

// A status request with every filter set, as a client would send it.
XmlRpc::XmlRpcValue status_request() {
  XmlRpc::XmlRpcValue v;
  v["target-node-info"]["host"] = "node-2";
  v["target-node-info"]["port"] = 40410;
  for (int i = 0; i < 20; ++i) v["job-ids"][i] = "job-" + std::to_string(i);
  v["states"][0] = "running";
  v["states"][1] = "queued";
  v["max-results"] = 100;
  v["offset"] = 0;
  return v;
}

vxnet::vxp::packet status_packet() {
  const auto in = xmlrpcs::to_property(status_request());
  return xmlrpcs::make_request("proxy.node.status.tasks2",
                               static_cast<const vxcore::properties&>(*in), true);
}

// A reply of 100 task entries of six members each.
vxcore::properties status_reply() {
  auto tasks = make_refcount<vxcore::property_list>();
  for (int i = 0; i < 100; ++i) {
    auto t = make_refcount<vxcore::properties>(false);
    (*t)["job-id"] = make_refcount<vxcore::property_string>("job-" + std::to_string(i));
    (*t)["state"] = make_refcount<vxcore::property_string>("running");
    (*t)["progress"] = make_refcount<vxcore::property_real>(0.5);
    (*t)["priority"] = make_refcount<vxcore::property_int>(5);
    (*t)["paused"] = make_refcount<vxcore::property_bool>(false);
    (*t)["started"] = make_refcount<vxcore::property_time>(std::int64_t{1'700'000'000'000'000});
    tasks->push_back(t);
  }
  vxcore::properties reply(false);
  reply["tasks"] = tasks;
  return reply;
}

void BM_PacketCopy_Reference(benchmark::State& state) {
  const auto p = status_packet();
  for (auto _ : state) {
    vxnet::vxp::packet copy = p;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_PacketCopy_Reference);

void BM_VerifySend(benchmark::State& state) {
  const auto p = status_packet();
  const auto& commands = db().commands;
  std::string reason;
  for (auto _ : state) {
    const bool ok = commands.verify_send(p, reason);
    benchmark::DoNotOptimize(ok);
  }
}
BENCHMARK(BM_VerifySend);

void BM_ValueCopy_Reference(benchmark::State& state) {
  const auto v = status_request();
  for (auto _ : state) {
    XmlRpc::XmlRpcValue copy = v;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_ValueCopy_Reference);

void BM_ToProperty(benchmark::State& state) {
  const auto v = status_request();
  for (auto _ : state) benchmark::DoNotOptimize(xmlrpcs::to_property(v));
}
BENCHMARK(BM_ToProperty);

void BM_ToXmlRpc_100Tasks(benchmark::State& state) {
  const auto reply = status_reply();
  for (auto _ : state) benchmark::DoNotOptimize(xmlrpcs::to_xmlrpc(reply));
}
BENCHMARK(BM_ToXmlRpc_100Tasks);

void BM_ReplyXml_100Tasks_Reference(benchmark::State& state) {
  // What the engine does with the converted reply next: its XML text.
  const auto v = xmlrpcs::to_xmlrpc(status_reply());
  for (auto _ : state) benchmark::DoNotOptimize(v.toXml());
}
BENCHMARK(BM_ReplyXml_100Tasks_Reference);

}  // namespace

BENCHMARK_MAIN();
