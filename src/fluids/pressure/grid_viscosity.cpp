#include "fluids/pressure/grid_viscosity.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <new>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kNearest = 1e-2;  // of the way between two faces, at which a solid is met at least
constexpr float kSolid = 0.05F;    // what is open of a cell that counts as one of a solid, at most
constexpr double kDeepest = 2;     // cells: distances beyond that tell nothing of volumes

VecInt3D StepOf(i32 axis) { return ExtraOf(axis); }

}  // namespace

void Grid_Viscosity::Release() {
  mSolver.Free();
  mStates.Release();
  mVolumes.Release();
  mSurface.reset();
}

bool Grid_Viscosity::Apply(Flow& flow, const ViscousFluid& fluid) {
  const auto begin = std::chrono::steady_clock::now();
  const double dt = flow.StepDuration();
  if (!(dt > 0) || (!fluid.viscosities && !(fluid.viscosity > 0)) || !flow.HasVelocity())
    return false;
  mFlow = &flow;
  mFluid = fluid;
  mCells = flow.GetLayout()->dims;
  mFactor = dt / (flow.GetLayout()->cellSize * double{flow.GetLayout()->cellSize});
  mMoves = flow.mBoundary.DrivesFlow();
  if (!mStates.Build(flow) || !MeasureSurface(flow)) return false;
  const i32 threads = flow.Threads();
  mSolver.Begin(mCells, threads);
  const auto forEachLayer = [&](auto&& f) { ForEachBlock(mCells.z + 1, threads, f); };
  forEachLayer([&](i32 z) { FindRoles(z); });
  forEachLayer([&](i32 z) {
    FillCells(z);
    FillEdges(z);
  });
  forEachLayer([&](i32 z) { FillFaces(z); });
  mSolver.Solve(mAccuracy);
  forEachLayer([&](i32 z) { WriteBack(flow, z); });
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  mReports.push_back({mSolver.mIterations, mSolver.mResidual, taken.count()});
  mFlow = nullptr;
  mFluid = {};
  return true;
}

// ---- volumes ----------------------------------------------------------------------------------

/// A liquid's level set with distances that interpolate well, and in the cells of solids that of
/// the nearest cells beside them, and from it the shares of cells, edges and faces that are liquid.
bool Grid_Viscosity::MeasureSurface(const Flow& flow) {
  if (!flow.mSurface) {
    mSurface.reset();
    mVolumes.Release();
    return true;
  }
  const EGrid<double>& phi = *flow.mSurface;
  const Grid_VolumeFractions& fractions = flow.mFractions;
  const EGrid<float>* open = fractions.HasField(0, 0) ? fractions.GetRead(0, 0) : nullptr;
  if (!phi.mData || !open || open->Dims() != phi.Dims()) return false;
  if (!mSurface || !mSurface->mLayout.Equals(phi.mLayout))
    mSurface = std::make_unique<EGrid<double>>(phi.mLayout, kCentre);
  if (!mSurface->mData) throw std::bad_alloc();
  const double most = kDeepest * phi.mLayout.cellSize;
  const VecInt3D n = phi.Dims();
  ForEachBlock(n.z, flow.Threads(), [&](i32 z) {
    ForEachCell({{0, 0, z}, {n.x, n.y, z + 1}}, [&](i32 x, i32 y, i32) {
      double d = phi(x, y, z);
      if ((*open)(x, y, z) <= kSolid) {
        d = most;
        const CellBox about{{x - 1, y - 1, z - 1}, {x + 2, y + 2, z + 2}};
        ForEachCell(Clip(about, {0, 0, 0}, n), [&](i32 i, i32 j, i32 k) {
          if ((*open)(i, j, k) > kSolid) d = std::min(d, phi(i, j, k));
        });
      }
      (*mSurface)(x, y, z) = std::clamp(d, -most, most);
    });
  });
  mVolumes.mSource = {mSurface.get(), nullptr};
  mVolumes.mKinds = kFractionCell | kFractionEdges | kFractionFaceVolumes;
  if (!mVolumes.Measure(flow.Threads())) throw std::bad_alloc();
  return true;
}

