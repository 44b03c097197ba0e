#include "fluids/emitters/emission_settings.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool IsDirtyNow(iBase* object) {
  if (!object) return false;
  if (!object->Has(FLAG_DIRTY_CHECKED)) object->CheckDirty();
  return object->IsDirty();
}

EmissionRate* iEmissionSettings::FindRate(i32 id) const {
  return dynamic_cast<EmissionRate*>(mScene->FindObject(mInterface.GetLink(id), kListSettings));
}

bool iEmissionSettings::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  mRate = FindRate(1002);
  return true;
}

void iEmissionSettings::ClearLinks() {
  mRate = nullptr;
  iBase::ClearLinks();
}

void iEmissionSettings::CheckDirty() {
  iBase::CheckDirty();
  if (!IsDirty() && IsDirtyNow(mRate)) MarkDirty(false);
}

namespace {
ParameterRow FalloffCurveRow() {
  ParameterRow row = CurveRow(1005, "falloff_curve",
                              "factor over the depth, 0 at the surface to 1 at the deepest point");
  row.creation = SplineData{{{0, 0}, {1, 1}}};
  return row.Missing(std::monostate{});
}
}  // namespace

const ParameterTable& GridEmissionSettings::Parameters() {
  static const ParameterTable table = {
      RealRow(1013, "amount", 1.0, "1/s", "amount per second, or per step when absolute"),
      VectorRow(1014, "vector_amount", {1, 1, 1}, "1/s", "the same for vector channels"),
      BoolRow(1015, "show_vector", false, "show the vector amount instead of the amount"),
      LinkRow(1002, "rate", "a value node that replaces the amount", {1300011}),
      LongRow(1000, "mode", 0, "", "how the amount combines with what a cell holds")
          .Choices({{0, "add"}, {1, "set"}, {2, "add_to_limit"}}),
      LinkRow(1003, "limit",
              "a value node with the limit of add_to_limit; without it the upper "
              "end of the channel's range",
              {1300011}),
      BoolRow(1001, "absolute", false, "give the amount in every step, whatever its length"),
      LinkRow(1004, "duration", "when, and how strongly, the emission runs", {1028240}),
      LongRow(1006, "falloff", 0, "", "weakens the emission towards the surface of the volume")
          .Choices({{0, "none"}, {1, "depth"}, {2, "depth_curve"}}),
      FalloffCurveRow(),
      BoolRow(1012, "splat", false, "spread the amount over the nearest cells, without a limit")
          .Missing(i32{1}),
  };
  return table;
}

bool GridEmissionSettings::ReadParameters(void* context) {
  mPriority = 0;
  if (!iEmissionSettings::ReadParameters(context)) return false;
  mValue = mInterface.GetReal(1013);
  mVector = mInterface.GetVector(1014);
  mMode = mInterface.GetLong(1000);
  mAbsolute = mInterface.GetBool(1001);
  mFalloff = mInterface.GetLong(1006);
  mFalloffCurve = mInterface.GetSpline(1005);
  mSplat = mInterface.GetBool(1012);
  return true;
}

bool GridEmissionSettings::ResolveLinks() {
  if (!iEmissionSettings::ResolveLinks()) return false;
  mLimit = FindRate(1003);
  mDuration = static_cast<Duration*>(mScene->FindObject(mInterface.GetLink(1004), kListAuxiliary,
                                                        kBitAny, kBitAny, kTypeDuration));
  return true;
}

void GridEmissionSettings::ClearLinks() {
  mDuration = nullptr;
  mLimit = nullptr;
  iEmissionSettings::ClearLinks();
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
