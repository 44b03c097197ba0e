#include "cli/command_render.h"

#include <fmt/format.h>

#include <chrono>
#include <new>
#include <set>

#include "cache/cache_operator.h"
#include "cli/exit_code_of.h"
#include "fluids/surfaces/implicit_mesher.h"
#include "grids/grid_memory.h"
#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "host/folder_lock.h"
#include "host/output_guard.h"
#include "host/polygon_object.h"
#include "host/render_objects.h"
#include "host/worker_pool.h"
#include "io/export_origin.h"
#include "io/field.h"
#include "io/measure.h"
#include "nodes/catalogue.h"
#include "nodes/media.h"
#include "render/exr_file.h"
#include "render/picture_renderer.h"
#include "render/render_world.h"
#include "run/checkpoint.h"
#include "run/progress.h"
#include "run/recorded_frames.h"
#include "run/recording_locks.h"
#include "run/run_history.h"
#include "run/simulation.h"
#include "scene/command_files.h"
#include "scene/node_names.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Mean time of a kind of work, and how much of it is left.
struct WorkTimer {
  double seconds = 0;
  i32 done = 0;
  i32 planned = 0;

  void Add(double spent) {
    seconds += spent;
    ++done;
  }
  /// Below 0 without experience.
  double Left(double partDone = 0) const {
    if (planned <= done) return 0;
    if (done == 0) return -1;
    return seconds / done * (planned - done - partDone);
  }
};

/// The pictures of a scene, from its first frame on.
class PictureRun {
 public:
  PictureRun(LoadedScene& scene, const RenderOptions& options, const fs::path& out)
      : mScene(scene),
        mSpec(*scene.render),
        mOut(out),
        mMemory(options.memory ? options.memory : MachineMemory()),
        mRecords(options.record),
        mSimulation(MakeSimulation()),
        mSelected(SelectFrames(mSimulation->Range(), options.frames)),
        mProgress(mSimulation->Range().first, mSelected.last,
                  options.quiet ? ProgressStyle::Quiet : StyleOfStandardError()),
        mNames(*scene.document, NodeNames::Among::SameList) {
    mFirst = FirstFrame(options.cached);
    mMedia = MakeMedia(mSpec.media, mSimulation->Scenes());
    mShaders = MakeShaders(mSpec.shaders, mSimulation->Scenes());
    mParticles = MakeParticleMaterials(mSpec.particles, mSimulation->Scenes());
    mWasDrawn.resize(mMedia.size());
    mHadParticles.resize(mParticles.size());
    mSteps.planned = mSelected.last - mFirst + 1;
    mPictures.planned = mSelected.last - mSelected.first + 1;
    HoldFolder(options);
    if (mRecords && options.allowOutside)
      mRecordingLocks = LockRecordings(*mSimulation, mOut, "render --record");
  }

  int Execute() {
    const Clock::time_point start = Clock::now();
    const int code = ExitCodeOf(
        mProgress, "out of memory; raise cell_size or lower the size of the pictures", [&] {
          CheckMemory();
          return RunFrames();
        });
    PrintWarnings(code == kExitDone);
    if (code == kExitDone)
      mProgress.Note(fmt::format("done: {} picture{} in {}, written to {}", mPictures.done,
                                 mPictures.done == 1 ? "" : "s",
                                 FormatDuration(SecondsSince(start)), mOut.string()));
    return code;
  }

 private:
  std::unique_ptr<Simulation> MakeSimulation() const {
    auto simulation = std::make_unique<Simulation>(*mScene.document, mScene.servers, mMemory);
    simulation->SetCacheRun({.simulation = mScene.simulation, .mayRecord = mRecords});
    simulation->Watch().Silence(mScene.Idle());
    for (const auto& scene : simulation->Scenes()) scene->mMakesPictures = true;
    return simulation;
  }

  /// Pictures are whole files of names of their own: several renders, and a run beside them, may
  /// share a folder. Recordings aren't.
  void HoldFolder(const RenderOptions& options) {
    MakeFolder(mOut);
    if (mRecords) {
      mLock.emplace(mOut, "render --record");
      RefuseToMix();
    }
    mGuard.emplace(mOut, options.allowOutside);
    for (const std::string& file : mSpec.files) MakeFolder((mOut / file).parent_path());
  }

  /// Pictures need some frames of a scene: beside them those of another recording would stay.
  void RefuseToMix() const {
    const fs::path foreign = ForeignRecording(*mSimulation, mScene.simulation);
    if (!foreign.empty())
      throw CommandError(
          kExitUsage, fmt::format("--record: another simulation recorded {}, and its frames would "
                                  "mix with those of this one; delete them with `sulva cache "
                                  "delete`, or name another folder with --out",
                                  foreign.string()));
  }

