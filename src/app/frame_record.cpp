#include "app/frame_record.h"

#include <cmath>

namespace MELDO_GLOBAL::app {

i64 FrameRecord::Cells() const {
  i64 cells = 0;
  const auto add = [&](const VecInt3D& d) { cells = std::max(cells, i64{d.x} * d.y * d.z); };
  for (const ChannelRecord& channel : channels) add(channel.dims);
  for (const SolverRecord& solver : solvers) add(solver.dims);
  return cells;
}

std::string FindNonFinite(const FrameRecord& record) {
  const auto isFinite = [](const Vec3d& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
  };
  for (const SolverRecord& solver : record.solvers)
    if (!std::isfinite(solver.maxSpeed)) return "the velocity of \"" + solver.name + "\"";
  for (const ChannelRecord& channel : record.channels)
    if (!isFinite(channel.sum) || !isFinite(channel.min) || !isFinite(channel.max))
      return "channel \"" + channel.name + "\"";
  return {};
}

}  // namespace MELDO_GLOBAL::app
