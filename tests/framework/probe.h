// A scene of test objects that write down what the pipeline does with them.
#pragma once
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "framework/sulva_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA::testing {

using Lines = std::vector<std::string>;

/// What a probe is; read when the scene makes it.
struct ProbeSetup {
  i32 list = kListOperators;
  std::vector<i32> stages;
  i32 priority = 0;
  bool sequential = true;
  bool iterative = false;
  bool runsOnRefresh = false;
  bool resetsOnChange = false;
  bool timeDirty = true;         ///< dirty in every frame whose time moved on
  bool sleepsAtStart = false;    ///< inactive in the start frame
  bool active = true;            ///< what `Prepare` and `ApplyBounds` leave in FLAG_ACTIVE
  bool adds = false;             ///< its order among others that add counts for nothing
  std::set<std::string> behind;  ///< names of those before which it doesn't come
  u32 categories = 0;
  i32 typeId = 0;
};

/// Writes "operation name" into the lines of its test.
class Probe : public iObject {
 public:
  Probe(host::BaseNode* node, Scene* scene, const ProbeSetup& setup, Lines& lines)
      : iObject(node, scene), mSetup(setup), mLines(lines) {
    for (const i32 stage : setup.stages) mStageMask |= StageBit(stage);
  }

  i32 GetTypeId() const override { return mSetup.typeId; }
  bool GetReach(Vec3d& low, Vec3d& high) const override {
    low = {-1e9, -1e9, -1e9};
    high = {1e9, 1e9, 1e9};
    return mSetup.typeId == kTypeFluidSolver;
  }
  i32 GetListIndex() const override { return mSetup.list; }
  void GetCategories(u32& mask) const override { mask |= mSetup.categories; }
  bool Commutes() const override { return mSetup.adds; }
  bool ComesBefore(const iBase& other) const override {
    return !mSetup.behind.contains(other.mName) && iObject::ComesBefore(other);
  }
  bool IsSequential() const override { return mSetup.sequential; }
  bool IsIterative() const override { return mSetup.iterative; }
  bool RunsOnRefresh() const override { return mSetup.runsOnRefresh; }
  bool ResetsOnChange() const override { return mSetup.resetsOnChange; }
  bool ReadParameters() override {
    mPriority = mSetup.priority;
    ++mReads;
    return iObject::ReadParameters();
  }
  void CheckDirty() override {
    iObject::CheckDirty();
    if (mSetup.timeDirty && (mScene->mFlags & Scene::kTimeChanged)) SetFlag(FLAG_DIRTY, true);
  }
  void ClearLinks() override {
    iObject::ClearLinks();
    ++mClears;
  }
  void Reset() override { Note("reset"); }
  void Release(bool full) override {
    iObject::Release(full);
    Note("release");
  }
  void ExpandBounds(Vec3d& min, Vec3d& max) override {
    if (!mHasBox) return;
    min = Min(min, mBoxMin);
    max = Max(max, mBoxMax);
  }
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override {
    mGotMin = min;
    mGotMax = max;
    SetFlag(FLAG_ACTIVE, mSetup.active);
    Note("bounds");
    return true;
  }
  void CommitStep() override { ++mCommits; }
  void UpdateRange() override { Note("range"); }
  double GetMaxSpeedSq() const override { return mMaxSpeedSq; }

  void Prepare() override {
    SetFlag(FLAG_ACTIVE, mSetup.active && !(mSetup.sleepsAtStart && !mTime->IsUnderWay()));
    Note("prepare");
    if (mOnPrepare) mOnPrepare(*this);
  }
  void Begin() override { Note("begin"); }
  void Evaluate(const EvaluationThreadData& data) override {
    mSeen[data.index] += data.count;
    if (data.index == 0) mGroupSize = data.objects ? data.objects->size() : 0;
    {
      const std::lock_guard lock(mMutex);
      mThreads.insert(std::this_thread::get_id());
    }
    if (data.index == 0) Note("evaluate");
  }
  void Finish() override { Note("finish"); }

  void Note(const std::string& what) { mLines.push_back(what + " " + mName); }

  ProbeSetup mSetup;
  Lines& mLines;
  bool mHasBox = false;
  Vec3d mBoxMin, mBoxMax, mGotMin, mGotMax;
  double mMaxSpeedSq = 0;
  i32 mReads = 0, mClears = 0, mCommits = 0;
  std::array<i32, host::kMaxWorkers> mSeen{};  ///< per worker: how many there are, at each run
  std::size_t mGroupSize = 0;                  ///< objects of the group in which it ran
  std::mutex mMutex;
  std::set<std::thread::id> mThreads;  ///< that have worked on it
  std::function<void(Probe&)> mOnPrepare;
};

/// A document with a server node, and a scene that makes probes.
struct ProbeScene {
  static constexpr i32 kProbeKind = 9000;

  ProbeScene()
      : server(document.Create<host::BaseNode>(kServer, "server", nullptr)),
        scene(&server, [this](i32 id, host::BaseNode* node, Scene* owner) {
          lastPluginId = id;
          return std::make_unique<Probe>(node, owner, setups[node->Id()], lines);
        }) {
    server.SetTable(&SulvaScene::Parameters());
    scene.mTrace = [this](i32 stage, const iBase& object) {
      trace.push_back(std::to_string(stage) + " " + object.mName);
    };
  }
  ~ProbeScene() { host::SetThreadCount(0); }

  host::BaseNode& Add(const std::string& name, const ProbeSetup& setup,
                      host::BaseNode* parent = nullptr) {
    host::BaseNode& node =
        document.Create<host::BaseNode>(kProbeKind, name, parent ? parent : &server);
    node.AddInstanceOf(kServer);
    setups[node.Id()] = setup;
    return node;
  }
  /// The probe of a node, whatever its state; null if the scene has none.
  Probe* Find(const host::BaseNode& node) const {
    for (i32 list = 1; list <= 11; ++list) {
      const auto found = scene.List(list).find(node.Id());
      if (found != scene.List(list).end()) return static_cast<Probe*>(found->second.get());
    }
    return nullptr;
  }
  Probe& Get(const host::BaseNode& node) const { return *Find(node); }

  /// Moves to a frame and evaluates it; the lines and the trace are those of this evaluation.
  bool Run(i32 frame, bool render = false) {
    document.SetFrame(frame);
    lines.clear();
    trace.clear();
    return scene.Execute(&thread, render);
  }

  static constexpr i32 kServer = host::kServerNode;
  host::Document document;
  host::HostThread thread;
  host::BaseNode& server;
  std::map<host::NodeId, ProbeSetup> setups;
  Lines lines, trace;
  i32 lastPluginId = 0;
  SulvaScene scene;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA::testing
