// How work is cut: fixed blocks, and shares of workers.
#include <gtest/gtest.h>

#include <numeric>

#include "grids/fixed_blocks.h"
#include "grids/grid.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL {
namespace {

TEST(Shares, CoverTheInnerLayersOnceOnAnyNumberOfThreads) {
  for (const VecInt3D& dims : {VecInt3D{5, 6, 11}, VecInt3D{4, 3, 200}, VecInt3D{5, 5, 2}})
    for (const i32 threads : {1, 3, 64}) {
      Grid<int> hits(dims, kCentre);
      std::vector<i32> runs(kShares, 0);
      ForEachShare(threads, nullptr, [&](const EvaluationThreadData& share) {
        ++runs[share.index];
        ForEachCell(share.InnerLayersOf(dims), [&](i32 x, i32 y, i32 z) { ++hits(x, y, z); });
      });
      EXPECT_EQ(runs, std::vector<i32>(kShares, 1));
      ForEachCell({{0, 0, 0}, dims}, [&](i32 x, i32 y, i32 z) {
        const bool inside =
            std::min({x, y, z}) >= 1 && x < dims.x - 1 && y < dims.y - 1 && z < dims.z - 1;
        ASSERT_EQ(hits(x, y, z), inside) << x << " " << y << " " << z;
      });
    }
}

TEST(Shares, WithoutMoreWordsAShareIsTheWhole) {
  const EvaluationThreadData whole;
  EXPECT_EQ(whole.ItemsOf(3, 17).first, 3);
  EXPECT_EQ(whole.ItemsOf(3, 17).last, 17);
  EXPECT_TRUE(whole.ItemsOf(4, 2).IsEmpty());
}

TEST(FixedBlocks, SumsDoNotDependOnTheWorkers) {
  std::vector<double> values(10007);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = 1.0 / (1.0 + double(i));
  const auto sum = [&](i32 threads) {
    return SumBlocks(10007, 256, threads, [&](i64 first, i64 last) {
      return std::accumulate(values.begin() + first, values.begin() + last, 0.0);
    });
  };
  const double one = sum(1);
  EXPECT_NEAR(one, std::log(10007.0) + 0.5772156649, 1e-4);
  for (const i32 threads : {2, 3, 7, 64, 200}) EXPECT_EQ(sum(threads), one);
  EXPECT_EQ(SumBlocks(0, 256, 4, [](i64, i64) { return 1.0; }), 0);
}

}  // namespace
}  // namespace MELDO_GLOBAL