  /// The first frame to evaluate: what caches play or a checkpoint holds isn't simulated again.
  i32 FirstFrame(bool cached) {
    if (PlayRecordedFrames(*mSimulation, ShownNodes(), mSelected, cached)) {
      mProgress.Note("frames play from caches");
      mStartsAnywhere = true;
      // The frame in which the scene settles need not be recorded.
      mSimulation->SetCacheRun({.simulation = mScene.simulation,
                                .mayRecord = false,
                                .firstPlayed = mSelected.first,
                                .lastPlayed = mSelected.last});
      return mSelected.first;
    }
    if (cached)
      throw CommandError(
          kExitFile,
          fmt::format("--cached: no cache holds all that the pictures show in the frames {} to {}",
                      mSelected.first, mSelected.last));
    const std::optional<i32> behind = RestoreCheckpoint();
    if (!behind) return mSimulation->Range().first;
    mProgress.Note(fmt::format("going on behind frame {}", *behind));
    return *behind + 1;
  }

  /// The frame of the newest checkpoint before the pictures. A run that records goes through all
  /// frames: what it recorded beyond a checkpoint would be lost otherwise.
  std::optional<i32> RestoreCheckpoint() {
    if (mRecords && HasRecordingCache(*mSimulation)) return {};
    const Checkpoints checkpoints(mOut / "checkpoints", mScene.fingerprint, {});
    try {
      const auto state = checkpoints.RestoreUpTo(mSelected.first - 1, *mSimulation);
      if (state) return state->frame;
    } catch (const CommandError& error) {
      mProgress.Note(fmt::format("warning: {}; starting at the first frame", error.what()));
      mSimulation = MakeSimulation();
      mScene.document->SetFrame(mSimulation->Range().first);
    }
    return {};
  }

  /// The nodes of which the pictures show something: fields and particles of materials, and
  /// meshers; none where they need more than that.
  std::set<host::NodeId> ShownNodes() const {
    std::set<host::NodeId> fields;
    for (const host::BaseNode* server : mScene.servers) AddMeshers(*server, fields);
    std::vector<host::BaseNode*> all = mSpec.media;
    all.insert(all.end(), mSpec.particles.begin(), mSpec.particles.end());
    all.insert(all.end(), mSpec.shaders.begin(), mSpec.shaders.end());
    for (const host::BaseNode* medium : all)
      for (const auto& [id, value] : medium->Values()) {
        if (const auto* link = std::get_if<host::Link>(&value);
            link && link->node != 0 && !IsProperty(medium->GetDocument().Find(link->node)))
          fields.insert(link->node);
        const auto* list = std::get_if<host::InExcludeData>(&value);
        for (std::size_t i = 0; list && i < list->entries.size(); ++i) {
          const host::BaseNode* node = medium->GetDocument().Find(list->entries[i].node);
          if (node && node->Type() != host::kLightObject) return {};
        }
      }
    return fields;
  }

  /// What a property is called doesn't change by the frame.
  static bool IsProperty(const host::BaseNode* node) {
    const MELDO_SULVA::NodeKind* kind = node ? MELDO_SULVA::FindKind(node->Type()) : nullptr;
    return kind && (kind->categories & MELDO_SULVA::kCategoryProperty);
  }
  static void AddMeshers(const host::BaseNode& node, std::set<host::NodeId>& shown) {
    for (const host::BaseNode* child : node.Children()) {
      if (child->IsEnabled() && MELDO_SULVA::IsA<MELDO_SULVA::ImplicitMesher>(*child))
        shown.insert(child->Id());
      AddMeshers(*child, shown);
    }
  }

  void CheckMemory() const {
    const double bytes = double(sizeof(RenderedPicture::Pixel)) * 2 * mSpec.width * mSpec.height;
    if (bytes > static_cast<double>(mMemory))
      throw CommandError(
          kExitMemory,
          fmt::format("a picture of {}x{} pixels needs {}, more than the {} there are", mSpec.width,
                      mSpec.height, FormatBytes(bytes), FormatBytes(static_cast<double>(mMemory))));
  }

  /// A picture whose gas had no room for its copies and maps would lack smoke or light.
  void CheckGasMemory(i32 frame) const {
    const GridRefusal refused = RefusedGrid();
    if (refused.bytes > 0)
      throw CommandError(
          kExitMemory,
          fmt::format("out of memory: the gas in the picture of frame {} needs more than {}, the "
                      "limit is {}; lower its resolution, light_map_resolution or "
                      "multiple_resolution, or raise cell_size",
                      frame, FormatBytes(refused.bytes),
                      FormatBytes(static_cast<double>(mMemory))));
  }

