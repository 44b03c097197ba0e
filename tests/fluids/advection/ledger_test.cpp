// The ledger of what is moved: each entry against what a test reckons itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fluids/advection/moved_smoke.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using testing::HasSubstr;

namespace {

constexpr i32 kByPaths = 0, kCorrectedPaths = 1;
constexpr double kStep = 0.04;

/// The total inside the outermost layer.
double InnerTotal(const EGrid<double>& g) {
  double sum = 0;
  ForEachCell({{1, 1, 1}, g.Dims() - VecInt3D{1, 1, 1}},
              [&](i32 x, i32 y, i32 z) { sum += g(x, y, z); });
  return sum;
}

}  // namespace

TEST(Ledger, AClosedRoomAccountsForAllOrNamesWhatDrifts) {
  for (const i32 scheme : {kByPaths, kCorrectedPaths, kConservative, kConservativeMacCormack}) {
    ConservativeRig rig({18, 18, 18}, 0.1, scheme);
    rig.node->Set(GridAdvection::kPathRow, i32{0});
    rig.Begin();
    rig.Puff({0.6, 0.5, 0.7}, 0.35);
    rig.FillVelocity([](const Vec3d& p) { return Stir(p, 1.8) * 3.0; });
    const double total = InnerTotal(*rig.smoke->mGrid);
    rig.Move(60);
    const FieldLedger ledger = rig.TakeLedger();
    const bool drifts = scheme == kByPaths;
    EXPECT_NEAR(ledger.emitted, total, 1e-9) << "what nobody has booked, and no more";
    EXPECT_NEAR(ledger.drift, drifts ? InnerTotal(*rig.smoke->mGrid) - total : 0, 1e-9) << scheme;
    for (const double entry : {ledger.made, ledger.burnt, ledger.left, ledger.trimmed,
                               ledger.trapped, ledger.handedOver})
      EXPECT_EQ(entry, 0) << scheme;
    const std::vector<std::string> warnings = rig.move->TakeWarnings();
    ASSERT_EQ(warnings.size(), drifts ? 1u : 0u) << "once, however long it lasts";
    if (!drifts) continue;
    EXPECT_THAT(warnings[0], HasSubstr("\"smoke\""));
    EXPECT_THAT(warnings[0], HasSubstr("'semi_lagrangian'"));
    EXPECT_THAT(warnings[0], HasSubstr("'conservative' or 'conservative_maccormack' as 'scheme'"));
  }
}

TEST(Ledger, LimitsOfACorrectionMakeNothing) {
  // A sharp edge round a small ball, on paths of second order: the limits alone made a tenth more.
  ConservativeRig rig({30, 30, 30}, 0.1, kCorrectedPaths);
  rig.Begin();
  rig.Puff({1.0, 0.9, 1.2}, 0.35);
  rig.FillVelocity([](const Vec3d& p) { return Stir(p, 3.0) * 3.0; });
  const double total = InnerTotal(*rig.smoke->mGrid);
  rig.Move(50);
  const EGrid<double>& g = *rig.smoke->mGrid;
  EXPECT_NEAR(InnerTotal(g), total, 0.01 * total);
  const auto [low, high] = std::minmax_element(g.mData, g.mData + g.mCount);
  EXPECT_GE(*low, 0);
  EXPECT_LE(*high, 0.7);
  EXPECT_TRUE(rig.move->TakeWarnings().empty());
}

