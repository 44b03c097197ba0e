#include "cache/cache_operator.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "cache/cache_rows.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "host/atomic_file.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostWarnings = 8;

}  // namespace

ParameterTable Cache_OperatorBase::WithRows(const RowNumbers& numbers, ParameterTable own) {
  ParameterTable table = {
      BoolRow(cache_row::kRenderOnly, "render_only", false,
              "rests while a scene is only simulated, and works when pictures are made")
          .To(&Cache_OperatorBase::mRenderOnly),
      LongRow(cache_row::kMode, "mode", 0, "",
              "record writes what was simulated, play_back shows it again without simulating, both "
              "plays what is there and records the rest")
          .Choices({{0, "play_back"}, {1, "record"}, {2, "both"}})
          .To(&Cache_OperatorBase::mMode),
      ButtonRow(1002, "choose_folder", "asks a person where the files go"),
      StringRow(cache_row::kCustomFolder, "custom_folder", "",
                "where the files lie, with folder = custom; a relative path starts at the scene "
                "file, or where none is there at the working directory")
          .To(&Cache_OperatorBase::mCustomFolder),
      StringRow(cache_row::kBaseName, "base_name", "",
                "how the names of the files begin; two caches in one folder need two of them")
          .To(&Cache_OperatorBase::mBaseName),
      LongRow(cache_row::kShowFrame, "show_frame", -1, "frames",
              "holds the picture at this one frame; -1 plays along with the run")
          .AtLeast(-1)
          .OnlyWith(cache_row::kMode, {cache_row::kPlayBack, cache_row::kBoth})
          .To(&Cache_OperatorBase::mShowFrame),
      LongRow(cache_row::kFrameOffset, "frame_offset", 0, "frames",
              "plays that many frames later in the recording; negative starts late")
          .OnlyWith(cache_row::kMode, {cache_row::kPlayBack, cache_row::kBoth})
          .To(&Cache_OperatorBase::mFrameOffset),
      LongRow(cache_row::kCompression, "compression", 0, "",
              "smaller files for a little time: small packs harder than fast; smooth fields shrink "
              "to a fraction, particles by a third or so; files of other tools are packed as their "
              "format has it, or not")
          .Choices({{0, "none"}, {1, "fast"}, {2, "small"}})
          .To(&Cache_OperatorBase::mCompression),
      LongRow(cache_row::kNumbering, "numbering", 0, "",
              "whether files count from the first simulated frame or by the scene's own frames; "
              "play_back takes them as counted from the first")
          .Choices({{0, "from_start"}, {1, "document"}})
          .To(&Cache_OperatorBase::mNumbering),
      LinksRow(cache_row::kObjects, "objects",
               "what is kept; play back with the list in the order in which it was recorded", {})
          .Required()
          .Writes()
          .To(&Cache_OperatorBase::mListed),
      LongRow(cache_row::kFolder, "folder", 0, "",
              "output follows each run's own folder, custom keeps one place for all of them")
          .Choices({{0, "output"}, {1, "custom"}})
          .To(&Cache_OperatorBase::mUseCustomFolder),
      BoolRow(cache_row::kBackwards, "backwards", false,
              "the recording plays in reverse, velocities too: what came out goes back in")
          .OnlyWith(cache_row::kMode, {cache_row::kPlayBack, cache_row::kBoth})
          .To(&Cache_OperatorBase::mBackwards),
      BoolRow(1030, "go_on_after_failure", false,
              "a frame that can't be written or played is a warning and doesn't end the run")
          .To(&Cache_OperatorBase::mGoesOn),
      StringRow(numbers.statistics, "statistics", "",
                "filled in by the program: first and last file, size and gaps")
          .Kept(),
      StringRow(numbers.fileStatistics, "file_statistics", "",
                "filled in by the program: what the file of this frame holds")
          .Kept(),
      ButtonRow(numbers.deleteFiles, "delete_files", "what `sulva cache delete` does"),
      ButtonRow(numbers.chooseObjects, "choose_objects", "picks or makes what is to be recorded"),
      LinkRow(numbers.duration, "duration", "records and plays only inside this time window",
              {Duration::Kind().id})
          .To(&Cache_OperatorBase::mDuration),
      ButtonRow(numbers.chooseDuration, "choose_duration", "picks or makes a time window"),
      LongRow(numbers.digits, "digits", 5, "",
              "width of the frame number in the names of files: 5 gives 00012")
          .Range(1, 6)
          .To(&Cache_OperatorBase::mDigits),
  };
  table.insert(table.end(), own.begin(), own.end());
  return table;
}

ParameterRow& Cache_OperatorBase::ObjectsRow(ParameterTable& table) {
  return *std::find_if(table.begin(), table.end(),
                       [](const ParameterRow& row) { return row.id == cache_row::kObjects; });
}

Cache_OperatorBase::Cache_OperatorBase(BaseNode* node, Scene* scene, std::string defaultName)
    : iObject(node, scene), mFileName(std::move(defaultName)) {}

bool Cache_OperatorBase::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  mFolderPath = ReadFolder();
  return true;
}

fs::path Cache_OperatorBase::ReadFolder() {
  const Document& document = *mScene->GetDocument();
  const fs::path custom = mCustomFolder;
  if (!mUseCustomFolder) return document.folder;
  if (custom.empty() || custom.is_absolute()) return custom;
  const fs::path beside = fs::path(document.sceneFolder) / custom;
  std::error_code failed;
  if (!fs::is_directory(beside, failed) && fs::is_directory(custom, failed)) return custom;
  return beside;
}

