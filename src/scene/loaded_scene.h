// A scene that was read.
#pragma once
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/document.h"
#include "scene/diagnostics.h"
#include "scene/reachability.h"
#include "scene/render_spec.h"

namespace MELDO_GLOBAL::app {

/// A sequence of files for another tool.
struct ExportSpec {
  std::string format;  ///< "vdb", "png", "points", "mesh" or "bodies"
  std::string file;    ///< below the output folder; # for the frame number, but for "bodies"
  std::vector<std::pair<std::string, host::NodeId>> grids;  ///< name in the file, node
  std::vector<host::NodeId> particles;  ///< groups: one of points, any number of a png
  std::vector<host::NodeId> meshes;     ///< mesh nodes or objects of polygons: one of mesh, any
                                        ///< number of a png
  u32 kinds = 0;                        ///< of their particles, a bit each; 0 for all
  char axis = 'z';                      ///< png: 'x', 'y' or 'z', the direction of view
  SourceLocation where;                 ///< of the export in the scene file

  /// One file, written at the end, instead of one a frame.
  bool IsOfWholeRun() const { return format == "bodies"; }
};

/// A scene that was read and found valid.
struct LoadedScene {
  std::unique_ptr<host::Document> document;
  std::vector<host::BaseNode*> servers;  ///< in the order of the file; at least one
  host::BaseNode* server = nullptr;      ///< the first of them
  std::vector<ExportSpec> exports;
  std::optional<RenderSpec> render;
  Reachability reach;                            ///< who takes part
  std::map<host::NodeId, std::string> sleepers;  ///< others that do nothing, and why
  bool hasMotion = false;                        ///< the placement of something has keys
  std::filesystem::path path;
  u64 fingerprint = 0;  ///< see `FingerprintOf`
  u64 simulation = 0;   ///< the same without caches that record

  /// The nodes of which a message says that they do nothing.
  std::set<host::NodeId> Idle() const;
  /// Whether an export reads a field, gas, volume or group.
  bool IsExported(const host::BaseNode& node) const;
};

}  // namespace MELDO_GLOBAL::app
