#include "fluids/operators/grid_combustion.h"

#include "fluids/fields/channel_kinds.h"
#include "fluids/fields/field_rows.h"
#include "framework/dead_link.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/fixed_blocks.h"
#include "grids/sampling.h"
#include "grids/set_once.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kPlainIgnition = 600;  // of a fuel that says nothing of it, K

ParameterRow FlameCurveRow(i32 id, std::string_view name, SplineData curve, std::string_view help) {
  ParameterRow row = CurveRow(id, name, help);
  row.creation = std::move(curve);
  return row.Missing(std::monostate{});
}

}  // namespace

const NodeKind& GridCombustion::Kind() {
  static const NodeKind kind = {
      .id = 1300042,
      .type = "grid_combustion_fire",
      .label = "GOP::Combustion",
      .className = "GridCombustion",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Grids/Operators"},
      .purpose = "burns fuel into fire, heat and smoke, and swells the gas",
      .example =
          {{},
           {example::kFuel, example::kFire, example::kHeat, example::kSmoke, example::kGas,
            R"({ "type": "grid_combustion_fire", "name": "burn",)",
            R"(  "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat", "smoke": "smoke", "solver": "gas", "burn_rate": 5, "heat": 1800 } })"}},
      .rows = Parameters,
      .make = MakeNode<GridCombustion>,
  };
  return kind;
}

const ParameterTable& GridCombustion::Parameters() {
  static const ParameterTable table = {
      LinkRow(kTemperatureRow, "temperature",
              "the heat that flames give: it lifts, and it lights the next fuel")
          .AcceptsAny(kScalarChannels)
          .To(&GridCombustion::mTemperature)
          .Writes()
          .ReadsToo()
          .Required(),
      LinkRow(kFireRow, "fire", "where flames are seen", {FireField::Kind().id})
          .To(&GridCombustion::mFire)
          .Writes()
          .Required(),
      LinkRow(kFuelRow, "fuel", "what burns away; without one the fire channel shapes a flame",
              {PlainField::Kind().id, FuelField::Kind().id})
          .RestsWhereDead()
          .To(&GridCombustion::mFuel)
          .To(&GridCombustion::mKindled)
          .Writes()
          .ReadsToo(),
      LinkRow(kSmokeRow, "smoke", "soot that flames leave behind")
          .AcceptsAny(kScalarChannels)
          .To(&GridCombustion::mSmoke)
          .Writes(),
      LinkRow(kSolverRow, "solver", "the gas that flames blow up, so that an explosion swells")
          .AcceptsAny(kSolvers)
          .To(&GridCombustion::mSolver),
      LongRow(kModeRow, "mode", 0, "",
              "whether fuel burns at a set pace, or as far as there is air")
          .Choices({{0, "simple"}, {1, "oxygen"}})
          .To(&GridCombustion::mMode),
      RealRow(kBurnRateRow, "burn_rate", 1.0, "1/s",
              "how fast fuel is used up: fast gives a bang, slow a long flame")
          .AtLeast(0)
          .To(&GridCombustion::mBurnRate),
      RealRow(kRatioRow, "oxygen_ratio", 0.19, "none",
              "fuel per unit of air: higher burns less at a time")
          .AtLeast(1e-6)
          .OnlyWith(kModeRow, {1})
          .To(&GridCombustion::mRatio),
      RealRow(4, "base_temperature", 500.0, "K",
              "how hot the coolest part of a flame is, without a fuel channel")
          .OnlyWithout(kFuelRow)
          .To(&GridCombustion::mBaseTemperature),
      RealRow(kHeatRow, "heat", 1000.0, "K",
              "how hot a unit of fuel makes the gas: brighter flames that rise faster")
          .To(&GridCombustion::mHeat),
      FlameCurveRow(6, "temperature_curve", {{{0, 0.8}, {1, 0.2}}},
                    "without a fuel channel: temperature over the age of the flame, as a share of "
                    "the channel's range")
          .OnlyWithout(kFuelRow)
          .To(&GridCombustion::mTemperatureCurve),
      RealRow(kSmokeAmountRow, "smoke_amount", 0.2, "1/s",
              "how sooty the fire is, per unit of fuel and second of the step: per substep; "
              "without a fuel channel, per substep alone")
          .AtLeast(0)
          .To(&GridCombustion::mSmokeAmount),
      FlameCurveRow(8, "smoke_curve", {{{0, 0}, {1, 1}}},
                    "without a fuel channel: smoke over the age of the flame, per substep")
          .OnlyWithout(kFuelRow)
          .To(&GridCombustion::mSmokeCurve),
      RealRow(kExpansionRow, "expansion", 0.2, "1/s",
              "how hard a unit of fuel blows the gas apart, times burn_rate in the mode simple: "
              "per substep; without a fuel channel, of every burning cell")
          .To(&GridCombustion::mExpansion),
  };
  return table;
}

