#include "fluids/pressure/grid_incompressibility_free_surface.h"

#include <cmath>

#include "fluids/pressure/projection_lines.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr i32 kTurns = 4;  // in which the set of cells that let go of walls is found
}

bool Grid_Incompressibility_FreeSurface::GatherFields(ProjectionFields& fields) {
  if (!Grid_Incompressibility::GatherFields(fields)) return false;
  fields.surface = mFlow->mSurface;
  return fields.surface && fields.surface->mData &&
         fields.surface->Dims() == mFlow->GetLayout()->dims;
}

bool Grid_Incompressibility_FreeSurface::PrepareSystem() {
  if (!Grid_Incompressibility::PrepareSystem()) return false;
  Used().GetMatrix().mHasAir = true;
  if (!mBodies.IsEmpty() && mFlow && mFlow->mSurface)
    mGaps.Fill(mFields, mMoving, *mFlow->mSurface);
  return true;
}

void Grid_Incompressibility_FreeSurface::RestoreSurface() {
  EGrid<double>* surface = mFlow ? mFlow->mSurface : nullptr;
  mRelease.Restore(surface);
  mGaps.Empty(surface);
}

bool Grid_Incompressibility_FreeSurface::IsConcern(const Region& region) const {
  return std::fabs(PushedInto(region)) > 0.5 * std::fabs(region.balance);
}

void Grid_Incompressibility_FreeSurface::Settle() {
  // Too few sweeps let a liquid sink into itself, where a gas shows little of it.
  if (SolverInUse() == 1) CheckSolve(SolveEnd::OutOfIterations);
  if (!mFlow || !mFlow->mSurface) return;
  for (i32 turn = 0; turn < kTurns; ++turn) {
    if (!mRelease.Update({mFields, mRegions, GetPressure(), mDensity}, *mFlow->mSurface, Threads()))
      return;
    Used().Refill();
    Used().GetMatrix().mHasAir = true;
    Assemble();
    SolveOn();
  }
}

void Grid_Incompressibility_FreeSurface::BuildSystem(const CellBox& block) {
  WithDensity(mFields, mDensity, mFields.dt / (mCellSize * mCellSize), [&](const auto& face) {
    ForEachCellLine(mFields, block, [&](const CellLine& line, i32 first, i32 last) {
      BuildSurfaceLine(line, face, 1.0 / mCellSize, Used().GetMatrix(), Used().GetRhs(), first,
                       last);
    });
  });
}

void Grid_Incompressibility_FreeSurface::SubtractGradient(const CellBox& block) {
  const double* phi = mFields.surface->mData;
  WithDensity(mFields, mDensity, mFields.dt / mCellSize, [&](const auto& face) {
    ForEachFaceLine(mFields, GetPressure().data(), block,
                    [&](const FaceLine& line) { UpdateSurfaceLine(line, phi, face); });
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
