// What all cachers share: which files, which frame, and what goes wrong with them.
#pragma once
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cache/cache_folder.h"
#include "cache/cache_origin.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What caches have to know of the run that they work in.
struct CacheRun {
  u64 simulation = 0;     ///< fingerprint of what is simulated; 0 where nobody knows it
  bool mayRecord = true;  ///< else caches that record write nothing
  /// The frames of the document in which a cache that plays has to have a file.
  i32 firstPlayed = std::numeric_limits<i32>::min();
  i32 lastPlayed = std::numeric_limits<i32>::max();
};

/// Base of the cachers. Mode 0 plays back, 1 records, any other does both.
///
/// In stage 0 a cacher reads what its file says of sizes and marks the objects that it feeds with
/// FLAG_CACHED, in the stage that its data are wanted in it fills them, in stage 17 it writes the
/// frame. It keeps no data of a frame, and no file stays open.
class Cache_OperatorBase : public iObject {
 public:
  Cache_OperatorBase(host::BaseNode* node, Scene* scene, std::string defaultName);
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;

  /// Deletes all files of this cache: those of its stem and suffix in its folder, unless they say
  /// that they are another's. Why the first one that is left couldn't be deleted; empty if none is.
  virtual std::string DeleteCacheFiles();
  virtual void ScanCacheFolder(CacheFolderInfo& info) const { info = ScanCache(mFileName); }
  /// The text about what a file holds, or about what is wrong with it.
  virtual std::string DescribeFile(const std::filesystem::path& path) const = 0;
  /// Scans and stores both texts in the node.
  void UpdateStatistics();
  /// The second of the texts that `UpdateStatistics` stored.
  std::string FileStatistics() const { return mInterface.GetString(Numbers().fileStatistics, ""); }
  /// Whether there is a file to play for each of these frames of the document; false where that
  /// hangs on more than the frame. After `ReadParameters` and `ResolveLinks`.
  bool HasFrames(i32 first, i32 last);
  const std::vector<iBase*>& Objects() const { return mObjects; }
  void SetRun(const CacheRun& run) { mRun = run; }
  /// The files that stand for the frame: written in it, or played by a cache that would have
  /// written it. Forgets them.
  std::vector<WrittenFile> TakeWritten() { return std::exchange(mWritten, {}); }
  /// Before a run's first frame: a cache that plays and records keeps in mind which of its files
  /// are older than the run. Whether it is one.
  bool NoteOldFiles();
  void PersistOldFiles(StateArchive& archive);
  void ForgetOldFiles();
  /// Before a run goes on from a checkpoint: removes unfinished files and, from a cache that would
  /// play them, what the run had recorded beyond the present frame.
  void DropLaterFrames() { DropFramesBehind(FrameToWrite()); }
  /// The same for a run that starts over.
  void DropAllFrames() { DropFramesBehind(std::numeric_limits<i32>::min()); }

  /// What ends the run: why a frame couldn't be written or played, the first time; empty if all
  /// were.
  const std::string& Failure() const { return mFailure; }
  /// Folder and names of its files, as its parameters say now.
  const CacheName& ReadNames();
  /// Whether the scene says that a run goes on without this file, which is one of the cache's own.
  bool CanDoWithout(const std::filesystem::path& file);
  /// What was wrong with files that were read or written, each once.
  const std::vector<std::string>& Warnings() const { return mWarnings; }
  /// Those that came since the last call.
  std::vector<std::string> TakeWarnings() override {
    const std::size_t first = std::exchange(mTaken, mWarnings.size());
    return {mWarnings.begin() + static_cast<std::ptrdiff_t>(first), mWarnings.end()};
  }
  bool Records() const { return mMode != 0; }
  bool Plays() const { return mMode != 1; }
  const CacheName& FileNames() const { return mFileName; }

 protected:
  /// The parameters whose numbers differ between the kinds.
  struct RowNumbers {
    i32 statistics, fileStatistics, deleteFiles, chooseObjects, duration, chooseDuration, digits;
  };
  virtual const RowNumbers& Numbers() const = 0;
  /// The rows of all kinds, and those of one.
  static host::ParameterTable WithRows(const RowNumbers& numbers, host::ParameterTable own);
  /// The row that lists what is kept.
  static host::ParameterRow& ObjectsRow(host::ParameterTable& table);
  /// Added to the format parameter.
  virtual i32 FirstFormat() const { return 0; }
  /// The stage that the data are wanted in.
  virtual i32 DataStage() const { return kEmitters; }
  /// How many frames of the recording pass in a frame.
  virtual double TimeScale() const { return 1; }

  // What a kind of cache says of its files. A file has a chunk for each object that was listed.

