#include "fluids/advection/row_runs.h"

#include <gtest/gtest.h>

#include <random>

#include "fluids/flow/solid_cells.h"
#include "grids/for_each_cell.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr VecInt3D kGridCells{90, 42, 37};
constexpr double kHeldByAir = 0.25;
constexpr i32 kRunMargin = 6;  // with a travel of one cell

bool IsInRun(const IndexRange& run, i32 x) { return x >= run.first && x < run.last; }

/// The cells round one, as far as `reach`, inside of the grid.
CellBox CellsRound(const VecInt3D& cell, const VecInt3D& reach) {
  return Clip({cell - reach, cell + reach + VecInt3D{1, 1, 1}}, VecInt3D{0, 0, 0}, kGridCells);
}

}  // namespace

TEST(RowRuns, HoldWhatAStepTouchesAndKnowWhoAsks) {
  std::mt19937 random(5);
  const auto pick = [&](i32 n) { return static_cast<i32>(random() % n); };
  RowRuns before;
  before.TakeNone(kGridCells);
  Grid<u8> tracked(kGridCells, kCentre);
  tracked.Fill(0);
  for (i32 round = 0; round < 10; ++round) {
    Grid<double> field(kGridCells, kCentre);
    field.Fill(kHeldByAir);
    Grid<u8> flags(kGridCells, kCentre);
    flags.Fill(SolidCells::kNoPushOut | SolidCells::kOpenCentre);
    std::vector<VecInt3D> held;
    for (i32 i = 0; i < round % 4; ++i) {
      held.push_back({pick(kGridCells.x), pick(kGridCells.y), pick(kGridCells.z)});
      field(held.back().x, held.back().y, held.back().z) = i == 1 ? 1e-30 : 1.0;
    }
    if (round % 3 == 1) {
      held.push_back({1 + pick(88), 1 + pick(40), 1 + pick(35)});
      flags(held.back().x, held.back().y, held.back().z) = 0;
    }
    const VecInt3D reach{1 + pick(4), 1 + pick(3), 1 + pick(2)};
    RowRuns runs;
    runs.Take({&field, kHeldByAir}, flags, reach, 1, 1 + round % 3);
    for (const VecInt3D& cell : held) {
      ASSERT_TRUE(IsInRun(runs.Core(cell.y, cell.z), cell.x));
      ForEachCell(CellsRound(cell, reach + VecInt3D{kRunMargin, kRunMargin, kRunMargin}),
                  [&](i32 x, i32 y, i32 z) { ASSERT_TRUE(IsInRun(runs.At(y, z), x)); });
    }
    i64 active = 0;
    ForEachCell({{0, 0, 0}, kGridCells},
                [&](i32 x, i32 y, i32 z) { active += IsInRun(runs.At(y, z), x); });
    for (i32 look = 0; look < 2000; ++look) {
      const VecInt3D c{pick(kGridCells.x), pick(kGridCells.y), pick(kGridCells.z)};
      const bool isActive = IsInRun(runs.At(c.y, c.z), c.x);
      const bool isCore = IsInRun(runs.Core(c.y, c.z), c.x);
      ForEachCell(CellsRound(c, reach), [&](i32 x, i32 y, i32 z) {
        ASSERT_TRUE(!isActive || runs.IsNear(y, z));
        ASSERT_TRUE(!isCore || IsInRun(runs.At(y, z), x));
      });
    }
    if (held.empty()) {
      EXPECT_EQ(active, 0);
    } else if (held.size() == 1) {
      EXPECT_LT(active, kGridCells.x * kGridCells.y * kGridCells.z);
    }
    // What was active and isn't any more is told, and nothing else.
    for (i32 z = 0; z < kGridCells.z; ++z)
      for (i32 y = 0; y < kGridCells.y; ++y) {
        runs.ForEachLeft(before, y, z, [&](i32 first, i32 last) {
          for (i32 x = first; x < last; ++x) {
            ASSERT_FALSE(IsInRun(runs.At(y, z), x));
            tracked(x, y, z) = 0;
          }
        });
        for (i32 x = runs.At(y, z).first; x < runs.At(y, z).last; ++x) tracked(x, y, z) = 1;
        for (i32 x = 0; x < kGridCells.x; ++x)
          ASSERT_EQ(tracked(x, y, z) != 0, IsInRun(runs.At(y, z), x));
      }
    before = runs;
  }
}