TEST(Ledger, AWindTakesAsMuchAsItSweeps) {
  // Slow and quick: part of a cell in a step, and more than one. Air without smoke comes in behind.
  constexpr double kAmount = 0.7, kCells = 12 * 12;
  for (const double speed : {1.5, 4.2})
    for (const i32 scheme : {kByPaths, kCorrectedPaths, kConservative, kConservativeMacCormack}) {
      ConservativeRig rig({32, 12, 12}, 0.1, scheme);
      rig.Walls(0, 0, 1, 1, 1, 1);
      rig.Begin();
      rig.Fill(*rig.smoke->mGrid, [](const Vec3d& p) {
        return std::min({p.x - 0.7, p.y, p.z, 3.2 - p.x, 1.2 - p.y, 1.2 - p.z}) > 0 ? kAmount : 0.0;
      });
      rig.FillVelocity([&](const Vec3d&) { return Vec3d{speed, 0, 0}; });
      rig.Move(1);
      // The conservative schemes even out what their paths missed of the volume of each cell, over
      // several steps.
      const bool isEvened = scheme == kConservative || scheme == kConservativeMacCormack;
      const double swept = kAmount * kCells * speed * kStep / 0.1;
      const double near = (isEvened ? 2e-3 : 1e-4) * swept;
      EXPECT_NEAR(rig.TakeLedger().left, swept, near);
      for (int step = 0; step < 3; ++step) {
        const double before = InnerTotal(*rig.smoke->mGrid);
        rig.Move(1);
        const FieldLedger ledger = rig.TakeLedger();
        EXPECT_NEAR(ledger.left, swept, near) << scheme << " at " << speed;
        EXPECT_NEAR(ledger.drift, 0, near) << scheme << " at " << speed;
        EXPECT_EQ(ledger.emitted, 0);
        EXPECT_NEAR(InnerTotal(*rig.smoke->mGrid) - before, ledger.drift - ledger.left, 1e-9);
      }
    }
}

TEST(Ledger, AFieldThatIsWhatAirHoldsStaysSoInAWind) {
  for (const double speed : {1.4, 6.1})
    for (const i32 scheme : {kByPaths, kCorrectedPaths, kConservative, kConservativeMacCormack}) {
      ConservativeRig rig({16, 12, 10}, 0.1, scheme);
      rig.smoke->Node()->Set(1052, 0.7);
      rig.Walls(0, 0, 0, 0, 0, 0);
      rig.Begin();
      EGrid<double>& g = *rig.smoke->mGrid;
      rig.FillVelocity([&](const Vec3d&) { return Vec3d{speed, 0.4 * speed, -0.3 * speed}; });
      for (int step = 0; step < 20; ++step) {
        rig.Move(1);
        rig.smoke->UpdateRange();
      }
      ForEachCell({{1, 1, 1}, g.Dims() - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
        ASSERT_NEAR(g(x, y, z), 0.7, 1e-12) << scheme << " at " << speed;
      });
      const FieldLedger ledger = rig.TakeLedger();
      EXPECT_NEAR(ledger.made, 0.7 * 16 * 12 * 10, 1e-9);
      EXPECT_NEAR(ledger.left + ledger.trimmed, 0, 1e-9) << scheme << ": as much comes as goes";
      EXPECT_NEAR(ledger.drift, 0, 1e-9) << scheme << " at " << speed;
    }
}

TEST(Ledger, WhatIsEmittedBesideAnInflowSideIsBlownAway) {
  // Part of a cell in a step, most of one, and several.
  for (const double cells : {0.5, 0.9, 2.3})
    for (const i32 path : {0, 1})
      for (const i32 scheme : {kByPaths, kCorrectedPaths, kConservative, kConservativeMacCormack}) {
        ConservativeRig rig({40, 8, 8}, 0.1, scheme);
        rig.node->Set(GridAdvection::kPathRow, path);
        rig.Walls(0, 0, 1, 1, 1, 1);
        rig.Begin();
        EGrid<double>& g = *rig.smoke->mGrid;
        rig.FillVelocity([&](const Vec3d&) { return Vec3d{cells * 0.1 / kStep, 0, 0}; });
        double emitted = 0;
        for (int step = 0; step < 10; ++step) {
          ForEachCell({{1, 3, 3}, {3, 7, 7}}, [&](i32 x, i32 y, i32 z) {
            g(x, y, z) += 0.1;
            emitted += 0.1;
          });
          rig.smoke->BookEmission();
          rig.Move(1);
        }
        EXPECT_NEAR(InnerTotal(g), emitted, 1e-9 * emitted) << scheme << " at " << cells;
        const FieldLedger ledger = rig.TakeLedger();
        EXPECT_NEAR(ledger.drift, 0, 1e-9 * emitted) << scheme << " at " << cells;
        EXPECT_NEAR(ledger.left, 0, 1e-9 * emitted) << scheme << " at " << cells;
      }
}