double Grid_Viscosity::CellViscosity(const VecInt3D& cell) const {
  if (!mFluid.viscosities) return mFluid.viscosity;
  return std::max(0.0, (*mFluid.viscosities)(cell.x, cell.y, cell.z));
}

double Grid_Viscosity::FaceDensity(i32 axis, const VecInt3D& face) const {
  if (!mFluid.densities) return mFluid.density;
  const VecInt3D below = face - StepOf(axis);
  const EGrid<double>& rho = *mFluid.densities;
  return std::max(1e-6, 0.5 * (rho(below.x, below.y, below.z) + rho(face.x, face.y, face.z)));
}

/// dt / h^2 times the viscosity about an edge along an axis and the fluid's share of its volume.
/// The viscosity is the mean of those of its four cells that hold fluid.
double Grid_Viscosity::EdgeTerm(i32 axis, const VecInt3D& edge) const {
  const double share = mSurface ? (*mVolumes.GetRead(2 - axis, 2))(edge.x, edge.y, edge.z) : 1.0;
  if (share == 0 || !mFluid.viscosities) return mFactor * mFluid.viscosity * share;
  const VecInt3D p = StepOf(axis == 0 ? 1 : 0), q = StepOf(axis == 2 ? 1 : 2);
  double sum = 0, weights = 0, all = 0;
  for (const VecInt3D& cell : {edge, edge - p, edge - q, edge - p - q}) {
    const double open = (*mFlow->mFractions.GetRead(0, 0))(cell.x, cell.y, cell.z);
    const double weight =
        open > kSolid ? mSurface ? (*mVolumes.GetRead(0, 0))(cell.x, cell.y, cell.z) : 1.0 : 0.0;
    sum += weight * CellViscosity(cell);
    weights += weight;
    all += CellViscosity(cell);
  }
  return mFactor * share * (weights > 0 ? sum / weights : 0.25 * all);
}

// ---- roles ------------------------------------------------------------------------------------

/// Faces at sides that are no walls take no part, but for the one that leads out.
FaceRole Grid_Viscosity::RoleOf(i32 axis, const VecInt3D& at) const {
  const Grid<u8>& states = *mStates.GetStates(axis);
  const u8 state = states(at.x, at.y, at.z);
  if (state != kFaceFixed) return state == kFaceSolved ? FaceRole::Unknown : FaceRole::Outside;
  const u8 walls = mFlow->mBoundary.mWalls;
  for (i32 side = 0; side < 3; ++side) {
    const i32 last = states.Dims()[side] - 1;
    if (at[side] == 0 && !(walls & kLowWall[side])) return FaceRole::Outside;
    if (at[side] == last && !(walls & kHighWall[side])) return FaceRole::Outside;
    if (side == axis && at[side] == last - 1 && !(walls & kHighWall[side])) {
      const EGrid<float>* open = mFlow->GetOpenFaces(axis);
      const bool isOpen = open && (*open)(at.x, at.y, at.z) > 0 && SolidDistance(axis, at) > 0;
      return isOpen && !IsOutermost(at) ? FaceRole::Unknown : FaceRole::Fixed;
    }
  }
  return FaceRole::Fixed;
}

/// A face that lies in the outermost layer of cells, along any axis that it doesn't face.
bool Grid_Viscosity::IsOutermost(const VecInt3D& face) const {
  for (int a = 0; a < 3; ++a)
    if (face[a] == 0 || face[a] >= mCells[a] - 1) return true;
  return false;
}

void Grid_Viscosity::FindRoles(i32 z) {
  ViscousLevel& level = mSolver.Finest();
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
    if (z >= velocity.mNz) continue;
    for (i32 y = 0; y < velocity.mNy; ++y)
      for (i32 x = 0; x < velocity.mNx; ++x)
        level.Role(axis, level.Index(x, y, z)) = RoleOf(axis, {x, y, z});
  }
}

