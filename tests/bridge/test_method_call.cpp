// One method call apart from the server: parameter handling, the request
// packet (target-node-info), verification and the reply.
#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <stdexcept>

#include <vxcore/property_all.h>
#include <vxcore/xml_reader.h>
#include <vxnet/vxp/command_db.h>
#include <xmlrpc/XmlRpcException.h>
#include <xmlrpc/XmlRpcValue.h>

#include "vx_xmlrpc_method.h"

namespace {

using vxbase::make_refcount;
using vxcore::properties;
using vxnet::vxp::packet;
using XmlRpc::XmlRpcValue;

// Records what the command step was given.
struct recorder {
  int calls = 0;
  properties seen{false};
  std::function<void(const properties&, properties&)> run() {
    return [this](const properties& in, properties& out) {
      ++calls;
      seen = in;
      out["done"] = make_refcount<vxcore::property_bool>(true);
    };
  }
};

XmlRpcValue params_of(XmlRpcValue first) {
  XmlRpcValue params;
  params[0] = std::move(first);
  return params;
}

// run_call with a command step that answers before it returns.
void run_sync(XmlRpcValue& params, XmlRpcValue& result,
              const std::function<void(const properties&, properties&)>& step) {
  xmlrpcs::run_call(
      params,
      [&](const properties& in, const xmlrpcs::answer_fn& done) {
        properties out(false);
        step(in, out);
        done(out);
      },
      [&](XmlRpcValue& value) { result = value; });
}

// answer_request with a send step that replies before it returns.
template <typename Send>
void answer_sync(const vxnet::vxp::command_db& db, const packet& request, const Send& send,
                 const std::string& method, properties& out) {
  xmlrpcs::answer_request(
      db, request, [&](const packet& p, const xmlrpcs::reply_fn& reply) { reply(send(p)); }, method,
      [&](const properties& answer) { out = answer; });
}

TEST(RunCall, NoParametersRunWithEmptyProperties) {
  recorder r;
  XmlRpcValue params;  // invalid: the request had no <params>
  XmlRpcValue result;
  run_sync(params, result, r.run());
  EXPECT_EQ(r.calls, 1);
  EXPECT_TRUE(r.seen.empty());
  EXPECT_TRUE(result.hasMember("done"));

  XmlRpcValue empty_array;
  empty_array.setSize(0);
  run_sync(empty_array, result, r.run());
  EXPECT_EQ(r.calls, 2);
  EXPECT_TRUE(r.seen.empty());
}

TEST(RunCall, NilAndDateTimeCountAsAnEmptyStruct) {
  recorder r;
  XmlRpcValue result;
  XmlRpcValue nil_params = params_of(XmlRpcValue());
  run_sync(nil_params, result, r.run());
  std::tm t{};
  t.tm_year = 100;
  t.tm_mday = 1;
  XmlRpcValue date_params = params_of(XmlRpcValue(&t));
  run_sync(date_params, result, r.run());
  EXPECT_EQ(r.calls, 2);
  EXPECT_TRUE(r.seen.empty());
}

TEST(RunCall, StringParameterIsWrongInputWithNewline) {
  recorder r;
  XmlRpcValue result;
  XmlRpcValue params = params_of(XmlRpcValue("abc"));
  run_sync(params, result, r.run());
  EXPECT_EQ(r.calls, 0);
  ASSERT_EQ(result.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(result.size(), 1);
  const std::string error = result["error"];
  EXPECT_EQ(error, "Wrong input, expected a struct. got string: \nabc");
}

TEST(RunCall, EveryNonStructKindIsWrongInput) {
  recorder r;
  const char bytes[] = {'h', 'i'};
  XmlRpcValue array;
  array[0] = 1;
  array[1] = "x";
  const std::vector<std::pair<XmlRpcValue, std::string>> cases = {
      {XmlRpcValue(7), "got int: \n7"},      {XmlRpcValue(true), "got bool: \ntrue"},
      {XmlRpcValue(2.5), "got real: \n2.5"}, {XmlRpcValue(bytes, 2), "got binary: \n6869"},
      {array, "got list: \n[1, x]"},
  };
  for (const auto& [value, tail] : cases) {
    XmlRpcValue result;
    XmlRpcValue params = params_of(value);
    run_sync(params, result, r.run());
    const std::string error = result["error"];
    EXPECT_EQ(error, "Wrong input, expected a struct. " + tail);
  }
  EXPECT_EQ(r.calls, 0);
}

TEST(RunCall, ExtraParametersAreIgnored) {
  recorder r;
  XmlRpcValue params;
  params[0]["job-id"] = "j1";
  params[1] = "ignored";
  params[2] = 42;
  XmlRpcValue result;
  run_sync(params, result, r.run());
  EXPECT_EQ(r.calls, 1);
  EXPECT_EQ(r.seen.size(), 1u);
  EXPECT_TRUE(r.seen.is_present("job-id"));
}

TEST(RunCall, NonArrayParamsRaiseTheArrayTypeError) {
  recorder r;
  XmlRpcValue params("not an array");
  XmlRpcValue result;
  try {
    run_sync(params, result, r.run());
    FAIL() << "no exception";
  } catch (const XmlRpc::XmlRpcException& e) {
    EXPECT_EQ(e.getMessage(), "type error: expected an array");
    EXPECT_EQ(e.getCode(), -1);
  }
  EXPECT_EQ(r.calls, 0);
}

TEST(RunCall, ExceptionInTheCommandIsSwallowedAndAnEmptyStructAnswered) {
  XmlRpcValue params;
  XmlRpcValue result;
  run_sync(params, result, [](const properties&, properties& out) {
    out["partial"] = make_refcount<vxcore::property_int>(1);
    throw std::runtime_error("lost");
  });
  ASSERT_EQ(result.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(result.size(), 0);

  XmlRpcValue nothing;
  run_sync(params, nothing, [](const properties&, properties&) { throw 5; });
  EXPECT_EQ(nothing.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(nothing.size(), 0);
}

TEST(RunCall, TheAnswerMayComeAfterTheCallReturnedAndOnlyTheFirstCounts) {
  XmlRpcValue params;
  int finished = 0;
  XmlRpcValue result;
  xmlrpcs::answer_fn later;
  xmlrpcs::run_call(
      params, [&](const properties&, const xmlrpcs::answer_fn& done) { later = done; },
      [&](XmlRpcValue& value) {
        ++finished;
        result = value;
      });
  EXPECT_EQ(finished, 0);
  properties out(false);
  out["state"] = make_refcount<vxcore::property_string>("done");
  later(out);
  later(properties(false));
  EXPECT_EQ(finished, 1);
  EXPECT_EQ(result["state"], XmlRpcValue("done"));
}

TEST(RunCall, AnExceptionAfterTheAnswerChangesNothing) {
  XmlRpcValue params;
  int finished = 0;
  XmlRpcValue result;
  xmlrpcs::run_call(
      params,
      [&](const properties&, const xmlrpcs::answer_fn& done) {
        properties out(false);
        out["n"] = make_refcount<vxcore::property_int>(3);
        done(out);
        throw std::runtime_error("after");
      },
      [&](XmlRpcValue& value) {
        ++finished;
        result = value;
      });
  EXPECT_EQ(finished, 1);
  EXPECT_EQ(result["n"], XmlRpcValue(3));
}

TEST(RunCall, ReplyBecomesAStruct) {
  XmlRpcValue params;
  XmlRpcValue result;
  run_sync(params, result, [](const properties&, properties& out) {
    out["version"] = make_refcount<vxcore::property_version>(7, 0, 0, 0);
    out["count"] = make_refcount<vxcore::property_int>(3);
  });
  EXPECT_EQ(result["version"], XmlRpcValue("7.0.0.0"));
  EXPECT_EQ(result["count"], XmlRpcValue(3));
}

// target-node-info of a request, as a map.
const properties& target_of(const packet& p) {
  const auto info = p.get_properties().get_properties_value("target-node-info");
  if (!info) throw std::logic_error("no target-node-info");
  return *info;
}

std::string text_of(const properties& m, const std::string& key) {
  return dynamic_cast<const vxcore::property_string&>(*m.get(key)).value();
}

TEST(MakeRequest, GenericCommandSendsPropertiesAsTheyAre) {
  properties in(false);
  in["destination"] = make_refcount<vxcore::property_string>("/out");
  const packet p = xmlrpcs::make_request("proxy.task.create.transfer", in, false);
  EXPECT_EQ(p.get_type(), 2u);
  EXPECT_EQ(p.get_command(), "proxy.task.create.transfer");
  EXPECT_TRUE(p.get_properties().equals(in));
}

TEST(MakeRequest, NodeCommandCompletesTheCallersTargetNodeInfo) {
  properties info(false);
  info["iid"] = make_refcount<vxcore::property_string>("other");
  info["host"] = make_refcount<vxcore::property_string>("alpha");
  info["persistent"] = make_refcount<vxcore::property_bool>(false);
  properties in(false);
  in["target-node-info"] = make_refcount<properties>(info);
  in["job-id"] = make_refcount<vxcore::property_string>("j1");
  const packet p = xmlrpcs::make_request("proxy.node.job.pause", in, true);
  EXPECT_EQ(p.get_command(), "proxy.node.job.pause");
  const properties& t = target_of(p);
  EXPECT_EQ(t.size(), 3u);
  EXPECT_EQ(text_of(t, "host"), "alpha");
  EXPECT_EQ(text_of(t, "iid"), "XMLRPC");
  EXPECT_TRUE(dynamic_cast<const vxcore::property_bool&>(*t.get("persistent")).value());
  EXPECT_TRUE(p.get_properties().is_present("job-id"));
  // The caller's map is not changed.
  EXPECT_EQ(text_of(info, "iid"), "other");
}

TEST(MakeRequest, NodeCommandWithoutTargetNodeInfoGetsOneWithJustIidAndPersistent) {
  const packet p = xmlrpcs::make_request("proxy.node.info.cluster", properties(false), true);
  const properties& t = target_of(p);
  EXPECT_EQ(t.size(), 2u);
  EXPECT_EQ(text_of(t, "iid"), "XMLRPC");
  EXPECT_TRUE(dynamic_cast<const vxcore::property_bool&>(*t.get("persistent")).value());
  EXPECT_EQ(p.get_properties().size(), 1u);
}

TEST(MakeRequest, NodeCommandReplacesATargetNodeInfoThatIsNotAMap) {
  properties in(false);
  in["target-node-info"] = make_refcount<vxcore::property_string>("alpha");
  const packet p = xmlrpcs::make_request("proxy.node.info.cluster", in, true);
  EXPECT_EQ(target_of(p).size(), 2u);
}

// A database with one command taking an optional priority 0..10.
vxnet::vxp::command_db small_db() {
  vxcore::constraint_db constraints(0);
  constraints.add_constraint("priority", make_refcount<vxcore::constraint_range_int>("0..10"), 0);
  vxcore::xml::reader r;
  if (!r.parse(R"(<commands><command name="proxy.node.job.set-priority">
      <property name="priority" ref="priority"/></command></commands>)"))
    throw std::logic_error("fixture");
  vxnet::vxp::command_db db;
  db.read_commands(r, constraints);
  return db;
}

TEST(AnswerRequest, AcceptedRequestIsSentAndTheReplyCopied) {
  const auto db = small_db();
  properties in(false);
  in["priority"] = make_refcount<vxcore::property_int>(4);
  int sent = 0;
  properties out(false);
  answer_sync(
      db, packet(2, "proxy.node.job.set-priority", in),
      [&](const packet& p) {
        ++sent;
        EXPECT_EQ(p.get_command(), "proxy.node.job.set-priority");
        packet reply(7, "whatever.reply");
        reply.set_property("state", make_refcount<vxcore::property_string>("ok"));
        return reply;
      },
      "jobSetPriority", out);
  EXPECT_EQ(sent, 1);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(text_of(out, "state"), "ok");
}

TEST(AnswerRequest, RejectedRequestIsNotSentAndNamesMethodAndReason) {
  const auto db = small_db();
  properties in(false);
  in["priority"] = make_refcount<vxcore::property_int>(11);
  int sent = 0;
  properties out(false);
  const auto send = [&](const packet&) {
    ++sent;
    return packet();
  };
  answer_sync(db, packet(2, "proxy.node.job.set-priority", in), send, "jobSetPriority", out);
  EXPECT_EQ(sent, 0);
  EXPECT_EQ(text_of(out, "error"),
            "Malformed method jobSetPriority (priority: 11 is out of range, expected an integer "
            "from 0 to 10)");
  properties out2(false);
  answer_sync(db, packet(2, "proxy.node.job.explode", properties(false)), send, "jobExplode", out2);
  EXPECT_EQ(text_of(out2, "error"),
            "Malformed method jobExplode (unknown command 'proxy.node.job.explode')");
  EXPECT_EQ(sent, 0);
}

TEST(AnswerRequest, ProxysOwnErrorReplyIsPassedOn) {
  const auto db = small_db();
  properties out(false);
  answer_sync(
      db, packet(2, "proxy.node.job.set-priority", properties(false)),
      [](const packet&) {
        packet reply(4, "not.connected.reply");
        reply.set_property("error",
                           make_refcount<vxcore::property_string>("not connected to client proxy"));
        return reply;
      },
      "jobSetPriority", out);
  EXPECT_EQ(text_of(out, "error"), "not connected to client proxy");
}

}  // namespace
