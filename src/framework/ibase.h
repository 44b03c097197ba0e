// The root of everything that the simulation runs or reads.
#pragma once
#include <map>
#include <memory>
#include <string>

#include "framework/interface_handler.h"
#include "framework/pipeline.h"
#include "framework/scene_time.h"
#include "host/vector.h"

namespace MELDO_GLOBAL {
class GridLayout;
}

namespace MELDO_GLOBAL::MELDO_SULVA {

class ConstraintList;
struct NodeKind;
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

/// Bits of `GetCategories`; the same numbers as bit indices go to the look-ups of `Scene`.
enum Category : u32 {
  kCategoryScalar = 0x2,
  kCategoryVector = 0x4,
  kCategoryBoolean = 0x8,
  kCategoryGrid = 0x40,
  kCategoryParticle = 0x80,
  kCategoryConstraint = 0x100,
  kCategoryInstant = 0x200,
  kCategoryProperty = 0x400,
  kCategoryMesh = 0x1000,
  kCategoryActiveVolume = 0x2000,  ///< geometry that acts as an obstacle
  kCategoryVolume = 0x4000,
};
enum CategoryBit : i32 {
  kBitScalar = 1,
  kBitVector = 2,
  kBitBoolean = 3,
  kBitParticle = 7,
  kBitProperty = 10,
  kBitMesh = 12,
  kBitActiveVolume = 13,
  kBitVolume = 14,
  kBitAny = 31,
};

/// Numbers of the scene's object lists.
enum ListNumber : i32 {
  kListChannels = 1,
  kListGeometry = 2,
  kListEmitters = 3,
  kListOperators = 4,
  kListSolvers = 5,
  kListParticles = 6,
  kListForces = 7,
  kListCaches = 8,
  kListSettings = 10,
  kListAuxiliary = 11,
  kListAll = 12,  ///< look-ups: every list in order
};

/// `GetTypeId` answers that other classes ask for. Two classes may share one.
enum TypeId : i32 {
  kTypeChannel = 46,
  kTypeDynamicChannel = 47,
  kTypeObjectVolume = 3,
  kTypeObjectGridEmitter = 4,
  kTypeCellEmitter = 5,
  kTypeParticleToGridEmitter = 8,
  kTypeGridEmissionSettings = 10,
  kTypeGravity = 35,
  kTypeBuoyancy = 33,
  kTypeSwirling = 37,
  kTypeFluidSolver = 42,
  kTypeWaterSolver = 43,
  kTypeScalarChannel = 49,
  kTypeVectorChannel = 50,
  kTypeVelocityChannel = 51,
  kTypeFuelChannel = 52,
  kTypeTemperatureChannel = 53,
  kTypeFireChannel = 54,
  kTypeLevelsetChannel = 55,
  kTypeDuration = 56,
  kTypeAlignment = 58,
  kTypeGridCacher = 59,
  kTypeMeshOperator = 67,
  kTypeVertexNormals = 68,
  kTypeParticleGroup = 72,
  kTypeMultiVolume = 76,
  kTypeVolumeMesh = 84,
  kTypeSurfaceReconstructor = 90,
  kTypeMesh = 95,
  kTypeMultiMesh = 96,
  kTypeChannelPair = 98,
  kTypeChannelValue = 99,
  kTypeGridBoundary = 101,
  kTypeAny = 2000,  ///< look-ups: any type
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
  iBase(const iBase& other);
  iBase& operator=(const iBase&) = delete;
  ~iBase() override = default;

  /// Advances the pass counter; false, with `mPass` at -1, when the run is over.
  virtual bool NextPass();
  virtual void Assign(const iBase& other);
  /// Back to the state at simulation start.
  virtual void Reset() {}
  /// Drops run-time data. `full` also means: stop acting.
  virtual void Release(bool full);
  /// Widens the running box of the content, in simulation units.
  virtual void ExpandBounds(Vec3d& /*min*/, Vec3d& /*max*/) {}
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
  virtual bool PreparesEachPass() const;
  virtual bool RunsOnRefresh() const;
  virtual bool ResetsOnChange() const;
  /// First set-up pass. The base fills every member that the node's rows name; overrides set their
  /// base priority, call the base, stop when it is false, and derive what follows from the members.
  virtual bool ReadParameters(void* context = nullptr);
  /// Third set-up pass.
  virtual bool AfterLinks() { return true; }
  /// Second set-up pass: the base fills every link that the node's rows name, and answers whether
  /// the interface is bound.
  virtual bool ResolveLinks();
  /// End of a phase: the base clears the links that the rows name, overrides what they derived.
  virtual void ClearLinks();
  virtual void CheckDirty();
  /// Sort order inside a stage.
  virtual bool ComesBefore(const iBase& other) const { return mPriority < other.mPriority; }
  virtual bool IsDirty() const { return mFlags & FLAG_DIRTY; }
  virtual void SetMoved(bool moved) { SetFlag(FLAG_MOVED, moved); }
  virtual void GetName(std::string& out) const { out = mName; }
  virtual bool IsPipelineObject() const { return false; }
  virtual std::unique_ptr<iBase> Clone() const { return std::make_unique<iBase>(*this); }
  /// The constraints that the node names, of a class that has some; null for all else.
  virtual ConstraintList* Constraints() { return nullptr; }
  virtual bool IsNodeAlive(i32 instanceOf, const host::Document* document) const {
    return mInterface.IsNodeAlive(instanceOf, document);
  }

  /// Saves or restores, the same way in both directions, what a later frame depends on and no
  /// parameter, link or host object gives anew. Called between two frames; an override starts with
  /// its base. A class that keeps data from one frame to the next states them here.
  virtual void Persist(StateArchive& archive);

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

  bool Has(u32 flag) const { return mFlags & flag; }
  void SetFlag(u32 flag, bool on) { mFlags = on ? mFlags | flag : mFlags & ~flag; }
  /// The host node, or null when unbound.
  host::BaseNode* Node() const { return mInterface.GetObject(); }

  /// The descriptor of the node's kind; null for what no node stands for.
  const NodeKind* GetKind() const { return mKind; }
  /// Makes a member of a group object, which has the group's node, one of its own kind.
  void ActAs(const NodeKind& kind);
  /// What every kind of node can be told: rows 2502, 2604 and 10001 to 10003.
  static const host::ParameterTable& CommonParameters();

  InterfaceHandler mInterface;
  i32 mLoopRound = 0;
  i32 mLoopBackPass = -2;  ///< pass at which `NextPass` loops back to pass 0; -2 means never
  i32 mLoopRounds = 0;     ///< rounds of the loop-back; 0 switches it off
  std::string mName;
  i32 mMemberIndex = -1;  ///< index inside a group object; -1 stands alone
  u32 mFlags = FLAG_ACTIVE | FLAG_ENABLED | FLAG_AFFECTS_BOUNDS;
  u32 mDirtyStamp = 100000000;
  u32 mStageMask = 0;
  i32 mPriority = 0;
  i16 mPass = -1;
  i16 mPassCount = 1;
  Scene* mScene = nullptr;
  SceneTime* mTime = nullptr;
  const char* mInactiveReason = nullptr;  ///< why the last `Deactivate` was called
  u32 mRuns = 0;                          ///< stage runs in which the object was active

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