TEST(Ledger, ABallTrapsWhatStoodThereAndHandsOverWhatItMeets) {
  for (const i32 scheme : {kByPaths, kConservative}) {
    ConservativeRig rig({20, 20, 20}, 0.1, scheme);
    rig.smoke->Node()->Set(1052, 0.7);
    rig.Begin();
    const EGrid<double>& g = *rig.smoke->mGrid;
    std::vector<bool> wasOpen(g.mCount);
    const auto look = [&] {
      i32 closed = 0, covered = 0;
      ForEachCell({{1, 1, 1}, {21, 21, 21}}, [&](i32 x, i32 y, i32 z) {
        const i32 c = g.Index(x, y, z);
        const bool isOpen = rig.IsOpen(x, y, z);
        closed += !isOpen;
        covered += !isOpen && wasOpen[c];
        wasOpen[c] = isOpen;
      });
      return std::pair(closed, covered);
    };
    rig.Fill(*rig.smoke->mGrid, [](const Vec3d&) { return 0.7; });
    rig.Ball({0.7, 0.9, 1.13}, 0.33);
    const i32 closed = look().first;
    ASSERT_GT(closed, 100);
    rig.FillVelocity([](const Vec3d&) { return Vec3d{}; });
    rig.Move(1);
    const FieldLedger first = rig.TakeLedger();
    EXPECT_NEAR(first.trapped, 0.7 * closed, 1e-9) << scheme;
    EXPECT_EQ(first.handedOver, 0);
    EXPECT_NEAR(first.drift, 0, 1e-9);

    rig.Ball({0.83, 0.9, 1.13}, 0.33);
    const auto [closedThen, covered] = look();
    ASSERT_GT(covered, 20);
    double held = 0;
    ForEachCell({{1, 1, 1}, {21, 21, 21}}, [&](i32 x, i32 y, i32 z) {
      if (!rig.IsOpen(x, y, z)) held += g(x, y, z);
    });
    rig.Move(1);
    const FieldLedger second = rig.TakeLedger();
    EXPECT_NEAR(held, 0.7 * covered, 1e-6);
    // Paths bring along what was covered: nothing is handed over.
    EXPECT_NEAR(second.handedOver, scheme == kConservative ? held : 0, 1e-9) << scheme;
    // They keep what all air holds, so that the total goes with the room.
    EXPECT_NEAR(second.trapped, scheme == kConservative ? 0 : 0.7 * (closedThen - closed), 1e-6)
        << scheme;
    EXPECT_NEAR(second.drift, 0, 1e-9) << scheme;

    // What is emitted into the solid, in its middle, finds no way out.
    (*rig.smoke->mGrid)(8, 9, 11) = 5;
    ASSERT_FALSE(rig.IsOpen(8, 9, 11));
    rig.smoke->BookEmission();
    rig.Move(1);
    const FieldLedger third = rig.TakeLedger();
    EXPECT_NEAR(third.emitted, 5, 1e-9);
    EXPECT_NEAR(third.trapped, 5, 1e-9) << scheme;
  }
}

TEST(Ledger, ABallThatLeavesARoomIsNoFaultOfTheScheme) {
  for (const i32 scheme : {kByPaths, kCorrectedPaths, kConservative}) {
    ConservativeRig rig({20, 20, 20}, 0.1, scheme);
    rig.smoke->Node()->Set(1052, 0.7);
    rig.Begin();
    const auto countOpen = [&] {
      i32 open = 0;
      ForEachCell({{1, 1, 1}, {21, 21, 21}},
                  [&](i32 x, i32 y, i32 z) { open += rig.IsOpen(x, y, z) ? 1 : 0; });
      return open;
    };
    const auto ballAt = [&](int step) { rig.Ball({1.0 - 0.06 * step, 0.9, 1.13}, 0.5); };
    ballAt(0);
    rig.FillVelocity([](const Vec3d&) { return Vec3d{}; });
    rig.Move(1);
    rig.TakeLedger();
    const i32 before = countOpen();
    FieldLedger sums;
    for (int step = 1; step <= 26; ++step) {
      ballAt(step);
      rig.Move(1);
      const FieldLedger one = rig.TakeLedger();
      sums.trapped += one.trapped;
      sums.drift += one.drift;
    }
    const i32 freed = countOpen() - before;
    ASSERT_EQ(countOpen(), 20 * 20 * 20);
    EXPECT_NEAR(sums.drift, 0, 1e-6) << scheme;
    EXPECT_NEAR(sums.trapped, scheme == kConservative ? 0 : -0.7 * freed, 1e-6) << scheme;
    const std::vector<std::string> warnings = rig.move->TakeWarnings();
    ASSERT_EQ(warnings.size(), scheme == kConservative ? 0u : 1u);
    if (scheme == kConservative) continue;
    EXPECT_THAT(warnings[0], HasSubstr("by moving obstacles that leave room to the gas"));
  }
}

