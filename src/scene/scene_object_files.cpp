// Files that objects of a scene file name, one or one for each frame.
#include <fmt/format.h>

#include <filesystem>

#include "exchange/particles_object.h"
#include "host/file_error.h"
#include "host/frame_files.h"
#include "host/mesh_files.h"
#include "host/polygon_object.h"
#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

using namespace host;

std::optional<std::string> SceneBuilder::ReadFileName(const JsonValue& value,
                                                      const Subject& subject,
                                                      const std::string& what) {
  auto name = mContext.ReadText(value, subject, what);
  if (!name || (!name->empty() && name->find('\0') == std::string::npos)) return name;
  mContext.Error(value, subject,
                 fmt::format("{}: expected the name of a file, got {}", what,
                             name->empty() ? "an empty text" : "text with a zero byte"));
  return {};
}

void SceneBuilder::ReadMesh(const JsonValue& value, BaseNode& node, const Subject& subject) {
  const JsonValue* file = value.Find("file");
  const JsonValue* frames = value.Find("frames");
  if (!file == !frames) {
    mContext.Error(value, subject,
                   file ? "'file' and 'frames' can't both be given"
                        : "'file' is missing (or 'frames', a file per frame)");
    return;
  }
  const std::optional<bool> goesOn = ReadGoesOn(value, frames, "'frames'", subject);
  if (!goesOn) return;
  if (frames) return ReadFrames(*frames, *goesOn, node, subject);
  const auto path = ReadFileName(*file, subject, "'file'");
  if (!path) return;
  try {
    static_cast<PolygonObject&>(node).SetGeometry(LoadMesh(mContext.Resolve(*path)));
  } catch (const MeshFileError& error) {
    mContext.Error(*file, subject, fmt::format("'file': {}", error.what()));
  }
}

std::optional<bool> SceneBuilder::ReadGoesOn(const JsonValue& value, bool hasFrames,
                                             const char* key, const Subject& subject) {
  const JsonValue* given = value.Find("go_on_after_failure");
  if (!given) return false;
  if (hasFrames && given->Bool()) return *given->Bool();
  mContext.Error(*given, subject,
                 hasFrames ? "'go_on_after_failure': expected true or false"
                           : fmt::format("'go_on_after_failure' counts for {} alone", key));
  return {};
}

void SceneBuilder::WarnOfHoles(const JsonValue& frames, const char* key, const std::string& pattern,
                               const Subject& subject) {
  const std::map<i32, std::filesystem::path> files = FilesOfSequence(pattern);
  for (auto file = files.begin(); file != files.end(); ++file) {
    const auto next = std::next(file);
    const i64 missing = i64{file->first} + 1;
    if (next == files.end() || next->first == missing || next->first <= mFirstFrame) continue;
    if (missing > mLastFrame) return;
    mContext.Warning(
        frames, subject,
        fmt::format("{}: {} is missing: the run will end there, unless "
                    "'go_on_after_failure' of the object is true",
                    key,
                    FrameFileName(pattern, static_cast<i32>(std::max<i64>(missing, mFirstFrame)))));
    return;
  }
}

void SceneBuilder::ReadFrames(const JsonValue& frames, bool goesOn, BaseNode& node,
                              const Subject& subject) {
  const auto path = ReadFileName(frames, subject, "'frames'");
  if (!path) return;
  if (path->find('#') == std::string::npos) {
    mContext.Error(frames, subject, "'frames': expected a run of # for the frame number");
    return;
  }
  const std::string pattern = mContext.Resolve(*path).string();
  const auto name = FirstOfFrames(frames, "'frames'", pattern, *path, subject);
  if (!name) return;
  auto& object = static_cast<PolygonObject&>(node);
  try {
    object.SetGeometry(LoadMesh(*name));
    object.SetFramePattern(pattern, goesOn);
    object.Animate(mFirstFrame);
    if (!goesOn) WarnOfHoles(frames, "'frames'", pattern, subject);
  } catch (const MeshFileError& error) {
    mContext.Error(frames, subject, fmt::format("'frames': {}", error.what()));
  }
}

std::optional<std::string> SceneBuilder::FirstOfFrames(const JsonValue& value, const char* key,
                                                       const std::string& pattern,
                                                       const std::string& told,
                                                       const Subject& subject) {
  // A range may be absurdly long; a sequence that begins later than this is taken for missing.
  constexpr i64 kMostFrames = 10000;
  const i64 last = std::min<i64>(mLastFrame, mFirstFrame + kMostFrames - 1);
  for (i64 frame = mFirstFrame; frame <= last; ++frame) {
    std::string name = FrameFileName(pattern, static_cast<i32>(frame));
    std::error_code ignored;
    if (std::filesystem::is_regular_file(name, ignored)) return name;
  }
  const std::string instead = PatternInstead(pattern);
  const bool hasOther = !instead.empty() && instead != pattern;
  const auto asTold = [&] {
    return std::filesystem::path(told).replace_filename(std::filesystem::path(instead).filename());
  };
  mContext.Error(
      value, subject,
      fmt::format("{}: no file {} in the frames {} to {}{}", key, Shown(told), mFirstFrame, last,
                  hasOther ? fmt::format("; did you mean '{}'?", Shown(asTold().string())) : ""));
  return {};
}

void SceneBuilder::ReadParticleFile(const JsonValue& value, BaseNode& node,
                                    const Subject& subject) {
  // Without a file a simulation may hand particles over to it.
  const JsonValue* file = value.Find("file");
  if (!file) return void(ReadGoesOn(value, false, "a 'file' with a run of #", subject));
  const auto path = ReadFileName(*file, subject, "'file'");
  if (!path) return;
  const bool hasFrames = path->find('#') != std::string::npos;
  const auto goesOn = ReadGoesOn(value, hasFrames, "a 'file' with a run of #", subject);
  if (!goesOn) return;
  auto& object = static_cast<exchange::ParticlesObject&>(node);
  std::string name = mContext.Resolve(*path).string();
  try {
    if (hasFrames) {
      const auto first = FirstOfFrames(*file, "'file'", name, *path, subject);
      if (!first) return;
      object.SetFramePattern(name, *goesOn);
      if (!*goesOn) WarnOfHoles(*file, "'file'", name, subject);
      name = *first;
    }
    object.Load(name);
    for (const std::string& warning : object.Table().warnings)
      mContext.Warning(
          *file, subject,
          fmt::format("'file': {}: {}", Shown(std::filesystem::path(name).filename().string()),
                      warning));
  } catch (const FileError& error) {
    mContext.Error(*file, subject, fmt::format("'file': {}", error.what()));
  } catch (const MeshFileError& error) {
    mContext.Error(*file, subject, fmt::format("'file': {}", error.what()));
  }
}

}  // namespace MELDO_GLOBAL::app