  int RunFrames() {
    // A scene settles in its first frame and then takes any other that plays from caches.
    if (const i32 start = mSimulation->Range().first; mStartsAnywhere && mFirst > start)
      if (const int code = Simulate(start); code != kExitDone) return code;
    for (i32 frame = mFirst; frame <= mSelected.last; ++frame) {
      mProgress.BeginFrame(frame);
      if (const int code = Simulate(frame); code != kExitDone) return code;
      if (mSelected.Contains(frame) && !Draw(frame)) {
        mProgress.Note(fmt::format("interrupted in frame {}", frame));
        return kExitInterrupted;
      }
    }
    return kExitDone;
  }

  int Simulate(i32 frame) {
    const Clock::time_point start = Clock::now();
    FrameRecord record;
    switch (mSimulation->Evaluate(frame, record)) {
      case FrameOutcome::Done: break;
      case FrameOutcome::Interrupted:
        mProgress.Note(fmt::format("interrupted in frame {}", frame));
        return kExitInterrupted;
      case FrameOutcome::OutOfMemory:
        mProgress.Error(mSimulation->MemoryRefusal());
        return kExitMemory;
      case FrameOutcome::FileFailure: mProgress.Error(mSimulation->FileFailure()); return kExitFile;
    }
    for (const std::string& warning : record.warnings)
      mProgress.Note(fmt::format("warning: frame {}: {}", frame, warning));
    for (const auto& scene : mSimulation->Scenes()) MeasureScene(*scene, mNames, record);
    const std::string broken = FindNonFinite(record);
    if (!broken.empty()) {
      mProgress.Error(fmt::format("frame {}: {}", frame, broken));
      return kExitNonFinite;
    }
    mSteps.Add(SecondsSince(start));
    mProgress.EndFrame(record);
    return kExitDone;
  }

  /// Draws and writes a frame's picture; false when interrupted.
  bool Draw(i32 frame) {
    const Clock::time_point start = Clock::now();
    mProgress.ShowWork("picture", SecondsLeft(0));
    PictureMaterials materials;
    for (const auto& medium : mMedia) materials.media.push_back(medium.get());
    for (const auto& [node, shader] : mShaders) materials.shaders.emplace_back(node, shader.get());
    for (const auto& particles : mParticles) materials.particles.push_back(particles.get());
    const RenderedPicture picture =
        RenderPicture(mSpec, frame, materials, host::MainThread(), [&](double part) {
          mProgress.ShowWork(fmt::format("picture {:.0f} %", 100 * part), SecondsLeft(part));
        });
    if (host::MainThread().TestBreak()) return false;
    CheckGasMemory(frame);
    for (const std::string& fault : FaultsOfClearBodies(mSpec))
      if (mToldFaults.insert(fault.substr(0, fault.find('('))).second)
        mProgress.Note(fmt::format("warning: frame {}: {}", frame, fault));
    for (std::size_t i = 0; i < mWasDrawn.size(); ++i)
      mWasDrawn[i] = mWasDrawn[i] || picture.isDrawn[i];
    for (std::size_t i = 0; i < mHadParticles.size(); ++i)
      mHadParticles[i] = mHadParticles[i] || picture.spheres[i] > 0;
    const FileTexts texts = OriginOf(frame);
    for (const std::string& file : mSpec.files) {
      const fs::path path = mOut / host::FrameFileName(file, frame);
      WriteFileAtomically(path, path.extension() == ".exr"
                                    ? EncodeExr(picture, texts)
                                    : EncodePng(ToneMap(picture, *mSpec.settings), texts));
    }
    mPictures.Add(SecondsSince(start));
    const double left = SecondsLeft(0);
    mProgress.PictureDone(
        frame, {SecondsSince(start), picture.setUpSeconds, static_cast<double>(picture.samples)},
        left);
    return true;
  }

  /// What a picture tells: the fields that its materials draw, and the frame.
  FileTexts OriginOf(i32 frame) const {
    std::vector<StoredObject> fields;
    std::set<host::NodeId> listed;
    for (const host::BaseNode* medium : mSpec.media)
      for (const auto& [id, value] : medium->Values()) {
        const auto* link = std::get_if<host::Link>(&value);
        const host::BaseNode* node = link ? mScene.document->Find(link->node) : nullptr;
        if (node && listed.insert(node->Id()).second)
          fields.push_back({node->Name(), UnitOf(*node)});
      }
    // The clock of the simulation stands elsewhere where frames are played instead of simulated,
    // and the picture is the same.
    const ExportOrigin origin{SULVA_VERSION, frame, std::nullopt, mScene.document->fps,
                              mScene.simulation};
    return TextsOf(origin, fields);
  }

