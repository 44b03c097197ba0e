// The stages of a cache, and the files that it opens in them.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "cache/cache_operator.h"
#include "framework/cache_setup_rows.h"
#include "framework/scene.h"
#include "host/atomic_file.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;
namespace fs = std::filesystem;

namespace {

/// Which frames files have, and which are missing between them.
std::string RangeText(const std::vector<CacheFile>& files) {
  constexpr i64 kMostNamed = 5;
  std::string named;
  i64 missing = 0;
  for (std::size_t i = 1; i < files.size(); ++i)
    for (i64 gap = i64{files[i].number} - files[i - 1].number - 1, n = 1; n <= gap; ++n) {
      if (++missing <= kMostNamed)
        named += fmt::format("{}{}", missing == 1 ? "" : ", ", files[i - 1].number + n);
      else
        missing += gap - n, n = gap;
    }
  std::string text =
      fmt::format("the recording has frames {} to {}", files.front().number, files.back().number);
  if (missing > 0) text += " without " + named;
  if (missing > kMostNamed) text += fmt::format(" and {} more", missing - kMostNamed);
  return text;
}

/// The name of what a copy plays, of a node or of a part of it.
std::string NameOfOriginal(const std::string& name) {
  const std::size_t at = name.find(cache_setup::kCopySuffix);
  if (at == std::string::npos) return name;
  return std::string(name).erase(at, cache_setup::kCopySuffix.size());
}

}  // namespace

void Cache_OperatorBase::PrepareShared() {
  const i32 stage = mScene->mStage;
  const bool isSave = stage == kSaveCache, isLoad = stage == kLoadCache;
  if (isSave) ClearMarks();
  if (isLoad) NoteOldFiles();
  if (mObjects.empty()) return (void)Deactivate("it has no objects; name some under 'objects'");
  if (mRenderOnly && !mScene->IsForPictures()) return SetFlag(FLAG_ACTIVE, false);
  if (mFolderPath.empty()) return (void)Deactivate("it has no folder");
  double weight = 1;
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, weight))
    return SetFlag(FLAG_ACTIVE, false);
  SetUpNames();
  if (isSave) {
    // Behind a failure a frame isn't what it would have been.
    if (mMode == 0 || !mRun.mayRecord || !mScene->mReport.whole || HasAnyFailed())
      return SetFlag(FLAG_ACTIVE, false);
    SetFlag(FLAG_ACTIVE, MakeFolder());
    // The scene has dropped the links of all objects before.
    if (Has(FLAG_ACTIVE)) mFilters.Relink();
  } else if (isLoad) {
    SetFlag(FLAG_ACTIVE, mMode != 1 && PrepareLoad());
  }
}

bool Cache_OperatorBase::MakeFolder() {
  try {
    return mFileName.MakeFolder(true);
  } catch (const FileError& error) {
    Fail(error.what());
  }
  return false;
}

void Cache_OperatorBase::Prepare() {
  // What stage 0 settled holds in the stage of the data too.
  if (mScene->mStage != DataStage()) PrepareShared();
  if (mScene->mStage != kLoadCache && Has(FLAG_ACTIVE)) mFilters.Prepare(this);
}

void Cache_OperatorBase::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE) || !IsDirty()) return;
  if (mScene->mStage == kSaveCache) {
    WriteFrame();
    mPlayed = {};
  }
  if (mScene->mStage == DataStage()) ReadFrame();
}

void Cache_OperatorBase::Finish() {
  mFile.reset();
  SetFlag(FLAG_ACTIVE, false);
  mFilters.Finish(this);
}

// ---- which frame --------------------------------------------------------------------------------

i32 Cache_OperatorBase::FrameToRead() const {
  return FileFrame(mScene->mClock.frameFromStart, mScene->mClock.frame, EndToPlayFrom());
}

double Cache_OperatorBase::TimeToRead() const {
  return FileTime(mScene->mClock.frameFromStart, mScene->mClock.frame, EndToPlayFrom());
}

std::optional<i32> Cache_OperatorBase::EndToPlayFrom() const {
  CacheFolderInfo info;
  if (mBackwards) ScanCacheFolder(info);
  return info.found ? std::optional(info.lastFrame) : std::nullopt;
}

