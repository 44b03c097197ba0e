#include "fluids/operators/grid_sand.h"

#include <algorithm>
#include <cmath>

#include "fluids/fields/channel_kinds.h"
#include "fluids/operators/channel_work.h"
#include "fluids/solvers/water_solver.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kEvenYield = 50;  // at which what rests yields where friction is overcome
constexpr float kShut = 0.5F;      // a face that is less open counts as one of a solid
// Of a body's moment of inertia: about an axis through a row of cells it has none.
constexpr double kLeastInertia = 1e-9;

/// The turn w of a body with the moments of inertia `m` (xx, yy, zz, xy, xz, yz) and the angular
/// momentum l: m w = l.
Vec3d TurnOf(const std::array<double, 6>& m, const Vec3d& l) {
  const double least = kLeastInertia * (m[0] + m[1] + m[2]);
  if (!(least > 0)) return {};
  const Vec3d a{m[0] + least, m[3], m[4]}, b{m[3], m[1] + least, m[5]}, c{m[4], m[5], m[2] + least};
  const double volume = Dot(a, Cross(b, c));
  return Vec3d{Dot(l, Cross(b, c)), Dot(a, Cross(l, c)), Dot(a, Cross(b, l))} / volume;
}

}  // namespace

const NodeKind& Grid_Sand::Kind() {
  static const NodeKind kind = {
      .id = 1300146,
      .type = "grid_sand",
      .label = "GOP::Sand",
      .className = "Grid_Sand",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .flags = "I",
      .stages = {kFlip},
      .priority = 0,
      .menu = {"Dynamics/Operators"},
      .purpose =
          "makes the liquid of a solver sand: it runs where it is steep, and stands as a heap",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "particlegroup", "name": "grains" })",
            R"({ "type": "duration", "name": "first moment", "parameters": { "length": 0.01 } })",
            R"({ "type": "particlemesh_emission_setting", "name": "once", "parameters": { "duration": "first moment" } })",
            R"({ "type": "particlegridemitter", "name": "handful", "parameters": { "group": "grains", "volume": "ball volume", "settings": "once" } })",
            R"({ "type": "particle_advection", "name": "move", "parameters": { "group": "grains" } })",
            R"({ "type": "force_gravity", "name": "gravity" })",
            R"({ "type": "liquid", "name": "heap", "position": [-100, -100, -100], "parameters": { "box_size": [200, 200, 200], "groups": ["grains"], "forces": ["gravity"], "transfer": "affine" } })",
            R"({ "type": "grid_sand", "name": "sand", "parameters": { "solver": "heap", "friction": 0.5 } })"}},
      .rows = Parameters,
      .make = MakeNode<Grid_Sand>,
  };
  return kind;
}

const ParameterTable& Grid_Sand::Parameters() {
  static const ParameterTable table = {
      LinkRow(kSolverRow, "solver", "the liquid whose particles are grains",
              {WaterSolver::Kind().id, FluidSolver::Kind().id})
          .To(&Grid_Sand::mSolver)
          .Writes()
          .Required(),
      LinkRow(kDensityRow, "density_channel",
              "grains of differing weight; without it what the solver has")
          .AcceptsAny(kScalarChannels)
          .To(&Grid_Sand::mDensityChannel),
      RealRow(kFrictionRow, "friction", 0.9, "none",
              "how steep a heap stands, as the sine of its angle: 0.5 is dry sand at 30 degrees, "
              "0.7 gravel, 0.9 damp earth")
          .Range(0, 1)
          .To(&Grid_Sand::mFriction),
      RealRow(kCohesionRow, "cohesion", 0.1, "Pa",
              "what grains bear that nothing presses together: 0 is dry, 500 a sand castle")
          .AtLeast(0)
          .To(&Grid_Sand::mCohesion),
      RealRow(kYieldRow, "yield_slope", 50.0, "%",
              "when what rests begins to move: at 50 where friction is overcome, higher ones "
              "keep clumps whole for longer, and lower ones let all of it run")
          .AtLeast(0)
          .To(&Grid_Sand::mYield),
      RealRow(kWallFrictionRow, "wall_friction", 0.9, "none",
              "how solids hold what slides along them: 0 lets it slide freely, 1 holds against as "
              "much as presses there")
          .AtLeast(0)
          .To(&Grid_Sand::mWallFriction),
  };
  return table;
}

bool Grid_Sand::ResolveLinks() { return iObject::ResolveLinks() && mSolver; }

void Grid_Sand::CheckDirty() {
  iObject::CheckDirty();
  WorkWhileSimulating(*this);
}

void Grid_Sand::Release(bool full) {
  if (full) iObject::Release(true);
  for (auto& stress : mStress) stress.reset();
  mKinds.reset();
  mClusters = {};
}