  /// What stands in chunks is named so, in the order of the chunks that `WriteBody` writes.
  virtual std::vector<StoredObject> NamedObjects() const = 0;
  /// Whether there is something of these objects that the file which is played lacks.
  virtual bool LacksAny() const = 0;
  virtual void WriteBody(HyperFile& file) = 0;
  /// Reads what precedes the chunks, and where they end; on false `problem` names the file and
  /// tells why.
  virtual bool ReadHeader(HyperFile& file, std::string& problem) = 0;
  virtual std::size_t ChunkCount() const = 0;
  virtual const CacheOrigin& Origin() const = 0;
  /// What `Prepare` does in stage 0 once everything is settled: opens the file of the frame, and
  /// tells whether there is something to play.
  virtual bool PrepareLoad();
  /// Fills `mListed` where its row leads elsewhere.
  virtual void CollectListed() {}
  /// What its files fed works for itself again.
  virtual void ClearMarks();
  /// Marks what the file feeds, and makes room for it.
  virtual void TakePlaces() = 0;
  /// Whether a chunk has data that its object takes.
  virtual bool Feeds(std::size_t object, std::size_t chunk) const = 0;
  /// Reads the data of a chunk that was entered; false where they can't be read.
  virtual bool ReadChunk(std::size_t object, std::size_t chunk) = 0;
  /// Behind the last chunk of a frame.
  virtual void EndReading() {}
  /// The chunk that feeds an object; -1 for none.
  i32 ChunkOf(std::size_t object) const { return mChunks[object]; }

  /// Sets folder, name, suffix and digits.
  void SetUpNames();
  /// The frame whose file is read now.
  i32 FrameToRead() const;
  /// The same, with the part of a frame at which a scaled time stands.
  double TimeToRead() const;
  /// What of a recording is played backwards: the number of its last file; none where it isn't, or
  /// nothing is there.
  std::optional<i32> EndToPlayFrom() const;
  /// The frame whose file is read in a frame of the document, `fromStart` behind the first.
  i32 FileFrame(double fromStart, i32 frame, std::optional<i32> end) const;
  double FileTime(double fromStart, i32 frame, std::optional<i32> end) const;
  i32 FrameToWrite() const;
  /// How fast what is played moves, as a multiple of what was recorded; below 0 it goes back. A
  /// frame that is held is a look at what moves, and keeps its velocities.
  double PlayedRate() const { return mShowFrame == -1 ? TimeScale() * (mBackwards ? -1 : 1) : 1.0; }
  /// Whether the file that is played in a frame may be another one than that of the frame.
  bool PlaysOtherFrames() const {
    return TimeScale() != 1 || mBackwards || mFrameOffset != 0 || mShowFrame != -1;
  }
  /// A file stands for the frame.
  void NoteWritten(WrittenFile file) { mWritten.push_back(std::move(file)); }
  /// Tells that the file to play is missing: a failure where a recording has a hole or ends.
  void TellMissing(const std::filesystem::path& path);
  /// Opens the file to read. One that is there but can't be read is a failure, and one that is
  /// missing where a recording has a hole or ends.
  bool OpenFrame(HyperFile& file);
  /// The file of the frame that is played, from stage 0 until its data are read.
  HyperFile& PlayedFile() { return *mFile; }
  /// Holds the origin of the file that is played against this run and what was played before;
  /// false, with a failure, where it is of another simulation.
  bool CheckOrigin(const HyperFile& file, const CacheOrigin& origin);
  CacheOrigin OriginOfFrame() const;
  /// From now on this file isn't written over; with an empty path any may be.
  void Spare(const std::filesystem::path& path) { mSpared = path; }
  bool IsSpared(const std::filesystem::path& path) const { return path == mSpared; }
  void Warn(const std::string& text);
  /// A failure, or a warning where the scene says that the run goes on.
  void Fail(const std::string& text);

  CacheName mFileName;
  bool mUseCustomFolder = false;
  ConstraintList mFilters;
  Duration* mDuration = nullptr;
  std::vector<iBase*> mListed;   ///< as the scene lists them
  std::vector<iBase*> mObjects;  ///< the same, each once
  bool mRenderOnly = false;
  i32 mMode = 0;
  std::filesystem::path mFolderPath;
  std::string mCustomFolder;
  std::string mBaseName;
  i32 mDigits = 5;
  i32 mShowFrame = -1;  ///< -1 follows the run
  i32 mFrameOffset = 0;
  bool mBackwards = false;
  i32 mCompression = 0;
  i32 mFormat = 0;
  i32 mNumbering = 0;  ///< of written files: 0 counts from the start, else the document's frame
  CacheRun mRun;

 private:
  /// Leaves FLAG_ACTIVE as the stage asks for it.
  void PrepareShared();
  void WriteFrame();
  void ReadFrame();
  /// Finds for each object its chunk, by its name or where the file has none by its place.
  void MatchObjects();
  std::filesystem::path ReadFolder();
  bool MakeFolder();
  void DropFramesBehind(i32 last);
  bool HasAnyFailed() const;

  std::vector<WrittenFile> mWritten;
  bool mGoesOn = false;
  std::unique_ptr<HyperFile> mFile;
  std::vector<i32> mChunks;   ///< of each object
  WrittenFile mPlayed;        ///< the file that feeds all objects in this frame, if one does
  u64 mPlayedSimulation = 0;  ///< fingerprint of the files that were played; 0 before the first
  /// This file is never written: it holds what can't be read, or another simulation.
  std::filesystem::path mSpared;
  bool mHasNoted = false;
  std::vector<i32> mOldFrames;  ///< of files that are older than the run
  std::string mFailure;
  std::vector<std::string> mWarnings;
  std::size_t mTaken = 0;  ///< of these
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
