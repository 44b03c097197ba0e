#include "exchange/particles_object.h"

#include <fmt/format.h>

#include <cmath>

#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "host/frame_files.h"

namespace MELDO_GLOBAL::exchange {

namespace {

std::vector<Vec3d> PlacesOf(const ParticleTable& table) {
  const ParticleColumn* position = table.Find("position", 3);
  std::vector<Vec3d> places(position ? static_cast<std::size_t>(table.Count()) : 0);
  for (std::size_t row = 0; row < places.size(); ++row)
    for (int a = 0; a < 3; ++a) places[row][a] = position->At(static_cast<i64>(row), a);
  return places;
}

}  // namespace

void ParticlesObject::Load(const std::string& file) {
  ParticleTable table = ReadParticles(file);
  if (!table.Find("position", 3))
    throw host::FileError(fmt::format("cannot read {}: its particles have no positions", file));
  std::vector<Vec3d> places = PlacesOf(table);
  for (std::size_t row = 0; row < places.size(); ++row)
    if (!std::isfinite(places[row].x + places[row].y + places[row].z))
      throw host::FileError(fmt::format(
          "cannot read {}: particle {} (counted from 0) is at no finite place", file, row));
  mTable = std::move(table);
  points = std::move(places);
  mLoadedFile = file;
  Touch();
}

void ParticlesObject::WriteOutput(ParticleTable table) {
  points = PlacesOf(table);
  mTable = std::move(table);
  mIsOutput = true;
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
