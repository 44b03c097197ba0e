// Writes the exports of a scene.
#pragma once
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/hyper_file.h"
#include "exchange/particle_format.h"
#include "framework/sulva_scene.h"
#include "io/export_origin.h"
#include "io/field.h"
#include "io/png_preview.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

/// Writes one file per export and frame, each of them whole or not at all.
class Exporter {
 public:
  using Scenes = std::vector<std::unique_ptr<MELDO_SULVA::SulvaScene>>;

  /// `folder` is where the files' names start, `simulation` the fingerprint that they tell. Throws
  /// CommandError (kExitFile) where it can't be made.
  Exporter(std::vector<ExportSpec> exports, std::filesystem::path folder, u64 simulation = 0);

  /// The files that were written. Throws CommandError where one can't be.
  std::vector<WrittenFile> Write(i32 frame, const Scenes& scenes);
  /// What files of points lack of their particles: of each export everything once, as sentences.
  std::vector<std::string> TakeWarnings() { return std::exchange(mWarnings, {}); }

 private:
  std::string EncodeVolumes(const ExportSpec& spec, i32 frame, const Scenes& scenes) const;
  std::string EncodeMeshOf(const ExportSpec& spec, const Scenes& scenes) const;
  std::string EncodePoints(const ExportSpec& spec, i32 frame, const Scenes& scenes);
  std::string EncodePicture(const ExportSpec& spec, i32 frame, const Scenes& scenes) const;
  ExportOrigin OriginOf(i32 frame, const Scenes& scenes) const;

  std::vector<ExportSpec> mExports;
  std::map<std::string, exchange::SeriesReport> mReports;  ///< by the names of the files
  std::vector<std::string> mWarnings;
  std::filesystem::path mFolder;
  u64 mSimulation;
};

}  // namespace MELDO_GLOBAL::app
