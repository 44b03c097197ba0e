// Evens out the volumes that cells carry, and takes their content along.
#pragma once
#include <memory>
#include <vector>

#include "fluids/advection/even_rows.h"
#include "fluids/advection/row_runs.h"
#include "grids/grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A field and the volume that carries it, by cell.
struct Carried {
  double* content;
  double* volume;
};

/// Volumes even out between neighbours: flows that bring them near one are found by iterating with
/// the weights of Chebyshev's polynomials (Golub, Varga, 1961), all cells at once so that none
/// comes first, and pass in one go, limited to what each giver has. Where solids have just covered
/// or left cells a round leaves more than a trace, and the next ones go on with it. Cells that take
/// no part and the outermost layer keep what they have.
class VolumeEvening {
 public:
  /// False without memory.
  bool Fit(const VecInt3D& dims);
  void Release();
  /// `moves` is as `EvenLine` has it. What is in `from` goes to `to`, in the cells of `rows`;
  /// `from` and `spare` are overwritten there. Beyond them gas comes and goes: `spare` holds
  /// nothing, and a volume of one. Nothing depends on `threads`.
  void Run(const u8* moves, const RowRuns& rows, const Carried& from, const Carried& to,
           const Carried& spare, i32 threads);
  /// `n` cells from `c` on aren't active any more.
  void Leave(i32 c, i32 n);

 private:
  enum RowKind : u8 { kNone, kFree, kMixed };
  /// The active inner cells of a row.
  struct Row {
    RowKind kind = kNone;
    i32 c = 0, n = 0;                      ///< the first one, and how many
    bool isFirst = false, isLast = false;  ///< they reach the row's ends
    LinesBeside beside{};                  ///< of a free row
  };

  void MarkRows();
  void FindLine(i32 y, i32 z, Row& row) const;
  double StartPotential(const double* volume);
  const Potential* FindPotential(const double* volume);
  void RunSweeps(const double* volume, i32 first, i32 count, i32 workers);
  void SweepSlab(const double* volume, i32 first, i32 count, i32 slab, i32 slabs);
  void Relax(i32 y, i32 z, const double* volume, i32 sweep);
  double Pass(const Potential* potential, const Carried& from, const Carried& to,
              const Carried& spare);
  void LimitLayer(i32 z, const Potential* potential, const Carried& from, const Carried& spare);
  double PassLayer(i32 z, const Potential* potential, const Carried& from, const Carried& to,
                   const Carried& spare) const;
  double PassRow(const Row& row, const Potential* potential, const Carried& from, const Carried& to,
                 const Carried& spare) const;
  void Keep(i32 y, i32 z, const Carried& from, const Carried& to) const;
  void ContinueBeyond(const Row& row, Potential* p) const {
    if (row.isFirst) p[-1] = p[0];
    if (row.isLast) p[row.n] = p[row.n - 1];
  }
  EvenLine LineOf(const Row& row) const { return {mMoves + row.c, mDims.x, mSlice, row.n}; }
  const Row& RowAt(i32 y, i32 z) const { return mRows[z * mDims.y + y]; }
  template <class F>
  void ForEachRow(F&& f) const;

  VecInt3D mDims{};
  i32 mSlice = 0, mThreads = 1;
  const u8* mMoves = nullptr;
  const RowRuns* mActive = nullptr;
  std::vector<Row> mRows;    ///< by y and z
  std::vector<u8> mIsWhole;  ///< likewise: all cells of the row give what is asked of them
  std::unique_ptr<Grid<Potential>> mPotential[2];
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
