#include "fluids/emission/emission_settings.h"

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool IsDirtyNow(iBase* object) {
  if (!object) return false;
  if (!object->Has(FLAG_DIRTY_CHECKED)) object->CheckDirty();
  return object->IsDirty();
}

void iEmissionSettings::CheckDirty() {
  iBase::CheckDirty();
  if (!IsDirty() && IsDirtyNow(mRate)) MarkDirty(false);
}

namespace {

ParameterRow FalloffCurveRow() {
  ParameterRow row =
      CurveRow(
          GridEmissionSettings::kFalloffCurveRow, "falloff_curve",
          "strength from the surface (0) to the deepest point (1): 0 at the left makes soft edges")
          .OnlyWith(GridEmissionSettings::kFalloffRow, {GridEmissionSettings::kDepthCurve})
          .To(&GridEmissionSettings::mFalloffCurve);
  row.creation = SplineData{{{0, 0}, {1, 1}}};
  return row.Missing(std::monostate{});
}

}  // namespace

const NodeKind& GridEmissionSettings::Kind() {
  static const NodeKind kind = {
      .id = 1300024,
      .type = "emission_setting",
      .label = "Settings::Grid Emission",
      .className = "GridEmissionSettings",
      .typeId = kTypeGridEmissionSettings,
      .list = kListSettings,
      .categories = kCategoryGrid,
      .menu = {"Grids/Emitters"},
      .purpose = "how much is emitted, when, and how it combines with what a cell holds",
      .example =
          {{example::kBall},
           {example::kSmoke,
            R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 0.8, "mode": "set", "absolute": true } })",
            example::kPair, example::kBallMesh, example::kBallVolume, example::kEmitter}},
      .rows = Parameters,
      .make = MakeNode<GridEmissionSettings>,
  };
  return kind;
}

const ParameterTable& GridEmissionSettings::Parameters() {
  static const ParameterTable table = {
      RealRow(kAmountRow, "amount", 1.0, "1/s",
              "how fast a cell fills: higher is thicker smoke or hotter gas")
          .OnlyWithout(kRateRow)
          .To(&GridEmissionSettings::mValue),
      VectorRow(kVectorAmountRow, "vector_amount", {1, 1, 1}, "1/s",
                "how fast a cell of a vector field fills, for each component")
          .OnlyWithout(kRateRow)
          .To(&GridEmissionSettings::mVector),
      BoolRow(1015, "show_vector", false, "a dialog shows vector_amount in place of amount").Kept(),
      LinkRow(kRateRow, "rate",
              "a value node that takes the place of amount, shared by several sources",
              {EmissionRate::Kind().id})
          .To(&iEmissionSettings::mRate),
      LongRow(kModeRow, "mode", 0, "",
              "add piles up, set replaces what was there, add_to_limit stops at the limit")
          .Choices({{0, "add"}, {1, "set"}, {2, "add_to_limit"}})
          .To(&GridEmissionSettings::mMode),
      LinkRow(kLimitRow, "limit",
              "value node with the level at which add_to_limit stops; without it the upper end of "
              "the channel's range",
              {EmissionRate::Kind().id})
          .OnlyWith(kModeRow, {2})
          .To(&GridEmissionSettings::mLimit),
      BoolRow(1001, "absolute", false,
              "gives the whole amount in every step, whatever its length: full at once")
          .To(&GridEmissionSettings::mAbsolute),
      LinkRow(kDurationRow, "duration",
              "a puff instead of a steady source: when it runs, and how strongly",
              {Duration::Kind().id})
          .To(&GridEmissionSettings::mDuration),
      LongRow(kFalloffRow, "falloff", 0, "",
              "fades the source towards its surface, so that no hard shape shows in the smoke")
          .Choices({{0, "none"}, {1, "depth"}, {2, "depth_curve"}})
          .To(&GridEmissionSettings::mFalloff),
      FalloffCurveRow(),
      BoolRow(1012, "splat", false,
              "spreads each gift softly over the nearest cells, without a limit")
          .Missing(i32{1})
          .To(&GridEmissionSettings::mSplat),
  };
  return table;
}

void GridEmissionSettings::CheckDirty() {
  iEmissionSettings::CheckDirty();
  if (!IsDirty() && (IsDirtyNow(mDuration) || IsDirtyNow(mLimit))) MarkDirty(false);
}

EmissionWrite GridEmissionSettings::Write() const {
  EmissionWrite write;
  write.mode = mMode;
  write.splat = mSplat;
  write.hasLimit = mLimit != nullptr;
  if (mLimit) {
    write.limit = mLimit->mReal;
    write.vectorLimit = mLimit->mVector;
  }
  return write;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