i32 Cache_OperatorBase::FileFrame(double fromStart, i32 frame, std::optional<i32> end) const {
  constexpr double kFarthest = 2e9;
  return static_cast<i32>(
      std::clamp(std::ceil(FileTime(fromStart, frame, end)), -kFarthest, kFarthest));
}

double Cache_OperatorBase::FileTime(double fromStart, i32 frame, std::optional<i32> end) const {
  const double shown = (mShowFrame == -1 ? fromStart : mShowFrame) * TimeScale();
  double t = shown > -1 ? shown + mFrameOffset : frame;
  // What goes on with a recording counts its files as it does when it writes them.
  const bool goesOn = Records() && mNumbering != 0 && mShowFrame == -1;
  if (goesOn && shown > -1 && !end) t += frame - fromStart;
  if (end) t = *end - t;
  // A tenth of 30 frames is 3 of them, whatever is lost in the last digit.
  constexpr double kNear = 1e-6;
  return std::abs(t - std::round(t)) < kNear ? std::round(t) : t;
}

bool Cache_OperatorBase::HasFrames(i32 first, i32 last) {
  if (mDuration || mRenderOnly || mFolderPath.empty()) return false;
  SetUpNames();
  i32 start, end;
  mScene->GetFrameRange(start, end);
  const std::optional<i32> played = EndToPlayFrom();
  for (i32 frame = first; frame <= last; ++frame) {
    fs::path path;
    mFileName.BuildPath(path, FileFrame(frame - start, frame, played));
    std::error_code failed;
    if (!fs::is_regular_file(path, failed)) return false;
  }
  return true;
}

i32 Cache_OperatorBase::FrameToWrite() const {
  return mNumbering != 0 ? mScene->mClock.frame : mScene->mClock.frameFromStart;
}

// ---- the file of a frame ------------------------------------------------------------------------

bool Cache_OperatorBase::PrepareLoad() {
  mPlayed = {};
  mFile = std::make_unique<HyperFile>();
  std::string problem;
  const auto fail = [&](const char* reason) {
    mFile.reset();
    return Deactivate(reason);
  };
  if (!OpenFrame(*mFile)) return fail("it has no file for the frame");
  if (!ReadHeader(*mFile, problem)) {
    mSpared = mFile->Name();
    Fail(problem);
    return fail("its file can't be read");
  }
  if (!CheckOrigin(*mFile, Origin())) return fail("its file is of another simulation");
  MatchObjects();
  TakePlaces();
  return true;
}

void Cache_OperatorBase::MatchObjects() {
  const std::size_t count = ChunkCount();
  const std::vector<StoredObject>& stored = Origin().objects;
  const std::vector<StoredObject> own = NamedObjects();
  mChunks.assign(own.size(), -1);
  std::vector<bool> isTaken(count);
  const auto take = [&](std::size_t object, std::size_t chunk) {
    mChunks[object] = static_cast<i32>(chunk);
    isTaken[chunk] = true;
  };
  const auto takeNamed = [&](auto&& nameOf) {
    for (std::size_t i = 0; i < own.size(); ++i)
      for (std::size_t chunk = 0; chunk < stored.size() && mChunks[i] < 0; ++chunk)
        if (!isTaken[chunk] && stored[chunk].name == nameOf(own[i].name)) take(i, chunk);
  };
  takeNamed([](const std::string& name) { return name; });
  takeNamed(NameOfOriginal);
  for (std::size_t i = 0; i < own.size(); ++i) {
    if (mChunks[i] >= 0) continue;
    const bool hasPlace = i < count && !isTaken[i];
    if (hasPlace) take(i, i);
    if (stored.empty()) continue;
    Warn(hasPlace ? fmt::format("the recording has no \"{}\"; it plays \"{}\", which stands at its "
                                "place in 'objects'",
                                own[i].name, stored[i].name)
                  : fmt::format("the recording has no \"{}\"", own[i].name));
  }
  if (stored.empty() && count != own.size())
    Warn(fmt::format("{}: it holds {} objects, 'objects' names {}", mFile->Name(), count,
                     own.size()));
}

