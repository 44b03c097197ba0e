#include "fluids/particles/wide_cells.h"

#include <algorithm>

#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Whether all cells of the lowest layer along an axis are closed.
bool IsBoundedLow(const EGrid<float>& open, i32 axis) {
  CellBox layer{{}, open.Dims()};
  layer.max[axis] = 1;
  bool isClosed = true;
  ForEachCell(layer, [&](i32 x, i32 y, i32 z) { isClosed = isClosed && !(open(x, y, z) > 0); });
  return isClosed;
}

}  // namespace

bool WideCells::Fit(const GridLayout& fine) {
  VecInt3D dims;
  for (i32 axis = 0; axis < 3; ++axis) {
    // Else by where the cell is in the world: a container that follows its liquid regroups nothing.
    mFirst[axis] = mOpen && IsBoundedLow(*mOpen, axis) ? 1 : fine.originCell[axis] & 1;
    dims[axis] = std::max((fine.dims[axis] + mFirst[axis] + 1) / 2, 2);
  }
  const Vec3d wide = fine.worldCell * 2;
  GridLayout layout;
  layout.Set(dims, wide * ToReal(dims), 2 * fine.cellSize,
             fine.worldOrigin - fine.worldCell * ToReal(mFirst));
  if (mWidePhi && mWidePhi->mLayout.Equals(layout)) return true;
  mSort.Reset(layout);
  mWideOpen = std::make_unique<EGrid<float>>(layout, kCentre);
  mWidePhi = std::make_unique<EGrid<double>>(layout, kCentre);
  mExcess = std::make_unique<EGrid<double>>(layout, kCentre);
  const bool hasRoom = mWideOpen->mData && mWidePhi->mData && mExcess->mData;
  if (!hasRoom) mWidePhi.reset();
  return hasRoom;
}

void WideCells::MeasureOpen() {
  EGrid<float>& wide = *mWideOpen;
  const VecInt3D last = mOpen->Dims() - VecInt3D{1, 1, 1};
  ForEachBlock(wide.mNz, host::ThreadCount(), [&](i32 z) {
    ForEachCell({{0, 0, z}, {wide.mNx, wide.mNy, z + 1}}, [&](i32 x, i32 y, i32 layer) {
      const VecInt3D low = VecInt3D{2 * x, 2 * y, 2 * layer} - mFirst;
      float sum = 0;
      // Beyond the grid it goes on as at its sides.
      ForEachCell({low, low + VecInt3D{2, 2, 2}}, [&](i32 i, i32 j, i32 k) {
        sum +=
            (*mOpen)(std::clamp(i, 0, last.x), std::clamp(j, 0, last.y), std::clamp(k, 0, last.z));
      });
      wide(x, y, layer) = sum / 8;
    });
  });
}

bool WideCells::Run(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi,
                    double rest, const SmoothSurface::Crowd& crowd) {
  mOpen = open && open->mData && open->Dims() == phi.Dims() ? open : nullptr;
  if (!Fit(phi.mLayout)) return false;
  mSort.Build(sort.Groups(), sort.Kind(), host::ThreadCount());
  if (mOpen) MeasureOpen();
  mExcess->Fill(0);
  SmoothSurface surface(mSort, mOpen ? mWideOpen.get() : nullptr, *mWidePhi);
  if (!surface.Run(8 * rest, {mExcess.get(), crowd.rate})) return false;
  BringBack(phi);
  mSurplus = FindSurplus(surface, phi, rest);
  if (crowd.grid && crowd.grid->mData && crowd.grid->Dims() == phi.Dims())
    CellFilling::ForEachLine(phi, [&](i32 y, i32 z) {
      for (i32 x = 0, i = phi.Index(0, y, z); x < phi.mNx; ++x, ++i) {
        const VecInt3D at = WideOf({x, y, z});
        (*crowd.grid)[i] += (*mExcess)(at.x, at.y, at.z);
      }
    });
  return true;
}

double WideCells::FindSurplus(const SmoothSurface& surface, const EGrid<double>& phi,
                              double rest) const {
  const EGrid<double>& wide = *mWidePhi;
  const double perCell = 1 / double{phi.mLayout.cellSize};
  const auto toldBy = [&](const VecInt3D& cell) {
    const i32 i = phi.Index(cell.x, cell.y, cell.z);
    const double below = std::clamp(0.5 - phi[i] * perCell, 0.0, 1.0);
    return mOpen ? below * double{(*mOpen)[i]} : below;
  };
  return SumBlocks(wide.mNz, 1, host::ThreadCount(), [&](i64 first, i64 last) {
    const CellBox layers{{0, 0, static_cast<i32>(first)},
                         {wide.mNx, wide.mNy, static_cast<i32>(last)}};
    double sum = 0;
    ForEachCell(layers, [&](i32 x, i32 y, i32 z) {
      const VecInt3D at{x, y, z};
      if (!surface.CountsWhole(at, wide.Index(x, y, z))) return;
      const VecInt3D low = VecInt3D{2 * x, 2 * y, 2 * z} - mFirst;
      ForEachCell(Clip({low, low + VecInt3D{2, 2, 2}}, {}, phi.Dims()), [&](i32 i, i32 j, i32 k) {
        sum += toldBy({i, j, k});
      });
      sum -= static_cast<double>(mSort.Cell(at).size()) / rest;
    });
    return sum;
  });
}

void WideCells::BringBack(EGrid<double>& phi) const {
  const EGrid<double>& wide = *mWidePhi;
  const double most = SmoothSurface::kReach * wide.mLayout.cellSize;
  const auto stencil = [&](i32 at, i32 axis) {
    return LinearStencil(0.5 * (at + mFirst[axis] + 0.5) - 0.5, wide.Dims()[axis]);
  };
  CellFilling::ForEachLine(phi, [&](i32 y, i32 z) {
    const AxisStencil sy = stencil(y, 1), sz = stencil(z, 2);
    for (i32 x = 0, i = phi.Index(0, y, z); x < phi.mNx; ++x, ++i) {
      const AxisStencil sx = stencil(x, 0);
      double sum = 0;
      for (i32 k = 0; k < 8; ++k) {
        const double value = wide(sx.index + (k & 1), sy.index + (k >> 1 & 1), sz.index + (k >> 2));
        const auto weight = [](const AxisStencil& s, i32 up) {
          return up ? s.fraction : 1 - s.fraction;
        };
        // Where no distance reaches.
        sum +=
            weight(sx, k & 1) * weight(sy, k >> 1 & 1) * weight(sz, k >> 2) * std::min(value, most);
      }
      phi[i] = sum < 0.9 * most ? sum : SmoothSurface::kFar;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
