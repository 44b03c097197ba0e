// Work grids that a solver's operators share.
#pragma once
#include <array>
#include <memory>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Work grids of a layout for whoever runs now: their content lasts from the start of an
/// operator's run to its end. Kept from step to step, so that a steady state allocates nothing.
class ScratchGrids {
 public:
  static constexpr i32 kSlots = 4;

  ScratchGrids() = default;
  /// Work grid `slot`, below `kSlots`, with the samples of `kind` over `cells`; holds anything.
  /// Null when the memory isn't there.
  Grid<double>* Get(i32 slot, const VecInt3D& cells, i32 kind) {
    Fit(cells);
    std::unique_ptr<Work>& work = mGrids[slot];
    if (!work) work = std::make_unique<Work>(cells);
    if (!work->mData) return work.reset(), nullptr;
    work->Shape(cells + ExtraOf(kind), kind);
    return work.get();
  }
  /// A number for each sample of any kind over `cells`, by its index in a grid of that kind; they
  /// are anything. Null when the memory isn't there.
  Grid<i32>* GetNumbers(const VecInt3D& cells) { return Fill(mNumbers, cells); }
  /// The same with a byte for each sample.
  Grid<u8>* GetMarks(const VecInt3D& cells) { return Fill(mMarks, cells); }
  void Release() {
    for (auto& grid : mGrids) grid.reset();
    mNumbers.reset();
    mMarks.reset();
  }

 private:
  template <class T>
  Grid<T>* Fill(std::unique_ptr<Grid<T>>& grid, const VecInt3D& cells) {
    Fit(cells);
    if (!grid) grid = std::make_unique<Grid<T>>(cells + ExtraOf(kNode), kNode);
    if (!grid->mData) grid.reset();
    return grid.get();
  }
  void Fit(const VecInt3D& cells) {
    if (mCells == cells) return;
    Release();
    mCells = cells;
  }

  /// Room for the largest kind; the shape in front of it changes from use to use.
  struct Work : Grid<double> {
    explicit Work(const VecInt3D& cells) : Grid<double>(cells + ExtraOf(kNode), kNode) {}
    void Shape(const VecInt3D& dims, i32 kind) {
      mKind = kind;
      mNx = dims.x, mNy = dims.y, mNz = dims.z;
      mSlice = dims.x * dims.y;
      mCount = mSlice * dims.z;
    }
  };
  VecInt3D mCells{};
  std::array<std::unique_ptr<Work>, kSlots> mGrids;
  std::unique_ptr<Grid<i32>> mNumbers;
  std::unique_ptr<Grid<u8>> mMarks;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
