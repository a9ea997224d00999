// Constraint documents: the rules they define, references between files,
// and the errors of a broken document.
#include <gtest/gtest.h>

#include <vxbase/es.h>
#include <vxcore/constraint_db.h>
#include <vxcore/constraint_files.h>
#include <vxcore/property_all.h>

#include "commanddb_test_util.h"

namespace {

using commanddb_test::parsed;
using vxbase::make_refcount;
using vxcore::constraint_db;
using vxcore::properties;

constexpr const char* data_source = XMLRPCS_DATA_SOURCE_DIR;

void add(constraint_db& db, const std::string& doc, const constraint_db* base, bool flag = true) {
  db.add_constraints(parsed(doc), base, "constraints", flag);
}

std::string raised(const std::function<void()>& f) {
  try {
    f();
  } catch (const vxbase::es::base& e) {
    return e.what();
  }
  return "(nothing raised)";
}

// Checks one value against the entry name of db.
bool accepts(const constraint_db& db, const std::string& name, vxcore::property_ptr value,
             std::string* reason = nullptr) {
  const constraint_db::entry* e = db.find(name);
  if (!e) throw std::logic_error("no entry " + name);
  std::string r;
  const bool ok = e->rule->check(*value, name, r);
  if (reason) *reason = r;
  return ok;
}

vxcore::property_ptr str(const std::string& s) { return make_refcount<vxcore::property_string>(s); }
vxcore::property_ptr num(std::int64_t v) { return make_refcount<vxcore::property_int>(v); }

constexpr const char* core_doc = R"(<constraints>
  <constraint name="text" type="string"/>
  <constraint name="priority" type="int" range="0..10"/>
</constraints>)";

TEST(ConstraintDocuments, TypesAndRanges) {
  constraint_db db(0);
  add(db, R"(<constraints>
    <constraint name="s" type="string"/>
    <constraint name="b" type="bool"/>
    <constraint name="r" type="real"/>
    <constraint name="i" type="int"/>
    <constraint name="p" type="int" range="0..10"/>
    <constraint name="e" type="enum"><value>a</value><value>b</value></constraint>
    <constraint name="u" type="uuid"/>
    <constraint name="x" type="any"/>
  </constraints>)",
      nullptr);
  ASSERT_EQ(db.entries().size(), 8u);
  EXPECT_TRUE(accepts(db, "s", str("")));
  EXPECT_FALSE(accepts(db, "s", num(1)));
  EXPECT_TRUE(accepts(db, "b", make_refcount<vxcore::property_bool>(false)));
  EXPECT_TRUE(accepts(db, "r", make_refcount<vxcore::property_real>(2.5)));
  EXPECT_TRUE(accepts(db, "i", num(-5)));
  EXPECT_TRUE(accepts(db, "p", num(0)));
  EXPECT_TRUE(accepts(db, "p", num(10)));
  std::string reason;
  EXPECT_FALSE(accepts(db, "p", num(11), &reason));
  EXPECT_NE(reason.find("11"), std::string::npos) << reason;
  EXPECT_NE(reason.find("0 to 10"), std::string::npos) << reason;
  EXPECT_TRUE(accepts(db, "e", str("b")));
  EXPECT_FALSE(accepts(db, "e", str("c")));
  EXPECT_FALSE(accepts(db, "u", str("not a uuid kind")));
  EXPECT_TRUE(accepts(db, "x", num(3)));
}

