// True distances that spread over a grid from the samples that know theirs.
#pragma once
#include "fluids/levelset/diagonal_rows.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Solves |grad phi| = 1 on a grid of signed distances, negative inside, outwards from known
/// samples on both sides. The spacing is the grid's cell size; there are at least 2 samples on each
/// axis. Mark the samples first, then run. The result doesn't depend on the number of workers.
///
/// Zhao, "A fast sweeping method for eikonal equations" (2004): Godunov's upwind difference of
/// first order, solved in eight sweeps. Plane surfaces come out exact; round ones err by a fraction
/// of a cell.
class EikonalSweeper {
 public:
  enum Side : u8 { kOutside = 0, kInside = 1, kKnown = 2 };
  static constexpr double kFar = std::numeric_limits<double>::max();

  explicit EikonalSweeper(EGrid<double>& phi, host::HostThread* thread = nullptr);
  /// False where the marks had no memory: nothing else may be called then.
  bool IsReady() const { return mSides.mData && mPhi.mData; }

  /// Marks every sample by sideOf(index). A known one keeps its value, the others become far, plus
  /// or minus `kFar`. Every sample beside one of the other side has to be known, or its neighbour.
  template <class SideOf>
  void Mark(SideOf&& sideOf) {
    ForEachLayer([&](i32 i) {
      mSides[i] = sideOf(i);
      if (mSides[i] != kKnown) mPhi[i] = mSides[i] == kInside ? -kFar : kFar;
    });
  }
  /// Marks by the signs of the samples: those beside a change of sign get the distance to the plane
  /// that is 0 where linear interpolation along their grid lines is, and has the field's slope
  /// along the others. How steep the field is doesn't count. 0 counts as outside. False without
  /// memory.
  bool MarkBesideSurface();
  /// Spreads the distances; what no known sample reaches stays far. Stops early where the thread is
  /// told to.
  void Run();

 private:
  template <class F>
  void ForEachLayer(F&& f) {
    ForEachBlock(mPhi.mNz, host::ThreadCount(), [&](i32 z) {
      const i32 first = z * mPhi.mSlice;
      for (i32 i = first; i < first + mPhi.mSlice; ++i) f(i);
    });
  }
  void Sweep(i32 di, i32 dj, i32 dk);

  EGrid<double>& mPhi;
  host::HostThread* mThread;
  Grid<u8> mSides;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
