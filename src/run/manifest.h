// The list of what a run wrote: manifest.jsonl.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cache/hyper_file.h"
#include "io/frame_log.h"

namespace MELDO_GLOBAL::app {

class JsonLine;

inline constexpr std::string_view kManifestName = "manifest.jsonl";

/// What a manifest begins with: whose files they are.
struct ManifestHead {
  std::string version;              ///< of the program
  std::string scene;                ///< the scene file's path, absolute
  u64 fingerprint = 0;              ///< see `LoadedScene::fingerprint`
  u64 simulation = 0;               ///< see `LoadedScene::simulation`
  std::optional<i32> branchedAt{};  ///< the frame behind which it left another run
};

/// What it ends with, unless the run was killed.
struct ManifestEnd {
  i32 first = 0, last = 0;  ///< the frames that were asked for
  int exitCode = 0;
  std::vector<WrittenFile> files{};  ///< of the whole run, paths as those of a frame
  /// The run came to its own end; one that didn't may go on.
  bool IsWhole() const;
};

struct ManifestFrame {
  i32 frame = 0;
  std::vector<WrittenFile> files;  ///< paths relative to the output folder where they lie in it
};

struct ManifestContent {
  ManifestHead head;
  std::vector<ManifestFrame> frames;
  std::optional<ManifestEnd> end;

  bool Has(i32 frame) const;
  /// Whether the run had come so far behind this frame.
  bool Covers(i32 frame) const { return Has(frame) || head.branchedAt == frame; }
};

/// Nothing where there is no manifest. Throws host::FileError where it can't be read.
std::optional<ManifestContent> ReadManifest(const std::filesystem::path& out);

/// Writes the manifest of a run: a head, a line for each frame with its files, their sizes and
/// checksums, and an end. Equal runs give equal bytes. All of it throws host::FileError.
class Manifest {
 public:
  explicit Manifest(std::filesystem::path out);

  /// A new one. What was there comes back by `GiveBack`, as long as no frame was added.
  void Start(const ManifestHead& head);
  /// Whether it did.
  bool GiveBack();
  /// Goes on behind a frame with the one that is there; lines of later frames stay as long as all
  /// their files are there.
  void GoOn(const ManifestHead& head, i32 frame);

  void Add(i32 frame, const std::vector<WrittenFile>& files);
  void End(const ManifestEnd& end);
  void Sync() { mLog.Sync(); }

 private:
  std::string NameOf(const std::filesystem::path& file) const;
  void AddFiles(JsonLine& line, const std::vector<WrittenFile>& files) const;

  std::filesystem::path mOut;
  FrameLog mLog;
  std::optional<std::string> mBefore;  ///< the bytes that were there
};

/// Whether all files of a frame are there with their sizes; the first that isn't goes to `missing`.
bool FilesAreThere(const std::filesystem::path& out, const ManifestFrame& frame,
                   std::string& missing);

}  // namespace MELDO_GLOBAL::app