// ---- terms ------------------------------------------------------------------------------------

void Grid_Viscosity::FillCells(i32 z) {
  if (z >= mCells.z) return;
  ViscousLevel& level = mSolver.Finest();
  float* cell = level.Coefficients(ViscousLevel::kCell);
  const u8 walls = mFlow->mBoundary.mWalls;
  for (i32 y = 0; y < mCells.y; ++y)
    for (i32 x = 0; x < mCells.x; ++x) {
      const VecInt3D at{x, y, z};
      // Beyond an open side there is nothing.
      bool isBeyond = false;
      for (int a = 0; a < 3; ++a)
        isBeyond |= (at[a] == 0 && !(walls & kLowWall[a])) ||
                    (at[a] == mCells[a] - 1 && !(walls & kHighWall[a]));
      const double share = isBeyond ? 0.0 : mSurface ? (*mVolumes.GetRead(0, 0))(x, y, z) : 1.0;
      if (share > 0)
        cell[level.Index(x, y, z)] = static_cast<float>(2 * mFactor * share * CellViscosity(at));
    }
}

/// The edges between four unknown faces. Those with another one beyond an open side bear nothing,
/// and what solids cut is left to its faces.
void Grid_Viscosity::FillEdges(i32 z) {
  if (z < 1 || z >= mCells.z) return;
  ViscousLevel& level = mSolver.Finest();
  for (i32 axis = 0; axis < 3; ++axis) {
    const i32 p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
    float* edge = level.Coefficients(ViscousLevel::kEdge + axis);
    for (i32 y = 1; y < mCells.y; ++y)
      for (i32 x = 1; x < mCells.x; ++x) {
        const i32 i = level.Index(x, y, z);
        if (level.Role(p, i) == FaceRole::Unknown &&
            level.Role(p, i - level.Step(q)) == FaceRole::Unknown &&
            level.Role(q, i) == FaceRole::Unknown &&
            level.Role(q, i - level.Step(p)) == FaceRole::Unknown)
          edge[i] = static_cast<float>(EdgeTerm(axis, {x, y, z}));
      }
  }
}

void Grid_Viscosity::FillFaces(i32 z) {
  ViscousLevel& level = mSolver.Finest();
  level.mEntries[z + 1].clear();
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
    if (z >= velocity.mNz) continue;
    const EGrid<float>* volume = mSurface ? mVolumes.GetRead(axis, 3) : nullptr;
    float* mass = level.Coefficients(ViscousLevel::kMass + axis);
    const i32 a = axis == 0 ? 1 : 0, b = axis == 2 ? 1 : 2;
    for (i32 y = 0; y < velocity.mNy; ++y)
      for (i32 x = 0; x < velocity.mNx; ++x) {
        const i32 i = level.Index(x, y, z);
        if (level.Role(axis, i) != FaceRole::Unknown) continue;
        const VecInt3D at{x, y, z};
        // The one that leads out has half of its volume beyond.
        const bool leadsOut = level.Role(axis, i - level.Step(axis)) == FaceRole::Outside ||
                              level.Role(axis, i + level.Step(axis)) == FaceRole::Outside;
        const double share = volume ? (*volume)(x, y, z) : leadsOut ? 0.5 : 1.0;
        const double own = share * FaceDensity(axis, at);
        mass[i] += static_cast<float>(own);
        mSolver.Rhs(axis)[i] += own * velocity(x, y, z);
        mSolver.Velocity(axis)[i] = own > 0 ? velocity(x, y, z) : SpeedBeside(axis, at);
        for (const i32 across : {a, b})
          for (const bool isAbove : {true, false})
            if (IsCut(axis, across, isAbove ? i : i + level.Step(across)))
              AddCutEdge(axis, across, at, isAbove);
        if (mMoves) AddCellMotion(axis, at);
      }
  }
}

