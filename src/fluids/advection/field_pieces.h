// Which parts of a field have nothing to do with one another in a step.
#pragma once
#include <span>
#include <vector>

#include "fluids/advection/busy_blocks.h"
#include "fluids/flow/scalar_walls.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a step may bring into a field or take out of it.
struct PieceBounds {
  const ScalarWalls* walls = nullptr;  ///< closed cells part; null without
  const ThinFaces* thin = nullptr;     ///< closed faces part; null without
  u8 openSides = 0;                    ///< `WallBits` of sides through which something goes
  VecInt3D reach{};                    ///< of the paths, cells
  std::vector<CellBox> stirred;        ///< cells that solids in motion may touch
};

/// Clouds of a centred field: open cells that touch and hold, before a step or behind it, more than
/// a billionth of the most there is. What a path leads from one cloud to another makes one of
/// them. Cells of clouds that nothing can enter or leave are numbered from 1 on, cloud by cloud;
/// all others, what is nearly empty too, have the number 0. So the content of each number but 0 is
/// known behind the step. Numbers don't depend on the workers.
class FieldPieces {
 public:
  /// `starts` has, by cell, the lowest of the samples round the start of its path.
  void Find(const Grid<double>& before, const Grid<double>& after, double nothing,
            const i32* starts, const PieceBounds& bounds, i32 threads);
  /// How many numbers there are, 0 included.
  i32 Count() const { return mCount; }
  /// Calls f(number, first, last) for the stretches of the cells [first, last) of an inner row.
  template <class F>
  void ForEachStretch(i32 first, i32 last, i32 y, i32 z, F&& f) const {
    const auto [begin, end] = RunsOf(y, z);
    for (const Run* run = begin; run != end && first < last; ++run) {
      const i32 low = std::max(run->first, first), high = std::min(run->last, last);
      if (run->piece == 0 || low >= high) continue;
      if (low > first) f(0, first, low);
      f(run->piece, low, high);
      first = high;
    }
    if (first < last) f(0, first, last);
  }

 private:
  struct Run {
    i32 first, last;  ///< cells of a row
    i32 piece;        ///< while clouds are sought, a run of the same cloud
  };
  struct Layer {
    std::vector<Run> runs;
    std::vector<i32> rows;                    ///< where those of each row begin, and an end
    i32 offset = 0;                           ///< of its first run among all
    std::vector<std::pair<i32, i32>> joined;  ///< runs that paths lead between
  };
  std::pair<const Run*, const Run*> RunsOf(i32 y, i32 z) const {
    const Layer& layer = mLayers[z];
    return {layer.runs.data() + layer.rows[y], layer.runs.data() + layer.rows[y + 1]};
  }
  void ListRow(const Grid<double>& before, const Grid<double>& after, double nothing, double least,
               const PieceBounds& bounds, i32 y, i32 z);
  void JoinRows(const PieceBounds& bounds, i32 axis, i32 y, i32 z);
  void FollowPaths(const i32* starts, i32 z);
  /// A run among all, and its cells by index; none is empty.
  struct Place {
    i32 run = -1;
    i32 first = 0, last = 0;
  };
  Place PlaceOf(i32 cell) const;
  bool SeesOpenSide(const PieceBounds& bounds, const VecInt3D& cell) const;
  bool IsOpen(const PieceBounds& bounds, const Run& run, i32 y, i32 z) const;
  void NumberThem(const PieceBounds& bounds);
  i32 RootOf(i32 run);
  void Join(i32 a, i32 b);

  VecInt3D mDims{};
  i32 mCount = 1;
  std::vector<Layer> mLayers;
  std::vector<i32> mParent;  ///< by run
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