GridCombustion::GridCombustion(BaseNode* node, Scene* scene) : iObject(node, scene) {}

double GridCombustion::IgnitionOf(const BaseNode& fuel) {
  const ParameterTable* rows = fuel.Table();
  const ParameterRow* row = rows ? FindRow(*rows, field_row::kFuelIgnition) : nullptr;
  if (!row) return kPlainIgnition;
  const Value* value = fuel.Get(row->id);
  return RealOf(value ? *value : row->WhenMissing(), kPlainIgnition);
}

bool GridCombustion::AfterLinks() {
  if (mSolver && mExpansion != 0) mSolver->GetFlow().mExpands = true;
  return iObject::AfterLinks();
}

bool GridCombustion::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  return mTemperature && mFire;
}

void GridCombustion::CheckDirty() {
  iObject::CheckDirty();
  if (!WorkWhileSimulating(*this)) return;
  for (iBase* channel : {static_cast<iBase*>(mTemperature), static_cast<iBase*>(mFire),
                         static_cast<iBase*>(mFuel), static_cast<iBase*>(mSmoke)})
    MarkChanged(channel);
}

void GridCombustion::Release(bool full) {
  if (full) iObject::Release(true);
  mCellExpansion.reset();
}

bool GridCombustion::GatherGrids() {
  if (!mTemperature) return Deactivate("it has no temperature; name one under 'temperature'");
  if (!mFire) return Deactivate("it has no fire; name one under 'fire'");
  mT = DataOf(mTemperature);
  mF = DataOf(mFire);
  mFuelGrid = DataOf(mFuel);
  mS = DataOf(mSmoke);
  if (!mT || !mF) return Deactivate("its temperature or its fire has no grid");
  mBurnsFuel = mFuel != nullptr;
  if (mBurnsFuel && !mFuelGrid) return Deactivate("its fuel has no grid");
  mCellGrid = mBurnsFuel ? mFuelGrid : mF;
  for (const EGrid<double>* grid : {mT, mF, mS})
    if (grid && grid->Dims() != mCellGrid->Dims())
      return Deactivate("its channels have different grids");
  return true;
}

bool GridCombustion::PlaceExpansion() {
  mE = mSolver ? DataOf(&mSolver->GetFlow().mDivergence) : nullptr;
  if (!mE || mE->mLayout.Equals(mCellGrid->mLayout)) {
    mCellExpansion.reset();
    return true;
  }
  if (!mCellExpansion || !mCellExpansion->mLayout.Equals(mCellGrid->mLayout))
    mCellExpansion = std::make_unique<EGrid<double>>(mCellGrid->mLayout, kCentre);
  if (!mCellExpansion->mData) return Deactivate("its expansion does not fit into memory");
  mCellExpansion->Fill(0);
  return true;
}

