#include "io/frame_log.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "host/atomic_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

std::optional<i32> FrameOfLine(std::string_view line) {
  constexpr std::string_view kBegin = "{\"frame\":";
  if (!line.starts_with(kBegin)) return {};
  line.remove_prefix(kBegin.size());
  if (line.starts_with(' ')) line.remove_prefix(1);
  i32 frame = 0;
  const char* end = line.data() + line.size();
  const auto [rest, error] = std::from_chars(line.data(), end, frame);
  if (error != std::errc() || rest == end || *rest != ',') return {};
  return frame;
}

FrameLog::~FrameLog() {
  if (mFile >= 0) ::close(mFile);
}

void FrameLog::Open() {
  if (mFile >= 0) ::close(std::exchange(mFile, -1));
  mFile = host::OpenToAppend(mPath);
}

void FrameLog::Start(std::string_view head) {
  mLines.clear();
  std::string text(head);
  if (!text.empty()) text += '\n';
  host::WriteFileAtomically(mPath, text);
  mSize = text.size();
  Open();
}

bool FrameLog::GoOn() {
  std::error_code failed;
  if (!fs::exists(fs::symlink_status(mPath, failed))) return false;
  Open();
  const std::string text = host::ReadFile(mPath);
  mLines.clear();
  mSize = 0;
  for (std::size_t end; (end = text.find('\n', mSize)) != std::string::npos; mSize = end + 1) {
    const auto frame = FrameOfLine(std::string_view(text).substr(mSize, end - mSize));
    const bool isHead = !frame && mSize == 0;
    const bool isNext = frame && (mLines.empty() || mLines.back().frame < *frame);
    if (!isHead && !isNext) break;
    if (frame) mLines.push_back({*frame, mSize});
  }
  if (fs::hard_link_count(mPath, failed) > 1 && !failed) {
    // A copy of the folder by hard links keeps what it has.
    host::WriteFileAtomically(mPath, std::string_view(text).substr(0, mSize));
    Open();
  } else if (::ftruncate(mFile, static_cast<off_t>(mSize)) != 0) {
    throw host::FileError(fmt::format("cannot write {}: {}", mPath.string(), std::strerror(errno)));
  }
  return true;
}

std::vector<FrameLog::Line>::iterator FrameLog::LowerBound(i32 frame) {
  return std::lower_bound(mLines.begin(), mLines.end(), frame,
                          [](const Line& line, i32 wanted) { return line.frame < wanted; });
}

u64 FrameLog::EndOf(std::vector<Line>::iterator line) const {
  return line + 1 == mLines.end() ? mSize : (line + 1)->begin;
}

bool FrameLog::Has(i32 frame) const {
  return std::binary_search(mLines.begin(), mLines.end(), Line{frame, 0},
                            [](const Line& a, const Line& b) { return a.frame < b.frame; });
}

i32 FrameLog::CountUpTo(i32 frame) const {
  return static_cast<i32>(
      std::count_if(mLines.begin(), mLines.end(), [&](const Line& l) { return l.frame <= frame; }));
}

void FrameLog::DropFrom(i32 frame) {
  const auto at = LowerBound(frame);
  if (at == mLines.end()) return;
  mSize = at->begin;
  mLines.erase(at, mLines.end());
  if (::ftruncate(mFile, static_cast<off_t>(mSize)) != 0)
    throw host::FileError(fmt::format("cannot write {}: {}", mPath.string(), std::strerror(errno)));
}

void FrameLog::Put(i32 frame, std::string_view line) {
  const auto at = LowerBound(frame);
  if (at != mLines.end()) return Replace(at, frame, line);
  const u64 begin = mSize;
  Append(line);
  mLines.push_back({frame, begin});
}

void FrameLog::Replace(std::vector<Line>::iterator at, i32 frame, std::string_view line) {
  std::string text = host::ReadFile(mPath);
  const bool isSame = at->frame == frame;
  const u64 begin = at->begin, end = isSame ? EndOf(at) : begin;
  if (end > text.size())
    throw host::FileError(fmt::format("cannot write {}: it was cut by others", mPath.string()));
  std::string added(line);
  added += '\n';
  if (text.compare(begin, end - begin, added) == 0) return;
  text.replace(begin, end - begin, added);
  host::WriteFileAtomically(mPath, text);
  if (!isSame) at = mLines.insert(at, {frame, begin});
  for (++at; at != mLines.end(); ++at) at->begin += added.size() - (end - begin);
  mSize = text.size();
  Open();
}

void FrameLog::Append(std::string_view line) {
  std::string text(line);
  text += '\n';
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(mFile, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      const int error = errno;
      // A line is there whole or not at all.
      if (done > 0 && ::ftruncate(mFile, static_cast<off_t>(mSize)) != 0)
        ::close(mFile), mFile = -1;
      throw host::FileError(
          fmt::format("cannot write {}: {}", mPath.string(), std::strerror(error)));
    }
    done += static_cast<std::size_t>(count);
  }
  mSize += text.size();
}

void FrameLog::Sync() {
  if (mFile >= 0 && ::fdatasync(mFile) != 0)
    throw host::FileError(fmt::format("cannot write {}: {}", mPath.string(), std::strerror(errno)));
}

}  // namespace MELDO_GLOBAL::app
