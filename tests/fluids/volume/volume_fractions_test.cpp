#include "fluids/volume/volume_fractions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numbers>
#include <random>

#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/wall_bits.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kPi = std::numbers::pi;

/// Node grid of n^3 cells over the unit cube.
template <class F>
EGrid<double> Field(i32 n, i32 kind, F&& f) {
  const f32 h = 1.0f / n;
  GridLayout layout;
  layout.Set({n, n, n}, Vec3d{1, 1, 1} * (double{h} * n), h, {});
  EGrid<double> grid(layout, kind);
  ForEachCell({{0, 0, 0}, grid.Dims()},
              [&](i32 x, i32 y, i32 z) { grid(x, y, z) = f(grid.PositionOf(x, y, z)); });
  return grid;
}

constexpr Vec3d kMiddle{0.47, 0.53, 0.51};
constexpr double kRadius = 0.3;
double Ball(const Vec3d& p) { return Length(p - kMiddle) - kRadius; }

void Measure(Grid_VolumeFractions& f, i32 threads = 2) { ASSERT_TRUE(f.Measure(threads)); }

double SumOf(const EGrid<float>& g) {
  double sum = 0;
  for (i32 i = 0; i < g.mCount; ++i) sum += g[i];
  return sum;
}

// ---- squares, tetrahedra, cubes --------------------------------------------------------------

TEST(SquareFraction, FollowsItsCasesUnderEveryTurnAndMirror) {
  struct Case {
    std::array<double, 4> corners;
    double fraction;
  };
  const Case cases[] = {
      {{1, 1, 1, 1}, 0},
      {{-1, -1, -1, -1}, 1},
      {{0, 0, 0, 0}, 1},
      {{-1, 1, 3, 3}, 0.5 * 0.5 * 0.25},
      {{-1, -1, 1, 3}, 0.5 * (0.25 + 0.5)},
      {{-1, 3, -1, 3}, 2 * 0.5 * 0.25 * 0.25},
      {{-3, 1, -3, 1}, 1 - 2 * 0.5 * 0.25 * 0.25},
      {{-1, -1, -1, 1}, 1 - 0.5 * 0.25},
  };
  for (const Case& c : cases)
    for (int turn = 0; turn < 4; ++turn)
      for (const int step : {1, 3}) {
        double q[4];
        for (int i = 0; i < 4; ++i) q[i] = c.corners[(turn + i * step) & 3];
        EXPECT_NEAR(SquareFraction(q), c.fraction, 1e-15) << turn << " " << step;
      }
}

TEST(SquareFraction, TwoWallsThatMeetInACornerLeaveItOpen) {
  for (int i = 0; i < 4; ++i) {
    double c[4] = {};
    c[i] = 0.1;
    EXPECT_EQ(SquareFraction(c), 0);
    c[(i + 2) & 3] = -0.1;
    EXPECT_NEAR(SquareFraction(c), 0.5, 1e-8) << "a plane along the diagonal";
  }
}

TEST(CubeFraction, IsExactForPlanesAndJoinsBothSigns) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> at(-1, 1);
  for (int i = 0; i < 200; ++i) {
    const Vec3d n = Normalised(Vec3d{at(random), at(random), at(random)});
    const double d = at(random);
    double c[8], negative[8];
    for (int k = 0; k < 8; ++k) {
      c[k] = Dot(n, Vec3d{(k & 1) - 0.5, (k >> 1 & 1) - 0.5, (k >> 2) - 0.5}) - 0.7 * d;
      negative[k] = -c[k];
    }
    int inside = 0;
    constexpr int m = 40;
    for (int s = 0; s < m * m * m; ++s) {
      const Vec3d p{(s % m + 0.5) / m - 0.5, (s / m % m + 0.5) / m - 0.5,
                    (s / m / m + 0.5) / m - 0.5};
      inside += Dot(n, p) < 0.7 * d;
    }
    EXPECT_NEAR(CubeFraction(c), double(inside) / (m * m * m), 2e-3);
    EXPECT_NEAR(CubeFraction(c) + CubeFraction(negative), 1.0, 1e-12);
  }
  const double zero[8] = {}, one[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  EXPECT_EQ(CubeFraction(zero), 1);
  EXPECT_EQ(CubeFraction(one), 0);
}

// ---- fields ----------------------------------------------------------------------------------

struct Errors {
  double volume, area[3];
};

