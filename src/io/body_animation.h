// The ways of rigid bodies through a run.
#pragma once
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "host/document.h"

namespace MELDO_GLOBAL::app {

/// Where a body went, frame by frame. Simulation units.
struct BodyPath {
  std::string name;  ///< of its object
  std::vector<i32> frames;
  std::vector<Vec3d> centres;
  std::vector<std::array<double, 4>> rotations;  ///< of the object's axes, x y z w
};

/// Those that the statistics of a run tell, in the order in which they first appear there. Throws
/// CommandError (kExitFile) where the file can't be read or is no such file.
std::vector<BodyPath> ReadBodyPaths(const std::filesystem::path& statistics);

/// A binary glTF file of the bodies' objects with an animation that takes them along their paths,
/// in metres; `host_units` in its extras is how many units of the document one of them is. The
/// document stands where the bodies began. Bodies without an object of polygons are left out.
std::string EncodeBodies(const host::Document& document, const std::vector<BodyPath>& paths,
                         const Vec3d& worldToSim);

}  // namespace MELDO_GLOBAL::app
