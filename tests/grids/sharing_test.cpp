// How work is cut into shares: control threads, slabs, processors, fixed blocks.
#include <gtest/gtest.h>

#include <numeric>

#include "grids/fixed_blocks.h"
#include "grids/grid.h"
#include "grids/grid_processor.h"
#include "grids/split.h"

namespace MELDO_GLOBAL {
namespace {

/// Fixes the host's thread count for a test.
struct Threads {
  explicit Threads(i32 count) { host::SetThreadCount(count); }
  ~Threads() { host::SetThreadCount(0); }
};

struct SlabRecorder {
  std::vector<i32> heights = std::vector<i32>(host::kMaxWorkers, 0);
  VecInt3D low{100, 100, 100}, high{};
  void Evaluate(const MPdata& data) {
    heights[data.index] = data.max.z - data.min.z;
    if (data.index == 0) low = data.min;
    if (data.isLast) high = data.max;
  }
};

std::vector<i32> SlabsOf(i32 layers, i32 workers) {
  SlabRecorder recorder;
  ScalarGridControlThread<ScalarGridThread<SlabRecorder>> control;
  control.SetRegion({1, 2, 3}, {5, 6, 3 + layers});
  MPdata data;
  data.user = &recorder;
  if (!control.Init(data, workers)) return {};
  control.Run();
  EXPECT_EQ(recorder.low, (VecInt3D{1, 2, 3}));
  EXPECT_EQ(recorder.high, (VecInt3D{5, 6, 3 + layers}));
  recorder.heights.resize(control.GetThreadCount());
  return recorder.heights;
}

TEST(ControlThread, SlabsTakeTheRemainderLast) {
  EXPECT_EQ(SlabsOf(3, 8), (std::vector<i32>{1, 1, 1}));
  EXPECT_EQ(SlabsOf(10, 4), (std::vector<i32>{2, 2, 2, 4}));
  EXPECT_EQ(SlabsOf(0, 4), std::vector<i32>{});
  EXPECT_EQ(static_cast<i32>(SlabsOf(200, 1000).size()), host::kMaxWorkers);
}

struct Range {
  i32 index = 0, count = 1, first = 0, last = 0;
  bool isLast = false;
  std::vector<i32>* hits = nullptr;
  void Run() {
    for (i32 i = first; i < last; ++i) ++(*hits)[i];
  }
};

TEST(ControlThread, IndexRangesCoverEachItemOnce) {
  const Threads fixed(6);
  for (const i32 count : {1, 5, 6, 7, 100}) {
    std::vector<i32> hits(count + 10, 0);
    LongIteratorControlThread<LongIteratorThread<Range>, Range> control;
    Range data;
    data.hits = &hits;
    ASSERT_TRUE(control.Init(data, count, 3));
    EXPECT_EQ(control.GetThreadCount(), std::min(count, 6));
    control.Run();
    for (i32 i = 0; i < count + 10; ++i) EXPECT_EQ(hits[i], i >= 3 && i < count + 3) << i;
    EXPECT_FALSE(control.Init(data, 0, 3));
    control.Run();
    EXPECT_EQ(std::accumulate(hits.begin(), hits.end(), 0), count) << "not ready: runs nothing";
  }
}

TEST(Split, SlabsCoverTheInsideOnce) {
  for (const bool border : {false, true})
    for (const i32 threads : {1, 3, 8, 64}) {
      const VecInt3D dims{5, 6, 11};
      SlabTable slabs;
      ASSERT_TRUE(SplitZ(slabs, dims, border, threads));
      Grid<int> hits(dims, kCentre);
      for (i32 i = 0; i < host::kMaxWorkers; ++i)
        ForEachCell(slabs[i], [&](i32 x, i32 y, i32 z) { ++hits(x, y, z); });
      const i32 b = border ? 0 : 1;
      ForEachCell({{0, 0, 0}, dims}, [&](i32 x, i32 y, i32 z) {
        const bool inside = x >= b && y >= b && z >= b && x < 5 - b && y < 6 - b && z < 11 - b;
        ASSERT_EQ(hits(x, y, z), inside);
      });
    }
  SlabTable none;
  EXPECT_FALSE(SplitZ(none, {5, 5, 2}, false, 4));
  std::array<i32, host::kMaxWorkers> first, last;
  ASSERT_TRUE(SplitCount(first, last, 10, 5, 4));
  EXPECT_EQ(first[3], 11);
  EXPECT_EQ(last[3], 15);
  EXPECT_EQ(last[4] - first[4], 0);
  EXPECT_FALSE(SplitCount(first, last, 0, 5, 4));
}

class Counter : public ParallelGridProcessor {
 public:
  explicit Counter(const VecInt3D& dims) : inside(dims, kCentre), border(dims, kCentre) {}
  void Begin() override { ++begins; }
  void ProcessInterior(const VecInt3D& min, const VecInt3D& max) override {
    ForEachCell({min, max}, [&](i32 x, i32 y, i32 z) { ++inside(x, y, z); });
  }
  void ProcessBorder(const VecInt3D& min, const VecInt3D& max) override {
    ForEachCell({min, max}, [&](i32 x, i32 y, i32 z) { ++border(x, y, z); });
  }
  Grid<int> inside, border;
  int begins = 0;
};

void ExpectOnceEach(const VecInt3D& dims, i32 axis, bool asked, const VecInt3D& low,
                    const VecInt3D& high) {
  GridProcessorRunner runner;
  ASSERT_TRUE(runner.Init(dims, (axis + 1) % 3, asked, low, high));
  runner.SetAxis(axis);
  Counter counter(dims);
  runner.Run(counter);
  runner.RunBorders(counter);
  EXPECT_EQ(counter.begins, 1);
  const CellBox inside = runner.Interior();
  ForEachCell({{0, 0, 0}, dims}, [&](i32 x, i32 y, i32 z) {
    const bool in = x >= inside.min.x && y >= inside.min.y && z >= inside.min.z &&
                    x < inside.max.x && y < inside.max.y && z < inside.max.z;
    ASSERT_EQ(counter.inside(x, y, z), in) << x << " " << y << " " << z;
    ASSERT_EQ(counter.border(x, y, z), !in) << x << " " << y << " " << z;
  });
}

TEST(GridProcessor, InteriorAndBordersCoverEachCellOnce) {
  for (const i32 threads : {1, 2, 5, 16}) {
    const Threads fixed(threads);
    for (i32 axis = 0; axis < 3; ++axis) {
      ExpectOnceEach({9, 7, 8}, axis, false, {}, {});
      ExpectOnceEach({9, 7, 8}, axis, true, {3, 2, 4}, {7, 5, 6});
      ExpectOnceEach({9, 7, 8}, axis, true, {-5, 0, 1}, {50, 50, 50});
      ExpectOnceEach({9, 7, 8}, axis, true, {6, 6, 6}, {2, 2, 2});
      ExpectOnceEach({2, 1, 3}, axis, false, {}, {});
      ExpectOnceEach({4, 4, 4}, axis, true, {20, 20, 20}, {30, 30, 30});
    }
  }
}

TEST(GridProcessor, AskedBoxesAreLimitedToTheInside) {
  GridProcessorRunner runner;
  ASSERT_TRUE(runner.Init({9, 7, 8}, 2, true, {-5, 3, 1}, {50, 5, 50}));
  EXPECT_EQ(runner.Interior().min, (VecInt3D{1, 3, 1}));
  EXPECT_EQ(runner.Interior().max, (VecInt3D{8, 5, 7}));
}

class SerialCounter : public SerialGridProcessor {
 public:
  void ProcessInterior(const VecInt3D& min, const VecInt3D& max) override {
    boxes.push_back({min, max});
  }
  std::vector<CellBox> boxes;
};

TEST(GridProcessor, SerialInteriorsRunInOnePiece) {
  const Threads fixed(4);
  GridProcessorRunner runner;
  ASSERT_TRUE(runner.Init({6, 6, 6}, 2));
  SerialCounter counter;
  runner.Run(counter);
  ASSERT_EQ(counter.boxes.size(), 1u);
  EXPECT_EQ(counter.boxes[0].max, (VecInt3D{5, 5, 5}));
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
