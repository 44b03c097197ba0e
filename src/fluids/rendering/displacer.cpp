#include "fluids/rendering/displacer.h"

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

void VelocityGridDisplacer::Set(const Flow* flow, const DisplacementSettings* amounts) {
  mFlow = flow;
  mVelocity.reset();
  mLayout = flow ? flow->GetLayout() : nullptr;
  if (flow) {
    const VelocityField& field = flow->mVelocity;
    const EGrid<double>*u = field.GetGrid(0), *v = field.GetGrid(1), *w = field.GetGrid(2);
    if (u && v && w && u->mData && v->mData && w->mData) mVelocity.emplace(*u, *v, *w);
  }
  mEnabled = mVelocity && mLayout;
  if (!mEnabled) return;
  mSingle = true;
  if (!amounts) return;
  mAmount = amounts->smoke;
  mAmount2 = amounts->fire;
  mEnabled = mAmount != 0;
  mSingle = !(mAmount != mAmount2 && mAmount != 0 && mAmount2 != 0);
}

Vec3d VelocityGridDisplacer::DisplaceBy(const Vec3d& point, double amount) const {
  if (!mEnabled || amount == 0) return point;
  constexpr i32 kHeun = 1;
  const Vec3d from = mLayout->ToCells(point);
  const Vec3d to = TracePath(*mVelocity, from, -amount * mLayout->inverseCell, kHeun);
  return mLayout->simOrigin + to * mLayout->simCell;
}

Vec3d VelocityGridDisplacer::DisplaceFirst(const Vec3d& point) const {
  return DisplaceBy(point, mAmount);
}

void VelocityGridDisplacer::Displace(Points& points) const {
  if (!mEnabled) return;
  points[0] = DisplaceFirst(points[0]);
  points[1] = mSingle ? points[0] : DisplaceBy(points[1], mAmount2);
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
