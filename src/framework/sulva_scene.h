// One simulation: the object lists, the clock, and the pipeline.
#pragma once
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "framework/bounds.h"
#include "framework/iobject.h"
#include "framework/scene.h"
#include "framework/stage_order.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the server node says of its scene, as the rows of `SulvaScene::Parameters` name it.
struct SceneSettings : host::ParameterHolder {
  double hostUnits = 100.0;
  double simulationUnits = 1.0;
  double cellSize = 0.2;
  double renderCellSize = 0.2;
  i32 timeMode = 0;
  double fixedStep = 0.2;
  i32 extraSubsteps = 2;
  i32 extraMinSubsteps = 0;
  double cfl = 2.0;
  double timeScale = 1.0;
  Vec3d gravity{0, -9.81, 0};
  i32 seed = 2150;
  bool usePreviewRange = true;
  i32 firstFrame = 0;
  i32 lastFrame = 90;
  i32 threadLimit = 0;
  i32 rigidIterations = 10;
  i32 rigidSubsteps = 10;
  i32 rigidBroadphase = 0;
};

/// One simulation under one server node. The scene owns the objects of its lists; a list is ordered
/// by node creation number.
class SulvaScene : public Scene {
 public:
  /// Makes the object of a plug-in id; null for an id without a core class.
  using ObjectFactory =
      std::function<std::unique_ptr<iBase>(i32 pluginId, host::BaseNode* node, Scene* scene)>;
  /// Called for every object that ran, with the stage.
  using TraceSink = std::function<void(i32 stage, const iBase& object)>;
  /// Asked once a step, before channels and solvers take the boxes that were negotiated; false
  /// cancels the evaluation.
  using BoundsGuard = std::function<bool(const NegotiatedBounds& bounds)>;

  SulvaScene(host::BaseNode* server, ObjectFactory factory);
  ~SulvaScene() override;

  /// Parameters of the server node.
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();

  /// Reads the node's dirty count.
  virtual void DetectChanges();
  /// The step that moves the fastest flow by `mCfl` cells, at most a frame. `seed` is a lower limit
  /// of the squared speed. Sets `mStepRatio`.
  virtual double ComputeAdaptiveStep(double seed);
  virtual void SetTimes(i32 frameIndex, double time, double frameDuration, i32 timeMode, double cfl,
                        double fixedStep, i32 substeps, i32 minSubsteps, double fps, i32 blurSample,
                        i32 blurSamples);
  /// Brings the lists in line with the node tree.
  virtual void Synchronise(const host::Document* document);
  virtual void RemoveDead();
  virtual void DispatchStage();
  virtual void LoadCaches();
  /// Stages 2 to 16; false = cancelled.
  virtual bool Simulate(bool refresh);
  virtual void RunVisualStages();
  virtual void SaveCaches();
  virtual void Reset(bool full);
  /// One evaluation of the document; false = cancelled. The pipeline thread is the caller's.
  virtual bool Execute(host::HostThread* thread, bool render);
  /// False if the object is null or its node already has an entry.
  virtual bool AddObject(i32 list, std::unique_ptr<iBase> object);
  virtual bool NeedsRun() const;
  /// Rebuilds `mDomain` for a scale and a cell size (simulation units); true if it changed.
  virtual bool UpdateDomain(double hostUnits, double simUnits, double cellSize);
  virtual bool CreateObject(host::BaseNode* node, i32 pluginId);
  /// Destroys all objects of all lists.
  virtual void Clear();

  iBase* FindObject(const host::BaseNode* node, i32 list, i32 categoryA = kBitAny,
                    i32 categoryB = kBitAny, i32 typeId = kTypeAny) const override;
  void CollectObjects(const host::InExcludeData* list, std::vector<iBase*>& out, i32 listIndex,
                      u32 exactCategories, i32 typeId, i32 categoryA, bool includeOnly,
                      i32 categoryB = kBitAny) const override;
  const ObjectList& List(i32 number) const override { return mLists[number]; }
  void GetFrameRange(i32& first, i32& last) const override;

  host::ParameterHolder* Find(const host::BaseNode& node,
                              const host::ParameterRow& row) const override;
  std::vector<host::LinkTarget> All(const host::ParameterRow& row) const override;

  /// Looks at the order in which the objects run in each stage, without running any: what only the
  /// file decides. Throws OrderError when objects of a stage wait for each other.
  std::vector<OrderTie> LookAtOrder();

  /// Saves or restores the simulation as it stands between two frames. To restore, the document
  /// stands at the frame that was saved. An archive that doesn't fit the scene fails.
  void Persist(StateArchive& archive);

  /// The parameters of the server node as they stand.
  SceneSettings ReadSettings() const;
  void SetStage(i32 stage);

  /// What belongs to the simulation as a whole, such as the world of rigid bodies.
  ScenePartList mParts;
  TraceSink mTrace;
  BoundsGuard mBoundsGuard;

 private:
  enum class FrameDecision { Nothing, Refresh, NewFrame };
  FrameDecision DecideFrame(bool domainChanged, bool& hardReset);
  void ReadClock();
  void ReadBlur(i32& sample, i32& samples) const;
  bool RunSubsteps();
  /// The next step of a frame whose flow says how long it may be, between two limits.
  void NextAdaptiveStep(double dtMin, double dtMax, bool& last);
  /// One step that takes the place of all substeps of a frame.
  void TakeWholeFrame(double duration);
  bool EndEvaluation(bool result);
  std::vector<iObject*> Caches(bool enabledOnly) const;
  void RunSetUpPasses();
  void CheckAllDirty();
  bool NegotiateBounds();
  bool FinishStep();
  std::vector<iObject*> CollectStage(i32 stage) const;
  bool RunStage(i32 stage, bool refreshOnly);
  void RunGroup(const std::vector<iObject*>& group);
  /// An object that shares its work out itself; it knows its group.
  void RunAlone(iObject& object, const std::vector<iObject*>& group);
  /// Objects whose shares of a run follow each other on every worker.
  void RunShared(const std::vector<iObject*>& group);
  void NoteRun(iObject& object);
  /// Calls f(part) for the parts of the simulation, then for those of its enabled objects.
  template <class F>
  void ForEachPart(F&& f) const {
    for (const auto& part : mParts) f(*part);
    ForEachObject([&](iBase& object) {
      if (object.Has(FLAG_ENABLED))
        for (const auto& part : object.mParts) f(*part);
    });
  }
  /// Calls f(object) list by list; caches on request.
  template <class F>
  void ForEachObject(F&& f, bool withCaches = false) const {
    for (i32 list = 1; list <= 11; ++list) {
      if (list == 9 || (list == kListCaches && !withCaches)) continue;
      for (const auto& [id, object] : mLists[list]) f(*object);
    }
  }

  ObjectFactory mFactory;
  std::array<ObjectList, 12> mLists;
  u32 mServerDirty = 0;
  bool mBoundsValid = false;  ///< the finish work of stage 16 is on
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
