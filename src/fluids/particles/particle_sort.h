// Particles by the cells of a grid.
#pragma once
#include <span>
#include <vector>

#include "fluids/particles/group_share.h"
#include "fluids/particles/particle_group.h"
#include "grids/fixed_blocks.h"
#include "grids/grid_layout.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The particles of one kind of some groups, sorted by the cells of a layout: first into ranges of
/// cells, then by counting within each, so that what is written at a time stays in the caches. The
/// particles of a cell stand together, in the order of groups and rows, and so do those of cells
/// that follow each other in x. Particles outside of the layout aren't in it and lose `PF_SORTED`.
class ParticleSort {
 public:
  /// A particle with its place.
  struct Entry {
    Vec3d position;  ///< as it was when sorted
    i32 row;         ///< in its store
    i32 group;       ///< among those of `Build`
  };

  /// Forgets everything and takes the cells of `layout`.
  void Reset(const GridLayout& layout);
  /// Sorts the particles of a kind. With `storeVelocity` each particle also keeps its velocity as
  /// property 26. Positions beyond the last cell by rounding count into it. With `shares`, one for
  /// each group, what isn't ours counts as outside.
  void Build(std::span<ParticleGroup* const> groups, i32 kind, i32 threads,
             bool storeVelocity = false, std::span<const GroupShare> shares = {});
  /// Empties it; with `resetFlags` its particles lose property 26 and get `PF_SORTED` first.
  void Clear(bool resetFlags = false);

  const GridLayout& Layout() const { return mLayout; }
  i32 Count() const { return mCount; }
  std::span<ParticleGroup* const> Groups() const { return mGroups; }
  i32 Kind() const { return mKind; }

  /// The particles of a cell.
  std::span<const Entry> Cell(const VecInt3D& cell) const {
    return mStarts.empty() ? std::span<const Entry>() : Row(cell, cell.x + 1);
  }
  /// Calls f(entry) for the particles of the cells from `low` to below `high`, cut to the grid.
  template <class F>
  void ForEachInBox(VecInt3D low, VecInt3D high, F&& f) const {
    for (int a = 0; a < 3; ++a) {
      low[a] = std::max(low[a], 0);
      high[a] = std::min(high[a], mLayout.dims[a]);
    }
    if (mStarts.empty() || low.x >= high.x) return;
    for (i32 z = low.z; z < high.z; ++z)
      for (i32 y = low.y; y < high.y; ++y)
        for (const Entry& entry : Row({low.x, y, z}, high.x)) f(entry);
  }
  /// Calls f(entry) for all particles, on workers, so that those at work at a time are at least two
  /// layers of cells apart along z: what a particle adds to cells up to one layer off needs no
  /// lock, and adds up in one order for any number.
  template <class F>
  void ForEachBySlab(i32 threads, F&& f) const {
    constexpr i32 kSlab = 4;
    const VecInt3D n = mLayout.dims;
    const i32 slabs = (n.z + kSlab - 1) / kSlab;
    for (const i32 colour : {0, 1})
      ForEachBlock((slabs + 1 - colour) / 2, threads, [&](i32 pair) {
        const i32 first = (2 * pair + colour) * kSlab;
        ForEachInBox({0, 0, first}, {n.x, n.y, first + kSlab}, f);
      });
  }
  /// Calls f(entry, distanceSquared) for all particles closer than `radius` to `p`.
  template <class F>
  void ForEachWithin(const Vec3d& p, double radius, F&& f) const {
    const double limit = radius * radius;
    const Vec3d wide{radius, radius, radius};
    ForEachInBox(CellNear(p - wide), CellNear(p + wide) + VecInt3D{1, 1, 1},
                 [&](const Entry& entry) {
                   const Vec3d d = entry.position - p;
                   const double squared = Dot(d, d);
                   if (squared < limit) f(entry, squared);
                 });
  }
  /// Lists of the cells round one that hold particles, `radius` cells to each side, in the order z,
  /// y, x; `exclusive` leaves the upper side out.
  std::vector<std::vector<Entry>> Gather(const VecInt3D& centre, i32 radius, bool exclusive) const;
  /// factor / h^3, less the densities of the particles in a cell; one without counts as 1.
  double Density(const VecInt3D& cell, double h, double factor) const;
  i64 Bytes() const;

 private:
  static constexpr i32 kParts = 64;     ///< of the rows of a group
  static constexpr i32 kRangeBits = 8;  ///< the cells are cut into at most 2^8 ranges

  /// The index of the cell of a point; -1 outside.
  i32 CellIndex(const Vec3d& p) const;
  /// The cell of a point, which the points of its cell by `CellIndex` may exceed by one.
  VecInt3D CellNear(const Vec3d& p) const {
    const Vec3d v = mLayout.ToCells(p);
    VecInt3D cell;
    for (int a = 0; a < 3; ++a)
      cell[a] =
          static_cast<i32>(std::clamp(std::floor(v[a] + 1e-6), -1.0, double(mLayout.dims[a])));
    return cell;
  }
  /// A particle of a range, before its place in it is known.
  struct Placed {
    i32 cell, row, group;
  };
  /// The passes of `Build`: cells and numbers of the particles of each part in each range, where
  /// these begin, the particles by ranges, and each range by cells.
  void FindCells(i32 group, const GroupShare* share, i32 threads, bool storeVelocity);
  void StartRanges();
  void FillRanges(i32 group, i32 threads);
  void SortRange(i32 range);
  i32 Ranges() const { return mCounts.empty() ? 0 : ((mLayout.count - 1) >> mShift) + 1; }
  i32* CountsOf(i32 group, i32 part) {
    return mCounts.data() + (i64{group} * kParts + part) * Ranges();
  }
  /// The particles of the cells from `cell` to below x = `end` in its row.
  std::span<const Entry> Row(const VecInt3D& cell, i32 end) const {
    const i64 row = (i64{mLayout.dims.y} * cell.z + cell.y) * mLayout.dims.x;
    const i32 first = mStarts[row + cell.x];
    return {mEntries.data() + first, static_cast<std::size_t>(mStarts[row + end] - first)};
  }

  GridLayout mLayout;
  i32 mKind = kLiquid;
  std::vector<ParticleGroup*> mGroups;
  std::vector<i32> mStarts;     ///< of each cell in `mEntries`, and the end; empty before `Build`
  std::vector<Entry> mEntries;  ///< the first `mCount` count
  i32 mCount = 0;
  // Scratch:
  i32 mShift = 0;                        ///< a cell's number without so many bits is its range's
  std::vector<i32> mCells;               ///< the cell of each particle, -1 outside
  std::vector<i64> mFirst;               ///< of each group in `mCells`
  std::vector<const Vec3d*> mPositions;  ///< of each group, by row
  std::vector<i32> mCounts;              ///< of each part in each range; later where it writes next
  std::vector<i32> mRangeStart;          ///< of each range in the entries, and the end
  std::vector<Placed> mPlaced;           ///< by ranges
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
