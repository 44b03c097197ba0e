// Who runs before whom in a stage.
#include "framework/stage_order.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr i32 kReads = 1, kWrites = 2, kTarget = 3, kFlow = 4;

const host::ParameterTable& Rows() {
  static const host::ParameterTable rows = {
      host::LinksRow(kReads, "reads", "", {}), host::LinksRow(kWrites, "writes", "", {}).Writes(),
      host::LinkRow(kTarget, "target", "").Writes(),
      host::LinkRow(kFlow, "flow", "").WritesWithout(kTarget)};
  return rows;
}

struct OrderTest : ::testing::Test {
  host::BaseNode& Make(const std::string& name, i32 list = kListOperators, i32 priority = 0) {
    ProbeSetup setup;
    setup.list = list;
    setup.priority = priority;
    if (list == kListOperators) setup.stages = {kOperators};
    host::BaseNode& node = s.Add(name, setup);
    node.SetTable(&Rows());
    return node;
  }
  static void Link(host::BaseNode& node, i32 row, std::initializer_list<host::BaseNode*> targets) {
    host::InExcludeData list;
    for (const host::BaseNode* target : targets) list.entries.push_back({target->Id(), 0});
    node.Set(row, list);
  }
  std::vector<std::string> Order() {
    s.Run(frame++);
    std::vector<std::string> names;
    for (const std::string& line : s.trace) names.push_back(line.substr(line.find(' ') + 1));
    return names;
  }
  ProbeScene s;
  i32 frame = 1;
};

TEST_F(OrderTest, WhatAnObjectLinksToRunsFirstWhateverThePriority) {
  host::BaseNode& volume = Make("volume");
  host::BaseNode& mesh = Make("mesh", kListOperators, 50);
  Make("other", kListOperators, 20);
  EXPECT_THAT(Order(), ElementsAre("volume", "other", "mesh"));
  Link(volume, kReads, {&mesh});
  EXPECT_THAT(Order(), ElementsAre("other", "mesh", "volume"));
}

TEST_F(OrderTest, WhatChangesAnObjectStandsBeforeItsReaders) {
  host::BaseNode& volume = Make("volume", kListOperators, 0);
  host::BaseNode& smoother = Make("smoother", kListOperators, 5);
  host::BaseNode& mesh = Make("mesh", kListOperators, -50);
  Link(volume, kReads, {&mesh});
  Link(smoother, kWrites, {&mesh});
  EXPECT_THAT(Order(), ElementsAre("mesh", "smoother", "volume"));
}

TEST_F(OrderTest, ReadersOfAFieldWaitForItsWriters) {
  host::BaseNode& heat = Make("heat", kListChannels);
  host::BaseNode& reader = Make("reader");
  host::BaseNode& both = Make("both");
  host::BaseNode& writer = Make("writer");
  Link(reader, kReads, {&heat});
  Link(both, kReads, {&heat});
  Link(both, kWrites, {&heat});
  Link(writer, kWrites, {&heat});
  EXPECT_THAT(Order(), ElementsAre("both", "writer", "reader"))
      << "writers among themselves keep the order of the file";
}

TEST_F(OrderTest, WhatStandsInForAnEmptyLinkIsWritten) {
  host::BaseNode& gas = Make("gas", kListChannels);
  host::BaseNode& smoke = Make("smoke", kListChannels);
  host::BaseNode& reader = Make("reader");
  host::BaseNode& mover = Make("mover");
  Link(reader, kReads, {&gas});
  mover.Set(kFlow, host::Link{gas.Id()});
  EXPECT_THAT(Order(), ElementsAre("mover", "reader"));
  mover.Set(kTarget, host::Link{smoke.Id()});
  EXPECT_THAT(Order(), ElementsAre("reader", "mover"));
}

TEST_F(OrderTest, LinksOfSettingsCount) {
  host::BaseNode& heat = Make("heat", kListChannels);
  host::BaseNode& pair = Make("pair", kListSettings);
  host::BaseNode& reader = Make("reader");
  host::BaseNode& writer = Make("writer");
  Link(reader, kReads, {&heat});
  Link(writer, kReads, {&pair});
  Link(pair, kWrites, {&heat});
  EXPECT_THAT(Order(), ElementsAre("writer", "reader"));
}

TEST_F(OrderTest, AChainRunsAlikeWhateverItsOrderInTheFile) {
  std::vector<std::string> names = {"first", "second", "third"};
  do {
    ProbeScene own;
    std::map<std::string, host::BaseNode*> nodes;
    for (const std::string& name : names) {
      ProbeSetup setup;
      setup.stages = {kOperators};
      setup.list = kListOperators;
      nodes[name] = &own.Add(name, setup);
      nodes[name]->SetTable(&Rows());
    }
    Link(*nodes["second"], kReads, {nodes["first"]});
    Link(*nodes["third"], kReads, {nodes["second"]});
    own.Run(1);
    EXPECT_THAT(own.trace, ElementsAre("7 first", "7 second", "7 third"));
  } while (std::next_permutation(names.begin(), names.end()));
}

/// The traces of probes in every order of the file.
std::set<Lines> InEveryOrder(const std::map<std::string, ProbeSetup>& setups) {
  std::vector<std::string> names;
  for (const auto& [name, setup] : setups) names.push_back(name);
  std::set<Lines> traces;
  do {
    ProbeScene own;
    for (const std::string& name : names) own.Add(name, setups.at(name));
    own.Run(1);
    traces.insert(own.trace);
  } while (std::next_permutation(names.begin(), names.end()));
  return traces;
}

TEST_F(OrderTest, TheFileMovesNothingPastWhatItSharesNoRuleWith) {
  ProbeSetup plain, adds;
  plain.stages = adds.stages = {kOperators};
  adds.adds = true;
  EXPECT_THAT(InEveryOrder({{"a", adds}, {"b", plain}, {"c", adds}}),
              ElementsAre(ElementsAre("7 b", "7 a", "7 c")))
      << "what stands between two that add doesn't part them";
  ProbeSetup first = plain, last = plain;
  last.priority = 20;
  plain.priority = 15;
  first.priority = 10;
  first.behind = {"last"};
  EXPECT_THAT(InEveryOrder({{"first", first}, {"last", last}, {"other", plain}}),
              ElementsAre(ElementsAre("7 other", "7 last", "7 first")));
}

TEST_F(OrderTest, ACircleIsAnErrorThatNamesItsMembers) {
  host::BaseNode& a = Make("a");
  host::BaseNode& b = Make("b");
  host::BaseNode& c = Make("c");
  Make("bystander");
  Link(a, kReads, {&b});
  Link(b, kReads, {&c});
  Link(c, kReads, {&b});
  try {
    Order();
    FAIL() << "no error";
  } catch (const OrderError& error) {
    EXPECT_THAT(error.what(), HasSubstr("'b' waits for 'c' waits for 'b'"));
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA::testing