  double SecondsLeft(double partOfPicture) const {
    const double steps = mSteps.Left(), pictures = mPictures.Left(partOfPicture);
    return steps < 0 || pictures < 0 ? -1 : steps + pictures;
  }

  void PrintWarnings(bool isWhole) {
    for (const std::string& warning : mSimulation->TakeWarnings())
      mProgress.Note("warning: " + warning);
    for (std::size_t i = 0; isWhole && i < mWasDrawn.size(); ++i)
      if (!mWasDrawn[i])
        mProgress.Note(
            fmt::format("warning: material \"{}\" was never drawn: neither its smoke nor its fire "
                        "nor its third_field is a channel with a grid",
                        mSpec.media[i]->Name()));
    for (std::size_t i = 0; isWhole && i < mHadParticles.size(); ++i)
      if (!mHadParticles[i])
        mProgress.Note(
            fmt::format("warning: material \"{}\" was never drawn: its group held no "
                        "particles of its kind in any picture",
                        mSpec.particles[i]->Name()));
  }

  LoadedScene& mScene;
  const RenderSpec& mSpec;
  const fs::path mOut;
  const u64 mMemory;
  const bool mRecords;
  std::optional<host::FolderLock> mLock;
  std::optional<host::OutputGuard> mGuard;
  RecordingLocks mRecordingLocks;
  std::unique_ptr<Simulation> mSimulation;
  const FrameRange mSelected;
  Progress mProgress;
  i32 mFirst = 0;                ///< first frame that is evaluated
  bool mStartsAnywhere = false;  ///< all frames play from caches
  const NodeNames mNames;
  std::vector<std::unique_ptr<host::VolumeMaterial>> mMedia;
  std::vector<std::pair<host::NodeId, std::unique_ptr<host::Shader>>> mShaders;
  std::vector<std::unique_ptr<host::ParticleMaterial>> mParticles;
  std::set<std::string> mToldFaults;  ///< of clear bodies, one for each
  std::vector<bool> mWasDrawn;        ///< of the media
  std::vector<bool> mHadParticles;    ///< of the materials of particles
  WorkTimer mSteps, mPictures;
};

/// What the command line says of the pictures stands above the scene file.
void ApplyOptions(const RenderOptions& options, RenderSpec& spec) {
  if (options.size) {
    spec.width = options.size->width;
    spec.height = options.size->height;
  }
  if (options.samples) spec.settings->Set(host::kRenderSamples, *options.samples);
  const auto isExr = [](const std::string& file) { return fs::path(file).extension() == ".exr"; };
  if (!options.exr || std::any_of(spec.files.begin(), spec.files.end(), isExr)) return;
  const std::vector<std::string> files = spec.files;
  for (const std::string& file : files)
    spec.files.push_back(fs::path(file).replace_extension(".exr").string());
}

/// The folder that goes by a scene's name isn't shared with another scene of that name unseen.
void CheckOwner(const RenderOptions& options, const LoadedScene& scene, const fs::path& out) {
  const std::optional<ManifestContent> manifest = ReadManifest(out);
  if (options.out.empty() && manifest && IsOfAnother(*manifest, scene))
    throw CommandError(kExitUsage, fmt::format("{} holds what {} made, another scene of this name; "
                                               "name a folder with --out",
                                               out.string(), Shown(manifest->head.scene, 200)));
}

}  // namespace

int RenderScene(const RenderOptions& options) {
  host::InstallInterruptHandlers();
  if (options.threads > 0) host::SetThreadCount(options.threads);
  Diagnostics diagnostics;
  std::optional<LoadedScene> scene = LoadScene(options.scene, diagnostics, options.overrides);
  if (scene && !scene->render)
    diagnostics.Error({options.scene.string(), 1, 1},
                      "the scene has no 'render' section, so there is nothing to draw; give it one "
                      "with a camera, lights and a material of type gas");
  if (!options.quiet || diagnostics.HasErrors()) diagnostics.Print();
  if (diagnostics.HasErrors()) return kExitInvalidScene;
  ApplyOptions(options, *scene->render);
  const fs::path out = options.out.empty() ? fs::path("out") / options.scene.stem() : options.out;
  scene->document->folder = CacheFolderOf(out).string();
  WakeRenderCaches(*scene->document);
  try {
    CheckOwner(options, *scene, out);
    return PictureRun(*scene, options, out).Execute();
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
}

}  // namespace MELDO_GLOBAL::app
