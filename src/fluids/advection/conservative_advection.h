// Advection that keeps the total of a field.
#pragma once
#include <memory>
#include <vector>

#include "fluids/advection/row_sampling.h"
#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/solid_cells.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Who gives what to a cell: the eight cells of a block, with trilinear weights over those that can
/// hold smoke, scaled to sum to 1 (or all 0 when none can).
struct ContributionCoefficients {
  i32 base = 0;                   ///< index of the block's lowest cell
  u8 closed = 0;                  ///< bit k: corner k can't hold smoke
  double fx = 0, fy = 0, fz = 0;  ///< fractions of the position inside the block
};

/// What a cell sends to a block of cells on top of what they ask for.
struct ForwardContribution {
  i32 cell = 0;
  double amount = 0;  ///< share of its content that nobody asks for
  double share = 0;   ///< sum of the weights, each times the factor of the cell that it names
  ContributionCoefficients block;
};

/// The mass-conserving semi-Lagrangian step and its MacCormack variant (after Lentine, Aanjaneya,
/// Fedkiw, "Mass and momentum conservation for fluid simulation", 2011; Lentine, Gretarsson,
/// Fedkiw 2011, unconditionally stable conservative advection).
///
/// A step first records who gives what to whom, then scales the records until every cell gives
/// away exactly what it holds, and last evens out the density errors that are left. Cells whose
/// centre lies in a solid keep what they hold and take no part, so that a closed box keeps its
/// total to rounding, past obstacles too. Keeps its work grids from step to step; results don't
/// depend on the number of threads.
class ConservativeAdvection {
 public:
  struct Flow {
    StaggeredVelocity velocity;
    const GridBoundary* boundary = nullptr;
    const Grid<u8>* solidCells = nullptr;  ///< flags of `SolidCells`; without them all is tested
    i32 order = 0;                         ///< of the path, see `TracePath`
    double step = 0;                       ///< length of the time step, seconds
    i32 threads = 1;
  };

  /// Moves `source` into `destination`, both cell-centred and of one shape; false without memory.
  bool Advect(const Flow& flow, const EGrid<double>& source, EGrid<double>& destination);
  /// The same, forth and back, with half the difference taken as the error of the step. What
  /// limiting to the source's local extremes cuts off goes to neighbours within their own limits.
  bool AdvectCorrected(const Flow& flow, const EGrid<double>& source, EGrid<double>& destination);
  void Release();

 private:
  using Field = std::unique_ptr<Grid<double>>;
  bool Fit(const EGrid<double>& source, bool corrected);
  void MarkHolders(const Flow& flow, const EGrid<double>& source);
  void PlaceBlocks(const Flow& flow, RowVectors& ends, i32 n,
                   ContributionCoefficients* blocks) const;
  void TraceInnerRow(const Flow& flow, double step, i32 y, i32 z);
  void FindLimits(const ContributionCoefficients& block, const double* source, i32 c, double* least,
                  double* most) const;
  void RecordBackward(const Flow& flow, double step, const double* source, double* least,
                      double* most);
  void RecordForward(const Flow& flow, double step, const double* scale);
  void SendForward(const Flow& flow, double step, const double* scale, const RowVectors& start,
                   const i32* cells, i32 n, std::vector<ForwardContribution>& list) const;
  void ComputeBeta(const Flow& flow, const double* scale);
  void AddForwardShares(const Flow& flow);
  void ComputeGamma(const Flow& flow, const double* scale, double* gamma);
  void Gather(const Flow& flow, const double* scale, const double* source, double* destination);
  void Scatter(const double* scale, const double* source, double* destination) const;
  void Even(const Flow& flow, double* gamma, double* destination);
  void EvenSweep(const Flow& flow, i32 axis, const double* in, double* out, double* destination);
  void Step(const Flow& flow, double step, const double* source, double* destination,
            const double* weights, double* gamma, double* least, double* most);
  void GiveBack(const double* least, const double* most, double* value, double* excess) const;
  template <class F>
  void ForEachLayer(const Flow& flow, F&& f) const;

  VecInt3D mDims{};
  i32 mSlice = 0;
  f32 mCellSize = 0;
  const u8* mFlags = nullptr;                               ///< of the step's solid cells
  std::unique_ptr<Grid<u8>> mHolds;                         ///< 1: the cell can hold smoke
  std::unique_ptr<Grid<ContributionCoefficients>> mBlocks;  ///< what each cell asks for
  std::vector<std::vector<ForwardContribution>> mForward;   ///< by layer, in cell order
  Field mBeta, mBetaUpper;  ///< how much of a cell is asked for; the upper half's share of it
  Field mScale, mGamma, mWork;
  Field mLeast, mMost, mForwardValue, mBackwardValue, mForwardGamma;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
