#include "fluids/advection/busy_blocks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "fluids/advection/advection_kernel.h"
#include "fluids/flow/solid_cells.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr VecInt3D kCells{150, 11, 9};
constexpr double kNothing = 0.25;

/// Whether f holds for a cell of the grid within `reach` of one.
template <class F>
bool IsAnyNear(const VecInt3D& cell, const VecInt3D& reach, F&& f) {
  const CellBox box =
      Clip({cell - reach, cell + reach + VecInt3D{1, 1, 1}}, VecInt3D{0, 0, 0}, kCells);
  bool any = false;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) { any |= f(x, y, z); });
  return any;
}

}  // namespace

TEST(BusyBlocks, HoldWhateverPathsCanMeet) {
  std::mt19937 random(3);
  const auto pick = [&](i32 n) { return static_cast<i32>(random() % n); };
  for (i32 round = 0; round < 12; ++round) {
    Grid<double> field(kCells, kCentre);
    field.Fill(kNothing);
    Grid<u8> flags(kCells, kCentre);
    flags.Fill(SolidCells::kNoPushOut | SolidCells::kOpenCentre);
    for (i32 i = 0; i < round % 4; ++i)
      field(pick(kCells.x), pick(kCells.y), pick(kCells.z)) = i == 1 ? std::nan("") : 1.0;
    if (round % 3 == 1) flags(1 + pick(kCells.x - 2), 1 + pick(9), 1 + pick(7)) = 0;
    const VecInt3D reach{2 * pick(4), pick(4), pick(3)};
    const SparseField sparse{&field, kNothing};
    BusyBlocks busy;
    busy.Find({&sparse, 1}, flags, reach, 1 + round % 3);
    i64 found = 0, needed = 0;
    ForEachCell({{1, 1, 1}, kCells - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      const i32 first = 1 + (x - 1) / kRowChunk * kRowChunk;
      const IndexRange part = busy.PartOf(first, std::min(first + kRowChunk, kCells.x - 1), y, z);
      const bool isHeld = x >= part.first && x < part.last;
      const bool isNeeded = IsAnyNear({x, y, z}, reach, [&](i32 i, i32 j, i32 k) {
        const bool isInner =
            i > 0 && j > 0 && k > 0 && i < kCells.x - 1 && j < kCells.y - 1 && k < kCells.z - 1;
        return field(i, j, k) != kNothing || (isInner && flags(i, j, k) == 0);
      });
      ASSERT_TRUE(isHeld || !isNeeded) << x << ' ' << y << ' ' << z;
      found += isHeld;
      needed += isNeeded;
    });
    EXPECT_TRUE(needed > 0 || found == 0);
  }
}

TEST(BusyBlocks, LeaveTheBytesOfAStep) {
  GridLayout layout;
  layout.Set(kCells, ToReal(kCells), 1.0F, {});
  GridBoundary boundary;
  boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
  boundary.mLevelSet->Fill(std::numeric_limits<double>::max());
  SolidCells flags;
  flags.Build(*boundary.mLevelSet, 1);
  EGrid<double> u(layout, kFaceX), v(layout, kFaceY), w(layout, kFaceZ);
  i32 number = 0;
  for (EGrid<double>* g : {&u, &v, &w})
    for (i32 i = 0; i < g->mCount; ++i) (*g)[i] = std::sin(0.1 * i + ++number);
  EGrid<double> source(layout, kCentre);
  source.Fill(kNothing);
  ForEachCell({{70, 2, 3}, {83, 6, 5}},
              [&](i32 x, i32 y, i32 z) { source(x, y, z) = kNothing + 0.01 * (x * y - z); });
  const SparseField sparse{&source, kNothing};
  BusyBlocks busy;
  busy.Find({&sparse, 1}, *flags.Get(), {4, 4, 4}, 1);
  EXPECT_TRUE(busy.PartOf(1, 1 + kRowChunk, 1, 1).IsEmpty());
  const auto run = [&](const BusyBlocks* blocks, Grid<double>& to, Correction& sums) {
    EGrid<double> destination(layout, kCentre);
    Grid<i32> starts(kCells, kCentre);
    Grid<u8> marks(kCells, kCentre);
    Grid<double> predicted(kCells, kCentre);
    CorrectionBalance balance;
    balance.Begin(kCells.z, nullptr);
    const AdvectedField field{.source = &source,
                              .destination = &destination,
                              .predicted = &predicted,
                              .balance = &balance,
                              .walls = {.nothing = kNothing}};
    const AdvectionData data{.velocity = {u, v, w},
                             .fields = {&field, 1},
                             .boundary = &boundary,
                             .solidCells = flags.Get(),
                             .step = 0.9,
                             .order = 1,
                             .starts = &starts,
                             .marks = &marks,
                             .busy = blocks};
    const CellBox inner{{1, 1, 1}, kCells - VecInt3D{1, 1, 1}};
    Predict(data, inner);
    Correct(data, inner);
    to.Swap(destination);
    for (i32 z = 0; z < kCells.z; ++z) {
      const Correction& c = balance.SumsOf(z, 0);
      sums.whole += c.whole, sums.up += c.up;
      sums.down += c.down, sums.lost += c.lost;
    }
  };
  Grid<double> all(kCells, kCentre), part(kCells, kCentre);
  Correction sums, partSums;
  run(nullptr, all, sums);
  run(&busy, part, partSums);
  for (i32 i = 0; i < all.mCount; ++i) ASSERT_EQ(all[i], part[i]) << i;
  EXPECT_EQ(sums.whole, partSums.whole);
  EXPECT_EQ(sums.up, partSums.up);
  EXPECT_EQ(sums.down, partSums.down);
  EXPECT_EQ(sums.lost, partSums.lost);
  EXPECT_GT(sums.up, 0);
}