/// Errors of the ball's volume and of the areas of three of its sections.
Errors BallErrors(i32 n, FractionMethod method) {
  const EGrid<double> field = Field(n, kNode, Ball);
  Grid_VolumeFractions f;
  f.mMethod = method;
  f.mKinds = kFractionCell | kFractionFaces;
  f.mSource.grid = &field;
  Measure(f);
  const double h = 1.0 / n;
  Errors e;
  e.volume = SumOf(*f.GetRead(0, 0)) * h * h * h / (4.0 / 3 * kPi * std::pow(kRadius, 3)) - 1;
  for (i32 axis = 0; axis < 3; ++axis) {
    // All face layers together: the ball's volume again, by areas.
    e.area[axis] =
        SumOf(*f.GetRead(axis, 1)) * h * h * h / (4.0 / 3 * kPi * std::pow(kRadius, 3)) - 1;
  }
  return e;
}

TEST(VolumeFractions, OfABallConvergeAtSecondOrder) {
  for (const FractionMethod method : {FractionMethod::Analytic, FractionMethod::Tetrahedra}) {
    const Errors coarse = BallErrors(24, method), fine = BallErrors(48, method);
    EXPECT_LT(std::abs(fine.volume), 0.004);
    EXPECT_NEAR(coarse.volume / fine.volume, 4, 0.6);
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_LT(std::abs(fine.area[axis]), 0.006);
      EXPECT_NEAR(coarse.area[axis] / fine.area[axis], 4, 1.0);
    }
  }
  EXPECT_LT(std::abs(BallErrors(48, FractionMethod::Sampled).volume), 0.01);
}

TEST(VolumeFractions, AnalyticFacesMeasureTheirSection) {
  const i32 n = 64;
  const EGrid<double> field = Field(n, kNode, Ball);
  Grid_VolumeFractions f;
  f.mMethod = FractionMethod::Analytic;
  f.mInvert = true;
  f.mKinds = kFractionFaces;
  f.mSource.grid = &field;
  Measure(f);
  EXPECT_FALSE(f.HasField(0, 0));
  EXPECT_THROW(f.GetRead(0, 0), std::out_of_range);
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<float>& g = *f.GetRead(axis, 1);
    VecInt3D dims{n, n, n};
    dims[axis] += 1;
    ASSERT_EQ(g.Dims(), dims);
    for (i32 layer = 0; layer <= n; layer += 4) {
      CellBox box{{0, 0, 0}, dims};
      box.min[axis] = layer;
      box.max[axis] = layer + 1;
      double area = 0;
      ForEachCell(box, [&](i32 x, i32 y, i32 z) { area += 1 - g(x, y, z); });
      const double off = layer / double(n) - kMiddle[axis];
      const double exact = std::max(0.0, kPi * (kRadius * kRadius - off * off));
      EXPECT_NEAR(area / (n * n), exact, 6e-4) << "axis " << axis << " layer " << layer;
    }
  }
}

TEST(VolumeFractions, FullAndEmptyFieldsAreExact) {
  for (const double value : {-1.0, 0.0, 1.0}) {
    const EGrid<double> field = Field(6, kNode, [&](const Vec3d&) { return value; });
    for (const bool invert : {false, true}) {
      Grid_VolumeFractions f;
      f.mMethod = FractionMethod::Analytic;
      f.mInvert = invert;
      f.mKinds = kFractionCell | kFractionFaces;
      f.mSource.grid = &field;
      Measure(f, 3);
      const float wanted = (value <= 0) != invert ? 1.0f : 0.0f;
      for (i32 axis = 0; axis < 3; ++axis)
        for (i32 i = 0; i < f.GetRead(axis, 1)->mCount; ++i)
          ASSERT_EQ((*f.GetRead(axis, 1))[i], wanted);
      for (i32 i = 0; i < f.GetRead(0, 0)->mCount; ++i) ASSERT_EQ((*f.GetRead(0, 0))[i], wanted);
    }
  }
}

