#include "host/frame_files.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <iterator>

#include "host/geometry.h"

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {

/// The place of the last run of # in a pattern; length 0 without one.
struct Run {
  size_t begin = 0, length = 0;
};

Run LastRun(const std::string& pattern) {
  const size_t last = pattern.rfind('#');
  if (last == std::string::npos) return {};
  const size_t before = pattern.find_last_not_of('#', last);
  const size_t begin = before == std::string::npos ? 0 : before + 1;
  return {begin, last + 1 - begin};
}

bool IsFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

}  // namespace

std::string FileAtFrame(const std::string& pattern, i32 frame, bool goesOn, std::string_view what,
                        std::string_view object) {
  std::string file = FrameFileName(pattern, frame);
  if (IsFile(file)) return file;
  const std::map<i32, fs::path> files = FilesOfSequence(pattern);
  const auto behind = files.upper_bound(frame);
  if (behind == files.begin()) return {};
  if (behind != files.end() && !goesOn)
    throw MeshFileError(
        fmt::format("{} \"{}\" is missing, and the sequence goes on behind it; "
                    "go_on_after_failure of \"{}\" would keep the {} before",
                    what, file, object, what.substr(0, what.find(' '))));
  return std::prev(behind)->second.string();
}

std::map<i32, fs::path> FilesOfSequence(const std::string& pattern) {
  std::map<i32, fs::path> files;
  const fs::path whole(pattern);
  const std::string name = whole.filename().string();
  const Run run = LastRun(name);
  if (run.length == 0) return files;
  std::error_code failed;
  const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
  for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const std::string file = entry->path().filename().string();
    if (file.size() < name.size() || !file.starts_with(name.substr(0, run.begin))) continue;
    i32 number = 0;
    const char* digits = file.data() + run.begin;
    if (std::from_chars(digits, file.data() + file.size(), number).ec != std::errc()) continue;
    // Only the name that this number is written to counts, not "7" or "00007" for "####".
    const fs::path wanted = FrameFileName(pattern, number);
    if (wanted.filename() == file && IsFile(wanted)) files.emplace(number, wanted);
  }
  return files;
}

std::string PatternInstead(const std::string& pattern) {
  constexpr std::size_t kWidest = 10;
  const Run run = LastRun(pattern);
  std::string best;
  std::size_t most = 0;
  for (std::size_t width = 1; run.length > 0 && width <= kWidest; ++width) {
    std::string other = pattern;
    other.replace(run.begin, run.length, width, '#');
    if (const std::size_t files = FilesOfSequence(other).size(); files > most) {
      most = files;
      best = std::move(other);
    }
  }
  return best;
}

std::string FrameFileName(const std::string& pattern, i32 frame) {
  const Run run = LastRun(pattern);
  if (run.length == 0) return pattern;
  return fmt::format("{}{}{:0{}}{}", pattern.substr(0, run.begin), frame < 0 ? "-" : "",
                     std::abs(static_cast<i64>(frame)), run.length,
                     pattern.substr(run.begin + run.length));
}

}  // namespace MELDO_GLOBAL::host