TEST(Ledger, ABallThatDriftsWithSmokeMakesNone) {
  ConservativeRig rig({30, 20, 20}, 0.1, kCorrectedPaths);
  rig.Walls(0, 0, 1, 1, 1, 1);
  rig.Begin();
  const auto ballAt = [&](int step) { rig.Ball({0.93 + 0.03 * step, 1.02, 1.01}, 0.34); };
  ballAt(0);
  rig.Puff({1.0, 1.1, 1.0}, 0.6);
  rig.FillVelocity([](const Vec3d&) { return Vec3d{0.03 / kStep, 0, 0}; });
  const double total = InnerTotal(*rig.smoke->mGrid);
  FieldLedger sums;
  for (int step = 1; step <= 25; ++step) {
    ballAt(step);
    rig.Move(1);
    sums.drift += rig.TakeLedger().drift;
  }
  EXPECT_NEAR(sums.drift, 0, 1e-9 * total);
  EXPECT_NEAR(InnerTotal(*rig.smoke->mGrid), total, 1e-4 * total);
  EXPECT_TRUE(rig.move->TakeWarnings().empty());
}

TEST(Ledger, AFlowThatSpeedsUpAndNarrowsTakesWhatItBringsToTheSide) {
  // Gas that is drawn in from the sides leaves at the top, faster and faster: steps of two cells
  // there.
  ConservativeRig rig({24, 24, 24}, 0.1, kCorrectedPaths);
  rig.Walls(0, 0, 1, 0, 0, 0);
  rig.Begin();
  rig.Puff({1.2, 1.2, 1.2}, 0.5);
  rig.FillVelocity([](const Vec3d& p) {
    return Vec3d{-1.1 * (p.x - 1.2), 2.2 * p.y, -1.1 * (p.z - 1.2)};
  });
  const double total = InnerTotal(*rig.smoke->mGrid);
  double drift = 0, size = 0, left = 0;
  for (int step = 0; step < 20; ++step) {
    rig.Move(1);
    const FieldLedger ledger = rig.TakeLedger();
    drift += ledger.drift;
    size += std::abs(ledger.drift);
    left += ledger.left;
  }
  EXPECT_LT(InnerTotal(*rig.smoke->mGrid), 0.5 * total);
  EXPECT_NEAR(left, total - InnerTotal(*rig.smoke->mGrid), 0.04 * total);
  EXPECT_LT(size, 0.04 * total) << drift;
}

TEST(Ledger, APuffThatIsBlownOutHasLeft) {
  // In steps of up to two and a half cells; corrections change what the cells that leave have.
  ConservativeRig rig({18, 18, 18}, 0.1, kCorrectedPaths);
  rig.Walls(0, 0, 0, 0, 0, 0);
  rig.Begin();
  rig.Fill(*rig.smoke->mGrid, [](const Vec3d& p) {
    return Length(p - Vec3d{0.4, 0.9, 0.9}) < 0.22 ? 0.9 : 0.0;
  });
  const double total = InnerTotal(*rig.smoke->mGrid);
  double left = 0;
  for (int step = 1; step <= 40; ++step) {
    rig.FillVelocity([&](const Vec3d&) { return Vec3d{0.16 * step, 0, 0}; });
    rig.Move(1);
    left += rig.TakeLedger().left;
  }
  EXPECT_LT(InnerTotal(*rig.smoke->mGrid), 1e-6 * total);
  EXPECT_NEAR(left, total, 1e-3 * total);
  EXPECT_TRUE(rig.move->TakeWarnings().empty());
}

