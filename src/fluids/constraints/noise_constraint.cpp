#include "fluids/constraints/noise_constraint.h"

#include <algorithm>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
/// Sets these patterns apart from others of the same seed.
constexpr u32 kSeedOffset = 920111;
}  // namespace

const NodeKind& NoiseConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300020,
      .type = "constraint_noise",
      .label = "CS::Noise",
      .className = "NoiseConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work unevenly, by a pattern that may move: patchy sources, ragged "
          "edges, gusts",
      .example = example::Limited(
          R"({ "type": "constraint_noise", "name": "where", "parameters": { "scale": 30, "contrast": 3, "speed": 0.5 } })"),
      .rows = Parameters,
      .make = MakeNode<NoiseConstraint>,
  };
  return kind;
}

const ParameterTable& NoiseConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      RealRow(kScaleRow, "scale", 50.0, "host", "how large the patches of the pattern are")
          .Missing(1.0)
          .To(&NoiseConstraint::mScale),
      VectorRow(kAxesRow, "axes", {1, 1, 1}, "none", "stretches the pattern along each axis")
          .To(&NoiseConstraint::mAxes),
      LongRow(1003, "octaves", 3, "",
              "how much fine grain lies on top of the large shapes; gradient has none")
          .Range(1, 16)
          .To(&NoiseConstraint::mOctaves),
      LongRow(1004, "type", static_cast<i32>(NoiseType::Fbm), "", "what the pattern looks like")
          .Choices(NoiseChoices())
          .OrNumbers()
          .AtLeast(0)
          .To(&NoiseConstraint::mType),
      RealRow(1005, "contrast", 1.0, "none",
              "hard patches or soft ones: stretches the pattern about 0.5")
          .To(&NoiseConstraint::mContrast),
      RealRow(kSpeedRow, "speed", 0.0, "1/s", "how fast the pattern changes; 0 stands still")
          .To(&NoiseConstraint::mSpeed),
      RealRow(1007, "bias", 0.0, "none", "more (above 0) or less (below 0) between the holes")
          .To(&NoiseConstraint::mBias),
      LongRow(1008, "seed", 0, "", "another number gives another pattern")
          .To(&NoiseConstraint::mSeed),
      LongRow(1009, "repeat", 0, "",
              "the pattern comes round again when 'speed' times the time is this; 0 never does")
          .AtLeast(0)
          .To(&NoiseConstraint::mRepeat),
      RealRow(1010, "cut_low", 0.0, "none", "where the pattern lies below this there is a hole")
          .To(&NoiseConstraint::mLow),
      RealRow(1011, "cut_high", 1.0, "none", "where the pattern lies above this all passes")
          .To(&NoiseConstraint::mHigh),
      BoolRow(1012, "absolute", false,
              "folds patterns that swing, gradient and fbm, at their middle: creases there")
          .To(&NoiseConstraint::mAbsolute),
      RealRow(1013, "detail", 1.0, "none", "kept with the node; nothing reads it").Kept(),
      RealRow(1014, "sample_radius", 1.0, "none", "kept with the node; nothing reads it").Kept(),
  });
  return table;
}

bool NoiseConstraint::Open() {
  const Vec3d size = mAxes * mScale;
  if (!(size.x > 0 && size.y > 0 && size.z > 0))
    return Deactivate("its 'scale' isn't above 0 on all axes");
  mType = NoiseTypeOf(static_cast<i32>(mType));
  mFrequency = Vec3d{1, 1, 1} / size;
  mOrigin = Node()->GlobalMatrix().offset;
  mSimToWorld = GetDomain().simToWorld;
  mNoise = Noise(static_cast<u32>(mSeed) + kSeedOffset);
  // A pattern that only has to stand still needs no time, which is dear.
  mMoves = mSpeed != 0 || Node()->Tracks().contains(kSpeedRow);
  mTimeOfNoise = mTime->elapsed * mSpeed;
  return true;
}

std::optional<double> NoiseConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  const Vec3d p = (position * mSimToWorld - mOrigin) * mFrequency;
  double n = mMoves ? mNoise.Evaluate(mType, p, mTimeOfNoise, mOctaves, mRepeat)
                    : mNoise.Evaluate(mType, p, mOctaves);
  if (SwingsAboutZero(mType)) n = mAbsolute ? std::abs(n) : (n + 1) * 0.5;
  if (!(n > 0)) return std::nullopt;
  double s = 0;
  if (n >= mHigh || mHigh == mLow)
    s = n <= mLow ? 0.0 : 1.0;
  else if (n > mLow)
    s = (n - mLow) / (mHigh - mLow);
  const double r = std::clamp(s + mBias, 0.0, 1.0);
  const double m = (r - 0.5) * mContrast + 0.5;
  if (!(m > 0)) return std::nullopt;
  return m;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
