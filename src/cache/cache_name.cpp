#include "cache/cache_name.h"

#include <array>

#include "host/atomic_file.h"
#include "host/console.h"

namespace MELDO_GLOBAL {

namespace {

constexpr std::array<const char*, 25> kSuffixes = {
    "pcache", "prt",  "bgeo", "bgeo",  "geo",   "bin",   "pda",   "pdb",      "pdb32",
    "pdb64",  "pdc",  "ptc",  "pts",   "rib",   "xyz",   "mc",    "icecache", "geo",
    "bgeo",   "bgeo", "bgeo", "cache", nullptr, nullptr, "mcache"};

}  // namespace

template <class File, class Path>
void SV_CacheName_Operator<File, Path>::Reset() {
  mDefaultName = "sulvacache";
  mName.clear();
  mSuffix = "cache";
  mFolder.clear();
  mDigits = 5;
}

template <class File, class Path>
void SV_CacheName_Operator<File, Path>::SetFormat(i32 format) {
  if (format >= 0 && format < static_cast<i32>(kSuffixes.size()) && kSuffixes[format])
    mSuffix = kSuffixes[format];
}

template <class File, class Path>
void SV_CacheName_Operator<File, Path>::FileStem(std::string& out, i32 frame,
                                                 bool withFrame) const {
  out = mName.empty() ? mDefaultName : mName;
  if (!withFrame) return;
  const std::string number = std::to_string(std::abs(static_cast<i64>(frame)));
  if (frame < 0) out += '-';
  const std::size_t width = mDigits > 0 ? static_cast<std::size_t>(mDigits) : 0;
  if (number.size() < 5 && number.size() < width) out.append(width - number.size(), '0');
  out += number;
}

template <class File, class Path>
void SV_CacheName_Operator<File, Path>::BuildPath(Path& out, i32 frame) const {
  std::string stem;
  FileStem(stem, frame, true);
  out = mFolder / (stem + "." + mSuffix);
}

template <class File, class Path>
bool SV_CacheName_Operator<File, Path>::IsOwn(const Path& path) const {
  std::string stem;
  FileStem(stem, 0, false);
  const Path first = mFolder / stem;
  return path.parent_path() == first.parent_path() && path.extension() == "." + mSuffix &&
         path.filename().string().starts_with(first.filename().string());
}

template <class File, class Path>
bool SV_CacheName_Operator<File, Path>::OpenForRead(File& file, i32 frame, Path& out) {
  BuildPath(out, frame);
  std::error_code failed;
  if (!std::filesystem::exists(out, failed)) {
    host::Print("Cache File " + out.string() + " could not be found!");
    return false;
  }
  return file.Open(kCacheIdent, out, File::Mode::kRead);
}

template <class File, class Path>
bool SV_CacheName_Operator<File, Path>::OpenForWrite(File& file, i32 frame, Path& out) {
  BuildPath(out, frame);
  return file.Open(kCacheIdent, out, File::Mode::kWrite);
}

template <class File, class Path>
bool SV_CacheName_Operator<File, Path>::MakeFolder(bool create) const {
  Path first;
  BuildPath(first, 0);
  const Path folder = first.has_parent_path() ? first.parent_path() : Path(".");
  std::error_code failed;
  if (std::filesystem::is_directory(folder, failed)) return true;
  if (!create) return false;
  host::MakeFolder(folder);
  return true;
}

template class SV_CacheName_Operator<HyperFile, std::filesystem::path>;

}  // namespace MELDO_GLOBAL
