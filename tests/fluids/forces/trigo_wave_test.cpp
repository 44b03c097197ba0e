#include "fluids/forces/trigo_wave.h"

#include <gtest/gtest.h>

#include <numbers>
#include <random>

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

TrigoWave WaveOf(WaveType type, WaveMode mode) { return {0.7, 0.5, 1.3, type, mode}; }

template <class F>
void ForEachPlace(F&& f) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> place(-3, 3);
  for (i32 i = 0; i < 200; ++i) {
    const double x = place(random), y = place(random);
    f(Vec3d{x, y, place(random)});
  }
}

double PolarAngle(const Vec3d& v) {
  const double angle = std::atan2(v.y, v.x);
  return angle < 0 ? angle + kTurn : angle;
}

void ExpectNear(const Vec3d& a, const Vec3d& b) {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], 1e-11) << c;
}

}  // namespace

TEST(TrigoWave, PlaneCrestsRunAlongZ) {
  ForEachPlace([](const Vec3d& q) {
    const double phase = kTurn * 0.5 * (1.3 - q.z), s = std::sin(phase), c = std::cos(phase);
    const auto at = [&](WaveMode mode, WaveType type = WaveType::Plane) {
      return WaveOf(type, mode).DisplacementAt(q);
    };
    ExpectNear(at(WaveMode::Along), {0, 0, 0.7 * s});
    ExpectNear(at(WaveMode::Across), {0, 0.7 * s, 0});
    ExpectNear(at(WaveMode::Circle), {0, 0.7 * c, 0.7 * s});
    ExpectNear(at(WaveMode::Forwards) - at(WaveMode::Backwards), {0, 0, 0.7});
    ExpectNear(at(WaveMode::AcrossUp) + at(WaveMode::AcrossDown), {0, 0.7 * s, 0});
    ExpectNear(at(WaveMode::Roll), {0, 0.35 * (1 - s), 0.35 * (1 + s)});
    ExpectNear(at(WaveMode::CounterRoll), {0, -0.35 * (1 - s), 0.35 * (1 + s)});
    ExpectNear(at(WaveMode::Loop), {0, 0.7 * s * s, 0.7 * c});
    ExpectNear(at(WaveMode::WideLoop), {0, 0.7 * c, 0.7 * s * s});
    const Vec3d outwards = Normalised(Vec3d{q.x, q.y, 0});
    ExpectNear(at(WaveMode::Across, WaveType::PlaneOutwards), outwards * (0.7 * s));
  });
}

TEST(TrigoWave, RingsRunAwayFromZ) {
  ForEachPlace([](const Vec3d& q) {
    const double r = std::hypot(q.x, q.y), phase = kTurn * 0.5 * (1.3 - r);
    const Vec3d outwards{q.x / r, q.y / r, 0}, up{0, 0, 0.7};
    const auto at = [&](WaveMode mode) { return WaveOf(WaveType::Rings, mode).DisplacementAt(q); };
    ExpectNear(at(WaveMode::Along), outwards * (0.7 * std::sin(phase)));
    ExpectNear(at(WaveMode::Across), up * std::sin(phase));
    const double bounded = std::copysign(std::max(std::abs(phase), 0.1), phase);
    ExpectNear(at(WaveMode::Loop),
               up * std::pow(std::sin(phase), 2) + outwards * (0.7 * std::cos(phase) / bounded));
    const Vec3d wide = phase > 0 ? outwards * (r / phase) : Vec3d{};
    ExpectNear(at(WaveMode::WideLoop),
               up * std::cos(phase) + wide * (0.7 * std::pow(std::sin(phase), 2)));
  });
}

TEST(TrigoWave, LoopsOfRingsThrowNothingAway) {
  for (const double off : {1e-6, -1e-6, 1e-3, -1e-3}) {
    const Vec3d push = WaveOf(WaveType::Rings, WaveMode::Loop).DisplacementAt({1.3 - off, 0, 0});
    EXPECT_NEAR(push.x, std::copysign(7.0, off), 1e-4) << off;
  }
}

TEST(TrigoWave, WheelsAndSpiralsTurnWithTheAngleAboutZ) {
  ForEachPlace([](const Vec3d& q) {
    const double r = std::hypot(q.x, q.y);
    const Vec3d outwards{q.x / r, q.y / r, 0};
    const double blade = kTurn * 0.5 * (1.3 - 0.7 * PolarAngle(outwards));
    ExpectNear(WaveOf(WaveType::Pinwheel, WaveMode::Along).DisplacementAt(q),
               outwards * (0.7 * std::sin(blade)));
    const TrigoWave spiral = WaveOf(WaveType::Spiral, WaveMode::Along);
    const double u = r / 0.7 - 1;
    if (u <= 0) return ExpectNear(spiral.DisplacementAt(q), {});
    // The arm leads the radius by an angle that shrinks outwards, and counts from y.
    const double arm = PolarAngle(outwards) + std::atan2(4 * u, u * u);
    const double angle = std::fmod(arm - 0.25 * kTurn + 2 * kTurn, kTurn);
    const double wave = std::sin(kTurn * 0.5 * (1.3 - 0.7 * angle));
    ExpectNear(spiral.DisplacementAt(q), Vec3d{-std::sin(arm), std::cos(arm), 0} *
                                             (0.7 * wave * (100 - u) / (5 / u + 4 * u)));
  });
}

TEST(TrigoWave, IsStillWhereItHasNoShape) {
  for (i32 mode = 0; mode < 12; ++mode)
    for (i32 type = 0; type < 6; ++type) {
      TrigoWave wave = WaveOf(static_cast<WaveType>(type), static_cast<WaveMode>(mode));
      const Vec3d onAxis = wave.DisplacementAt({0, 0, 1.3});
      EXPECT_TRUE(std::isfinite(Dot(onAxis, onAxis))) << type << " " << mode;
      if (type > 4 || mode > 10) {
        EXPECT_EQ(wave.DisplacementAt({1, 2, 3}), Vec3d{});
      }
      if (type == 3 || type == 4) {
        EXPECT_EQ(onAxis, Vec3d{});
      }
      if (type == 4) {
        EXPECT_EQ(wave.DisplacementAt({0.7 * 101.01, 0, 0}), Vec3d{});
      }
      // A ring whose phase is 0 has no loop to divide by it.
      const Vec3d still = wave.DisplacementAt({1.3, 0, 0});
      EXPECT_TRUE(std::isfinite(Dot(still, still))) << type << " " << mode;
      for (const double frequency : {1000.5, std::numeric_limits<double>::infinity()}) {
        wave.frequency = frequency;
        EXPECT_EQ(wave.DisplacementAt({1, 2, 3}), Vec3d{});
      }
    }
}
