#include "cli/command_verify.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "cache/cache_contents.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "io/frame_log.h"
#include "run/checkpoint.h"
#include "run/manifest.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// "frame 4", or "frames 4 to 9".
std::string Frames(i32 first, i32 last) {
  return first == last ? fmt::format("frame {}", first)
                       : fmt::format("frames {} to {}", first, last);
}

class Verifier {
 public:
  Verifier(const fs::path& out, const ManifestContent& manifest) : mOut(out), mManifest(manifest) {}

  void CheckEnd() {
    if (!mManifest.end) {
      Find("the run was cut short: its manifest has no end");
    } else if (mManifest.end->exitCode != kExitDone) {
      Find(fmt::format("the run ended with exit code {}", mManifest.end->exitCode));
    }
  }

  /// The frames that were asked for, in the manifest and in the statistics.
  void CheckHoles() {
    std::vector<i32> listed, told;
    for (const ManifestFrame& frame : mManifest.frames) listed.push_back(frame.frame);
    TellHoles(listed, "the manifest has no ");
    try {
      std::istringstream lines(host::ReadFile(mOut / "stats.jsonl"));
      for (std::string line; std::getline(lines, line);)
        if (const std::optional<i32> frame = FrameOfLine(line)) told.push_back(*frame);
      TellHoles(told, "stats.jsonl has no ");
    } catch (const host::FileError& error) {
      Find(error.what());
    }
  }

  void CheckFiles() {
    for (const ManifestFrame& frame : mManifest.frames)
      for (const WrittenFile& file : frame.files)
        CheckFile(fmt::format("frame {}", frame.frame), file);
    if (!mManifest.end) return;
    for (const WrittenFile& file : mManifest.end->files) CheckFile("the whole run", file);
  }

  void CheckCheckpoints() {
    std::error_code failed;
    std::vector<fs::path> paths;
    for (fs::directory_iterator entry(mOut / "checkpoints", failed), end; !failed && entry != end;
         entry.increment(failed))
      if (entry->path().extension() == ".checkpoint") paths.push_back(entry->path());
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
      ++mFiles;
      HyperFile file;
      CheckpointHeader header;
      if (!file.Open(kCheckpointIdent, path, HyperFile::Mode::kRead)) {
        Find(file.Error());
      } else if (!ReadCheckpointHeader(file, header)) {
        Find(fmt::format("{}: another build of sulva wrote it", path.string()));
      } else if (header.scene != mManifest.head.fingerprint) {
        Find(fmt::format("{}: it is of the scene {:016x}, the run is of {:016x}", path.string(),
                         header.scene, mManifest.head.fingerprint));
      } else if (header.format != kCheckpointFormat) {
        Find(fmt::format("{}: its format is {}, and this build goes on from format {} alone",
                         path.string(), header.format, kCheckpointFormat));
      } else if (const std::string stem = path.stem().string();
                 stem != kStartCheckpoint && stem != fmt::format("{:05}", header.run.frame)) {
        Find(fmt::format("{}: it is the state behind frame {}, whatever its name says",
                         path.string(), header.run.frame));
      }
    }
  }

  /// Recordings of other runs that lie beside those of this one.
  void CheckStrays() {
    std::set<std::string> own;
    for (const ManifestFrame& frame : mManifest.frames)
      for (const WrittenFile& file : frame.files) own.insert(file.path);
    std::error_code failed;
    std::set<fs::path> strays;
    for (fs::directory_iterator entry(mOut / "cache", failed), end; !failed && entry != end;
         entry.increment(failed))
      if (HasCacheSuffix(entry->path()) &&
          !own.contains(entry->path().lexically_relative(mOut).generic_string()))
        strays.insert(entry->path());
    for (const fs::path& path : strays)
      if (const u64 simulation = OriginOf(path).simulation;
          simulation != 0 && simulation != mManifest.head.simulation)
        Find(fmt::format("{}: it is left of the simulation {:016x}, the run is of {:016x}",
                         path.string(), simulation, mManifest.head.simulation));
  }

  int Conclude() const {
    fmt::print("{}: {} frame{}, {} file{}, {}\n", host::Escaped(mOut.string()),
               mManifest.frames.size(), mManifest.frames.size() == 1 ? "" : "s", mFiles,
               mFiles == 1 ? "" : "s",
               mFindings == 0   ? "all whole"
               : mFindings == 1 ? "1 finding"
                                : fmt::format("{} findings", mFindings));
    return mFindings == 0 ? kExitDone : kExitFile;
  }

 private:
  void Find(const std::string& text) {
    fmt::print("{}\n", host::Escaped(text));
    ++mFindings;
  }

  /// `frames` rise.
  void TellHoles(const std::vector<i32>& frames, const std::string& what) {
    if (frames.empty() && !mManifest.end) return;
    i64 next = mManifest.end ? mManifest.end->first : frames.front();
    if (mManifest.head.branchedAt) next = std::max(next, i64{*mManifest.head.branchedAt} + 1);
    const i64 last = mManifest.end && mManifest.end->exitCode == kExitDone
                         ? mManifest.end->last
                         : (frames.empty() ? next - 1 : i64{frames.back()});
    const auto tell = [&](i64 end) {
      if (next <= end) Find(what + Frames(static_cast<i32>(next), static_cast<i32>(end)));
    };
    for (const i32 frame : frames) {
      if (frame < next) continue;
      tell(std::min<i64>(last, i64{frame} - 1));
      next = i64{frame} + 1;
    }
    tell(last);
  }

  /// `owner`: what it is of.
  void CheckFile(const std::string& owner, const WrittenFile& file) {
    ++mFiles;
    const fs::path path = mOut / file.path;
    const auto find = [&](const std::string& what) {
      Find(fmt::format("{}: of {}: {}", path.string(), owner, what));
    };
    std::error_code failed;
    if (!fs::exists(fs::symlink_status(path, failed))) return find("it is missing");
    try {
      const std::string bytes = host::ReadFile(path);
      if (bytes.size() != file.bytes)
        return find(fmt::format("it has {} bytes, the run wrote {}", bytes.size(), file.bytes));
      if (ChecksumOf(bytes) != file.sum) return find("its bytes are others than the run wrote");
      if (HasCacheSuffix(path)) CheckOrigin(path, bytes, find);
    } catch (const host::FileError& error) {
      Find(error.what());
    }
  }

  template <class FindIt>
  void CheckOrigin(const fs::path& path, const std::string& bytes, const FindIt& find) {
    HyperFile file;
    if (!file.OpenMemory(kCacheIdent, bytes, path.string())) return;  // of another format
    const u64 simulation = OriginOf(file).simulation;
    if (simulation != 0 && simulation != mManifest.head.simulation)
      find(fmt::format("the simulation {:016x} recorded it, the run is of {:016x}", simulation,
                       mManifest.head.simulation));
  }

  const fs::path mOut;
  const ManifestContent& mManifest;
  std::size_t mFiles = 0, mFindings = 0;
};

}  // namespace

int RunVerify(const fs::path& out) {
  std::optional<ManifestContent> manifest;
  try {
    manifest = ReadManifest(out);
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  }
  if (!manifest)
    throw CommandError(kExitFile,
                       fmt::format("{}: no run has left a {} here", out.string(), kManifestName));
  Verifier verifier(out, *manifest);
  verifier.CheckEnd();
  verifier.CheckHoles();
  verifier.CheckFiles();
  verifier.CheckCheckpoints();
  verifier.CheckStrays();
  return verifier.Conclude();
}

}  // namespace MELDO_GLOBAL::app
