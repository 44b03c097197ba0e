// The pressures that a container and the lattice round it find together.
#include <algorithm>
#include <cmath>

#include "fluids/pressure/lattice_block.h"
#include "fluids/pressure/outer_level.h"
#include "fluids/pressure/projection_lines.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The balance of fine cells without a flow that is the same everywhere, of the speeds `uniform`
/// where the density is that which `law` counts by.
template <class Law>
struct UniformFree {
  const ProjectionFields& fields;
  std::span<const double> rhs;
  Vec3d uniform;
  const Law& law;  ///< that density over the face's, over the cell size
  double inverseCell;
  bool isCalm = uniform == Vec3d{};

  double At(const CellLine& line, i32 x) const {
    const VecInt3D n = fields.openCell->Dims();
    const i32 c = line.cell + x, y = n.x, z = n.x * n.y;
    if (isCalm) return rhs[c];
    const auto lx = law.Along(0), ly = law.Along(1), lz = law.Along(2);
    return rhs[c] - (uniform.x * (line.ox[x] * lx(c, c - 1) - line.ox[x + 1] * lx(c, c + 1)) +
                     uniform.y * (line.oy0[x] * ly(c, c - y) - line.oy1[x] * ly(c, c + y)) +
                     uniform.z * (line.oz0[x] * lz(c, c - z) - line.oz1[x] * lz(c, c + z)));
  }
  /// What flows out of a cell through its low or high face of an axis.
  double Out(i32 c, i32 axis, i32 face, bool high) const {
    const VecInt3D n = fields.openCell->Dims();
    const i32 offset = axis == 0 ? 1 : axis == 1 ? n.x : n.x * n.y;
    const double speed = (*fields.velocity[axis])[face] * inverseCell -
                         uniform[axis] * law.Along(axis)(c, high ? c + offset : c - offset);
    return (high ? 1 : -1) * (*fields.open[axis])[face] * speed;
  }
};

}  // namespace

// ---- the potential of what is alike everywhere -------------------------------------------------

double OuterLevel::PotentialAt(const Vec3d& place) const {
  return Dot(mSlope, place - ToReal(mFlow->GetLayout()->originCell));
}

void OuterLevel::FindPotential() {
  mSlope = mUniform * (mReference * mFlow->GetLayout()->cellSize / mTime->stepDuration);
}

/// Beyond the open ends of the lattice the whole pressure is 0.
void OuterLevel::TakeOutUniform() {
  mFarField = nullptr;
  if (mWithoutInner || mSlope == Vec3d{}) return;
  const VecInt3D n = mLattice.Dims();
  const auto placeOf = [&](const VecInt3D& cell) {
    return Vec3d{mLattice[0].CentreOf(cell.x), mLattice[1].CentreOf(cell.y),
                 mLattice[2].CentreOf(cell.z)};
  };
  std::vector<double> potential(static_cast<std::size_t>(CountOf(n)));
  ForEachCell({{0, 0, 0}, n}, [&](i32 x, i32 y, i32 z) {
    potential[(n.y * z + y) * n.x + x] = PotentialAt(placeOf({x, y, z}));
  });
  ProjectionFields fields;
  GatherFields(fields);
  WithDensity(fields, mDensity, fields.dt / mFlow->GetLayout()->cellSize, [&](const auto& face) {
    ForEachBlock(n.z, Threads(), [&](i32 z) {
      ForEachFaceLine(fields, potential.data(), {{0, 0, z}, {n.x, n.y, z + 1}},
                      [&](const FaceLine& line) { UpdateLine(line, face); });
    });
  });
  mEnds.layers.clear();
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      if (EndsAtWall(axis, high)) continue;
      SideLayer side{.axis = axis, .high = high, .pressure = {}};
      CellBox box{{0, 0, 0}, n};
      (high ? box.min : box.max)[axis] = high ? n[axis] - 1 : 1;
      ForEachCell(box, [&](i32 x, i32 y, i32 z) {
        side.pressure.push_back(-potential[(n.y * z + y) * n.x + x]);
      });
      mEnds.layers.push_back(std::move(side));
    }
  mFarField = &mEnds;
}

// ---- what the fine cells have to bring about ---------------------------------------------------

void OuterLevel::SumInner(const ProjectionFields& fields, std::span<const double> rhs) {
  const VecInt3D inner = mLattice.InnerDims();
  const double inverseCell = 1.0 / mFlow->GetLayout()->cellSize;
  mInner.assign(static_cast<std::size_t>(CountOf(inner)), 0.0);
  WithDensity(fields, mDensity, mReference * inverseCell, [&](const auto& law) {
    const UniformFree balance{fields, rhs, mUniform, law, inverseCell};
    ForEachBlock(inner.z, Threads(), [&](i32 k) {
      double* layer = mInner.data() + i64{inner.x} * inner.y * k;
      for (i32 z = mCuts[2][k]; z < mCuts[2][k + 1]; ++z)
        for (i32 j = 0; j < inner.y; ++j)
          for (i32 y = mCuts[1][j]; y < mCuts[1][j + 1]; ++y) {
            const CellLine line(fields, y, z);
            for (i32 i = 0; i < inner.x; ++i)
              for (i32 x = mCuts[0][i]; x < mCuts[0][i + 1]; ++x)
                layer[j * inner.x + i] += balance.At(line, x);
          }
    });
    SumStrays(balance);
  });
}