TEST(VolumeFractions, ControlVolumesMeasureTheirBoxes) {
  // A half space x < 0.5 + h/8 of n^3 cells: what each control volume holds is known exactly.
  const i32 n = 8;
  const double h = 1.0 / n, cut = 4 + 0.125;
  for (const i32 kind : {i32{kNode}, i32{kCentre}}) {
    const EGrid<double> field = Field(n, kind, [&](const Vec3d& p) { return p.x - cut * h; });
    Grid_VolumeFractions f;
    f.mKinds = kFractionCell | kFractionEdges | kFractionFaceVolumes;
    f.mSource.grid = &field;
    Measure(f);
    // Sub-cells have centres at 1/8, 3/8, 5/8, 7/8 of a cell; the cut runs through the first one.
    const auto part = [&](double from, double to) {
      double count = 0;
      for (int s = 0; s < 4 * n; ++s) {
        const double centre = (s + 0.5) / 4;
        if (centre > from && centre < to && centre < cut - 1e-6) count += 0.25;
      }
      return count;
    };
    const VecInt3D mid{4, 4, 4};
    for (i32 x = 1; x < n; ++x) {
      EXPECT_FLOAT_EQ((*f.GetRead(0, 0))(x, mid.y, mid.z), part(x, x + 1)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(0, 3))(x, mid.y, mid.z), part(x - 0.5, x + 0.5)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(1, 3))(x, mid.y, mid.z), part(x, x + 1)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(2, 3))(x, mid.y, mid.z), part(x, x + 1)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(0, 2))(x, mid.y, mid.z), part(x - 0.5, x + 0.5)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(1, 2))(x, mid.y, mid.z), part(x - 0.5, x + 0.5)) << x;
      EXPECT_FLOAT_EQ((*f.GetRead(2, 2))(x, mid.y, mid.z), part(x, x + 1)) << x;
    }
    EXPECT_EQ((*f.GetRead(1, 3))(2, 0, 4), 0.5f) << "the border face has one cell";
    EXPECT_EQ((*f.GetRead(2, 3))(2, 4, n), 0.5f);
    EXPECT_EQ((*f.GetRead(2, 2))(2, 0, 0), 0.25f);
  }
}

TEST(VolumeFractions, WithoutAFieldEveryControlVolumeIsFull) {
  GridLayout layout;
  layout.Set({5, 4, 6}, {5, 4, 6}, 1.0f, {});
  Grid_VolumeFractions f;
  f.mKinds = kFractionCell | kFractionEdges | kFractionFaceVolumes;
  f.mSource.layout = &layout;
  Measure(f, 4);
  for (i32 axis = 0; axis < 3; ++axis)
    ForEachCell({{1, 1, 1}, layout.dims}, [&](i32 x, i32 y, i32 z) {
      EXPECT_EQ((*f.GetRead(axis, 3))(x, y, z), 1.0f);
      EXPECT_EQ((*f.GetRead(axis, 2))(x, y, z), 1.0f);
    });
  f.mSource = {};
  EXPECT_FALSE(f.Measure(2));
  f.Release();
  EXPECT_FALSE(f.HasFields());
}

TEST(VolumeFractions, GiveTheSameBytesAtAnyThreadCount) {
  const EGrid<double> field = Field(20, kNode, Ball);
  struct Settings {
    FractionMethod method;
    u32 kinds;
  };
  for (const Settings& s : {Settings{FractionMethod::Analytic, 3},
                            {FractionMethod::Tetrahedra, 3},
                            {FractionMethod::Tetrahedra, 9},
                            {FractionMethod::Sampled, 5},
                            {FractionMethod::Sampled, 13}}) {
    Grid_VolumeFractions one, many;
    for (Grid_VolumeFractions* f : {&one, &many}) {
      f->mMethod = s.method;
      f->mKinds = s.kinds;
      f->mSource.grid = &field;
    }
    Measure(one, 1);
    for (const i32 threads : {2, 7, 20}) {
      Measure(many, threads);
      for (i32 axis = 0; axis < 3; ++axis)
        for (i32 kind = 0; kind < 4; ++kind) {
          ASSERT_EQ(one.HasField(axis, kind), many.HasField(axis, kind));
          if (!one.HasField(axis, kind)) continue;
          const EGrid<float>&a = *one.GetRead(axis, kind), &b = *many.GetRead(axis, kind);
          ASSERT_EQ(std::memcmp(a.mData, b.mData, sizeof(float) * a.mCount), 0)
              << threads << " threads, field " << axis << " " << kind;
        }
    }
  }
}

TEST(VolumeFractions, WallFacesAreZeroedOnTheSidesThatAreClosed) {
  const EGrid<double> field = Field(5, kNode, [](const Vec3d&) { return -1.0; });
  Grid_VolumeFractions f;
  f.mMethod = FractionMethod::Analytic;
  f.mKinds = kFractionFaces;
  f.mSource.grid = &field;
  Measure(f);
  const u8 walls = kWallLowX | kWallHighY | kWallLowZ;
  for (i32 axis = 0; axis < 3; ++axis) f.ZeroWallFaces(axis, walls);
  const auto expected = [](i32 axis, const VecInt3D& i, const VecInt3D& dims) {
    const auto layers = [&](i32 side) { return side == axis ? 2 : 1; };
    return i.x < layers(0) || i.y >= dims.y - layers(1) || i.z < layers(2) ? 0.0f : 1.0f;
  };
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<float>& g = *f.GetRead(axis, 1);
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
      EXPECT_EQ(g(x, y, z), expected(axis, {x, y, z}, g.Dims())) << axis;
    });
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
