#include "fluids/volume/volume_fractions.h"

#include <stdexcept>

#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/wall_bits.h"
#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr i32 kControlVolumeShares = 16;
}

void Grid_VolumeFractions::Reset() {
  for (auto& [key, field] : mFields)
    if (field) field->Fill(0.0f);
}

EGrid<float>* Grid_VolumeFractions::GetRead(i32 axis, i32 kind) const {
  const auto found = mFields.find({axis, kind});
  if (found == mFields.end()) throw std::out_of_range("invalid map<K, T> key");
  return found->second.get();
}

const GridLayout* Grid_VolumeFractions::SourceLayout() const {
  if (mSource.grid) return mSource.grid->mData ? &mSource.grid->mLayout : nullptr;
  return mSource.layout;
}

bool Grid_VolumeFractions::SetField(i32 axis, i32 kind, i32 gridKind, bool wanted,
                                    const GridLayout& layout) {
  if (!wanted) {
    mFields.erase({axis, kind});
    return true;
  }
  std::unique_ptr<EGrid<float>>& field = mFields[{axis, kind}];
  if (field && field->mKind == gridKind && field->mLayout.Equals(layout)) {
    // What measures these writes every sample.
    const bool isCovered =
        mMethod == FractionMethod::Analytic && kind <= 1 && mSource.grid && !IsControlVolume();
    if (!isCovered) field->Fill(0.0f);
    return true;
  }
  field.reset();
  field = std::make_unique<EGrid<float>>(layout, gridKind);
  field->mRangeMin = 0;
  field->mRangeMax = 1;
  if (!field->mData) field.reset();
  return field != nullptr;
}

bool Grid_VolumeFractions::Allocate() {
  const GridLayout* layout = SourceLayout();
  if (!layout || layout->count <= 0) return false;
  bool complete = SetField(0, 0, kCentre, mKinds & kFractionCell, *layout);
  for (i32 axis = 0; axis < 3; ++axis) {
    complete &= SetField(axis, 1, axis, mKinds & kFractionFaces, *layout);
    complete &= SetField(axis, 3, axis, mKinds & kFractionFaceVolumes, *layout);
    complete &= SetField(axis, 2, kEdgeZ + axis, mKinds & kFractionEdges, *layout);
  }
  return complete;
}

bool Grid_VolumeFractions::Measure(i32 threads) {
  if (!Allocate()) return false;
  const VecInt3D cells = SourceLayout()->dims;
  if (IsControlVolume()) {
    // Each share counts a layer anew that the one below it has counted: few large ones.
    const i32 shares = std::min(cells.z, kControlVolumeShares);
    ForEachBlock(shares, threads, [&](i32 share) {
      ControlVolumes(static_cast<i32>(i64{cells.z} * share / shares),
                     static_cast<i32>(i64{cells.z} * (share + 1) / shares));
    });
  } else if (mSource.grid) {
    ForEachBlock(cells.z, threads, [&](i32 z) {
      const CellBox layer{{0, 0, z}, {cells.x, cells.y, z + 1}};
      for (const auto& [key, field] : mFields)
        MeasureField(*field, layer, mMethod == FractionMethod::Analytic && key.second == 1);
    });
  }
  return true;
}

void Grid_VolumeFractions::MeasureField(EGrid<float>& field, const CellBox& box,
                                        bool analytic) const {
  const bool isNodal = mSource.grid->mKind == kNode;
  if (analytic && isNodal) {
    AnalyticFaces(field, box);
  } else if (mMethod == FractionMethod::Sampled) {
    SampledCount(field, box);
  } else if (field.mKind == kCentre && isNodal) {
    NodalCells(field, box);
  } else {
    Tetrahedra(field, box);
  }
}

namespace {
/// Most of a row lies wholly inside or outside: `write(x)` is left for the samples that don't.
template <class T, class Corners, class Mixed>
void FillRow(i32 first, i32 last, float* out, float inside, float outside, Corners&& corners,
             Mixed&& write) {
  bool anyMixed = false;
  for (i32 x = first; x < last; ++x) {
    T low, high;
    corners(x, low, high);
    out[x] = high > 0 ? outside : inside;
    anyMixed |= (low <= 0) & (high > 0);
  }
  if (!anyMixed) return;
  for (i32 x = first; x < last; ++x) {
    T low, high;
    corners(x, low, high);
    if (low <= 0 && high > 0) write(x);
  }
}
}  // namespace