template <class Sums>
void OuterLevel::SumStrays(const Sums& balance) {
  const VecInt3D inner = mLattice.InnerDims(), n = mLattice.Dims();
  const auto innerAt = [&](const VecInt3D& cell) -> double& {
    const VecInt3D c = cell - mLattice.InnerFace({});
    return mInner[(inner.y * c.z + c.y) * inner.x + c.x];
  };
  const auto give = [&](i32 owner, double value) {
    if (owner == OuterOwners::kNone) return;
    const VecInt3D at{owner % n.x, owner / n.x % n.y, owner / (n.x * n.y)};
    if (mLattice.IsInnerCell(at.x, at.y, at.z))
      innerAt(at) += value;
    else
      mGiven.emplace_back(owner, value);
  };
  mGiven.clear();
  for (const OuterOwners::Stray& stray : mOwners.Strays()) {
    const double value = balance.At(CellLine(balance.fields, stray.at.y, stray.at.z), stray.at.x);
    innerAt(stray.home) -= value;
    give(stray.owner, value);
  }
  for (const ShutFace& face : mShut) {
    const OuterOwners::Stray& stray = mOwners.Strays()[face.stray];
    give(stray.owner, balance.Out(stray.cell, face.axis, face.index, face.high));
  }
}

std::span<const SideLayer> OuterLevel::FindPressures(const ProjectionFields& fields,
                                                     std::span<const double> rhs) {
  if (!IsCut()) return {};
  Advect(fields.dt);
  for (i32 axis = 0; axis < 3; ++axis) {
    for (std::size_t i = 0; i < mPush[axis].size(); ++i)
      (*mVelocity[axis])[static_cast<i32>(i)] += mPush[axis][i];
    mPush[axis].clear();
  }
  Average(true);
  AverageDensity(fields);
  FindPotential();
  SumInner(fields, rhs);
  MatchSides(fields);
  if (!ProjectAll()) return {};
  mSides.clear();
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true})
      if (IsFree(axis, high)) {
        mSides.push_back({.axis = axis, .high = high, .pressure = {}});
        SampleSide(mSides.back());
      }
  return mSides;
}

void OuterLevel::Settle() {
  const std::span<const Region> regions = mRegions.All();
  std::vector<double> sum(regions.size());
  std::vector<i64> count(regions.size());
  const std::span<double> pressure = Used().GetResult();
  const auto forEachClosedRun = [&](auto&& f) {
    for (i32 z = 0; z < mCells.z; ++z)
      for (const RegionRun& run : mRegions.Runs(z))
        if (regions[run.region].isClosed)
          f(run,
            pressure.subspan((mCells.y * z + run.y) * mCells.x + run.first, run.last - run.first));
  };
  forEachClosedRun([&](const RegionRun& run, std::span<const double> cells) {
    for (const double p : cells) sum[run.region] += p;
    count[run.region] += static_cast<i64>(cells.size());
  });
  forEachClosedRun([&](const RegionRun& run, std::span<double> cells) {
    for (double& p : cells) p -= sum[run.region] / static_cast<double>(count[run.region]);
  });
}

// ---- pressures for the container --------------------------------------------------------------

void OuterLevel::SampleSide(SideLayer& side) {
  const GridLayout& layout = *mFlow->GetLayout();
  const VecInt3D fine = layout.dims, n = mLattice.Dims();
  const std::span<const double> pressure = GetPressure();
  const i32 axis = side.axis, p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
  const i32 layer = side.high ? fine[axis] - 1 : 0;
  LatticeTaps taps;
  for (i32 a = 0; a < 3; ++a)
    taps[a] = mLattice.TapsOf(a, kCentre, layout.originCell[a],
                              a == axis ? IndexRange{layer, layer + 1} : IndexRange{0, fine[a]});
  side.pressure.resize(static_cast<std::size_t>(fine[p]) * fine[q]);
  Resample(pressure.data(), n, taps, Threads(), [&](i32 x, i32 y, i32 z, double value) {
    const VecInt3D cell{x, y, z};
    side.pressure[i64{fine[p]} * cell[q] + cell[p]] = value;
  });
  const LatticeField field{mLattice,
                           pressure,
                           Used().GetMatrix().Diagonal(),
                           {mOpen[0].get(), mOpen[1].get(), mOpen[2].get()}};
  CellBox reach;
  for (i32 a = 0; a < 3; ++a)
    reach.min[a] = taps[a].front().node[0], reach.max[a] = taps[a].back().node[3] + 1;
  bool isCutNear = false;
  ForEachCell(reach,
              [&](i32 x, i32 y, i32 z) { isCutNear |= mIsCut[(n.y * z + y) * n.x + x] != 0; });
  const std::vector<AxisTaps>& ps = taps[p];
  const std::vector<AxisTaps>& qs = taps[q];
  ForEachBlock(fine[q], Threads(), [&](i32 j) {
    LatticeBlock block;
    bool isCut = false;
    i32 from = -2;
    for (i32 i = 0; i < fine[p]; ++i) {
      double& value = side.pressure[i64{fine[p]} * j + i];
      VecInt3D cell;
      cell[axis] = layer, cell[p] = i, cell[q] = j;
      std::array<const AxisTaps*, 3> at;
      at[axis] = taps[axis].data(), at[p] = &ps[i], at[q] = &qs[j];
      if (i == 0 || ps[i].node != ps[i - 1].node) {
        block.Place(at);
        isCut = isCutNear && block.AnyOf(mIsCut, n);
        from = -2;
      }
      if (isCut && i > 0 && i < fine[p] - 1 && j > 0 && j < fine[q] - 1) {
        VecInt3D inside = cell;
        inside[axis] += side.high ? -1 : 1;
        const i32 owner = mOwners.OwnerOf(inside);
        if (owner != from) block.Fill(field, owner);
        from = owner;
        value = block.Sample(at);
      }
      Vec3d place = ToReal(cell + layout.originCell) + Vec3d{0.5, 0.5, 0.5};
      value += PotentialAt(place);
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
