// What an object sees of the simulation that it is part of.
#pragma once
#include <array>
#include <map>
#include <memory>
#include <vector>

#include "framework/interface_handler.h"
#include "framework/object_ids.h"
#include "framework/pipeline.h"
#include "framework/scene_time.h"
#include "grids/grid_layout.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class iBase;

/// What one evaluation did, for progress, statistics and traces.
struct EvaluationReport {
  std::vector<double> steps;                       ///< length of each substep, seconds
  std::array<double, kStageCount> stageSeconds{};  ///< wall time
  bool simulated = false;                          ///< a new frame was simulated
  bool whole = false;                              ///< and nothing cut it short
};

/// The clock, the lattice of cells and the other objects of a simulation.
class Scene : public host::LinkSource {
 public:
  enum Flag : u32 {
    kDomainChanged = 0x2,  ///< in this evaluation
    kTimeChanged = 0x4,    ///< in this evaluation
    kNoBounds = 0x8,       ///< in this step
  };
  using ObjectList = std::map<host::NodeId, std::unique_ptr<iBase>>;

  explicit Scene(host::BaseNode* server) : mInterface(server) {}
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// The enabled object of a host node, in `list` or, above 11, in any list. Category bit 31 and
  /// type 2000 switch their tests off.
  virtual iBase* FindObject(const host::BaseNode* node, i32 list, i32 categoryA = kBitAny,
                            i32 categoryB = kBitAny, i32 typeId = kTypeAny) const = 0;
  /// Objects of a list that pass type and category tests: without `list` all of `listIndex` (above
  /// 11: of every list), else those named in it (`includeOnly`, in its order) or not named in it.
  /// The category test passes if the mask equals `exactCategories`, or if it has bit `categoryA`
  /// and `categoryB` (31 = not asked), or if `exactCategories` and `categoryA` are both 31.
  virtual void CollectObjects(const host::InExcludeData* list, std::vector<iBase*>& out,
                              i32 listIndex, u32 exactCategories, i32 typeId, i32 categoryA,
                              bool includeOnly, i32 categoryB = kBitAny) const = 0;

  /// The objects of a list by node, in the order in which their nodes were made.
  virtual const ObjectList& List(i32 number) const = 0;
  /// First and last simulated frame: the document's preview range, or the server's own.
  virtual void GetFrameRange(i32& first, i32& last) const = 0;

  /// The user broke off, or `control` says so.
  bool IsCancelled(const host::HostThread* control = nullptr) const {
    return (mThread && mThread->TestBreak()) || (control && control->TestBreak());
  }
  const host::Document* GetDocument() const {
    return Server() ? &Server()->GetDocument() : nullptr;
  }
  host::BaseNode* Server() const { return mInterface.GetObject(); }
  /// Whether what is wanted for pictures alone has to work.
  bool IsForPictures() const { return mIsRender || mMakesPictures; }

  InterfaceHandler mInterface;
  u32 mFlags = 1;
  bool mIsRender = false;
  /// Pictures are made of what is simulated, in the cells of a run.
  bool mMakesPictures = false;
  i32 mThreadCount = 1;
  i32 mSeed = 902891;
  f64 mStepRatio = 0;
  i32 mTimeMode = 0;
  f64 mCfl = 1.0;
  i32 mStage = 0;
  u64 mStageRuns = 1;  ///< how often a stage has begun: tells its runs apart
  FrameClock mClock;
  SceneTime mTime;
  GridLayout mDomain;  ///< one cell; carries the world scale and the cell size
  f64 mCellHalf = 0;
  f64 mCellQuarter = 0;
  Vec3d mGravity{0, -9.81, 0};
  i32 mRigidIterations = 10;
  i32 mRigidSubsteps = 10;
  i32 mRigidBroadphase = 0;
  host::HostThread* mThread = nullptr;
  EvaluationReport mReport;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
