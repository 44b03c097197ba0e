#include "fluids/forces/force_swirling.h"

#include <cmath>
#include <type_traits>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

// Of the steepest change of vorticity that a cell could show: where it changes by less, the push
// fades out. Rounding alone would turn the direction of a change that is 0.
constexpr double kFaint = 1e-6;

/// Samples whose sums are subtracted: (high[0] + high[1]) - (low[0] + low[1]).
struct DifferenceRow {
  const double *high[2], *low[2];
};

/// A component of the vorticity, such as omega_x = dw/dy - dv/dz, 1/s.
SULVA_WIDE_KERNEL void CurlComponent(const DifferenceRow& a, const DifferenceRow& b, double scale,
                                     double* __restrict out, i32 n) {
  const double *a0 = a.high[0], *a1 = a.high[1], *a2 = a.low[0], *a3 = a.low[1];
  const double *b0 = b.high[0], *b1 = b.high[1], *b2 = b.low[0], *b3 = b.low[1];
  for (i32 i = 0; i < n; ++i)
    out[i] = scale * (((a0[i] + a1[i]) - (a2[i] + a3[i])) - ((b0[i] + b1[i]) - (b2[i] + b3[i])));
}

/// Takes a mean off the components of a row of vectors; and takes their lengths.
SULVA_WIDE_KERNEL void CentreRow(double* __restrict x, double* __restrict y, double* __restrict z,
                                 const Vec3d& mean, double* __restrict length, i32 n) {
  const double mx = mean.x, my = mean.y, mz = mean.z;
  for (i32 i = 0; i < n; ++i) {
    x[i] -= mx;
    y[i] -= my;
    z[i] -= mz;
    length[i] = std::sqrt(x[i] * x[i] + y[i] * y[i] + z[i] * z[i]);
  }
}

}  // namespace

