// Particles of another tool as an object of the document.
#pragma once
#include "exchange/particle_table.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::exchange {

/// Loose points with attributes, from a file or a file per frame, in host units. The points of a
/// frame are all that its file holds; before the first file and behind the last one they stay.
class ParticlesObject : public host::PointsObject {
 public:
  using PointsObject::PointsObject;

  /// Reads a file, which is kept for all frames. Throws host::FileError.
  void Load(const std::string& file);
  /// A file per frame, as `host::PolygonObject::SetFramePattern` has it.
  void SetFramePattern(std::string pattern, bool goesOn);
  const std::string& FramePattern() const { return mFramePattern; }
  /// Loads the file of the frame rounded down. Throws host::FileError for one that can't be read,
  /// host::MeshFileError for a hole.
  void Animate(double frame) override;

  /// What the file holds of each point.
  const ParticleTable& Table() const { return mTable; }

 private:
  ParticleTable mTable;
  std::string mFramePattern, mLoadedFile;
  bool mGoesOn = false;
};

}  // namespace MELDO_GLOBAL::exchange