TEST(ConstraintDocuments, ListsAndStructs) {
  constraint_db db(0);
  add(db, R"(<constraints>
    <constraint name="port" type="int" range="1..65535"/>
    <constraint name="ports" type="list" of="port"/>
    <constraint name="names" type="list"><item type="string"/></constraint>
    <constraint name="anything" type="list"/>
    <constraint name="node" type="struct">
      <member name="host" type="string" required="true"/>
      <member name="port" ref="port"/>
    </constraint>
    <constraint name="loose" type="struct" open="true">
      <member name="type" type="string"/>
    </constraint>
  </constraints>)",
      nullptr);
  auto ports = make_refcount<vxcore::property_list>();
  ports->push_back(num(80));
  EXPECT_TRUE(accepts(db, "ports", ports));
  ports->push_back(num(0));
  std::string reason;
  EXPECT_FALSE(accepts(db, "ports", ports, &reason));
  EXPECT_NE(reason.find("ports[1]"), std::string::npos) << reason;

  auto names = make_refcount<vxcore::property_list>();
  names->push_back(str("a"));
  EXPECT_TRUE(accepts(db, "names", names));
  names->push_back(num(1));
  EXPECT_FALSE(accepts(db, "names", names));
  EXPECT_TRUE(accepts(db, "anything", names));

  auto node = make_refcount<properties>(false);
  (*node)["port"] = num(8080);
  EXPECT_FALSE(accepts(db, "node", node, &reason));  // host is required
  EXPECT_NE(reason.find("node{host}"), std::string::npos) << reason;
  (*node)["host"] = str("alpha");
  EXPECT_TRUE(accepts(db, "node", node));
  (*node)["colour"] = str("red");
  EXPECT_FALSE(accepts(db, "node", node, &reason));  // closed: unknown member
  EXPECT_NE(reason.find("node{colour}"), std::string::npos) << reason;

  auto loose = make_refcount<properties>(false);
  (*loose)["colour"] = str("red");
  EXPECT_TRUE(accepts(db, "loose", loose));
  (*loose)["type"] = num(1);
  EXPECT_FALSE(accepts(db, "loose", loose));
}

TEST(ConstraintDocuments, LaterFileRefersToEarlierThroughTheBase) {
  constraint_db db(0);
  add(db, core_doc, nullptr);
  add(db, R"(<constraints><constraint name="job-priority" ref="priority"/></constraints>)", &db);
  EXPECT_TRUE(accepts(db, "job-priority", num(3)));
  EXPECT_FALSE(accepts(db, "job-priority", num(11)));
}

TEST(ConstraintDocuments, WithoutBaseOnlySameDocumentNamesResolve) {
  constraint_db db(0);
  add(db, core_doc, nullptr);
  // The name exists in db, but with no base the document may not use it.
  const std::string msg = raised([&] {
    add(db, R"(<constraints><constraint name="job-priority" ref="priority"/></constraints>)",
        nullptr);
  });
  EXPECT_NE(msg.find("job-priority"), std::string::npos) << msg;
  EXPECT_NE(msg.find("unknown constraint 'priority'"), std::string::npos) << msg;
  EXPECT_EQ(db.find("job-priority"), nullptr);
}

TEST(ConstraintDocuments, ForwardReferenceInsideADocumentFails) {
  constraint_db db(0);
  const std::string msg = raised([&] {
    add(db, R"(<constraints>
      <constraint name="a" ref="b"/>
      <constraint name="b" type="string"/>
    </constraints>)",
        nullptr);
  });
  EXPECT_NE(msg.find("line 2"), std::string::npos) << msg;
}

TEST(ConstraintDocuments, FailureLeavesTheDatabaseUnchanged) {
  constraint_db db(0);
  add(db, core_doc, nullptr);
  EXPECT_THROW(add(db, R"(<constraints>
      <constraint name="fine" type="string"/>
      <constraint name="broken" type="int" range="10..1"/>
    </constraints>)",
                   &db),
               vxbase::es::call_error);
  EXPECT_EQ(db.entries().size(), 2u);
  EXPECT_EQ(db.find("fine"), nullptr);
}

TEST(ConstraintDocuments, FlagRefusesRedefinitionWhileFalseReplaces) {
  constraint_db db(0);
  add(db, core_doc, nullptr);
  const std::string redefine =
      R"(<constraints><constraint name="priority" type="int" range="0..5"/></constraints>)";
  const std::string msg = raised([&] { add(db, redefine, &db, true); });
  EXPECT_NE(msg.find("already defined"), std::string::npos) << msg;
  EXPECT_TRUE(accepts(db, "priority", num(7)));
  add(db, redefine, &db, false);
  EXPECT_FALSE(accepts(db, "priority", num(7)));
}

