// The parts of a grid that open faces connect, and which of them are closed.
#pragma once
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

struct ProjectionFields;

/// Cells that open faces connect.
struct Region {
  bool isClosed = true;  ///< no open face leads to the outermost layer of the grid, or into air
  VecInt3D first{};      ///< the first cell in order of z, y, x
  i64 cells = 0;
  double volume = 0;   ///< open fractions of the cells; of closed regions alone, as what follows
  double balance = 0;  ///< sum of the right-hand sides before `Balance`, 1/s
  double rest = 0;     ///< the largest magnitude of a right-hand side after it, 1/s
  /// What the gas of a closed region has to shrink by, or to grow by below 0, 1/s.
  double Squeeze() const { return volume > 0 ? balance / volume : balance / double(cells); }
};

/// A run of connected cells [first, last) on a line along x.
struct RegionRun {
  i32 y, first, last;
  i32 region = 0;        ///< while regions form, a run that it joined
  bool isClosed = true;  ///< as in `Region`, for this run alone
  double volume = 0, balance = 0, rest = 0;
};

/// The regions of the inner cells (1 to n - 2) that have a row (`CellLine::HasRow`). In a closed
/// region pressure is known but for a constant, and a solution exists only when its right-hand
/// sides add up to 0: `Balance` sees to that, region by region. What is missing or too much is
/// spread in proportion to the open volume of the cells, as if the gas there grew or shrank evenly.
/// Where nothing is left then but rounding, as when all of a closed region expands alike, the
/// right-hand sides are 0.
///
/// Nothing depends on the number of workers.
class ClosedRegions {
 public:
  void Find(const ProjectionFields& fields, const VecInt3D& cells, i32 threads);
  /// Adds to the right-hand sides of closed regions what makes them add up to 0.
  void Balance(const ProjectionFields& fields, std::span<double> rhs, i32 threads);
  /// Right-hand sides below that are rounding of what `Balance` evened out, 1/s.
  double Noise() const { return mNoise; }
  /// What `Balance` added to a cell of a region, 1/s.
  static double Shift(const Region& region, double openFraction) {
    if (!region.isClosed || region.balance == 0) return 0;
    return region.volume > 0 ? -region.balance / region.volume * openFraction
                             : -region.balance / region.cells;
  }
  /// The region of a cell, by its index in the grid; -1 without a row.
  i32 RegionAt(i32 cell) const;
  /// Something else than an open face ties a region to what isn't closed.
  void Open(i32 region) { mRegions[region].isClosed = false; }
  std::span<const Region> All() const { return mRegions; }
  const Region& Of(const RegionRun& run) const { return mRegions[run.region]; }
  /// The runs of layer z in order of y and x.
  std::span<const RegionRun> Runs(i32 z) const {
    return std::span(mRuns).subspan(mLayers[z], mLayers[z + 1] - mLayers[z]);
  }

 private:
  void FindRuns(const ProjectionFields& fields, i32 z, std::vector<RegionRun>& runs) const;
  /// Joins the runs of two neighbouring lines that an open face of `faces` connects: those from
  /// `a` to `aEnd` and those from `b` on to `bEnd`; `faces` lie between the lines.
  void JoinLines(const float* faces, i32 a, i32 aEnd, i32 b, i32 bEnd);
  void JoinInLayer(const ProjectionFields& fields, i32 z);
  void JoinToNextLayer(const ProjectionFields& fields, i32 z);
  i32 Root(i32 run);
  void NumberRegions();
  template <class F>
  void ForEachClosedRun(const ProjectionFields& fields, i32 threads, F&& f);

  VecInt3D mCells{};
  std::vector<std::vector<RegionRun>> mFound;  ///< by layer, before they are put together
  std::vector<RegionRun> mRuns;
  std::vector<i32> mLayers;  ///< index of the first run of a layer, and the number of runs
  std::vector<Region> mRegions;
  double mNoise = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
