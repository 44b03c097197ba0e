// Evens out the volumes that cells carry, and takes their content along.
#pragma once
#include <memory>
#include <vector>

#include "fluids/advection/even_rows.h"
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
  /// `moves` is as `EvenLine` has it. What is in `from` goes to `to`; `from` and `spare` are
  /// overwritten. Nothing depends on `threads`.
  void Run(const u8* moves, const Carried& from, const Carried& to, const Carried& spare,
           i32 threads);

 private:
  enum RowKind : u8 { kNone, kFree, kMixed };
  struct Row {
    RowKind kind = kNone;
    LinesBeside beside{};  ///< of a free row
  };

  void MarkRows();
  double StartPotential(const double* volume);
  const Potential* FindPotential(const double* volume);
  void RunSweeps(const double* volume, i32 first, i32 count, i32 workers);
  void SweepSlab(const double* volume, i32 first, i32 count, i32 slab, i32 slabs);
  void Relax(i32 y, i32 z, const double* volume, i32 sweep);
  double Pass(const Potential* potential, const Carried& from, const Carried& to,
              const Carried& spare);
  EvenLine LineAt(i32 c) const { return {mMoves + c, mDims.x, mSlice, mDims.x - 2}; }
  i32 FirstOf(i32 y, i32 z) const { return z * mSlice + y * mDims.x + 1; }
  template <class F>
  void ForEachRow(F&& f) const;

  VecInt3D mDims{};
  i32 mSlice = 0, mThreads = 1;
  const u8* mMoves = nullptr;
  std::vector<Row> mRows;  ///< by y and z
  std::unique_ptr<Grid<Potential>> mPotential[2];
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