void GridCombustion::Prepare() {
  const double dt = mTime->stepDuration;
  if (dt == 0) return (void)Deactivate(kNoStepReason);
  if (RestsByDeadLink(*this)) return;
  if (IsPlayed(mTemperature, mFire, mFuel, mSmoke)) return (void)Deactivate(kPlayedReason);
  if (!GatherGrids() || !PlaceExpansion()) return;
  for (ScalarField* field : {mTemperature, mFuel, mSmoke})
    if (field) field->SettleEmission();
  mThreshold = FlameThreshold(*mFire, mT->mRangeMax);
  mIgnition = mKindled ? mKindled->mIgnition : mFuel ? kPlainIgnition : 0;
  mBurnStep = mBurnRate * dt;
  mExpansionStep = mMode != 0 ? mExpansion : mBurnRate * mExpansion;
  mSmokeStep = mSmokeAmount * dt;
  mAgeSpan = 1 - mThreshold;
  mTemperatureSpan = mT->mRangeMax - mT->mRangeMin;
  if (mCellGrid->mNz < 3) return (void)Deactivate("its grids have no inner cells");
  mIsConstrained = !mConstraints.IsEmpty();
  mConstraints.Prepare(this);
  mHasFuel = mHasHeat = mHasFlame = false;
  SetFlag(FLAG_ACTIVE, true);
}

void GridCombustion::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const CellBox box = data.InnerLayersOf(mCellGrid->Dims());
  EGrid<double>* expansion = mCellExpansion ? mCellExpansion.get() : mE;
  for (i32 z = box.min.z; z < box.max.z && !data.TestBreak(); ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const auto at = [&](EGrid<double>* g) { return g ? g->mData + g->Index(0, y, z) : nullptr; };
      const Row row{at(mT),
                    at(mF),
                    at(mFuelGrid),
                    at(mS),
                    at(expansion),
                    box.min.x,
                    box.max.x,
                    y,
                    z,
                    static_cast<u32>(data.index)};
      const Found found = !mBurnsFuel  ? ShapeRow(row)
                          : mMode == 0 ? BurnRow(row)
                                       : BurnRowWithOxygen(row);
      SetOnce(mHasFuel, found.fuel);
      SetOnce(mHasHeat, found.heat);
      SetOnce(mHasFlame, found.flame);
    }
}

void GridCombustion::SplatExpansion() const {
  const EGrid<double>& cells = *mCellExpansion;
  EGrid<double>& target = *mE;
  // A block takes what falls into its own layers, in the order of the cells.
  constexpr i32 kLayers = 4;
  ForEachBlock((target.mNz + kLayers - 1) / kLayers, mScene->mThreadCount, [&](i32 block) {
    const auto owns = [&](i32 layer) { return layer / kLayers == block; };
    for (i32 z = 1; z < cells.mNz - 1; ++z) {
      const i32 layer =
          LinearStencil(target.ToSamples(cells.PositionOf(0, 0, z)).z, target.mNz).index;
      const bool lower = owns(layer), upper = owns(layer + 1);
      if (!lower && !upper) continue;
      ForEachCell({{1, 1, z}, {cells.mNx - 1, cells.mNy - 1, z + 1}}, [&](i32 x, i32 y, i32) {
        const double value = cells(x, y, z);
        if (value == 0) return;
        const Vec3d p = cells.PositionOf(x, y, z);
        if (target.mLayout.Contains(p, false))
          Splat(target, value, target.ToSamples(p), SplatOperation::Add, lower, upper);
      });
    }
  });
}

void GridCombustion::Finish() {
  if (Has(FLAG_ACTIVE)) {
    if (mCellExpansion) SplatExpansion();
    for (ScalarField* field : {mTemperature, mFuel, mSmoke})
      if (field) field->BookWork();
    if (const char* why = IsCancelled() ? nullptr : WhyNothingBurned()) TakeBackRun(why);
  }
  iObject::Finish();
  SetFlag(FLAG_ACTIVE, false);
  mConstraints.Finish(this);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