TEST(ConstraintDocuments, BadDocumentsNameWhatIsWrong) {
  constraint_db db(0);
  EXPECT_NE(raised([&] {
              db.add_constraints(parsed("<other/>"), nullptr, "constraints", true);
            }).find("expected a <constraints> document"),
            std::string::npos);
  EXPECT_NE(raised([&] {
              add(db, R"(<constraints><constraint name="x" type="colour"/></constraints>)",
                  nullptr);
            }).find("unknown type 'colour'"),
            std::string::npos);
  EXPECT_NE(raised([&] {
              add(db, R"(<constraints><constraint name="x" type="string" ref="y"/></constraints>)",
                  nullptr);
            }).find("exactly one of"),
            std::string::npos);
  EXPECT_NE(raised([&] {
              add(db,
                  R"(<constraints><constraint name="x" type="string" range="1..2"/></constraints>)",
                  nullptr);
            }).find("only an int takes a range"),
            std::string::npos);
  EXPECT_NE(raised([&] {
              add(db, R"(<constraints><constraint name="x" type="enum"/></constraints>)", nullptr);
            }).find("at least one <value>"),
            std::string::npos);
}

// The shipped files, read as the server reads them.
TEST(ConstraintFiles, ShippedFilesLoadInOrder) {
  constraint_db db(0);
  vxcore::add_constraint_files(db, std::string(data_source) + "/xml",
                               std::string(data_source) + "/rng/constraints.rng");
  for (const char* name : {"priority", "tcp-port", "file", "task-list", "source-list",
                           "target-node-info", "workflow-ids", "job-states", "submission"}) {
    EXPECT_NE(db.find(name), nullptr) << name;
  }
}

TEST(ConstraintFiles, IoReferringToCoreResolves) {
  commanddb_test::scratch_dir dir;
  const std::string rng = std::string(data_source) + "/rng/constraints.rng";
  commanddb_test::write_file(dir / "core.xml", core_doc);
  commanddb_test::write_file(dir / "io.xml",
                             R"(<constraints><constraint name="file" ref="text"/></constraints>)");
  constraint_db db(0);
  vxcore::add_constraint_file(db, dir / "core.xml", rng, nullptr);
  vxcore::add_constraint_file(db, dir / "io.xml", rng, &db);
  EXPECT_TRUE(accepts(db, "file", str("/media/a.mov")));
}

TEST(ConstraintFiles, CoreReferringToALaterFileFails) {
  commanddb_test::scratch_dir dir;
  const std::string rng = std::string(data_source) + "/rng/constraints.rng";
  // core uses "file", which only io defines: core is read with no base.
  for (std::size_t i = 0; i < vxcore::constraint_file_names.size(); ++i) {
    commanddb_test::write_file(dir / vxcore::constraint_file_names[i], "<constraints/>");
  }
  commanddb_test::write_file(
      dir / "core-constraints.xml",
      R"(<constraints><constraint name="files" type="list" of="file"/></constraints>)");
  commanddb_test::write_file(
      dir / "io-constraints.xml",
      R"(<constraints><constraint name="file" type="string"/></constraints>)");
  constraint_db db(0);
  const std::string msg =
      raised([&] { vxcore::add_constraint_files(db, dir.path().string(), rng); });
  EXPECT_EQ(msg.rfind(dir / "core-constraints.xml", 0), 0u) << msg;
  EXPECT_NE(msg.find("unknown constraint 'file'"), std::string::npos) << msg;
}

TEST(ConstraintFiles, SchemaViolationNamesTheFile) {
  commanddb_test::scratch_dir dir;
  commanddb_test::write_file(dir / "bad.xml",
                             R"(<constraints><rule name="x" type="string"/></constraints>)");
  constraint_db db(0);
  const std::string msg = raised([&] {
    vxcore::add_constraint_file(db, dir / "bad.xml",
                                std::string(data_source) + "/rng/constraints.rng", nullptr);
  });
  EXPECT_EQ(msg.rfind(dir / "bad.xml", 0), 0u) << msg;
  EXPECT_NE(msg.find("not valid"), std::string::npos) << msg;
}

}  // namespace
