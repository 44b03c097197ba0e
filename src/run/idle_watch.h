// Who ought to work in a simulation and doesn't.
#pragma once
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "framework/sulva_scene.h"

namespace MELDO_GLOBAL::app {

/// How a message names the object of a node: `fluid "gas"`, with the path where another server has
/// one like it.
std::string LabelOf(const MELDO_SULVA::iBase& object);

/// Looks at the objects of scenes before and behind each frame. Of one that is idle and shouldn't
/// be it tells once, in the frame in which that begins; where only later frames show that it is
/// amiss, or the end of the run does, it tells then, and since which frame it is so.
class IdleWatch {
 public:
  using Scenes = std::vector<std::unique_ptr<MELDO_SULVA::SulvaScene>>;

  void BeginFrame(const Scenes& scenes);
  void EndFrame(const Scenes& scenes);

  /// How often an object ran in the last frame.
  u32 RunsOf(const MELDO_SULVA::iBase& object) const;
  /// Why an object went idle in the last frame; null where it didn't.
  const char* ReasonOf(const MELDO_SULVA::iBase& object) const;

  /// What nodes the user was told of before the run: nothing repeats it.
  void Silence(std::set<host::NodeId> nodes) { mSilenced = std::move(nodes); }
  /// Something moves by keys, so that a gas without content may get some in a later frame.
  void AwaitContent(bool mayCome) { mMayCome = mayCome; }

  /// Adds a sentence for each object of which the last frame shows that it ought to work.
  void AddWarnings(const MELDO_SULVA::Scene& scene, std::vector<std::string>& warnings);
  /// At the end: adds one for each object that never ran, knows why and wasn't told of.
  void AddLastWarnings(const MELDO_SULVA::Scene& scene, std::vector<std::string>& warnings);

  /// Saves or restores what was seen so far.
  void Persist(MELDO_SULVA::StateArchive& archive);

 private:
  /// An object as it stood before the last frame.
  struct Before {
    u32 runs = 0;
    const char* reason = nullptr;
  };
  /// Since when an object is idle for one and the same reason.
  struct Span {
    i32 since = 0;
    std::string reason;
    void Persist(MELDO_SULVA::StateArchive& archive);
  };

  void NoteSpan(const MELDO_SULVA::iBase& object);
  bool IsToTell(const MELDO_SULVA::iBase& object) const;
  /// Whether it is too early to say that an object ought to work.
  bool IsEarly(const MELDO_SULVA::Scene& scene, const MELDO_SULVA::iBase& object) const;
  /// No solver of a scene has found anything in its box so far, and something may still come.
  bool AwaitsContent(const MELDO_SULVA::Scene& scene) const;
  std::string TextOf(const MELDO_SULVA::iBase& object) const;

  std::map<const MELDO_SULVA::iBase*, Before> mBefore;
  std::set<const MELDO_SULVA::iBase*> mWentIdle;  ///< deactivated in the last frame
  std::map<u64, Span> mSpans;                     ///< by node
  std::vector<u64> mTold;  ///< nodes, in the order in which they were told of
  std::set<host::NodeId> mSilenced, mToldAtEnd;
  bool mMayCome = false;
};

}  // namespace MELDO_GLOBAL::app
