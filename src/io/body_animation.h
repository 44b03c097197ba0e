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

/// What a run tells of its bodies.
struct BodyPaths {
  i32 firstFrame = 0;  ///< that the run tells of
  std::vector<BodyPath> paths;
};

/// The quaternion x y z w of a turn (Shepperd 1978).
std::array<double, 4> QuaternionOf(const Matrix& turn);

/// Those that the statistics of a run tell, in the order in which they first appear there. Throws
/// CommandError (kExitFile) where the file can't be read or is no such file.
BodyPaths ReadBodyPaths(const std::filesystem::path& statistics);

/// Bodies that were told of later were no bodies until then: keys began to move them. Gives them
/// the way on which keys have their objects from `first` on; leaves the document at that frame.
void BeginWithKeys(host::Document& document, i32 first, const Vec3d& worldToSim,
                   std::vector<BodyPath>& paths);

/// A binary glTF file.
struct EncodedBodies {
  std::string bytes;
  std::size_t bodies = 0;
};

/// The bodies' objects with an animation that takes them along their paths, in metres; `host_units`
/// in its extras is how many units of the document one of them is. The document stands where the
/// bodies began. Bodies without an object of polygons are left out.
EncodedBodies EncodeBodies(const host::Document& document, const std::vector<BodyPath>& paths,
                           const Vec3d& worldToSim);

}  // namespace MELDO_GLOBAL::app
