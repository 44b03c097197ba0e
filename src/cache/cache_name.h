// Names of cache files: one file a frame.
#pragma once
#include <filesystem>
#include <string>

#include "cache/hyper_file.h"

namespace MELDO_GLOBAL {

/// Opens the files of a cache by frame.
template <class File, class Path>
class iSVCacheName_Operator {
 public:
  /// Back to an unnamed cache without a folder.
  virtual void Reset() = 0;
  /// Opens the file of `frame`; `out` takes its path. False, with a line on the host's console,
  /// when there is none, and when it can't be opened: then the file's own error tells why.
  virtual bool OpenForRead(File& file, i32 frame, Path& out) = 0;
  /// Starts the file of `frame`; it is written when the file is closed.
  virtual bool OpenForWrite(File& file, i32 frame, Path& out) = 0;
  virtual ~iSVCacheName_Operator() = default;
};

/// Files of the name STEM FRAME "." SUFFIX in one folder, such as `sulva_grid_frame00007.cache`.
template <class File, class Path>
class SV_CacheName_Operator : public iSVCacheName_Operator<File, Path> {
 public:
  explicit SV_CacheName_Operator(std::string defaultName) : mDefaultName(std::move(defaultName)) {}
  void Reset() override;
  bool OpenForRead(File& file, i32 frame, Path& out) override;
  bool OpenForWrite(File& file, i32 frame, Path& out) override;

  void SetFolder(Path folder) { mFolder = std::move(folder); }
  void SetName(std::string name) { mName = std::move(name); }
  void SetDefaultName(std::string name) { mDefaultName = std::move(name); }
  /// Width of the frame number.
  void SetDigits(i32 digits) { mDigits = digits; }
  /// Takes the suffix of a format number; numbers without a format leave it as it is.
  void SetFormat(i32 format);
  const Path& GetFolder() const { return mFolder; }
  const std::string& GetName() const { return mName; }
  const std::string& GetSuffix() const { return mSuffix; }

  void BuildPath(Path& out, i32 frame) const;
  /// Whether a path has the folder, the stem and the suffix of these files.
  bool IsOwn(const Path& path) const;
  /// The file's name without its suffix, with or without the frame number. Frames of 10000 and more
  /// aren't padded, however wide the number is.
  void FileStem(std::string& out, i32 frame, bool withFrame) const;
  /// Whether the folder is there, with `create` after an attempt to make it.
  bool MakeFolder(bool create) const;

 private:
  Path mFolder;
  std::string mName;
  std::string mSuffix = "cache";
  std::string mDefaultName;
  i32 mDigits = 5;
};

using CacheName = SV_CacheName_Operator<HyperFile, std::filesystem::path>;
extern template class SV_CacheName_Operator<HyperFile, std::filesystem::path>;

}  // namespace MELDO_GLOBAL