void Grid_VolumeFractions::AnalyticFaces(EGrid<float>& field, const CellBox& cells) const {
  const EGrid<double>& source = *mSource.grid;
  const i32 axis = field.mKind;
  CellBox box = cells;
  if (box.max[axis] == field.mLayout.dims[axis]) ++box.max[axis];
  const i32 step[3] = {1, source.mNx, source.mSlice};
  const i32 u = step[axis == 0 ? 1 : 0], v = step[axis == 2 ? 1 : 2];
  const float inside = Stored(1), outside = Stored(0);
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const double* __restrict node = source.mData + source.Index(0, y, z);
      float* __restrict out = field.mData + field.Index(0, y, z);
      FillRow<float>(
          box.min.x, box.max.x, out, inside, outside,
          [=](i32 x, float& low, float& high) {
            const float p = static_cast<float>(node[x]), q = static_cast<float>(node[x + u]);
            const float r = static_cast<float>(node[x + u + v]);
            const float s = static_cast<float>(node[x + v]);
            low = std::min(std::min(p, q), std::min(r, s));
            high = std::max(std::max(p, q), std::max(r, s));
          },
          [&](i32 x) {
            const double c[4] = {static_cast<float>(node[x]), static_cast<float>(node[x + u]),
                                 static_cast<float>(node[x + u + v]),
                                 static_cast<float>(node[x + v])};
            out[x] = Least(Stored(SquareFraction(c)));
          });
    }
}

void Grid_VolumeFractions::NodalCells(EGrid<float>& field, const CellBox& box) const {
  const EGrid<double>& source = *mSource.grid;
  const i32 dy = source.mNx, dz = source.mSlice;
  const float inside = Stored(1), outside = Stored(0);
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const double* __restrict node = source.mData + source.Index(0, y, z);
      float* __restrict out = field.mData + field.Index(0, y, z);
      FillRow<double>(
          box.min.x, box.max.x, out, inside, outside,
          [=](i32 x, double& low, double& high) {
            const double *a = node + x, *b = a + dy, *c = a + dz, *d = b + dz;
            low = std::min(std::min(std::min(a[0], a[1]), std::min(b[0], b[1])),
                           std::min(std::min(c[0], c[1]), std::min(d[0], d[1])));
            high = std::max(std::max(std::max(a[0], a[1]), std::max(b[0], b[1])),
                            std::max(std::max(c[0], c[1]), std::max(d[0], d[1])));
          },
          [&](i32 x) {
            const double *a = node + x, *b = a + dy, *c = a + dz, *d = b + dz;
            const double corners[8] = {a[0], a[1], b[0], b[1], c[0], c[1], d[0], d[1]};
            out[x] = Stored(CubeFraction(corners));
          });
    }
}

void Grid_VolumeFractions::Tetrahedra(EGrid<float>& field, const CellBox& box) const {
  const EGrid<double>& source = *mSource.grid;
  const Vec3d shift = OffsetOf(field.mKind) - OffsetOf(source.mKind);
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const Vec3d centre = Vec3d{double(x), double(y), double(z)} + shift;
    double corners[8];
    for (int c = 0; c < 8; ++c)
      corners[c] =
          SampleLinear(source, centre.x + ((c & 1) ? 0.5 : -0.5), centre.y + ((c & 2) ? 0.5 : -0.5),
                       centre.z + ((c & 4) ? 0.5 : -0.5));
    field(x, y, z) = Stored(CubeFraction(corners));
  });
}

/// Counts the `mSamples`^3 points of a unit box that begins at the field's sample point.
void Grid_VolumeFractions::SampledCount(EGrid<float>& field, const CellBox& box) const {
  const EGrid<double>& source = *mSource.grid;
  const Vec3d offset = OffsetOf(source.mKind), shift = OffsetOf(field.mKind) - offset;
  const i32 n = std::clamp(mSamples, 1, 64);
  const CellBox samples{{0, 0, 0}, {n, n, n}};
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    i32 count = 0;
    ForEachCell(samples, [&](i32 a, i32 b, i32 c) {
      const double v =
          SampleLinear(source, x + shift.x + (a + offset.x) / n, y + shift.y + (b + offset.y) / n,
                       z + shift.z + (c + offset.z) / n);
      count += !(v >= 0);
    });
    field(x, y, z) = Stored(static_cast<double>(count) / (n * n * n));
  });
}

void Grid_VolumeFractions::ZeroWallFaces(i32 axis, u8 walls) {
  EGrid<float>* field = GetRead(axis, 1);
  if (!field) return;
  const VecInt3D dims = field->Dims();
  const auto zeroLayer = [&](i32 side, i32 layer) {
    CellBox box{{0, 0, 0}, dims};
    box.min[side] = layer;
    box.max[side] = layer + 1;
    ForEachCell(Clip(box, {0, 0, 0}, dims), [&](i32 x, i32 y, i32 z) { (*field)(x, y, z) = 0.0f; });
  };
  for (i32 side = 0; side < 3; ++side) {
    const i32 layers = side == axis ? 2 : 1;
    for (i32 i = 0; i < layers; ++i) {
      if (walls & kLowWall[side]) zeroLayer(side, i);
      if (walls & kHighWall[side]) zeroLayer(side, dims[side] - 1 - i);
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
