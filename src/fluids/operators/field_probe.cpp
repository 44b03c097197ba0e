#include "fluids/operators/field_probe.h"

#include <algorithm>

#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void FieldProbe::Connect(std::span<const host::LinkTarget> targets) {
  host::ParameterHolder* object = targets.empty() ? nullptr : targets.front().object;
  mScalar = dynamic_cast<ScalarField*>(object);
  mField = dynamic_cast<VectorField*>(object);
  mVolume = dynamic_cast<iVolume*>(object);
  mSolver = dynamic_cast<iFluidSolver*>(object);
}

bool FieldProbe::Open() {
  mMembers.clear();
  mGrids = {};
  if (mVolume) {
    mVolume->CollectMembers(mMembers);
    std::erase_if(mMembers, [](const VolumeBase* member) { return !member->HasGridData(); });
    return !mMembers.empty();
  }
  const VectorField* field = mSolver ? &mSolver->GetFlow().mVelocity : mField;
  for (i32 a = 0; a < 3; ++a) {
    mGrids[a] = mScalar ? mScalar->GetGrid(0) : field ? field->GetGrid(a) : nullptr;
    if (!mGrids[a] || !mGrids[a]->mData) return false;
  }
  return true;
}

std::optional<Vec3d> FieldProbe::At(const Vec3d& p) const {
  if (!mMembers.empty()) return DistanceAt(p);
  if (!mGrids[0]->mLayout.Contains(p, false)) return std::nullopt;
  const auto sample = [&](i32 a) { return SampleLinear(*mGrids[a], mGrids[a]->ToSamples(p)); };
  const double first = sample(0);
  if (mScalar) return Vec3d{first, first, first};
  return Vec3d{first, sample(1), sample(2)};
}

std::optional<Vec3d> FieldProbe::DistanceAt(const Vec3d& p) const {
  double least = iVolume::kHuge;
  for (const VolumeBase* member : mMembers)
    if (member->IsInBounds(p)) least = std::min(least, member->DistanceAtWorld(p));
  if (least == iVolume::kHuge) return std::nullopt;
  return Vec3d{least, least, least};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
