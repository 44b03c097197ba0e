#include "fluids/rendering/grid_sampler_shader.h"

#include "fluids/fields/channel_kinds.h"
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
        LinkRow(3000, "field", "channel, solver or volume that is read")
            .AcceptsAny(kAllChannels)
            .AcceptsAny(kSolvers)
            .AcceptsAny({kListGeometry, kCategoryVolume})
            .To(&GridSamplerSettings::field),
        GradientRow(3001, "gradient", "what colour a low (0) to a high (1) value gets")
            .To(&GridSamplerSettings::gradient),
        LongRow(3002, "solver_field", 0, "",
                "what is looked at of a solver: how fast it flows, or where its surface is")
            .Choices({{0, "speed"}, {1, "surface"}, {2, "divergence"}})
            .To(&GridSamplerSettings::solverField),
        RealRow(3003, "input_low", 0, "none",
                "distance in cells that gets the first colour; for a speed its value over the "
                "square root "
                "of cell_size")
            .To(&GridSamplerSettings::low),
        RealRow(3004, "input_high", 1, "none", "the same for the last colour")
            .To(&GridSamplerSettings::high),
        RealRow(3005, "clamp_low", 0, "none", "least component of the colour")
            .To(&GridSamplerSettings::clampLow),
        RealRow(3006, "clamp_high", 1, "none", "greatest component of the colour")
            .To(&GridSamplerSettings::clampHigh),
        BoolRow(3007, "own_point", false, "read at the shader's point instead of the hit")
            .To(&GridSamplerSettings::ownPoint),
        RealRow(3008, "displacement", 0, "s", "time by which points move along a solver's flow")
            .To(&GridSamplerSettings::displacement),
        LongRow(3009, "colour_mode", 0, "", "how the value becomes a colour")
            .Choices({{0, "gradient"}, {1, "blackbody"}})
            .To(&GridSamplerSettings::isBlackBody),
        LongRow(3011, "blackbody_system", 4, "",
                "which screen the glow is meant for: its primaries and white")
            .Choices(
                {{0, "ntsc"}, {1, "ebu"}, {2, "smpte"}, {3, "hdtv"}, {4, "cie"}, {5, "rec709"}})
            .To(&BlackBodySettings::system),
        VectorRow(3012, "blackbody_tint", {1, 1, 1}, "none", "multiplies X, Y, Z")
            .To(&BlackBodySettings::tint),
        RealRow(3013, "blackbody_scale", 1, "none",
                "redder (below 1) or whiter (above) glow: multiplies the temperature")
            .AtLeast(0)
            .To(&BlackBodySettings::scale),
        RealRow(3014, "blackbody_brightness", 1, "none",
                "how bright the glow looks: multiplies its colour")
            .AtLeast(0)
            .To(&GridSamplerSettings::brightness),
        BoolRow(3015, "blackbody_gamma", true, "apply the display's curve")
            .To(&BlackBodySettings::gamma),
        BoolRow(3016, "blackbody_adapt", false, "the hottest colour is white")
            .To(&BlackBodySettings::adapt),
    };
    t[1].creation = Gradient{{{0, {0, 0, 0}}, {1, {1, 1, 1}}}};
    return t;
  }();
  return table;
}

bool GridSampler_Shader::InitRender(const RenderData&) {
  FreeRender();
  FillMembers(Parameters(), mNode, mSettings);
  for (size_t i = 0; i < mScenes.size() && !mSettings.field; ++i)
    ConnectLinks(Parameters(), *mNode, mSettings, *mScenes[i]);
  if (!mSettings.field || !Bind(*mSettings.field)) return false;
  if (mSettings.gradient) mGradient = MakeRamp(*mSettings.gradient);
  auto* solver = dynamic_cast<iFluidSolver*>(mSettings.field);
  mDisplacer.Set(solver ? &solver->GetFlow() : nullptr, nullptr);
  if (!mSettings.isBlackBody) return true;
  BlackBodySettings glow;
  FillMembers(Parameters(), mNode, glow);
  mBlackbody.mTStep = 5;
  mBlackbody.Build(glow);
  return true;
}

void GridSampler_Shader::FreeRender() {
  mSettings = {};
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
  mLow = mSettings.low;
  mHigh = mSettings.high;
  if (auto* solver = dynamic_cast<iFluidSolver*>(&object)) {
    const Flow& flow = solver->GetFlow();
    const VelocityField& velocity = flow.mVelocity;
    switch (mSettings.solverField) {
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
  if (mSettings.isBlackBody) {
    Vec3d glow;
    mBlackbody.Colour(glow, reading.kelvin + kRoomTemperature);
    colour = colour * glow * mSettings.brightness;
  }
  for (int a = 0; a < 3; ++a)
    colour[a] = std::max(mSettings.clampLow, std::min(colour[a], mSettings.clampHigh));
  return colour;
}

Vec3d GridSampler_Shader::Output(const ShaderPoint& point) const {
  if (mSource == Source::None) return {1, 1, 1};
  const GridLayout& layout = mGrid->mLayout;
  const Vec3d world = !mSettings.ownPoint && point.hit ? point.hit->point : point.point;
  Vec3d sim = world * layout.worldToSim;
  for (int a = 0; a < 3; ++a)
    if (!(sim[a] >= layout.simOrigin[a] && sim[a] <= layout.simMax[a])) return Colour({});
  if (mSettings.displacement != 0) sim = mDisplacer.DisplaceBy(sim, mSettings.displacement);
  return Colour(Read(sim));
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
