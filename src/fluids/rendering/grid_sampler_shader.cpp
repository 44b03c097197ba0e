#include "fluids/rendering/grid_sampler_shader.h"

#include "fluids/flow/ifluid_solver.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;
using namespace host;

namespace {

constexpr double kRoomTemperature = 297;
constexpr double kKelvinOfOne = 5000;  ///< what a value of 1 is as a temperature

/// 0 up to `low`, 1 from `high` on, and where both are equal.
double Remapped(double v, double high, double low) {
  if (v <= low) return 0;
  if (v >= high || low == high) return 1;
  return (v - low) / (high - low);
}

}  // namespace

const ParameterTable& GridSampler_Shader::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable t = {
        LinkRow(3000, "field", "channel, solver or volume that is read", {}),
        GradientRow(3001, "gradient", "what colour a low (0) to a high (1) value gets"),
        LongRow(3002, "solver_field", 0, "",
                "what is looked at of a solver: how fast it flows, or where its surface is")
            .Choices({{0, "speed"}, {1, "surface"}, {2, "divergence"}}),
        RealRow(3003, "input_low", 0, "",
                "distance in cells that gets the first colour; for a speed its value over the "
                "square root "
                "of cell_size"),
        RealRow(3004, "input_high", 1, "", "the same for the last colour"),
        RealRow(3005, "clamp_low", 0, "", "least component of the colour"),
        RealRow(3006, "clamp_high", 1, "", "greatest component of the colour"),
        BoolRow(3007, "own_point", false, "read at the shader's point instead of the hit"),
        RealRow(3008, "displacement", 0, "s", "time by which points move along a solver's flow"),
        LongRow(3009, "colour_mode", 0, "", "how the value becomes a colour")
            .Choices({{0, "gradient"}, {1, "blackbody"}}),
        LongRow(3011, "blackbody_system", 4, "",
                "which screen the glow is meant for: its primaries and white")
            .Choices(
                {{0, "ntsc"}, {1, "ebu"}, {2, "smpte"}, {3, "hdtv"}, {4, "cie"}, {5, "rec709"}}),
        VectorRow(3012, "blackbody_tint", {1, 1, 1}, "", "multiplies X, Y, Z"),
        RealRow(3013, "blackbody_scale", 1, "",
                "redder (below 1) or whiter (above) glow: multiplies the temperature")
            .AtLeast(0),
        RealRow(3014, "blackbody_brightness", 1, "",
                "how bright the glow looks: multiplies its colour")
            .AtLeast(0),
        BoolRow(3015, "blackbody_gamma", true, "apply the display's curve"),
        BoolRow(3016, "blackbody_adapt", false, "the hottest colour is white"),
    };
    t[1].creation = Gradient{{{0, {0, 0, 0}}, {1, {1, 1, 1}}}};
    return t;
  }();
  return table;
}

bool GridSampler_Shader::InitRender(const RenderData&) {
  FreeRender();
  const InterfaceHandler interface(mNode);
  const BaseNode* linked = interface.GetLink(3000);
  iBase* object = nullptr;
  for (Scene* scene : mScenes)
    if (linked && !object) object = scene->FindObject(linked, kListAll);
  if (!object) return false;
  mLow = interface.GetReal(3003);
  mHigh = interface.GetReal(3004);
  if (!Bind(*object)) return false;
  if (const Gradient* gradient = interface.GetGradient(3001)) mGradient = MakeRamp(*gradient);
  mClampLow = interface.GetReal(3005);
  mClampHigh = interface.GetReal(3006);
  mOwnPoint = interface.GetBool(3007);
  mDisplacement = interface.GetReal(3008);
  auto* solver = dynamic_cast<iFluidSolver*>(object);
  mDisplacer.Set(solver ? &solver->GetFlow() : nullptr, nullptr);
  mColourMode = interface.GetLong(3009);
  mBrightness = interface.GetReal(3014);
  if (mColourMode != 1) return true;
  mBlackbody.mTStep = 5;
  mBlackbody.Build(interface.GetReal(3013), interface.GetVector(3012), interface.GetLong(3011),
                   interface.GetBool(3016), interface.GetBool(3015));
  return true;
}

void GridSampler_Shader::FreeRender() {
  mSource = Source::None;
  mGrid = nullptr;
  mGradient = {};
  mBlackbody = {};
  mDisplacer.Set(nullptr, nullptr);
}

void GridSampler_Shader::BindVector(const EGrid<double>* x, const EGrid<double>* y,
                                    const EGrid<double>* z) {
  mGrid = y && z ? x : nullptr;
  mOthers[0] = y;
  mOthers[1] = z;
}

