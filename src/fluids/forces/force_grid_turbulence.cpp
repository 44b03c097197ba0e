#include "fluids/forces/force_grid_turbulence.h"

#include <cmath>
#include <type_traits>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "grids/sampling.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
constexpr double kOfVorticity = 0.001;  ///< what 1 in the rows of its limits comes to
}  // namespace

const NodeKind& Force_GridTurbulence::Kind() {
  static const NodeKind kind = {
      .id = 1300017,
      .type = "force_particleturbulence",
      .label = "GF::Particle Turbulence",
      .className = "Force_GridTurbulence",
      .typeId = kTypeGridTurbulence,
      .list = kListForces,
      .categories = kCategoryGrid,
      .menu = {"Grids/Forces"},
      .purpose = "particles that stir the gas: eddies that travel with it and don't fade",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "eddies" })",
            R"({ "type": "particlemesh_emission_setting", "name": "rate", "parameters": { "amount": 200 } })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "eddies", "kind": "vorticity", "source": "ball mesh", "settings": "rate" } })",
            R"({ "type": "particle_advection", "name": "drift", "parameters": { "group": "eddies", "kind": "vorticity" } })",
            R"({ "type": "force_particleturbulence", "name": "stir", "parameters": { "group": "eddies" } })",
            R"({ "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["stir"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_GridTurbulence>,
  };
  return kind;
}

const ParameterTable& Force_GridTurbulence::Parameters() {
  static const ParameterTable table = {
      LinkRow(kGroupRow, "group", "the group whose particles of vorticity stir the gas",
              {ParticleGroup::Kind().id})
          .To(&Force_GridTurbulence::mGroup)
          .Required(),
      RealRow(kStrengthRow, "strength", 0.2, "none",
              "a handle on the whole push: 2 is twice as hard, 0 is calm")
          .To(&Force_GridTurbulence::mStrength),
      RealRow(1004, "radius", 4.0, "cells", "how far round itself a particle stirs")
          .AtLeast(0)
          .To(&Force_GridTurbulence::mRadiusCells),
      RealRow(1005, "lowest_vorticity", 0.002, "1/s",
              "weaker particles are raised to a thousandth of this, so that none dies down")
          .AtLeast(0)
          .To(&Force_GridTurbulence::mLowest),
      RealRow(1006, "highest_vorticity", 0.01, "1/s",
              "stronger particles are cut to a thousandth of this, so that none runs away")
          .AtLeast(0)
          .To(&Force_GridTurbulence::mHighest),
      LongRow(1007, "kernel_type", 1, "", "how the push fades with the distance")
          .Choices(KernelChoices())
          .To(&Force_GridTurbulence::mKernelType),
      RealRow(1008, "kernel_parameter", 1.0, "none",
              "how steep an exponential kernel falls, times the size of a cell")
          .OnlyWith(1007, {static_cast<i32>(KernelType::kExponential)})
          .To(&Force_GridTurbulence::mKernelParameter),
      CurveRow(1009, "kernel_curve", "the push over the squared part of the radius")
          .OnlyWith(1007, {static_cast<i32>(KernelType::kCurve)})
          .To(&Force_GridTurbulence::mCurve),
      LinkRow(1011, "kernel", "takes the place of the kernel that is set here", {Kernel::Kind().id})
          .To(&Force_GridTurbulence::mKernelNode),
      LinkRow(1013, "duration", "stirs only inside this time window", {Duration::Kind().id})
          .To(&Force_GridTurbulence::mDuration),
      BoolRow(1015, "along_flow", false,
              "favours eddies that stretch along the flow, as a jet's do")
          .To(&Force_GridTurbulence::mAlongFlow),
  };
  return table;
}

bool Force_GridTurbulence::ReadParameters() {
  if (!ForceOf::ReadParameters()) return false;
  const double h = GetDomain().cellSize;
  mRadius = mRadiusCells * h;
  mLowest *= kOfVorticity;
  mHighest *= kOfVorticity;
  mKernel.SetType(static_cast<KernelType>(mKernelType));
  mKernel.mSharpness = mKernelParameter * h;
  return true;
}

bool Force_GridTurbulence::PrepareForce() {
  for (i32 axis = 0; axis < 3; ++axis)
    if (!mVelocity || !mVelocity->GetGrid(axis) || !mVelocity->GetGrid(axis)->mData)
      return Deactivate("there is no velocity to stir");
  if (!mGroup) return Deactivate("it has no group; name one under 'group'");
  if (mStrength <= 0) return Deactivate(kNoStrengthReason);
  if (!(mRadius > 0)) return Deactivate("its radius is 0");
  Stretch();
  mGroup->BuildTree(kVortex, mScene->mThreadCount);
  const ParticleStore& store = mGroup->Store(kVortex);
  mVorticity = store.Find<Vec3d>(property_id::kVorticity);
  mRadii = store.Find<double>(property_id::kRadius);
  mBuffers.resize(kShares);
  FindReach();
  return true;
}