void Grid_Sand::Prepare() {
  SetFlag(FLAG_ACTIVE, false);
  if (!mSolver) return (void)Deactivate("it has no solver; name one under 'solver'");
  mStep = mTime->stepDuration;
  if (!(mStep > 0)) return (void)Deactivate(kNoStepReason);
  mFlow = &mSolver->GetFlow();
  if (mSolver->Has(FLAG_CACHED)) return (void)Deactivate(kPlayedReason);
  if (!mSolver->Has(FLAG_ACTIVE) || !mFlow->HasVelocity())
    return (void)Deactivate("its solver has no flow");
  mPressure = mSolver->Projection().GetPressure();
  const GridLayout& layout = *mFlow->GetLayout();
  mCells = layout.dims;
  mCellSize = layout.cellSize;
  if (static_cast<i64>(mPressure.size()) != layout.count)
    return (void)Deactivate("its solver has no pressure");
  ScalarField* channel = mDensityChannel ? mDensityChannel : mSolver->densityChannel;
  mDensities.Bind(channel ? channel->GetGrid(0) : nullptr, layout);
  for (auto& stress : mStress) {
    if (!stress || !stress->mLayout.Equals(layout))
      stress = std::make_unique<EGrid<double>>(layout, kCentre);
    if (!stress->mData) return (void)Deactivate("its work grids do not fit into memory");
    stress->Fill(0.0);
  }
  if (!mKinds || mKinds->Dims() != mCells) mKinds = std::make_unique<Grid<u32>>(mCells, kCentre);
  if (!mKinds->mData) return (void)Deactivate("its work grids do not fit into memory");
  mKinds->Fill(kGrainUntouched);
  mClusters.clear();
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
}

void Grid_Sand::Finish() {
  iObject::Finish();
  if (Has(FLAG_ACTIVE)) mConstraints.Finish(this);
  mDensities.Release();
  mFlow = nullptr;
  SetFlag(FLAG_ACTIVE, false);
}

void Grid_Sand::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE) || !IsDirty()) return;
  ForEachShare(mScene->mThreadCount, mScene->mThread, [&](const EvaluationThreadData& share) {
    const CellBox box = share.InnerLayersOf(mCells);
    for (i32 z = box.min.z; z < box.max.z && !share.TestBreak(); ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) Classify(y, z, share.index);
  });
  FindClusters();
  for (const std::vector<i32>& cells : mClusters) MoveCluster(cells);
  const bool yields = std::find(mKinds->mData, mKinds->mData + mKinds->mCount, kGrainYields) !=
                      mKinds->mData + mKinds->mCount;
  if (yields) Rub();
  HoldAtSolids();
  mSolver->ContinueVelocity();
}

// ---- classes ----------------------------------------------------------------------------------

double Grid_Sand::DensityOf(i32 cell) const {
  return mDensities.Data() ? std::max(1e-6, mDensities.Data()[cell]) : mSolver->density;
}

/// The rate of strain at a cell's centre, 1/s: what is across axes by central differences.
Grid_Sand::Strain Grid_Sand::StrainAt(i32 x, i32 y, i32 z) const {
  Strain d;
  const VecInt3D cell{x, y, z};
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& g = Velocity(axis);
    const VecInt3D up = cell + ExtraOf(axis);
    d[axis] = (g(up.x, up.y, up.z) - g(x, y, z)) / mCellSize;
  }
  // The change of a component across two cells, as the mean of the faces to both of its sides.
  const auto change = [&](i32 component, i32 along) {
    const EGrid<double>& g = Velocity(component);
    const VecInt3D up = ExtraOf(component), next = ExtraOf(along);
    const auto at = [&](const VecInt3D& p) { return g(p.x, p.y, p.z); };
    return (at(cell + next) + at(cell + next + up)) - (at(cell - next) + at(cell - next + up));
  };
  const double half = 0.5 / (4 * mCellSize);
  d[kXY] = half * (change(1, 0) + change(0, 1));
  d[kXZ] = half * (change(2, 0) + change(0, 2));
  d[kYZ] = half * (change(2, 1) + change(1, 2));
  return d;
}