void Cache_OperatorBase::WriteFrame() {
  HyperFile file;
  fs::path path;
  mFileName.BuildPath(path, FrameToWrite());
  if (path == mPlayed.path && !LacksAny()) return mWritten.push_back(mPlayed);
  // What was moved or stretched in time isn't what the recording's own frames hold.
  if (!mPlayed.path.empty() && PlaysOtherFrames()) return;
  if (path == mSpared) return;
  if (!mFileName.OpenForWrite(file, FrameToWrite(), path)) return Fail(file.Error());
  WriteBody(file);
  CacheOrigin origin = OriginOfFrame();
  origin.objects = NamedObjects();
  WriteOrigin(file, origin);
  if (!file.Close()) return Fail(file.Error());
  mWritten.push_back({path, file.Size(), file.Sum()});
  ++mRuns;
}

void Cache_OperatorBase::ReadFrame() {
  if (!mFile) return;
  std::vector<i32> fed(ChunkCount(), -1);
  bool feedsAll = fed.size() == mChunks.size();
  for (std::size_t i = 0; i < mChunks.size(); ++i) {
    if (mChunks[i] >= 0) {
      fed[mChunks[i]] = static_cast<i32>(i);
    } else {
      feedsAll = false;
    }
  }
  for (std::size_t chunk = 0; chunk < fed.size(); ++chunk) {
    i32 id, level;
    if (!mFile->ReadChunkStart(id, level)) break;
    if (fed[chunk] >= 0 && Feeds(fed[chunk], chunk)) {
      const bool isRead = ReadChunk(fed[chunk], chunk);
      if (!isRead)
        Fail(fmt::format("{}: the data of \"{}\" can't be read", mFile->Name(),
                         NamedObjects()[fed[chunk]].name));
      feedsAll = feedsAll && isRead;
    }
    if (!mFile->SkipToEndChunk() || !mFile->ReadChunkEnd()) break;
  }
  EndReading();
  if (!mFile->Error().empty()) Fail(mFile->Error());
  if (feedsAll && mFile->Error().empty()) mPlayed = {mFile->Name(), mFile->Size(), mFile->Sum()};
  mFile.reset();
}

bool Cache_OperatorBase::OpenFrame(HyperFile& file) {
  fs::path path;
  mSpared.clear();
  if (mFileName.OpenForRead(file, FrameToRead(), path)) return true;
  if (file.Error().empty()) {
    TellMissing(path);
    return false;
  }
  mSpared = path;
  Fail(file.Error());
  return false;
}

void Cache_OperatorBase::TellMissing(const fs::path& path) {
  const i32 frame = mScene->mClock.frame;
  if (mMode != 0 || frame < mRun.firstPlayed || frame > mRun.lastPlayed) return;
  const std::vector<CacheFile> files = ListCache(mFileName);
  // With an offset below 0 a recording starts late.
  if (mFrameOffset < 0 && !files.empty() &&
      (mBackwards ? FrameToRead() > files.back().number : FrameToRead() < files.front().number))
    return Warn(fmt::format(
        "'frame_offset' {} lets the recording start late: before, it shows nothing", mFrameOffset));
  const std::string what =
      files.empty() ? fmt::format("nothing is recorded in {}", path.parent_path().string())
                    : RangeText(files);
  Fail(fmt::format("cannot play {} in frame {}: it isn't there; {}", path.string(), frame, what));
}

CacheOrigin Cache_OperatorBase::OriginOfFrame() const {
  CacheOrigin origin;
  origin.version = SULVA_VERSION;
  origin.simulation = mRun.simulation;
  mFileName.FileStem(origin.stem, 0, false);
  origin.number = FrameToWrite();
  origin.frame = mScene->mClock.frame;
  origin.seconds = mTime->elapsed;
  origin.fps = mScene->GetDocument()->fps;
  return origin;
}

bool Cache_OperatorBase::CheckOrigin(const HyperFile& file, const CacheOrigin& origin) {
  if (origin.simulation == 0) return true;
  const auto fail = [&](const char* what) {
    mSpared = file.Name();
    Fail(fmt::format("{}: {}", file.Name(), what));
    return mGoesOn;
  };
  if (Records() && mRun.mayRecord && mRun.simulation != 0 && origin.simulation != mRun.simulation)
    return fail(
        "another simulation recorded it, so that this cache can't go on with it; delete the "
        "recording with `sulva cache delete`, or give the cache another base_name");
  if (mPlayedSimulation != 0 && mPlayedSimulation != origin.simulation)
    return fail(
        "another simulation recorded it than the frames before; record them again, all in one run");
  mPlayedSimulation = origin.simulation;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
