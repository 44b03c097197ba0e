#include "io/frame_record.h"

#include <cmath>
#include <limits>

namespace MELDO_GLOBAL::app {

i64 FrameRecord::Cells() const {
  i64 cells = 0;
  const auto add = [&](const VecInt3D& d) { cells = std::max(cells, i64{d.x} * d.y * d.z); };
  for (const ChannelRecord& channel : channels) add(channel.dims);
  for (const SolverRecord& solver : solvers) add(solver.dims);
  return cells;
}

i64 FrameRecord::Particles() const {
  i64 count = 0;
  for (const ParticlesRecord& group : particles)
    for (const i64 own : group.counts) count += own;
  return count;
}

std::string FindNonFinite(const FrameRecord& record) {
  const auto isFinite = [](double v) { return std::abs(v) <= std::numeric_limits<float>::max(); };
  for (const SolverRecord& solver : record.solvers)
    if (!isFinite(solver.maxSpeed) || !std::isfinite(solver.kineticEnergy) ||
        !std::isfinite(solver.divergenceMax))
      return "the velocity of \"" + solver.name + "\" is no longer finite";
  for (const ParticlesRecord& group : record.particles)
    for (int a = 0; a < 3; ++a)
      if (!isFinite(group.min[a]) || !isFinite(group.max[a]) || !isFinite(group.centroid[a]) ||
          !std::isfinite(group.kineticEnergy))
        return "the particles of \"" + group.name + "\" are no longer finite";
  for (const BodyRecord& body : record.bodies)
    for (int a = 0; a < 3; ++a)
      if (!isFinite(body.position[a]) || !isFinite(body.linearVelocity[a]) ||
          !isFinite(body.angularVelocity[a]))
        return "the motion of \"" + body.name + "\" is no longer finite";
  for (const ChannelRecord& channel : record.channels)
    for (int i = 0; i < channel.components; ++i)
      if (!isFinite(channel.min[i]) || !isFinite(channel.max[i]) || !std::isfinite(channel.sum[i]))
        return "channel \"" + channel.name + "\" is no longer finite";
  return {};
}

}  // namespace MELDO_GLOBAL::app