/// What a face without liquid about it, which takes part by its edges, begins with: the mean of the
/// faces beside it that have some. In free fall nothing is left to solve then.
double Grid_Viscosity::SpeedBeside(i32 axis, const VecInt3D& face) const {
  const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
  const EGrid<float>& volume = *mVolumes.GetRead(axis, 3);
  double sum = 0;
  i32 count = 0;
  for (i32 along = 0; along < 3; ++along)
    for (const i32 side : {-1, 1}) {
      const VecInt3D at = face + StepOf(along) * side;
      if (!(volume(at.x, at.y, at.z) > 0)) continue;
      sum += velocity(at.x, at.y, at.z);
      ++count;
    }
  return count > 0 ? sum / count : 0.0;
}

/// Solids about a cell that move drive its faces.
void Grid_Viscosity::AddCellMotion(i32 axis, const VecInt3D& face) {
  ViscousLevel& level = mSolver.Finest();
  const float* cell = level.Coefficients(ViscousLevel::kCell);
  const i32 i = level.Index(face.x, face.y, face.z), step = level.Step(axis);
  const EGrid<double>& grid = *mFlow->mVelocity.GetGrid(axis);
  for (const i32 side : {-1, 1}) {
    if (level.Role(axis, i + side * step) != FaceRole::Fixed) continue;
    const VecInt3D other = face + StepOf(axis) * side;
    mSolver.Rhs(axis)[i] += cell[side < 0 ? i - step : i] *
                            SolidVelocity(axis, grid.PositionOf(other.x, other.y, other.z), other);
  }
}

/// Two faces of an axis with an edge between them, as a part s (upper - lower) + known of its
/// shear.
struct Grid_Viscosity::Pair {
  std::array<FaceRole, 2> role;  ///< upper, lower
  double slope = 1;              ///< s: over the way to the solid, in cells
  double way = 1;
  double known = 0;  ///< what fixed faces add
  double wall = 0;   ///< the velocity of a wall that lies in the edge
  bool IsUnknown() const { return role[0] == FaceRole::Unknown && role[1] == FaceRole::Unknown; }
  bool IsFixed() const { return role[0] == FaceRole::Fixed && role[1] == FaceRole::Fixed; }
};

bool Grid_Viscosity::IsCut(i32 axis, i32 across, i32 upper) const {
  const ViscousLevel& level = mSolver.Finest();
  const FaceRole roles[4] = {level.Role(axis, upper), level.Role(axis, upper - level.Step(across)),
                             level.Role(across, upper),
                             level.Role(across, upper - level.Step(axis))};
  bool isCut = false;
  for (const FaceRole role : roles) {
    if (role == FaceRole::Outside) return false;
    isCut |= role == FaceRole::Fixed;
  }
  return isCut;
}

Grid_Viscosity::Pair Grid_Viscosity::PairAt(i32 axis, i32 across, const VecInt3D& upper) const {
  const ViscousLevel& level = mSolver.Finest();
  const VecInt3D lower = upper - StepOf(across);
  const i32 i = level.Index(upper.x, upper.y, upper.z);
  const EGrid<double>& grid = *mFlow->mVelocity.GetGrid(axis);
  const Vec3d high = grid.PositionOf(upper.x, upper.y, upper.z),
              low = grid.PositionOf(lower.x, lower.y, lower.z);
  Pair pair{{level.Role(axis, i), level.Role(axis, i - level.Step(across))}};
  if (pair.IsUnknown()) {
    if (mMoves) pair.wall = SolidVelocity(axis, 0.5 * (high + low), upper);
    return pair;
  }
  if (pair.IsFixed()) {
    pair.known = SolidVelocity(axis, high, upper) - SolidVelocity(axis, low, lower);
    return pair;
  }
  const bool isUpperFree = pair.role[0] == FaceRole::Unknown;
  const double inside = SolidDistance(axis, isUpperFree ? upper : lower);
  const double beyond = SolidDistance(axis, isUpperFree ? lower : upper);
  if (beyond <= 0 && inside > 0) pair.way = std::max(kNearest, inside / (inside - beyond));
  pair.slope = 1 / pair.way;
  const Vec3d place = isUpperFree ? high + (low - high) * pair.way : low + (high - low) * pair.way;
  pair.known = (isUpperFree ? -pair.slope : pair.slope) *
               SolidVelocity(axis, place, isUpperFree ? lower : upper);
  return pair;
}