TEST(Ledger, ACorrectionWithoutRoomTakesFromValues) {
  // What rises beside an open top is squeezed by the air that it draws in: paths make more than
  // limits let a correction take back. The rest is taken evenly from what moves, so that a plume
  // doesn't pulse: no step stands out from those before and behind it.
  ConservativeRig rig({20, 20, 20}, 0.1, kCorrectedPaths);
  rig.Walls(0, 0, 0, 0, 0, 0);
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) {
    const double x = p.x - 1, z = p.z - 1, r = x * x + z * z, bell = std::exp(-4 * r);
    const double narrow = r > 1e-12 ? (1 - bell) / (8 * r) : 0.5;
    return Vec3d{-1.2 * narrow * x, 0.4 + 1.2 * p.y * bell, -1.2 * narrow * z};
  });
  double drift = 0, pulse = 0, most = 0, before = 0, last = 0;
  for (int step = 0; step < 150; ++step) {
    EGrid<double>& g = *rig.smoke->mGrid;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
      if (Length(g.PositionOf(x, y, z) - Vec3d{1.0, 0.8, 1.0}) < 0.25) g(x, y, z) += 0.2;
    });
    rig.Move(1);
    drift = std::max(drift, std::abs(rig.TakeLedger().drift) / InnerTotal(g));
    for (i32 i = 0; i < g.mCount; ++i) ASSERT_GE(g[i], 0);
    const double value = g(9, 16, 9);
    if (step > 100) pulse = std::max(pulse, std::abs(value - 2 * last + before));
    most = std::max(most, value);
    before = std::exchange(last, value);
  }
  EXPECT_LT(drift, 1e-9);
  EXPECT_LT(pulse, 0.002 * most);
  EXPECT_TRUE(rig.move->TakeWarnings().empty());
}

TEST(Ledger, WorkAndTrimmingAreToldApart) {
  ConservativeRig rig({8, 8, 8}, 0.1, kConservative);
  rig.Begin();
  EGrid<double>& g = *rig.smoke->mGrid;
  g(3, 3, 3) = 0.75;
  rig.smoke->BookWork();
  g(3, 3, 3) = 0.5;
  rig.smoke->BookWork();
  g(4, 4, 4) = 3;
  g(5, 5, 5) = 1e-9;
  rig.smoke->BookEmission();
  rig.smoke->UpdateRange();
  const FieldLedger ledger = rig.TakeLedger();
  EXPECT_DOUBLE_EQ(ledger.made, 0.75);
  EXPECT_DOUBLE_EQ(ledger.burnt, 0.25);
  EXPECT_DOUBLE_EQ(ledger.emitted, 3 + 1e-9);
  EXPECT_DOUBLE_EQ(ledger.trimmed, 2 + 1e-9);
  EXPECT_EQ(rig.TakeLedger().trimmed, 0) << "each frame has its own";
  EXPECT_DOUBLE_EQ(InnerTotal(g), 1.5);

  // What emitters filled is looked at once, by whoever comes next.
  g(6, 6, 6) += 0.125;
  rig.smoke->NoteEmission();
  g(7, 7, 7) += 0.25;
  rig.smoke->NoteEmission();
  rig.smoke->SettleEmission();
  g(7, 7, 7) += 0.5;
  rig.smoke->UpdateRange();
  const FieldLedger next = rig.TakeLedger();
  EXPECT_DOUBLE_EQ(next.emitted, 0.375);
  EXPECT_DOUBLE_EQ(next.made, 0.5);
}

TEST(DriftWatch, NoiseIsNoAlarmAndLossIsHeldAgainstWhatWasGiven) {
  DriftWatch watch;
  for (int step = 0; step < 100; ++step)
    ASSERT_FALSE(watch.Add({.seconds = 0.04, .drift = step % 2 ? 0.9 : -0.9, .there = 100}));
  watch.Reset();
  std::optional<double> share;
  for (int step = 0; step < 25; ++step) {
    EXPECT_FALSE(share) << "before a second is over";
    share = watch.Add({.seconds = 0.04, .drift = -0.06, .there = 100});
  }
  ASSERT_TRUE(share);
  EXPECT_NEAR(*share, -0.015, 1e-12);
  // A second that begins anywhere is held against what is there meanwhile, however much was.
  watch.Reset();
  for (int step = 0; step < 40; ++step)
    ASSERT_FALSE(watch.Add({.seconds = 0.04, .drift = 0, .there = 100}));
  int told = 0;
  for (int step = 0; step < 25; ++step)
    told += watch.Add({.seconds = 0.04, .drift = 0.02, .there = 25}).has_value();
  EXPECT_GT(told, 0);
  // Much passes through, and little is there at a time.
  watch.Reset();
  for (int step = 0; step < 25; ++step)
    EXPECT_FALSE(watch.Add({.seconds = 0.04, .drift = 0.06, .given = 8, .there = 20}));
  EXPECT_TRUE(watch.Add({.seconds = 2, .drift = 3, .given = 8, .there = 100}));
}
