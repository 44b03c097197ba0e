// The root of everything that the simulation runs or reads.
#pragma once
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/interface_handler.h"
#include "framework/link_port.h"
#include "framework/node_kind.h"
#include "framework/object_ids.h"
#include "framework/pipeline.h"
#include "framework/scene_part.h"
#include "framework/scene_time.h"
#include "host/vector.h"

namespace MELDO_GLOBAL {
class GridLayout;
}  // namespace MELDO_GLOBAL

namespace MELDO_GLOBAL::MELDO_SULVA {

class ConstraintList;
class Scene;
class StateArchive;

/// Bits of `iBase::mFlags`.
enum ObjectFlag : u32 {
  FLAG_ACTIVE = 0x1,           ///< may act in this step
  FLAG_ENABLED = 0x2,          ///< takes part in the pipeline
  FLAG_MOVED = 0x4,            ///< geometry moved since the last look
  FLAG_DIRTY = 0x8,            ///< has work in this frame
  FLAG_DIRTY_CHECKED = 0x10,   ///< `CheckDirty` has run in this frame
  FLAG_CACHED = 0x20,          ///< the data of this frame come from a cache
  FLAG_AFFECTS_BOUNDS = 0x40,  ///< takes part in the bounds calculation
  FLAG_DIRTY_HARD = 0x80,      ///< set beside FLAG_DIRTY by `MarkDirty(true)`
  FLAG_GROUP_BREAK = 0x100,    ///< opens a new evaluation group in its stage
  FLAG_MARK = 0x200,           ///< scratch mark of owners that walk their children
  FLAG_FLIPPED = 0x400,        ///< class-specific
};

/// A node object: it reads the parameters of one host node, sits in one of the scene's lists and
/// tells the pipeline when and how it wants to run. Objects report no errors: one that can't
/// proceed clears `FLAG_ACTIVE` and returns, or returns false, and the pipeline goes on.
class iBase : public host::ParameterHolder {
 public:
  /// The objects linked to this object, by port number; not owned.
  struct iPortData {
    virtual ~iPortData() = default;
    std::map<i32, iBase*> ports;
    void SetPort(i32 port, iBase* object) { ports[port] = object; }
    void ClearPort(i32 port) { ports.erase(port); }
    iBase* Port(i32 port) const {
      const auto found = ports.find(port);
      return found == ports.end() ? nullptr : found->second;
    }
  };

  iBase() = default;
  iBase(host::BaseNode* node, Scene* scene);
  iBase& operator=(const iBase&) = delete;
  ~iBase() override = default;

  /// Back to the state at simulation start.
  virtual void Reset() {}
  /// Drops run-time data. `full` also means: stop acting.
  virtual void Release(bool full);
  /// Widens the running box of the content, in simulation units.
  virtual void ExpandBounds(Vec3d& /*min*/, Vec3d& /*max*/) {}
  /// Widens it by what lies in the box from `low` to `high` alone. What is one piece counts whole
  /// as soon as its box meets that one; an override tells pieces apart.
  virtual void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max);
  /// Takes over the state of a step that has run to its end, in stage 16, whatever was dirty.
  virtual void CommitStep() {}
  /// Refreshes statistics at the end of a step.
  virtual void UpdateRange() {}
  /// Takes the negotiated box, in simulation units.
  virtual bool ApplyBounds(const Vec3d& /*min*/, const Vec3d& /*max*/) { return true; }
  virtual i32 GetTypeId() const;
  virtual i32 GetListIndex() const;
  /// ORs the category bits into `mask`.
  virtual void GetCategories(u32& mask) const;
  virtual bool IsSequential() const;
  virtual bool IsIterative() const;
  virtual bool RunsOnRefresh() const;
  virtual bool ResetsOnChange() const;
  /// First set-up pass. The base fills every member that the node's rows name; overrides set their
  /// base priority, call the base, stop when it is false, and derive what follows from the members.
  virtual bool ReadParameters();
  /// Third set-up pass.
  virtual bool AfterLinks() { return true; }
  /// Second set-up pass: the base fills every link that the node's rows name, and answers whether
  /// the interface is bound.
  virtual bool ResolveLinks();
  /// End of a phase: the base clears the links that the rows name, overrides what they derived.
  virtual void ClearLinks();
  virtual void CheckDirty();
  /// Order inside a stage: by priority. An override may also say of one with a higher priority that
  /// this object doesn't come before it: then it waits for that one.
  virtual bool ComesBefore(const iBase& other) const { return mPriority < other.mPriority; }
  /// Whether the object only adds to what it writes, so that among objects of which this is true
  /// the order changes nothing but roundings.
  virtual bool Commutes() const { return false; }
  /// Whether the order of the two, which change the same thing, changes nothing but roundings.
  virtual bool CommutesWith(const iBase& other) const { return Commutes() && other.Commutes(); }
  virtual bool IsDirty() const { return mFlags & FLAG_DIRTY; }
  virtual void SetMoved(bool moved) { SetFlag(FLAG_MOVED, moved); }
  virtual bool IsPipelineObject() const { return false; }
  /// What takes the constraints that the node names, of a class that has some; null for all else.
  virtual ConstraintList* Constraints() { return nullptr; }
  virtual bool IsNodeAlive(i32 instanceOf, const host::Document* document) const {
    return mInterface.IsNodeAlive(instanceOf, document);
  }

