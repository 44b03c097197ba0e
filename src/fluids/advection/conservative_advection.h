// Advection that keeps the total of a field.
#pragma once
#include <memory>
#include <vector>

#include "fluids/advection/contribution.h"
#include "fluids/advection/flux_sharpening.h"
#include "fluids/advection/row_runs.h"
#include "fluids/advection/row_sampling.h"
#include "fluids/advection/volume_evening.h"
#include "fluids/flow/scalar_walls.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The mass-conserving semi-Lagrangian step (after Lentine, Aanjaneya, Fedkiw, "Mass and momentum
/// conservation for fluid simulation", 2011), and a sharp variant of second order.
///
/// A step first records who gives what to whom, then scales the records until every cell gives away
/// exactly what it holds; what is asked for less than by half goes where the flow leads. The volume
/// that cells receive so isn't quite one: it is carried from step to step along with the field, and
/// evens out between neighbours, which exchange content with it (as the volume-conserving
/// successors of the method do), so that a uniform field stays so. What a moving solid covers goes
/// to open cells with its volume, and cells that it leaves begin without any. What cells send
/// through open sides is gone. Cells whose centre lies in a solid keep what they hold and take no
/// part, so that a closed box keeps its total to rounding, past obstacles too. Results don't depend
/// on the number of threads, and hardly on the order of the cells: mirrored flows move mirrored
/// fields. Far from all that the field holds nothing is looked at, and the volume is one.
class ConservativeAdvection {
 public:
  struct Flow {
    StaggeredVelocity velocity;
    const GridBoundary* boundary = nullptr;
    const Grid<u8>* solidCells = nullptr;    ///< flags of `SolidCells`; without them all is tested
    const ScalarWalls* wallCells = nullptr;  ///< which cells solids cover and leave; may be null
    const ThinFaces* thin = nullptr;         ///< faces that nothing passes; may be null
    i32 reach = 1;                           ///< of `ScalarWalls::HandOver`
    double nothing = 0;                      ///< the value of a cell that holds nothing
    i32 order = 0;                           ///< of the path, see `TracePath`
    double step = 0;                         ///< length of the time step, seconds
    i32 threads = 1;
  };

  /// Moves `source` into `destination`, both cell-centred and of one shape, and with `sharp` takes
  /// back what the step blurs; false without memory.
  bool Advect(const Flow& flow, const EGrid<double>& source, EGrid<double>& destination,
              bool sharp);
  void Release();
  /// The volume that is carried.
  void Persist(StateArchive& archive);
  /// What the last step carried out through open sides, less what it brought in from there: values
  /// above nothing times cells.
  double Left() const { return mLeft; }

 private:
  using Field = std::unique_ptr<Grid<double>>;
  /// What the blocks of a slab of layers ask of each cell, over the layers that they touch.
  struct Slab {
    IndexRange layers;
    std::vector<double> asked;
  };

  bool Fit(const EGrid<double>& source, bool sharp);
  bool FitVolume(const EGrid<double>& source);
  void FindActive(const Flow& flow, const EGrid<double>& source);
  void Leave(i32 z);
  void MarkHolders(const Flow& flow, const EGrid<double>& source);
  void MarkRow(const Flow& flow, const EGrid<double>& source, i32 y, i32 z);
  void FindClosed(i32 z);
  bool IsOutermostRow(i32 y, i32 z) const {
    return y == 0 || z == 0 || y == mDims.y - 1 || z == mDims.z - 1;
  }
  bool IsClear(const RowVectors& points, i32 n) const;
  void PushOut(const Flow& flow, const RowVectors& start, RowVectors& ends, i32 n) const;
  void PlaceBlocks(const Flow& flow, const RowVectors& start, RowVectors& ends, i32 n,
                   const BlockColumns& blocks) const;
  void TraceRun(const Flow& flow, i32 y, i32 z, const IndexRange& run);
  void TraceLayer(const Flow& flow, i32 z);
  void AskSlab(const Flow& flow, i32 slab);
  void AskLayer(i32 z, Slab& slab) const;
  double FindAsked(const Flow& flow, const EGrid<double>& source, i32 z, double* asked) const;
  CellBox FarFromSides(const Flow& flow) const;
  void SendLayer(const Flow& flow, const CellBox& far, i32 z, double* asked);
  struct Senders;
  void SendForward(const Flow& flow, const Senders& from, i32 z);
  void Settle(const Flow& flow, const EGrid<double>& source, bool sharp);
  void Gather(const Flow& flow, const Carried& to, bool sharp);
  void Scatter(const Flow& flow, const Carried& to);
  void Complete(const Flow& flow, EGrid<double>& destination) const;
  template <class F>
  void ForEachLayer(const Flow& flow, F&& f) const {
    ForEachBlock(mDims.z, flow.threads, f);
  }
  /// Calls f(first cell, count) for the active parts of the rows of a layer.
  template <class F>
  void ForEachRun(i32 z, F&& f) const {
    for (i32 y = 0; y < mDims.y; ++y) {
      const IndexRange run = mRows.At(y, z);
      if (!run.IsEmpty()) f(z * mSlice + y * mDims.x + run.first, run.last - run.first);
    }
  }

  VecInt3D mDims{};
  i32 mSlice = 0;
  f32 mCellSize = 0;
  RowRuns mRows, mRowsBefore;         ///< of this step, and of the one before where that is known
  VecInt3D mFarthest{};               ///< where paths lead, in cells along each axis
  bool mIsSettled = false;            ///< the volume is one but for the rows of the step before
  const Grid<u8>* mFlags = nullptr;   ///< of the step's solid cells
  std::unique_ptr<Grid<u8>> mHolds;   ///< 1: the cell can hold smoke
  std::unique_ptr<Grid<u8>> mMoves;   ///< as `EvenLine` has them: it holds smoke and
                                      ///< isn't outermost
  std::unique_ptr<Grid<u8>> mClosed;  ///< by the lowest cell of a block, which of its
                                      ///< corners can't hold smoke
  std::unique_ptr<Grid<i32>> mBase;
  std::unique_ptr<Grid<u8>> mAskedClosed;
  Field mFraction[3];
  BlockColumns mBlocks{};  ///< what each cell asks for, in the three above
  std::vector<Slab> mSlabs;
  std::vector<std::vector<ForwardContribution>> mForward;  ///< by layer, in cell order
  std::vector<IndexRange> mReach;          ///< layers that what a layer sends touches
  std::unique_ptr<EGrid<double>> mVolume;  ///< carried on, one in a flow at rest
  Field mGivenContent, mGivenVolume;       ///< for each share that is asked for; beyond what is
                                           ///< active nothing, and one
  Field mMovedContent, mMovedVolume;       ///< before volumes are evened
  VolumeEvening mEvening;
  FluxSharpening mSharpening;
  double mLeft = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
