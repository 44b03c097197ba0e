#include "cli/command_why.h"

#include <fmt/format.h>

#include <map>

#include "cache/cache_rows.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/worker_pool.h"
#include "nodes/catalogue.h"
#include "run/simulation.h"
#include "scene/scene_context.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

constexpr const char* kNoTime = "no time has passed yet";

void AddNames(const std::vector<BaseNode*>& nodes, NameTable& names) {
  for (BaseNode* node : nodes) {
    names.Add(*node);
    AddNames(node->Children(), names);
  }
}

const BaseNode& NodeNamed(const LoadedScene& scene, const std::string& reference) {
  const auto fail = [&](const std::string& why) {
    throw CommandError(kExitUsage, fmt::format("{}: {}", scene.path.string(), why));
  };
  NameTable names;
  for (BaseNode* server : scene.servers) AddNames(server->Children(), names);
  const std::vector<NameTable::Candidate> found = names.Find(reference);
  if (found.empty())
    fail(fmt::format("no node of a server is named '{}'{}", Shown(reference),
                     Suggestion(reference, names.Names())));
  if (found.size() > 1)
    fail(fmt::format("'{}' may be '{}' or '{}'; give the path", Shown(reference),
                     Shown(found[0].node->Path()), Shown(found[1].node->Path())));
  return *found.front().node;
}

/// Nothing that a run has recorded is touched.
void KeepRecordings(const std::vector<BaseNode*>& nodes) {
  for (BaseNode* node : nodes) {
    const NodeKind* kind = FindKind(node->Type());
    if (kind && kind->list == kListCaches) {
      const Value* mode = node->Get(cache_row::kMode);
      if (mode && LongOf(*mode, cache_row::kPlayBack) == cache_row::kRecord)
        node->SetEnabled(false);
      node->Set(cache_row::kMode, i32{cache_row::kPlayBack});
    }
    KeepRecordings(node->Children());
  }
}

class Watch {
 public:
  Watch(const LoadedScene& scene, Simulation& simulation, const BaseNode& node)
      : mSimulation(simulation), mNode(node), mReach(*scene.reach.Of(node.Id())) {
    for (const auto& owner : simulation.Scenes()) {
      SulvaScene* const own = owner.get();
      if (!node.HasAncestor(own->Server())) continue;
      mScene = own;
      own->mTrace = [this](i32 stage, const iBase& object) {
        if (object.Node() == &mNode) ++mStages[stage];
      };
    }
  }

  void BeginFrame() { mStages.clear(); }

  /// What became of the node in the last frame, in a clause.
  std::string Tell() const {
    const iBase* object = Object();
    // What ran and left nothing to see counts as if it hadn't.
    const bool isFruitless =
        object && mSimulation.Watch().RunsOf(*object) == 0 && mSimulation.Watch().ReasonOf(*object);
    if (!mStages.empty() && !isFruitless) return "ran in " + StagesText();
    if (object && mSimulation.Watch().RunsOf(*object) > 0)
      return fmt::format("ran {}, driven by {}", Times(mSimulation.Watch().RunsOf(*object)),
                         Readers());
    return "slept: " + WhyAsleep(object);
  }

 private:
  const iBase* Object() const {
    for (i32 list = 1; list <= 11; ++list) {
      const auto found = mScene->List(list).find(mNode.Id());
      if (found != mScene->List(list).end()) return found->second.get();
    }
    return nullptr;
  }

  static std::string Times(u32 count) {
    return count == 1 ? "once" : fmt::format("{} times", count);
  }

  std::string StagesText() const {
    std::string text;
    for (const auto& [stage, count] : mStages)
      text += fmt::format("{}stage {} ({}) {}", text.empty() ? "" : ", ", stage,
                          kPipeline[stage].name, Times(count));
    return text;
  }

  std::string Readers() const {
    std::string text;
    for (const BaseNode* reader : mReach.readers)
      text += fmt::format("{}'{}'", text.empty() ? "" : ", ", Shown(reader->Name()));
    return text.empty() ? "no node" : text;
  }

  std::string WhyAsleep(const iBase* object) const {
    if (!mReach.MayWork()) return mReach.whyIdle;
    if (!mNode.IsEnabled()) return "it records, and this command writes nothing";
    if (!mScene->mReport.simulated) return "its server simulated nothing in this frame";
    if (!object) return "it stands for its children and has no work of its own";
    const NodeKind* kind = FindKind(mNode.Type());
    const bool isForce = kind->list == kListForces;
    if (isForce && mScene->mTime.elapsed == 0) return kNoTime;
    if (const char* reason = mSimulation.Watch().ReasonOf(*object)) return reason;
    if (kind->stages.empty() && !isForce)
      return "it has no work of its own; it serves " + Readers();
    if (mScene->mFlags & Scene::kNoBounds) return "the scene holds nothing yet";
    if (object->IsDirty()) return "it had nothing to do";
    return mScene->mTime.elapsed > 0 ? "nothing that it depends on has changed" : kNoTime;
  }

  const Simulation& mSimulation;
  const BaseNode& mNode;
  const NodeReach& mReach;
  SulvaScene* mScene = nullptr;
  std::map<i32, u32> mStages;  ///< how often it ran in each
};

/// The exit code of what ended the simulation, with its message.
int End(const Simulation& simulation, FrameOutcome outcome) {
  switch (outcome) {
    case FrameOutcome::Done: return kExitDone;
    case FrameOutcome::Interrupted: return kExitInterrupted;
    case FrameOutcome::FileFailure: throw CommandError(kExitFile, simulation.FileFailure());
    case FrameOutcome::OutOfMemory: break;
  }
  throw CommandError(kExitMemory, simulation.MemoryRefusal());
}

}  // namespace

int RunWhy(const WhyOptions& options) {
  InstallInterruptHandlers();
  if (options.threads > 0) SetThreadCount(options.threads);
  Diagnostics diagnostics;
  const std::optional<LoadedScene> scene = LoadScene(options.scene, diagnostics, options.overrides);
  diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  const BaseNode& node = NodeNamed(*scene, options.node);
  scene->document->folder =
      CacheFolderOf(std::filesystem::path("out") / options.scene.stem()).string();
  KeepRecordings(scene->servers);
  Simulation simulation(*scene->document, scene->servers,
                        options.memory ? options.memory : MachineMemory());
  const FrameRange selected = SelectFrames(simulation.Range(), options.frames);
  Watch watch(*scene, simulation, node);
  FrameRecord record;
  for (i32 frame = simulation.Range().first; frame <= selected.last; ++frame) {
    watch.BeginFrame();
    const FrameOutcome outcome = simulation.Evaluate(frame, record);
    if (outcome != FrameOutcome::Done) return End(simulation, outcome);
    if (selected.Contains(frame)) fmt::print("frame {}: {}\n", frame, host::Escaped(watch.Tell()));
  }
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