  /// Saves or restores, the same way in both directions, what a later frame depends on and no
  /// parameter, link or host object gives anew. Called between two frames; an override starts with
  /// its base. A class that keeps data from one frame to the next states them here.
  virtual void Persist(StateArchive& archive);
  /// What went wrong in it since the last call, a sentence each.
  virtual std::vector<std::string> TakeWarnings() { return {}; }

  /// Answers whether the object chooses a box of its own, which channels then cover, and how far
  /// that one may reach (simulation units): of the content in reach it makes its box in
  /// `ExpandBounds`, and is inactive where there is none.
  virtual bool GetReach(Vec3d& /*low*/, Vec3d& /*high*/) const { return false; }
  /// Bytes for each cell of the negotiated box, with what work on it needs meanwhile.
  virtual double MemoryPerCell() const { return 0; }
  /// What the object has beside the data of its class.
  ScenePartList mParts;

  /// Squared largest speed of a solver, which chooses the adaptive step; 0 for all else.
  virtual double GetMaxSpeedSq() const { return 0; }

  /// Dirty now, and seen as changed at the next look as well.
  void MarkDirty(bool hard);
  bool HasCategory(i32 bitIndex) const;
  /// The scene's world layout.
  const GridLayout& GetDomain() const;
  void Rebind(host::BaseNode* node, Scene* scene);
  bool IsCancelled() const;

  /// Clears `FLAG_ACTIVE` and keeps why, for the warnings at the end of a run: one clause without a
  /// full stop, such as "its volume has no grid". Returns false.
  bool Deactivate(const char* reason) {
    mInactiveReason = reason;
    SetFlag(FLAG_ACTIVE, false);
    return false;
  }

  /// Takes back that the object ran in this stage, since nobody sees that it did, and keeps why.
  void TakeBackRun(const char* reason) {
    if (mRuns > 0) --mRuns;
    mInactiveReason = reason;
  }

  bool Has(u32 flag) const { return mFlags & flag; }
  void SetFlag(u32 flag, bool on) { mFlags = on ? mFlags | flag : mFlags & ~flag; }
  /// The host node, or null when unbound.
  host::BaseNode* Node() const { return mInterface.GetObject(); }

  /// The descriptor of the node's kind; null for what no node stands for.
  const NodeKind* GetKind() const { return mKind; }
  /// Makes a member of a group object, which has the group's node, one of its own kind.
  void ActAs(const NodeKind& kind);
  /// The rows of the node; null when unbound.
  const host::ParameterTable* Rows() const { return mRows; }
  /// What every kind of node can be told: rows 2502, 2604 and 10001 to 10003.
  static const host::ParameterTable& CommonParameters();

  InterfaceHandler mInterface;
  std::string mName;
  i32 mMemberIndex = -1;  ///< index inside a group object; -1 stands alone
  u32 mFlags = FLAG_ACTIVE | FLAG_ENABLED | FLAG_AFFECTS_BOUNDS;
  u32 mDirtyStamp = 100000000;
  u32 mStageMask = 0;
  i32 mPriority = 0;
  Scene* mScene = nullptr;
  SceneTime* mTime = nullptr;
  const char* mInactiveReason = nullptr;  ///< why the last `Deactivate` was called
  u32 mRuns = 0;                          ///< stage runs in which the object was active

 protected:
  /// For constraints alone, of which every holder has a copy.
  iBase(const iBase&) = default;

 private:
  /// The rows of the node as it stands; those of all kinds where it has none.
  void TakeRows();

  const NodeKind* mKind = nullptr;
  const host::ParameterTable* mRows = nullptr;  ///< of the node's kind
  i32 mOwnStage = 0;                            ///< 0: the stages of the class
  i32 mOwnPriority = 0;
  bool mGroupBreak = true;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