void Grid_Sand::Classify(i32 y, i32 z, i32 worker) {
  const EGrid<double>* phi = mFlow->mSurface;
  const i32 row = mKinds->Index(0, y, z);
  std::vector<Vec3d> places(mCells.x);
  std::vector<double> weights(mCells.x, 0.0);
  bool isAsked = false;
  for (i32 x = 1; x < mCells.x - 1; ++x) {
    if (phi && !(phi->mData[row + x] < 0)) continue;
    places[x] = mStress[0]->PositionOf(x, y, z);
    weights[x] = 1;
    isAsked = true;
  }
  if (!isAsked) return;
  if (!mConstraints.IsEmpty()) mConstraints.TestRow({places, weights}, this, worker);
  for (i32 x = 1; x < mCells.x - 1; ++x) {
    if (weights[x] == 0) continue;
    const i32 i = row + x;
    const Strain d = StrainAt(x, y, z);
    const double mean = (d[kXX] + d[kYY] + d[kZZ]) / 3;
    double apart = 0, all = 0;
    for (i32 k = 0; k < 3; ++k) {
      apart += (d[k] - mean) * (d[k] - mean) + 2 * d[3 + k] * d[3 + k];
      all += d[k] * d[k] + 2 * d[3 + k] * d[3 + k];
    }
    const double k = DensityOf(i) * mCellSize * mCellSize / mStep, p = mPressure[i];
    const double stress = weights[x] * k * std::sqrt(apart / 2);
    const double slope = mFriction * mYield / kEvenYield;
    const bool yields = p != 0 && std::sqrt(3.0) * stress > slope * std::max(p, 0.0) + mCohesion;
    (*mKinds)[i] = yields ? kGrainYields : kGrainRigid;
    const double scale = !yields   ? k
                         : all > 0 ? std::sqrt(3.0) * mFriction * std::max(p, 0.0) / std::sqrt(all)
                                   : 0.0;
    for (i32 part = 0; part < kStresses; ++part) (*mStress[part])[i] = scale * d[part];
  }
}

// ---- rigid bodies -----------------------------------------------------------------------------

VecInt3D Grid_Sand::CellOf(i32 index) const {
  return {index % mCells.x, index / mCells.x % mCells.y, index / (mCells.x * mCells.y)};
}

/// What hangs together, found from the first cell of each body on.
void Grid_Sand::FindClusters() {
  const i32 steps[3] = {1, mKinds->mNx, mKinds->mSlice};
  for (i32 first = 0; first < mKinds->mCount; ++first) {
    if ((*mKinds)[first] != kGrainRigid) continue;
    const u32 label = kFirstCluster + static_cast<u32>(mClusters.size());
    std::vector<i32>& cells = mClusters.emplace_back(1, first);
    (*mKinds)[first] = label;
    // Cells of the outermost layer are of no kind that counts, so that neighbours are inside.
    for (std::size_t next = 0; next < cells.size(); ++next)
      for (const i32 step : steps)
        for (const i32 other : {cells[next] - step, cells[next] + step}) {
          if ((*mKinds)[other] != kGrainRigid) continue;
          (*mKinds)[other] = label;
          cells.push_back(other);
        }
  }
}

/// Gives its faces v = V + w x r, with the momentum M V and the angular momentum I w of its cells.
void Grid_Sand::MoveCluster(const std::vector<i32>& cells) {
  const EGrid<double>& grid = *mStress[0];
  const auto placeOf = [&](const VecInt3D& c) { return grid.PositionOf(c.x, c.y, c.z); };
  const auto velocityOf = [&](const VecInt3D& c) {
    Vec3d v;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& g = Velocity(axis);
      const VecInt3D up = c + ExtraOf(axis);
      v[axis] = 0.5 * (g(c.x, c.y, c.z) + g(up.x, up.y, up.z));
    }
    return v;
  };
  double mass = 0;
  Vec3d centre{}, momentum{};
  for (const i32 i : cells) {
    const VecInt3D c = CellOf(i);
    const double own = DensityOf(i);
    mass += own;
    centre += placeOf(c) * own;
    momentum += velocityOf(c) * own;
  }
  if (!(mass > 0)) return;
  centre = centre / mass;
  const Vec3d way = momentum / mass;
  std::array<double, 6> inertia{};
  Vec3d turning{};
  for (const i32 i : cells) {
    const VecInt3D c = CellOf(i);
    const double own = DensityOf(i);
    const Vec3d r = placeOf(c) - centre;
    turning += Cross(r, velocityOf(c) - way) * own;
    inertia[kXX] += own * (r.y * r.y + r.z * r.z);
    inertia[kYY] += own * (r.x * r.x + r.z * r.z);
    inertia[kZZ] += own * (r.x * r.x + r.y * r.y);
    inertia[kXY] -= own * r.x * r.y;
    inertia[kXZ] -= own * r.x * r.z;
    inertia[kYZ] -= own * r.y * r.z;
  }
  const Vec3d turn = TurnOf(inertia, turning);
  for (const i32 i : cells)
    for (i32 axis = 0; axis < 3; ++axis) {
      EGrid<double>& g = Velocity(axis);
      const EGrid<float>* open = mFlow->GetOpenFaces(axis);
      for (const i32 side : {0, 1}) {
        const VecInt3D f = CellOf(i) + ExtraOf(axis) * side;
        if (open && (*open)(f.x, f.y, f.z) == 0) continue;
        const Vec3d r = g.PositionOf(f.x, f.y, f.z) - centre;
        g(f.x, f.y, f.z) = (way + Cross(turn, r))[axis];
      }
    }
}

