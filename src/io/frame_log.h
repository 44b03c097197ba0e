// A file of lines, one for each frame.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::app {

/// A text file of a head, JSON objects that begin with `{"frame": N`, in the order of their frames,
/// and a last line. A line is there whole or not at all, whatever ends the process. All of it
/// throws host::FileError.
class FrameLog {
 public:
  explicit FrameLog(std::filesystem::path path) : mPath(std::move(path)) {}
  ~FrameLog();
  FrameLog(const FrameLog&) = delete;
  FrameLog& operator=(const FrameLog&) = delete;

  /// A new file in place of what is there; `head` is its first line, none if empty.
  void Start(std::string_view head);
  /// Goes on with the file that is there, without its last line and without what is torn. False
  /// where there is none.
  bool GoOn();
  bool IsOpen() const { return mFile >= 0; }

  /// Puts a line in its place; a line of the same frame goes.
  void Put(i32 frame, std::string_view line);
  bool Has(i32 frame) const;
  /// How many lines belong to frames up to this one.
  i32 CountUpTo(i32 frame) const;
  /// Drops the lines from this frame on.
  void DropFrom(i32 frame);
  /// Ends the file with a line that belongs to no frame.
  void Finish(std::string_view line) { Append(line); }
  /// Flushes it to the disk.
  void Sync();

  i32 Count() const { return static_cast<i32>(mLines.size()); }
  const std::filesystem::path& Path() const { return mPath; }

 private:
  struct Line {
    i32 frame;
    u64 begin;
  };
  void Open();
  void Append(std::string_view line);
  std::vector<Line>::iterator LowerBound(i32 frame);
  /// Where the line ends.
  u64 EndOf(std::vector<Line>::iterator line) const;
  void Replace(std::vector<Line>::iterator at, i32 frame, std::string_view line);

  std::filesystem::path mPath;
  int mFile = -1;
  std::vector<Line> mLines;
  u64 mSize = 0;  ///< bytes of whole lines
};

/// The frame that a line of such a file begins with.
std::optional<i32> FrameOfLine(std::string_view line);

}  // namespace MELDO_GLOBAL::app
