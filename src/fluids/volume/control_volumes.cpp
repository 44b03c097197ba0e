// Control-volume sampling: sub-cells inside, counted by octant of each cell.
//
// A face gathers the nearer halves of its two cells, an edge the nearer quarters of its four. Each
// share counts the layer below its slab once more for what it shares with the slab before.
#include "fluids/volume/volume_fractions.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
/// The sum of the octants whose bits under `mask` equal `bits`.
template <class Octants>
i32 Sum(const Octants& octants, i32 mask, i32 bits) {
  i32 sum = 0;
  for (i32 o = 0; o < 8; ++o)
    if ((o & mask) == bits) sum += octants[o];
  return sum;
}
constexpr i32 kMostSamples = 5;
}  // namespace

Grid_VolumeFractions::Octants Grid_VolumeFractions::CountCell(i32 x, i32 y, i32 z) const {
  const i32 n = 1 << std::clamp(mSamples, 0, kMostSamples);
  Octants octants{};
  const i32 half[2] = {n / 2, n - n / 2};
  const auto fill = [&] {
    for (i32 o = 0; o < 8; ++o)
      octants[o] = static_cast<u16>(half[o & 1] * half[(o >> 1) & 1] * half[o >> 2]);
  };
  if (!mSource.grid) {
    fill();
    return octants;
  }
  const EGrid<double>& source = *mSource.grid;
  const Vec3d offset = OffsetOf(source.mKind);
  const VecInt3D cell{x, y, z}, dims = source.Dims();
  VecInt3D low, high;
  for (int a = 0; a < 3; ++a) {
    low[a] = std::clamp(cell[a] - (offset[a] > 0 ? 1 : 0), 0, dims[a] - 1);
    high[a] = std::clamp(cell[a] + 1, 0, dims[a] - 1);
  }
  double least = source(low.x, low.y, low.z), greatest = least;
  ForEachCell({low, high + VecInt3D{1, 1, 1}}, [&](i32 i, i32 j, i32 k) {
    least = std::min(least, source(i, j, k));
    greatest = std::max(greatest, source(i, j, k));
  });
  // Samples lie between the values of these nodes.
  if (least >= 0) return octants;
  if (greatest < -1e-30) {
    fill();
    return octants;
  }
  ForEachCell({{0, 0, 0}, {n, n, n}}, [&](i32 i, i32 j, i32 k) {
    const Vec3d local{(i + 0.5) / n, (j + 0.5) / n, (k + 0.5) / n};
    const double v = SampleLinear(source, ToReal(cell) + local - offset);
    const i32 octant = (local.x < 0.5 ? 0 : 1) | (local.y < 0.5 ? 0 : 2) | (local.z < 0.5 ? 0 : 4);
    octants[octant] += static_cast<f32>(v) < 0;
  });
  return octants;
}

void Grid_VolumeFractions::CountLayer(i32 z, std::vector<Octants>& layer) const {
  const VecInt3D n = SourceLayout()->dims;
  layer.resize(static_cast<std::size_t>(n.x) * n.y);
  for (i32 y = 0; y < n.y; ++y)
    for (i32 x = 0; x < n.x; ++x) layer[x + y * n.x] = CountCell(x, y, z);
}

/// Stores count(x, y) / sub-cells of a cell in layer z of a field, if it exists and has the layer.
template <class F>
void Grid_VolumeFractions::WriteLayer(i32 axis, i32 kind, i32 z, F&& count) {
  const auto found = mFields.find({axis, kind});
  if (found == mFields.end() || !found->second || z >= found->second->mNz) return;
  EGrid<float>& field = *found->second;
  const double weight = std::ldexp(1.0, -3 * std::clamp(mSamples, 0, kMostSamples));
  for (i32 y = 0; y < field.mNy; ++y)
    for (i32 x = 0; x < field.mNx; ++x)
      field(x, y, z) = static_cast<float>(std::min(count(x, y) * weight, 1.0));
}

void Grid_VolumeFractions::GatherLayer(i32 z, const std::vector<Octants>& below,
                                       const std::vector<Octants>& here) {
  const VecInt3D n = SourceLayout()->dims;
  static constexpr Octants none{};
  const auto at = [&](const std::vector<Octants>& layer, i32 x, i32 y) -> const Octants& {
    return layer.empty() || x < 0 || y < 0 || x >= n.x || y >= n.y ? none : layer[x + y * n.x];
  };
  const auto pair = [&](i32 bit, const Octants& before, const Octants& after) {
    return Sum(before, bit, bit) + Sum(after, bit, 0);
  };
  WriteLayer(0, 0, z, [&](i32 x, i32 y) { return Sum(at(here, x, y), 0, 0); });
  WriteLayer(0, 3, z, [&](i32 x, i32 y) { return pair(1, at(here, x - 1, y), at(here, x, y)); });
  WriteLayer(1, 3, z, [&](i32 x, i32 y) { return pair(2, at(here, x, y - 1), at(here, x, y)); });
  WriteLayer(2, 3, z, [&](i32 x, i32 y) { return pair(4, at(below, x, y), at(here, x, y)); });
  WriteLayer(0, 2, z, [&](i32 x, i32 y) {
    return Sum(at(here, x - 1, y - 1), 3, 3) + Sum(at(here, x, y - 1), 3, 2) +
           Sum(at(here, x - 1, y), 3, 1) + Sum(at(here, x, y), 3, 0);
  });
  WriteLayer(1, 2, z, [&](i32 x, i32 y) {
    return Sum(at(below, x - 1, y), 5, 5) + Sum(at(below, x, y), 5, 4) +
           Sum(at(here, x - 1, y), 5, 1) + Sum(at(here, x, y), 5, 0);
  });
  WriteLayer(2, 2, z, [&](i32 x, i32 y) {
    return Sum(at(below, x, y - 1), 6, 6) + Sum(at(below, x, y), 6, 4) +
           Sum(at(here, x, y - 1), 6, 2) + Sum(at(here, x, y), 6, 0);
  });
}

void Grid_VolumeFractions::ControlVolumes(i32 first, i32 last) {
  const i32 layers = SourceLayout()->dims.z;
  std::vector<Octants> below, here;
  if (first > 0) CountLayer(first - 1, below);
  for (i32 z = first; z < last; ++z) {
    CountLayer(z, here);
    GatherLayer(z, below, here);
    std::swap(below, here);
  }
  if (last < layers) return;
  here.clear();
  GatherLayer(layers, below, here);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
