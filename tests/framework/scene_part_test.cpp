// Parts of a simulation have their places in an evaluation, whoever owns them.
#include "framework/scene_part.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA::testing {
namespace {

using ::testing::ElementsAre;

struct NotedPart : ScenePart {
  NotedPart(std::string name, std::vector<std::string>& notes)
      : mName(std::move(name)), mNotes(notes) {}
  void BeginStep(Scene&) override { Note("begins"); }
  void Advance(Scene&) override { Note("advances"); }
  void Reset() override { Note("resets"); }
  void DomainChanged(const GridLayout&) override { Note("changes"); }
  void Note(const char* what) { mNotes.push_back(mName + " " + what); }

  std::string mName;
  std::vector<std::string>& mNotes;
};

TEST(SceneParts, AreCalledInTheirStagesWhetherOfASceneOrAnObject) {
  std::vector<std::string> notes;
  ProbeScene s;
  ProbeSetup setup;
  setup.list = kListOperators;
  setup.stages = {kOperators};
  const host::BaseNode& node = s.Add("owner", setup);
  s.scene.mParts.Add(std::make_unique<NotedPart>("world", notes));
  s.Run(0);
  s.Get(node).mParts.Add(std::make_unique<NotedPart>("particles", notes));
  notes.clear();
  s.Run(1);
  EXPECT_THAT(notes, ElementsAre("world begins", "particles begins", "world advances",
                                 "particles advances"));
  notes.clear();
  s.Run(0);
  EXPECT_THAT(notes, ElementsAre("particles resets", "world resets", "world advances",
                                 "particles advances"));
  notes.clear();
  s.server.Set(1002, 0.3);
  s.Run(1);
  EXPECT_THAT(notes,
              ElementsAre("world changes", "particles changes", "particles resets", "world resets",
                          "world advances", "particles advances"))
      << "a simulation with other cells starts over";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA::testing
