// Where an object stands, frame by frame.
#pragma once
#include <filesystem>
#include <map>
#include <string>

#include "host/matrix.h"

namespace MELDO_GLOBAL::host {

/// Placements of an object by frame, without scale: a turn and an offset in host units. Between two
/// frames it goes straight and turns evenly; before the first and behind the last it rests.
class Placements {
 public:
  void Add(double frame, const Matrix& placement) { mFrames[frame] = placement; }
  bool IsEmpty() const { return mFrames.empty(); }
  Matrix At(double frame) const;
  const std::map<double, Matrix>& Frames() const { return mFrames; }

 private:
  std::map<double, Matrix> mFrames;
};

/// Those that the animation of a glTF file gives the node of this name, at `fps` frames a second.
/// Of a file that `sulva bake` wrote, frames and units are those of its run; of others time begins
/// with frame 0 and one unit is one host unit. Throws MeshFileError where the file can't be read or
/// doesn't move such a node.
Placements ReadPlacements(const std::filesystem::path& file, const std::string& node, double fps);

}  // namespace MELDO_GLOBAL::host