// ---- friction ---------------------------------------------------------------------------------

template <class F>
void Grid_Sand::ChangeFaces(F&& change) {
  struct Face {
    i32 axis, index;
    double value;
  };
  std::vector<std::vector<Face>> faces(mCells.z);
  // All new velocities come of the old ones.
  ForEachBlock(mCells.z - 2, mScene->mThreadCount, [&](i32 block) {
    const i32 z = block + 1;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& g = Velocity(axis);
      for (i32 y = 1; y < mCells.y - 1; ++y)
        for (i32 x = 1; x < mCells.x - 1; ++x) {
          const i32 i = g.Index(x, y, z);
          if (g[i] == 0) continue;
          const double value = change(axis, VecInt3D{x, y, z});
          if (value != g[i]) faces[z].push_back({axis, i, value});
        }
    }
  });
  ForEachBlock(mCells.z, mScene->mThreadCount, [&](i32 z) {
    for (const Face& face : faces[z]) Velocity(face.axis)[face.index] = face.value;
  });
}

void Grid_Sand::Rub() {
  ChangeFaces([&](i32 axis, const VecInt3D& face) { return Rubbed(axis, face); });
}

/// A face of a cell that yields, slowed by the divergence of the stress, to a stop at most.
double Grid_Sand::Rubbed(i32 axis, const VecInt3D& face) const {
  const EGrid<double>& g = Velocity(axis);
  const double v = g(face.x, face.y, face.z);
  const i32 steps[3] = {1, mKinds->mNx, mKinds->mSlice};
  const i32 above = mKinds->Index(face.x, face.y, face.z), below = above - steps[axis];
  if ((*mKinds)[above] != kGrainYields && (*mKinds)[below] != kGrainYields) return v;
  static constexpr Stress kOf[3][3] = {{kXX, kXY, kXZ}, {kXY, kYY, kYZ}, {kXZ, kYZ, kZZ}};
  double push = 0;
  for (i32 along = 0; along < 3; ++along) {
    const EGrid<double>& s = *mStress[kOf[axis][along]];
    const i32 step = steps[along];
    push += along == axis
                ? (s[above] - s[below]) / mCellSize
                : ((s[above + step] + s[below + step]) - (s[above - step] + s[below - step])) /
                      (4 * mCellSize);
  }
  const double change = std::fabs(push) * mStep / (0.5 * (DensityOf(above) + DensityOf(below)));
  return v * std::max(0.0, 1 - change / std::fabs(v));
}

void Grid_Sand::HoldAtSolids() {
  if (mWallFriction > 0)
    ChangeFaces([&](i32 axis, const VecInt3D& face) { return Held(axis, face); });
}

/// A face beside closed ones: of what presses on these in the step, friction takes its share of the
/// speed along them, to a stop at most.
double Grid_Sand::Held(i32 axis, const VecInt3D& face) const {
  const EGrid<double>& g = Velocity(axis);
  const double own = g(face.x, face.y, face.z);
  const EGrid<float>* open = mFlow->GetOpenFaces(axis);
  if (!open || (*open)(face.x, face.y, face.z) < kShut) return own;
  double press = 0, across = 0;
  for (const VecInt3D& cell : {face, face - ExtraOf(axis)}) {
    const i32 i = mKinds->Index(cell.x, cell.y, cell.z);
    if ((*mKinds)[i] == kGrainUntouched) continue;
    for (i32 other = 0; other < 3; ++other) {
      if (other == axis) continue;
      const EGrid<float>& shut = *mFlow->GetOpenFaces(other);
      const EGrid<double>& side = Velocity(other);
      const VecInt3D up = cell + ExtraOf(other);
      const bool low = shut(cell.x, cell.y, cell.z) < kShut, high = shut(up.x, up.y, up.z) < kShut;
      if (!low && !high) across += 0.5 * (side(cell.x, cell.y, cell.z) + side(up.x, up.y, up.z));
      press += (low + high) * std::max(mPressure[i], 0.0) / DensityOf(i);
    }
  }
  if (press == 0) return own;
  // Half of each cell belongs to the face.
  const double change = mWallFriction * 0.5 * press * mStep / mCellSize;
  const double speed = std::hypot(own, 0.5 * across);
  return own * std::max(0.0, 1 - change / speed);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