const NodeKind& Force_Swirling::Kind() {
  static const NodeKind kind = {
      .id = 1300016,
      .type = "force_swirling",
      .label = "GF::Swirling",
      .className = "Force_Swirling",
      .typeId = kTypeSwirling,
      .list = kListForces,
      .categories = kCategoryGrid,
      .menu = {"Grids/Forces"},
      .purpose = "gives back the small eddies that the grid smooths away: curls and flicker",
      .example =
          {{},
           {R"({ "type": "force_swirling", "name": "curls", "parameters": { "strength": 2 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["curls"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Swirling>,
  };
  return kind;
}

const ParameterTable& Force_Swirling::Parameters() {
  static const ParameterTable table = {
      RealRow(
          kStrengthRow, "strength", 0.8, "1/s",
          "how curly it gets: too much looks like boiling; counts a fifth unless along_flow is on")
          .To(&Force_Swirling::mStrength),
      LinkRow(1001, "duration", "curls only inside this time window", {Duration::Kind().id})
          .To(&Force_Swirling::mDuration),
      BoolRow(1003, "subtract_mean", true,
              "leaves out the turning of the whole cloud, so that only small curls grow")
          .To(&Force_Swirling::mSubtractMean),
      BoolRow(1004, "along_flow", false,
              "favours curls that stretch along the flow: long, ropy smoke")
          .To(&Force_Swirling::mAlongFlow),
  };
  return table;
}

bool Force_Swirling::ReadParameters() {
  if (!ForceOf::ReadParameters()) return false;
  if (!mAlongFlow) mStrength *= 0.2;
  return true;
}

void Force_Swirling::Release(bool full) {
  if (full) ForceOf::Release(true);
  mMagnitude.reset();
  for (auto& grid : mVorticity) grid.reset();
}

bool Force_Swirling::Allocate(const GridLayout& layout) {
  if (mMagnitude && mMagnitude->mLayout.Equals(layout)) return true;
  Release(false);
  const auto make = [&](std::unique_ptr<EGrid<double>>& grid) {
    grid = std::make_unique<EGrid<double>>(layout, kCentre);
    return grid->mData != nullptr;
  };
  if (make(mMagnitude) && make(mVorticity[0]) && make(mVorticity[1]) && make(mVorticity[2]))
    return true;
  Release(false);
  return false;
}

bool Force_Swirling::PrepareForce() {
  for (i32 axis = 0; axis < 3; ++axis)
    if (!mVelocity || !mVelocity->GetGrid(axis) || !mVelocity->GetGrid(axis)->mData)
      return Deactivate("there is no velocity to swirl");
  if (mStrength <= 0) return Deactivate(kNoStrengthReason);
  const GridLayout& layout = mVelocity->GetGrid(0)->mLayout;
  // Another holder of this force prepared it in this step already.
  if (Has(FLAG_ACTIVE) && mMagnitude && mMagnitude->mLayout.Equals(layout)) return true;
  const double h = layout.cellSize, dt = mTime->stepDuration;
  if (dt == 0) return Deactivate(kNoStepReason);
  mHalfInverse = 0.5 / h;
  mForceScale = h * mStrength * dt;
  if (!Allocate(layout)) return Deactivate("its grids couldn't be allocated");
  ComputeVorticity();
  mEpsilon = kFaint * mMagnitude->mRangeMax / h;
  return true;
}

void Force_Swirling::CurlRow(i32 y, i32 z) {
  const EGrid<double>&u = *mVelocity->GetGrid(0), &v = *mVelocity->GetGrid(1),
        &w = *mVelocity->GetGrid(2);
  const double scale = 0.25 / u.mLayout.cellSize;
  // A tangential component at a face is the mean of the two cells beside it, so that the
  // difference between opposite faces leaves the cells beyond them: two samples in each.
  const auto row = [&](const EGrid<double>& g, i32 dx, i32 dy, i32 dz) {
    return g.mData + g.Index(1 + dx, y + dy, z + dz);
  };
  const auto pairs = [&](const EGrid<double>& g, VecInt3D up, VecInt3D along) {
    return DifferenceRow{
        {row(g, up.x, up.y, up.z), row(g, up.x + along.x, up.y + along.y, up.z + along.z)},
        {row(g, -up.x, -up.y, -up.z), row(g, along.x - up.x, along.y - up.y, along.z - up.z)}};
  };
  constexpr VecInt3D kX{1, 0, 0}, kY{0, 1, 0}, kZ{0, 0, 1};
  const i32 n = mMagnitude->mNx - 2, first = mMagnitude->Index(1, y, z);
  CurlComponent(pairs(w, kY, kZ), pairs(v, kZ, kY), scale, mVorticity[0]->mData + first, n);
  CurlComponent(pairs(u, kZ, kX), pairs(w, kX, kZ), scale, mVorticity[1]->mData + first, n);
  CurlComponent(pairs(v, kX, kY), pairs(u, kY, kX), scale, mVorticity[2]->mData + first, n);
}

void Force_Swirling::ComputeVorticity() {
  const VecInt3D n = mMagnitude->Dims();
  const i32 threads = mScene->mThreadCount, layers = std::max(n.z - 2, 0);
  const auto forEachRow = [&](i32 z, auto&& f) {
    for (i32 y = 1; y < n.y - 1; ++y) f(y, mMagnitude->Index(0, y, z));
  };
  Vec3d mean = ReduceBlocks(
      layers, threads, Vec3d{},
      [&](i32 layer) {
        Vec3d sum{};
        forEachRow(layer + 1, [&](i32 y, i32 row) {
          CurlRow(y, layer + 1);
          for (int a = 0; a < 3; ++a)
            for (i32 x = 1; x < n.x - 1; ++x) sum[a] += (*mVorticity[a])[row + x];
        });
        return sum;
      },
      [](const Vec3d& a, const Vec3d& b) { return a + b; });
  const double cells = double(std::max(n.x - 2, 0)) * std::max(n.y - 2, 0) * layers;
  mean = mSubtractMean && cells > 0 ? mean / cells : Vec3d{};
  mMagnitude->mRangeMin = 0;
  mMagnitude->mRangeMax = ReduceBlocks(
      layers, threads, 0.0,
      [&](i32 layer) {
        double most = 0;
        forEachRow(layer + 1, [&](i32, i32 row) {
          double *ox = mVorticity[0]->mData + row, *oy = mVorticity[1]->mData + row,
                 *oz = mVorticity[2]->mData + row, *length = mMagnitude->mData + row;
          CentreRow(ox + 1, oy + 1, oz + 1, mean, length + 1, n.x - 2);
          for (i32 x = 1; x < n.x - 1; ++x) most = std::max(most, length[x]);
        });
        return most;
      },
      [](double a, double b) { return std::max(a, b); });
}

inline Vec3d Force_Swirling::PushAt(i32 x, i32 y, i32 z, double s) const {
  const EGrid<double>& m = *mMagnitude;
  const i32 cell = m.Index(x, y, z);
  const Vec3d g = Vec3d{m[cell + 1] - m[cell - 1], m[cell + m.mNx] - m[cell - m.mNx],
                        m[cell + m.mSlice] - m[cell - m.mSlice]} *
                  mHalfInverse;
  const double length = Length(g) + mEpsilon;
  if (!(length > mEpsilon)) return {};
  Vec3d w{(*mVorticity[0])[cell], (*mVorticity[1])[cell], (*mVorticity[2])[cell]};
  if (mAlongFlow) {
    const EGrid<double>&u = *mVelocity->GetGrid(0), &v = *mVelocity->GetGrid(1),
          &up = *mVelocity->GetGrid(2);
    const Vec3d flow{0.5 * (u(x, y, z) + u(x + 1, y, z)), 0.5 * (v(x, y, z) + v(x, y + 1, z)),
                     0.5 * (up(x, y, z) + up(x, y, z + 1))};
    s *= Dot(flow, w);
    w = Normalised(w);
  }
  return Cross(g / length, w) * s;
}

VecInt3D Force_Swirling::CellOf(const ForceSample& sample) const {
  return TruncateNudged(mMagnitude->mLayout.ToCells(sample.position));
}

bool Force_Swirling::ActsOn(const ForceSample& sample) const {
  if (!mMagnitude || !mMagnitude->mLayout.Contains(sample.position, false)) return false;
  const VecInt3D c = CellOf(sample);
  for (int a = 0; a < 3; ++a)
    if (c[a] < 1 || c[a] > mMagnitude->mLayout.dims[a] - 2) return false;
  return true;
}

template <class Place>
void Force_Swirling::Push(Place& place, double s) const {
  if constexpr (std::is_same_v<Place, ForceSample>) {
    const VecInt3D c = CellOf(place);
    place.force += PushAt(c.x, c.y, c.z, s);
  } else {
    for (i32 x = 0; x < place.count; ++x) {
      if (!place.open[x]) continue;
      const Vec3d push = PushAt(place.cell.x + x, place.cell.y, place.cell.z, s);
      for (int a = 0; a < 3; ++a) place.force[a][x] += push[a];
    }
  }
}

template class ForceOf<Force_Swirling>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
