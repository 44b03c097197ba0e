#include "exchange/particles_object.h"

#include <fmt/format.h>

#include <cmath>

#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "host/frame_files.h"

namespace MELDO_GLOBAL::exchange {

void ParticlesObject::Load(const std::string& file) {
  ParticleTable table = ReadParticles(file);
  const ParticleColumn* position = table.Find("position", 3);
  if (!position)
    throw host::FileError(fmt::format("cannot read {}: its particles have no positions", file));
  std::vector<Vec3d> places(static_cast<std::size_t>(table.Count()));
  for (i64 row = 0; row < table.Count(); ++row)
    for (int a = 0; a < 3; ++a) {
      places[row][a] = position->At(row, a);
      if (!std::isfinite(places[row][a]))
        throw host::FileError(fmt::format(
            "cannot read {}: particle {} (counted from 0) is at no finite place", file, row));
    }
  mTable = std::move(table);
  points = std::move(places);
  mLoadedFile = file;
  Touch();
}

void ParticlesObject::SetFramePattern(std::string pattern, bool goesOn) {
  mFramePattern = std::move(pattern);
  mGoesOn = goesOn;
}

void ParticlesObject::Animate(double frame) {
  PointsObject::Animate(frame);
  if (mFramePattern.empty()) return;
  const std::string file = host::FileAtFrame(mFramePattern, static_cast<i32>(std::floor(frame)),
                                             mGoesOn, "particle file", Name());
  if (!file.empty() && file != mLoadedFile) Load(file);
}

}  // namespace MELDO_GLOBAL::exchange
