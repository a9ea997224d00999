// The compiled constraint database: it reads back to the same rules, and a
// damaged text is refused with a reason.
#include <gtest/gtest.h>

#include <vxbase/es.h>
#include <vxcore/constraint_db.h>
#include <vxcore/constraint_files.h>
#include <vxcore/property_all.h>

#include "commanddb_test_util.h"

namespace {

using vxbase::make_refcount;
using vxcore::constraint_db;

constexpr const char* data_source = XMLRPCS_DATA_SOURCE_DIR;

constraint_db shipped() {
  constraint_db db(0);
  vxcore::add_constraint_files(db, std::string(data_source) + "/xml",
                               std::string(data_source) + "/rng/constraints.rng");
  return db;
}

TEST(CompiledConstraints, ShippedDatabaseReadsBackTheSame) {
  const constraint_db db = shipped();
  const std::string text = db.to_compiled();
  const constraint_db back(text);
  EXPECT_EQ(back.to_compiled(), text);
  ASSERT_EQ(back.entries().size(), db.entries().size());
  for (std::size_t i = 0; i < db.entries().size(); ++i) {
    EXPECT_EQ(back.entries()[i].name, db.entries()[i].name);
    EXPECT_EQ(back.entries()[i].rule->describe(), db.entries()[i].rule->describe());
  }
}

TEST(CompiledConstraints, RulesBehaveAsBefore) {
  const constraint_db back(shipped().to_compiled());
  auto node = make_refcount<vxcore::properties>(false);
  (*node)["port"] = make_refcount<vxcore::property_int>(70000);
  std::string reason;
  EXPECT_FALSE(back.find("target-node-info")->rule->check(*node, "target-node-info", reason));
  EXPECT_NE(reason.find("target-node-info{port}"), std::string::npos) << reason;
  (*node)["port"] = make_refcount<vxcore::property_int>(40410);
  (*node)["persistent"] = make_refcount<vxcore::property_bool>(true);
  EXPECT_TRUE(back.find("target-node-info")->rule->check(*node, "target-node-info", reason));

  EXPECT_TRUE(back.find("job-state")->rule->check(vxcore::property_string("paused"), "s", reason));
  EXPECT_FALSE(back.find("job-state")->rule->check(vxcore::property_string("lost"), "s", reason));
}

TEST(CompiledConstraints, OddNamesAndValuesSurvive) {
  constraint_db db(0);
  db.add_constraint("with space", make_refcount<vxcore::constraint_string>(), 0);
  db.add_constraint("50%",
                    make_refcount<vxcore::constraint_enum>(
                        std::vector<std::string>{"", "a b", "100%", "line\nbreak", "caf\xc3\xa9"}),
                    vxcore::constraint_db::required | vxcore::constraint_db::nullable);
  db.add_constraint("neg", make_refcount<vxcore::constraint_range_int>(-5, std::nullopt), 0);
  db.add_constraint("time", make_refcount<vxcore::constraint_kind>(vxcore::kind_time), 0);
  db.add_constraint("none", nullptr, 0);
  const constraint_db back(db.to_compiled());
  EXPECT_EQ(back.to_compiled(), db.to_compiled());
  const auto* e = back.find("50%");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->flags, vxcore::constraint_db::required | vxcore::constraint_db::nullable);
  const auto* en = dynamic_cast<const vxcore::constraint_enum*>(e->rule.get());
  ASSERT_NE(en, nullptr);
  EXPECT_EQ(en->allowed(),
            (std::vector<std::string>{"", "a b", "100%", "line\nbreak", "caf\xc3\xa9"}));
  EXPECT_NE(back.find("with space"), nullptr);
  EXPECT_EQ(back.find("none")->rule, nullptr);
}

std::string failure(const std::string& text) {
  try {
    constraint_db db(text);
  } catch (const vxbase::es::call_error& e) {
    return e.what();
  }
  return "(accepted)";
}

TEST(CompiledConstraints, DamagedTextsAreRefused) {
  EXPECT_NE(failure("").find("unexpected end"), std::string::npos);
  EXPECT_NE(failure("<constraints/>").find("not a compiled"), std::string::npos);
  EXPECT_NE(failure("corvane-cdb 2\nstruct 0 0\n").find("not a compiled"), std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 1\n").find("unexpected end"), std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 1 =a 0 colour\n").find("unknown rule 'colour'"),
            std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 1 =a 0 range 5 1\n").find("empty range"),
            std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 1 =a 0 kind 11\n").find("unknown kind"),
            std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 2 =a 0 int =a 0 int\n").find("twice"),
            std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 99999999 =a 0 int\n").find("impossible count"),
            std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 1 =a%4 0 int\n").find("escape"), std::string::npos);
  EXPECT_NE(failure("corvane-cdb 1\nstruct 0 0\nextra").find("after the database"),
            std::string::npos);
  std::string deep = "corvane-cdb 1\nstruct 0 1 =a 0";
  for (int i = 0; i < 100; ++i) deep += " list";
  deep += " int\n";
  EXPECT_NE(failure(deep).find("nested too deeply"), std::string::npos);
}

TEST(CompiledConstraints, EveryCutOfARealTextIsRefusedOrComplete) {
  const std::string text = shipped().to_compiled();
  // Cutting inside a token may still leave a readable (shorter) database only
  // when the cut falls in the trailing blanks; everything else must raise.
  for (std::size_t n = 0; n + 1 < text.size(); n += 7) {
    const std::string cut = text.substr(0, n);
    try {
      constraint_db db(cut);
      ADD_FAILURE() << "accepted a cut at " << n;
    } catch (const vxbase::es::call_error&) {
    }
  }
}

}  // namespace

namespace {

// Damaged copies of a real text: each one reads back or is refused with
// call_error, nothing else (the sanitizer build checks memory use too).
TEST(CompiledConstraints, MutatedTextsReadOrRaiseCleanly) {
  const std::string text = shipped().to_compiled();
  // Enough cases to hit every kind of token several times; fixed seed so a
  // failure can be replayed.
  constexpr int mutations = 3000;
  std::uint32_t seed = 12345;
  const auto next = [&seed] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  const std::string alphabet = " \n=%0123456789*-abcdefghijklmnopqrstuvwxyz";
  int accepted = 0;
  for (int i = 0; i < mutations; ++i) {
    std::string bad = text;
    const int edits = 1 + static_cast<int>(next() % 3);
    for (int e = 0; e < edits; ++e) {
      const std::size_t at = next() % bad.size();
      switch (next() % 3) {
        case 0:
          bad[at] = alphabet[next() % alphabet.size()];
          break;
        case 1:
          bad.erase(at, 1 + next() % 8);
          break;
        default:
          bad.insert(at, 1, alphabet[next() % alphabet.size()]);
          break;
      }
      if (bad.empty()) bad.push_back('x');
    }
    try {
      const vxcore::constraint_db db(bad);
      ++accepted;
      // Whatever was accepted is a database that compiles again.
      EXPECT_FALSE(db.to_compiled().empty());
    } catch (const vxbase::es::call_error&) {
    } catch (const vxbase::es::arg_error&) {
      ADD_FAILURE() << "arg_error escaped for mutation " << i;
    }
  }
  // Most damage is noticed; some edits (inside a name) leave a valid text.
  EXPECT_LT(accepted, mutations);
}

}  // namespace
