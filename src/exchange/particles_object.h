// Particles of another tool as an object of the document.
#pragma once
#include "exchange/particle_table.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::exchange {

/// Loose points with attributes, in host units: of a file, of a file per frame, or handed over by a
/// simulation. The points of a
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

  /// Whether a file says what it holds; else it may hold what a simulation hands over.
  bool IsFromFile() const { return !mLoadedFile.empty(); }
  /// Takes the place of what it held; a checkpoint keeps it. The table has a `position`, or no
  /// rows.
  void WriteOutput(ParticleTable table);
  bool IsOutput() const { return mIsOutput; }

  /// What the file holds of each point, or what was handed over.
  const ParticleTable& Table() const { return mTable; }

 private:
  ParticleTable mTable;
  std::string mFramePattern, mLoadedFile;
  bool mGoesOn = false;
  bool mIsOutput = false;
};

}  // namespace MELDO_GLOBAL::exchange