/// Adds to the row of a face what an edge with a solid about it does, which lies across from it,
/// above (`isAbove`: the face is the upper one of its pair) or below.
void Grid_Viscosity::AddCutEdge(i32 axis, i32 across, const VecInt3D& face, bool isAbove) {
  ViscousLevel& level = mSolver.Finest();
  const VecInt3D edge = isAbove ? face : face + StepOf(across);
  const double term = EdgeTerm(3 - axis - across, edge);
  if (term == 0) return;
  const i32 row = level.Index(face.x, face.y, face.z);
  const i32 i = level.Index(edge.x, edge.y, edge.z);
  float& mass = level.Coefficients(ViscousLevel::kMass + axis)[row];
  double& rhs = mSolver.Rhs(axis)[row];
  const Pair own = PairAt(axis, across, edge), other = PairAt(across, axis, edge);
  if (own.IsUnknown() && other.IsFixed()) {
    // A wall lies in the edge, with fluid on both sides of it: half a cell to it on each.
    mass += static_cast<float>(2 * term);
    rhs += 2 * term * own.wall;
    return;
  }
  const double weight = term * std::min(own.way, other.way);
  const double part = isAbove ? own.slope : -own.slope;
  mass += static_cast<float>(weight * part * part);
  rhs -= weight * part * (own.known + other.known);
  const auto couple = [&](FaceRole role, i32 of, i32 column, double slope) {
    if (role != FaceRole::Unknown || (of == axis && column == row)) return;
    level.mEntries[face.z + 1].push_back(
        {axis, row, of, column, static_cast<float>(weight * part * slope)});
  };
  couple(own.role[0], axis, i, own.slope);
  couple(own.role[1], axis, i - level.Step(across), -own.slope);
  couple(other.role[0], across, i, other.slope);
  couple(other.role[1], across, i - level.Step(axis), -other.slope);
}

// ---- solids -----------------------------------------------------------------------------------

/// The mean distance of a face's four nodes.
double Grid_Viscosity::SolidDistance(i32 axis, const VecInt3D& face) const {
  const EGrid<double>& solid = *mFlow->mBoundary.GetLevelSet();
  const VecInt3D p = StepOf(axis == 0 ? 1 : 0), q = StepOf(axis == 2 ? 1 : 2);
  const auto at = [&](const VecInt3D& node) { return solid(node.x, node.y, node.z); };
  return 0.25 * ((at(face) + at(face + p)) + (at(face + q) + at(face + p + q)));
}

/// The walls of the box rest, whatever moves beside them.
double Grid_Viscosity::SolidVelocity(i32 axis, const Vec3d& place, const VecInt3D& face) const {
  if (!mMoves || IsOutermost(face)) return 0;
  return mFlow->mBoundary.GetFlowVelocity(place)[axis] / mFlow->StepDuration();
}

void Grid_Viscosity::WriteBack(Flow& flow, i32 z) const {
  const ViscousLevel& level = mSolver.Finest();
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& velocity = *flow.mVelocity.GetGridForWrite(axis);
    if (z >= velocity.mNz) continue;
    const double* found = const_cast<ViscousSolver&>(mSolver).Velocity(axis);
    for (i32 y = 0; y < velocity.mNy; ++y)
      for (i32 x = 0; x < velocity.mNx; ++x)
        if (const i32 i = level.Index(x, y, z); level.Role(axis, i) == FaceRole::Unknown)
          velocity(x, y, z) = found[i];
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