void Force_GridTurbulence::FindReach() {
  const Vec3d reach{mRadius, mRadius, mRadius};
  mReach = {};
  for (const Vec3d& p : std::as_const(*mGroup).Store(kVortex).Positions())
    mReach.Add({p - reach, p + reach});
}

bool Force_GridTurbulence::ActsOn(const ForceSample& sample) const {
  const Vec3d& p = sample.position;
  return Min(p, mReach.min) == mReach.min && Max(p, mReach.max) == mReach.max;
}

Vec3d Force_GridTurbulence::VelocityAt(const Vec3d& p) const {
  Vec3d v;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& grid = *mVelocity->GetGrid(axis);
    v[axis] = SampleLinear(grid, grid.ToSamples(p));
  }
  return v;
}

void Force_GridTurbulence::Stretch() {
  ParticleStore& store = mGroup->Store(kVortex);
  PropertyColumn<Vec3d>* vorticity = store.Find<Vec3d>(property_id::kVorticity);
  if (!vorticity) return;
  const double dt = mTime->stepDuration;
  const GridLayout& layout = mVelocity->GetGrid(0)->mLayout;
  ForEachBlock(kShares, mScene->mThreadCount, [&](i32 share) {
    const IndexRange rows = store.PartOf(share, kShares);
    for (i32 row = rows.first; row < rows.last; ++row) {
      const Vec3d& p = store.Positions()[row];
      if (!(store.Flags()[row] & PF_ALIVE) || !vorticity->Has(row)) continue;
      const Vec3d w = vorticity->Values()[row];
      Vec3d turned = w;
      for (i32 axis = 0; axis < 3 && layout.Contains(p, false); ++axis) {
        const EGrid<double>& grid = *mVelocity->GetGrid(axis);
        turned[axis] += dt * Dot(SampleGradient(grid, grid.ToSamples(p), layout.cellSize), w);
      }
      const double length = Length(turned);
      if (length == 0) continue;
      vorticity->Set(row, turned * (std::max(mLowest, std::min(length, mHighest)) / length));
    }
  });
}

double Force_GridTurbulence::KernelAt(double distanceSquared) const {
  const double r2 = mRadius * mRadius, r3 = r2 * mRadius;
  if (mKernelNode) return mKernelNode->EvaluateSquared(distanceSquared, r2, r3);
  if (mKernel.Type() != KernelType::kCurve) return mKernel.EvaluateSquared(distanceSquared, r2, r3);
  return mCurve ? mCurve->Evaluate(distanceSquared / r2) : 0;
}

Vec3d Force_GridTurbulence::PushAt(const Vec3d& place, double s, u32 worker) const {
  Vec3d sum{};
  if (!mVorticity) return sum;
  const ParticleStore& store = mGroup->Store(kVortex);
  constexpr bool kOnlyOfParticles = true;
  mGroup->ForEachNeighbour(
      kVortex, place, mRadius, mBuffers[worker], [&](i32 row, double distanceSquared) {
        if (!(store.Flags()[row] & PF_ALIVE)) return;
        const double reach = mRadii ? mRadii->Get(row, 0) : 0;
        if (reach > 0 && reach * reach < distanceSquared) return;
        const double k = KernelAt(distanceSquared);
        if (!(k > 0)) return;
        double weight = s;
        if (!mConstraints.IsEmpty() &&
            !mConstraints.Test(place, weight, this, worker, &store, row, kOnlyOfParticles))
          return;
        const Vec3d own = mVorticity->Get(row, {});
        const Vec3d away = Normalised(store.Positions()[row] - place);
        Vec3d w = own * k;
        if (mAlongFlow) {
          weight *= Length(own) * Dot(VelocityAt(store.Positions()[row]), w);
          w = Normalised(w);
        }
        sum += Cross(away, w) * weight;
      });
  return sum;
}

template <class Place>
void Force_GridTurbulence::Push(Place& place, double s) const {
  if constexpr (std::is_same_v<Place, ForceSample>) {
    place.force += PushAt(place.position, s, place.worker);
  } else {
    for (i32 x = 0; x < place.count; ++x) {
      if (!place.open[x]) continue;
      const Vec3d push = PushAt(place.PositionOf(x), s, place.worker);
      for (int a = 0; a < 3; ++a) place.force[a][x] += push[a];
    }
  }
}

template class ForceOf<Force_GridTurbulence>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