bool GridSampler_Shader::Bind(iBase& object) {
  if (auto* solver = dynamic_cast<iFluidSolver*>(&object)) {
    const Flow& flow = solver->GetFlow();
    const VelocityField& velocity = flow.mVelocity;
    switch (InterfaceHandler(mNode).GetLong(3002)) {
      case 1:
        mSource = Source::Distance;
        mGrid = flow.mSurface;
        if (!mGrid) mGrid = flow.mBoundary.GetLevelSet();
        break;
      case 2:
        mSource = Source::Cell;
        mGrid = flow.mDivergence.GetGrid(0);
        break;
      default:
        mSource = Source::Speed;
        BindVector(velocity.GetGrid(0), velocity.GetGrid(1), velocity.GetGrid(2));
        mLow *= mLow;
        mHigh *= mHigh;
    }
  } else if (auto* vector = dynamic_cast<VectorField*>(&object)) {
    mSource = Source::Vector;
    BindVector(vector->GetGrid(0), vector->GetGrid(1), vector->GetGrid(2));
    mLow = vector->mValueMin.x;
    mHigh = vector->mValueMax.x;
  } else if (auto* volume = dynamic_cast<VolumeBase*>(&object)) {
    mSource = Source::Distance;
    mGrid = volume->GetGrid();
  } else if (auto* scalar = dynamic_cast<ScalarField*>(&object)) {
    mSource = scalar->GetTypeId() == kTypeTemperatureChannel ? Source::Temperature : Source::Scalar;
    mGrid = scalar->GetGrid(0);
    mLow = scalar->mValueMin;
    mHigh = scalar->mValueMax;
  }
  if (!mGrid || !mGrid->mData) {
    mSource = Source::None;
    return false;
  }
  if (mSource == Source::Speed || mSource == Source::Distance) {
    mLow *= mGrid->mLayout.cellSize;
    mHigh *= mGrid->mLayout.cellSize;
  }
  return true;
}

Vec3d GridSampler_Shader::VectorAt(const Vec3d& sim) const {
  return {SampleLinear(*mGrid, mGrid->ToSamples(sim)),
          SampleLinear(*mOthers[0], mOthers[0]->ToSamples(sim)),
          SampleLinear(*mOthers[1], mOthers[1]->ToSamples(sim))};
}

GridSampler_Shader::Reading GridSampler_Shader::Read(const Vec3d& sim) const {
  const GridLayout& layout = mGrid->mLayout;
  double raw = 0;
  switch (mSource) {
    case Source::Speed:
    case Source::Vector: {
      const Vec3d v = VectorAt(sim);
      raw = Dot(v, v);
      break;
    }
    case Source::Cell: {
      const VecInt3D last = mGrid->Dims() - VecInt3D{1, 1, 1};
      const VecInt3D c = Max(Min(TruncateNudged(layout.ToCells(sim)), last), VecInt3D{});
      raw = (*mGrid)(c.x, c.y, c.z);
      break;
    }
    default: raw = std::abs(SampleLinear(*mGrid, mGrid->ToSamples(sim)));
  }
  Reading reading;
  reading.value = std::clamp(Remapped(raw, mHigh, mLow), 0.0, 1.0);
  reading.kelvin = mSource == Source::Temperature ? raw : kKelvinOfOne * reading.value;
  return reading;
}

Vec3d GridSampler_Shader::Colour(const Reading& reading) const {
  Vec3d colour = mGradient(reading.value);
  if (mColourMode == 1) {
    Vec3d glow;
    mBlackbody.Colour(glow, reading.kelvin + kRoomTemperature);
    colour = colour * glow * mBrightness;
  }
  for (int a = 0; a < 3; ++a) colour[a] = std::max(mClampLow, std::min(colour[a], mClampHigh));
  return colour;
}

Vec3d GridSampler_Shader::Output(const ShaderPoint& point) const {
  if (mSource == Source::None) return {1, 1, 1};
  const GridLayout& layout = mGrid->mLayout;
  const Vec3d world = !mOwnPoint && point.hit ? point.hit->point : point.point;
  Vec3d sim = world * layout.worldToSim;
  for (int a = 0; a < 3; ++a)
    if (!(sim[a] >= layout.simOrigin[a] && sim[a] <= layout.simMax[a])) return Colour({});
  if (mDisplacement != 0) sim = mDisplacer.DisplaceBy(sim, mDisplacement);
  return Colour(Read(sim));
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