bool Cache_OperatorBase::ResolveLinks() {
  mObjects.clear();
  if (!iObject::ResolveLinks()) return false;
  CollectListed();
  for (iBase* object : mListed)
    if (std::find(mObjects.begin(), mObjects.end(), object) == mObjects.end())
      mObjects.push_back(object);
  // Caches are asked before the set-up passes of the frame.
  if (mDuration) mDuration->ReadParameters();
  // All caches fetch their links before the first one marks what it feeds, so that none takes the
  // mark from what another feeds. What no file feeds in this frame works for itself.
  ClearMarks();
  return true;
}

void Cache_OperatorBase::ClearMarks() {
  for (iBase* object : mObjects) object->SetFlag(FLAG_CACHED, false);
}

void Cache_OperatorBase::ClearLinks() {
  mObjects.clear();
  iObject::ClearLinks();
}

void Cache_OperatorBase::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  const bool changed = mScene->mFlags & (Scene::kDomainChanged | Scene::kTimeChanged);
  if (changed || (IsDirty() && (mMode == 0 || !mTime->IsUnderWay()))) {
    MarkDirty(false);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

// ---- what goes wrong ----------------------------------------------------------------------------

void Cache_OperatorBase::Warn(const std::string& text) {
  if (mWarnings.size() > kMostWarnings ||
      std::find(mWarnings.begin(), mWarnings.end(), text) != mWarnings.end())
    return;
  mWarnings.push_back(mWarnings.size() < kMostWarnings ? text : "more of its files have faults");
}

void Cache_OperatorBase::Fail(const std::string& text) {
  if (mGoesOn) return Warn(text);
  if (mFailure.empty())
    mFailure =
        fmt::format("cache \"{}\": {}; go_on_after_failure would let the run go on", mName, text);
}

bool Cache_OperatorBase::HasAnyFailed() const {
  for (const auto& [id, object] : mScene->List(kListCaches))
    if (const auto* cache = dynamic_cast<const Cache_OperatorBase*>(object.get()))
      if (!cache->mFailure.empty()) return true;
  return false;
}

// ---- the folder ---------------------------------------------------------------------------------

void Cache_OperatorBase::SetUpNames() {
  mFileName.SetFolder(mFolderPath);
  mFileName.SetName(mBaseName);
  mFileName.SetFormat(mFormat + FirstFormat());
  mFileName.SetDigits(mDigits);
}

std::string Cache_OperatorBase::DeleteCacheFiles() {
  ReadParameters();
  SetUpNames();
  std::string problem;
  for (const CacheFile& entry : ListCache(mFileName)) {
    if (IsOfAnother(entry, mFileName)) continue;
    std::error_code failed;
    fs::remove(entry.path, failed);
    if (failed && problem.empty())
      problem = fmt::format("cannot delete {}: {}", entry.path.string(), failed.message());
  }
  return problem;
}

void Cache_OperatorBase::UpdateStatistics() {
  ReadParameters();
  SetUpNames();
  CacheFolderInfo info;
  ScanCacheFolder(info);
  if (!info.found) return;
  fs::path path;
  mFileName.BuildPath(path, FrameToRead());
  std::error_code failed;
  if (!fs::exists(path, failed)) path = ListCache(mFileName).front().path;
  mInterface.SetString(Numbers().statistics, StatisticsOf(info).c_str());
  mInterface.SetString(Numbers().fileStatistics, DescribeFile(path).c_str());
}

const CacheName& Cache_OperatorBase::ReadNames() {
  ReadParameters();
  SetUpNames();
  return mFileName;
}

bool Cache_OperatorBase::CanDoWithout(const fs::path& file) {
  ReadNames();
  const auto whole = [](const fs::path& path) { return fs::absolute(path).lexically_normal(); };
  CacheName names = mFileName;
  names.SetFolder(whole(mFolderPath));
  return mGoesOn && !mFolderPath.empty() && names.IsOwn(whole(file));
}

bool Cache_OperatorBase::NoteOldFiles() {
  if (!Plays() || !Records() || mFolderPath.empty()) return false;
  if (mHasNoted) return true;
  mHasNoted = true;
  SetUpNames();
  for (const CacheFile& entry : ListCache(mFileName)) mOldFrames.push_back(entry.number);
  return true;
}

void Cache_OperatorBase::ForgetOldFiles() {
  mHasNoted = false;
  mOldFrames.clear();
}

void Cache_OperatorBase::PersistOldFiles(StateArchive& archive) { archive(mHasNoted, mOldFrames); }

void Cache_OperatorBase::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  PersistOldFiles(archive);
}

void Cache_OperatorBase::DropFramesBehind(i32 last) {
  ReadParameters();
  if (mFolderPath.empty() || !Records()) return;
  SetUpNames();
  RemoveUnfinished(mFileName);
  if (!Plays() || !mHasNoted) return;
  std::error_code failed;
  for (const CacheFile& entry : ListCache(mFileName))
    if (entry.number > last &&
        std::find(mOldFrames.begin(), mOldFrames.end(), entry.number) == mOldFrames.end() &&
        !IsOfAnother(entry, mFileName))
      fs::remove(entry.path, failed);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
