#include "run/manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "host/atomic_file.h"
#include "host/exit_codes.h"
#include "host/output_guard.h"
#include "io/json_line.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string Hex(u64 number) { return fmt::format("{:016x}", number); }

u64 FromHex(const std::string& text) {
  u64 number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, 16);
  if (error != std::errc() || rest != end || text.empty()) throw std::invalid_argument("no number");
  return number;
}

/// Names of files may be any bytes, JSON isn't.
std::string Clean(const std::string& text) {
  return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace));
}

std::string FormatHead(const ManifestHead& head) {
  JsonLine line;
  line.Open('{').Key("sulva_manifest").Number(i64{1}).Key("version").Text(head.version);
  line.Key("scene").Text(Clean(head.scene)).Key("fingerprint").Text(Hex(head.fingerprint));
  line.Key("simulation").Text(Hex(head.simulation));
  if (head.branchedAt) line.Key("branched_behind").Number(i64{*head.branchedAt});
  return line.Close('}').Str();
}

void ReadHead(const json& line, ManifestHead& head) {
  if (line.at("sulva_manifest") != 1) throw std::invalid_argument("another version");
  head.version = line.at("version");
  head.scene = line.at("scene");
  head.fingerprint = FromHex(line.at("fingerprint"));
  head.simulation = FromHex(line.at("simulation"));
  if (line.contains("branched_behind")) head.branchedAt = line.at("branched_behind").get<i32>();
}

std::vector<WrittenFile> ReadFiles(const json& list) {
  std::vector<WrittenFile> files;
  for (const json& file : list) {
    const fs::path path = file.at("file").get<std::string>();
    // A run names what it wrote below its folder, or by the whole path.
    if (std::find(path.begin(), path.end(), "..") != path.end())
      throw std::invalid_argument("no name of ours");
    files.push_back(
        {path, file.at("bytes").get<u64>(), FromHex(file.at("sum").get<std::string>())});
  }
  return files;
}

}  // namespace

bool ManifestEnd::IsWhole() const { return exitCode == kExitDone || exitCode == kExitNonFinite; }

bool ManifestContent::Has(i32 frame) const {
  return std::any_of(frames.begin(), frames.end(),
                     [&](const ManifestFrame& f) { return f.frame == frame; });
}

std::optional<ManifestContent> ReadManifest(const fs::path& out) {
  const fs::path path = out / kManifestName;
  std::error_code failed;
  if (!fs::exists(fs::symlink_status(path, failed))) return {};
  std::istringstream lines(host::ReadFile(path));
  ManifestContent content;
  int number = 0;
  for (std::string text; std::getline(lines, text);) {
    ++number;
    if (lines.eof()) break;  // torn
    try {
      const json line = json::parse(text);
      if (number == 1) {
        ReadHead(line, content.head);
      } else if (line.contains("end")) {
        const json& end = line.at("end");
        content.end = ManifestEnd{end.at("first"), end.at("last"), end.at("exit_code"),
                                  ReadFiles(end.value("files", json::array()))};
      } else {
        ManifestFrame frame{line.at("frame").get<i32>(), ReadFiles(line.at("files"))};
        if (!content.frames.empty() && frame.frame <= content.frames.back().frame)
          throw std::invalid_argument("a frame twice");
        content.frames.push_back(std::move(frame));
      }
    } catch (const std::exception&) {
      throw host::FileError(
          fmt::format("{}:{}: it is damaged; start over with --restart", path.string(), number));
    }
  }
  if (number == 0) throw host::FileError(fmt::format("{}: it is empty", path.string()));
  return content;
}

bool FilesAreThere(const fs::path& out, const ManifestFrame& frame, std::string& missing) {
  for (const WrittenFile& file : frame.files) {
    std::error_code failed;
    const fs::path path = out / file.path;
    if (fs::file_size(path, failed) == file.bytes && !failed) continue;
    missing = path.string();
    return false;
  }
  return true;
}

Manifest::Manifest(fs::path out) : mOut(std::move(out)), mLog(mOut / kManifestName) {}

void Manifest::Start(const ManifestHead& head) {
  std::error_code failed;
  if (fs::is_regular_file(fs::symlink_status(mLog.Path(), failed)))
    mBefore = host::ReadFile(mLog.Path());
  mLog.Start(FormatHead(head));
}

bool Manifest::GiveBack() {
  if (mLog.Count() > 0 || !mBefore) return false;
  host::WriteFileAtomically(mLog.Path(), *mBefore);
  return true;
}

void Manifest::GoOn(const ManifestHead& head, i32 frame) {
  const std::optional<ManifestContent> content = ReadManifest(mOut);
  if (!content) return Start(head);
  mLog.GoOn();
  std::string missing;
  for (const ManifestFrame& later : content->frames)
    if (later.frame > frame && !FilesAreThere(mOut, later, missing))
      return mLog.DropFrom(later.frame);
}

std::string Manifest::NameOf(const fs::path& file) const {
  return host::IsBelow(file, mOut) ? file.lexically_relative(mOut).generic_string()
                                   : fs::absolute(file).generic_string();
}

void Manifest::AddFiles(JsonLine& line, const std::vector<WrittenFile>& files) const {
  line.Key("files").Open('[');
  for (const WrittenFile& file : files) {
    line.Open('{').Key("file").Text(Clean(NameOf(file.path)));
    line.Key("bytes").Number(static_cast<i64>(file.bytes)).Key("sum").Text(Hex(file.sum));
    line.Close('}');
  }
  line.Close(']');
}

void Manifest::Add(i32 frame, const std::vector<WrittenFile>& files) {
  JsonLine line;
  line.Open('{').Key("frame").Number(i64{frame});
  AddFiles(line, files);
  mLog.Put(frame, line.Close('}').Str());
}

void Manifest::End(const ManifestEnd& end) {
  JsonLine line;
  line.Open('{').Key("end").Open('{').Key("first").Number(i64{end.first});
  line.Key("last").Number(i64{end.last}).Key("exit_code").Number(i64{end.exitCode});
  if (!end.files.empty()) AddFiles(line, end.files);
  mLog.Finish(line.Close('}').Close('}').Str());
}

}  // namespace MELDO_GLOBAL::app
