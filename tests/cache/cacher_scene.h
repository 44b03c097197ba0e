// A scene with a cache, for tests that record and play without the pipeline.
#pragma once
#include <filesystem>

#include "cache/cache_rows.h"
#include "fluids/test_scene.h"
#include "host/console.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Records into and plays from a folder what tests add and list in `cacher`.
template <class Cacher>
struct CacherScene : TestScene {
  Cacher& cacher;

  CacherScene(const char* type, const std::filesystem::path& folder, i32 mode,
              double cellSize = 0.1)
      : TestScene(cellSize), cacher(Add<Cacher>(type, "recording")) {
    host::TheConsole().print = [](std::string_view) {};
    document.folder = folder.string();
    Set(cacher, cache_row::kMode, mode);
    scene->mReport.whole = true;
    scene->mClock.startFrame = 0;
    scene->mTime.elapsed = 0.04;
    scene->mTime.frameIndex = 1;
  }
  ~CacherScene() { host::TheConsole().print = nullptr; }

  void SetFrame(i32 frame) {
    scene->mClock.frame = frame;
    scene->mClock.frameFromStart = frame - scene->mClock.startFrame;
    scene->mFlags |= Scene::kTimeChanged;
  }
  void Save(i32 frame) {
    ReadLinks(frame);
    Stage(cacher, kSaveCache);
    cacher.Finish();
    cacher.ClearLinks();
  }

 protected:
  /// Sets the frame and prepares the first of its stages.
  void BeginLoad(i32 frame) {
    ReadLinks(frame);
    scene->SetStage(kLoadCache);
    cacher.Prepare();
  }
  void Stage(iObject& object, i32 stage) {
    scene->SetStage(stage);
    object.Prepare();
    object.Evaluate({});
  }
  /// Behind the links that the scene resolves.
  virtual void ConnectMore() {}

 private:
  void ReadLinks(i32 frame) {
    SetFrame(frame);
    cacher.ReadParameters();
    cacher.ResolveLinks();
    ConnectMore();
    cacher.CheckDirty();
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
