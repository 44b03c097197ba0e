#include "fluids/forces/force_buoyancy.h"

#include <cmath>

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Force_Buoyancy::Kind() {
  static const NodeKind kind = {
      .id = 1300015,
      .type = "force_buoyancy",
      .label = "DF::Buoyancy",
      .className = "Force_Buoyancy",
      .typeId = kTypeBuoyancy,
      .list = kListForces,
      .categories = kCategoryGrid | kCategoryParticle,
      .menu = {"Bodies/Forces", "Grids/Forces", "Particles/Forces"},
      .purpose = "lets hot gas rise and heavy smoke sink",
      .example =
          {{},
           {example::kSmoke, example::kHeat, R"({ "type": "force_buoyancy", "name": "lift",)",
            R"(  "parameters": { "temperature_channel": "heat", "density_channel": "smoke", "temperature_coefficient": 0.03 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["lift"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Buoyancy>,
  };
  return kind;
}

const ParameterTable& Force_Buoyancy::Parameters() {
  static const ParameterTable table = {
      LinkRow(1000, "temperature_channel", "the heat that lifts: where it is high, gas shoots up")
          .AcceptsAny(kScalarChannels)
          .To(&Force_Buoyancy::mTemperature)
          .Required(),
      LinkRow(1002, "density_channel",
              "what weighs gas down, such as thick smoke that rolls off a table")
          .AcceptsAny(kScalarChannels)
          .To(&Force_Buoyancy::mDensity1),
      LinkRow(1001, "second_density_channel",
              "another field that weighs it down; weights then count twice")
          .AcceptsAny(kScalarChannels)
          .To(&Force_Buoyancy::mDensity2),
      VectorRow(kDirectionRow, "direction", {0, 1, 0}, "none",
                "which way hot gas goes, in world axes")
          .To(&Force_Buoyancy::mUpwards),
      RealRow(kTemperatureRow, "temperature_coefficient", 0.0015, "0.5 m/s^2/K",
              "how wildly hot gas rises, per degree above the channel's minimum: it gains half of "
              "this number")
          .To(&Force_Buoyancy::mTemperatureCoefficient),
      RealRow(kDensityRow, "density_coefficient", -0.008, "0.5 m/s^2",
              "how smoke moves by its own weight: negative sinks, positive rises; a density of 1 "
              "gives half of this number")
          .To(&Force_Buoyancy::mDensityCoefficient),
      LinkRow(1009, "duration", "lifts only inside this time window", {Duration::Kind().id})
          .To(&Force_Buoyancy::mDuration),
  };
  return table;
}

bool Force_Buoyancy::ResolveLinks() {
  if (!ForceOf::ResolveLinks()) return false;
  return mTemperature != nullptr;
}

void Force_Buoyancy::ClearLinks() {
  FinishForce();
  ForceOf::ClearLinks();
}

bool Force_Buoyancy::PrepareForce() {
  if (!mTemperature)
    return Deactivate("it has no temperature channel; name one under 'temperature_channel'");
  if (mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  const GridLayout& layout = *mFlow->GetLayout();
  if (!mT.Bind(mTemperature->GetGrid(0), layout))
    return Deactivate("its temperature channel has no grid");
  mD1.Bind(mDensity1 ? mDensity1->GetGrid(0) : nullptr, layout);
  mD2.Bind(mDensity2 ? mDensity2->GetGrid(0) : nullptr, layout);
  mColdest = mTemperature->GetGrid(0)->mRangeMin;
  mUp = mUpwards * (kShare * mTime->stepDuration);
  ContinueIntoSolids();
  return true;
}

/// Warm layers rest beside a solid where the cells that it holds lift as their layer does.
void Force_Buoyancy::ContinueIntoSolids() {
  if (!mFlow->mWallCells.IsBuilt() || !mFlow->mWallCells.Fits(*mT.Grid())) return;
  mCut.Find(*mFlow, {mFlow->GetOpenFaces(0), mFlow->GetOpenFaces(1), mFlow->GetOpenFaces(2)});
  if (mCut.IsEmpty()) return;
  i32 along = 0;
  for (i32 axis = 1; axis < 3; ++axis)
    if (std::abs(mUpwards[axis]) > std::abs(mUpwards[along])) along = axis;
  for (CellSamples* samples : {&mT, &mD1, &mD2})
    if (EGrid<double>* own = samples->Own()) mCut.Continue(along, own->mRangeMin, *own);
}

void Force_Buoyancy::FinishForce() {
  for (CellSamples* samples : {&mT, &mD1, &mD2}) samples->Release();
}

bool Force_Buoyancy::ActsOn(const ForceSample& sample) const {
  const auto at = [&](const CellSamples& samples) {
    return samples.Data() ? samples.Data()[sample.cellIndex] : 0.0;
  };
  return Lift(at(mT), at(mD1), at(mD2)) != 0;
}

template <class Place>
void Force_Buoyancy::Push(Place& place, double s) const {
  s = Weight(s);
  const double *t = mT.Data(), *d1 = mD1.Data(), *d2 = mD2.Data();
  const auto push = [&](auto density1, auto density2) {
    AddAlong(place, mUp, [&](i32 i) { return Lift(t[i], density1(i), density2(i)) * s; });
  };
  const auto none = [](i32) { return 0.0; };
  const auto one = [d1](i32 i) { return d1[i]; };
  const auto two = [d2](i32 i) { return d2[i]; };
  if (d1) {
    d2 ? push(one, two) : push(one, none);
  } else {
    d2 ? push(none, two) : push(none, none);
  }
}

template class ForceOf<Force_Buoyancy>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
