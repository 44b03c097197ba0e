// How full particles make cells.
#pragma once
#include <memory>
#include <vector>

#include "fluids/particles/even_cells.h"
#include "fluids/particles/particle_sort.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The particles about the cells of a grid, against what is open there.
///
/// Each particle spreads itself over the cells about it by quadratic B-splines (Steffen, Kirby and
/// Berzins 2008), which closed cells mirror. What a cell gets of an even filling follows from what
/// is open about it. Still particles that share a cell out, at most one in each part, stand in the
/// middle of their parts: chance that an emitter gave them makes no waves on a still pool.
class CellFilling {
 public:
  /// Works on particles that are sorted by the cells of `sums`. `open` are the open fractions of
  /// these cells; null where all is open.
  CellFilling(const ParticleSort& sort, const EGrid<float>* open, Grid<double>& sums);
  bool IsReady() const { return mNotes.mData; }
  /// Fills `sums` with what cells get, in particles. Runs on all workers, with one result for any
  /// number.
  void Spread();
  /// The same with even cells that are known, or null for none.
  void SpreadWith(const EvenCells* even);
  /// How many particles fill a cell.
  struct Rest {
    double particles = 0;
    i64 cells = 0;  ///< that lie deep enough to tell it
    void Add(const Rest& other) {
      particles += other.particles;
      cells += other.cells;
    }
  };
  /// After `Spread`: what cells get that lie two others deep. Without enough of these the mean
  /// number in cells in the midst of others, or without any, the most in one cell, taken for the
  /// nearest of 1, 8, 64, ..., which emitters make: streams and sheets are torn.
  Rest FindRest() const;

  struct Opening {
    double share = 1;  ///< what a cell would get if all that is open about it were filled
    double cut = 0;    ///< what of it cells that a solid cuts would give if they were whole
  };
  /// In full cells.
  Opening OpenAbout(const VecInt3D& at, i32 i) const;
  /// What surrounds the cells of a line.
  struct Surroundings {
    std::vector<float> least;  ///< the least open cell about each, itself included
    /// How many cells off, up to two, all hold particles or are closed, and none is cut. At two
    /// those about a cell lie below the surface, and it gets what particles in full cells give; at
    /// one, no more than that.
    std::vector<u8> depth;
    std::vector<float> open;     ///< scratch
    std::vector<u8> near, full;  ///< scratch
  };
  void Find(i32 y, i32 z, Surroundings& line) const;

  /// What `Spread` found, which this forgets.
  std::unique_ptr<EvenCells> TakeEven() { return std::move(mEven); }

  bool IsAllOpen() const { return !mOpen; }
  bool HasOpening(i32 i) const { return !mOpen || (*mOpen)[i] > 0; }
  /// Little of the cell is solid: what it gets tells of the particles more than of the solid.
  bool IsMostlyOpen(i32 i) const { return !mOpen || (*mOpen)[i] >= kMostly; }
  double OpenOf(i32 i) const { return mOpen ? double{(*mOpen)[i]} : 1.0; }
  double ParticlesIn(const VecInt3D& at) const {
    return static_cast<double>(mSort.Cell(at).size());
  }
  /// The cell, or one beside it, is one of those beside closed cells that hold fewer than `kLeast`
  /// of `rest` particles, it and those about it, and hold them away from there: what lacks may be
  /// air under a lid.
  bool IsUnderLid(const VecInt3D& at, double rest) const;
  bool Holds(i32 i) const { return mNotes[i] & kHolds; }

  /// Calls f(y, z) for the lines of cells along x, layer by layer on all workers.
  template <class F>
  static void ForEachLine(const Grid<double>& grid, F&& f) {
    ForEachBlock(grid.mNz, host::ThreadCount(), [&](i32 z) {
      for (i32 y = 0; y < grid.mNy; ++y) f(y, z);
    });
  }

  static constexpr i32 kMarkKind = 13;  ///< of grids of notes
  /// What a spline gives of an even filling to the cell beside its own on an axis.
  static constexpr double kSide = 1.0 / 6;
  static constexpr float kMostly = 0.5F;
  /// From here on a cell is open all through: distances cut the inner edges of a box off.
  static constexpr float kWhole = 0.8F;
  /// Of a full cell: with less beside a closed one there may be air under a lid.
  static constexpr double kLeast = 0.75;

 private:
  static constexpr u16 kHolds = 64, kFull = 128, kShared = 256, kStill = 512, kBesideClosed = 63;

  /// Notes for each cell whether it holds particles, whether it does so all through or is closed,
  /// whether they share it out evenly, and which of its neighbours, low and high on each axis, are
  /// closed.
  void FindNotes();
  /// Of the particles in cells that are shared out.
  struct Sharing {
    Vec3d offset;  ///< sum of how far they stand off the middles of their cells, in cells
    i64 sharing = 0;
  };
  i32 PartsOfScatter(const Sharing& all) const;
  void FindEven();
  void SpreadAll(const EvenCells* even);
  /// Closed cells lie beside it on every axis: in a corner of a box it is whole, whatever distances
  /// cut off there.
  bool IsCorner(i32 i) const {
    return (mNotes[i] & 3) != 0 && (mNotes[i] & 12) != 0 && (mNotes[i] & 48) != 0;
  }
  bool IsGap(const VecInt3D& at, double rest) const;
  /// It and those about it along a closed side hold too few particles, and those stand off it.
  bool IsBare(const VecInt3D& at, i32 side, double rest) const;
  /// Sum of how far particles of a cell stand off its middle, in cells, if they are still and share
  /// it out: `notes` has kStill and kShared then.
  Vec3d OffsetIn(std::span<const ParticleSort::Entry> particles, i32& notes) const;
  bool IsWhole(i32 i) const { return !mOpen || (*mOpen)[i] >= kWhole; }
  /// Most of the particles about the cell share out theirs too. Of a few at a surface chance alone
  /// makes that, now and then.
  bool IsAmongShared(const VecInt3D& at) const;
  /// All cells up to `reach` off hold particles or are closed, and none is cut.
  bool IsAmidst(const VecInt3D& at, i32 reach) const;

  const ParticleSort& mSort;
  const EGrid<float>* mOpen;
  Grid<double>& mSums;
  Grid<u16> mNotes;  ///< kHolds, kFull, kShared, and the bits of closed neighbours
  i32 mParts = 0;    ///< of a cell along an axis, about whose middles particles stand; 0 without
  std::unique_ptr<EvenCells> mEven;  ///< null where none are even
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
