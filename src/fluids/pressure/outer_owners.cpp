#include "fluids/pressure/outer_owners.h"

#include <algorithm>
#include <cmath>

#include "fluids/volume/thin_walls.h"
#include "fluids/volume/wall_bits.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Calls f(neighbour, axis, face) for the six neighbours of a cell until one of the calls is true.
template <class F>
bool AnyNeighbour(const VecInt3D& cell, F&& f) {
  for (i32 axis = 0; axis < 3; ++axis) {
    const VecInt3D up = ExtraOf(axis);
    if (f(cell - up, axis, cell) || f(cell + up, axis, cell + up)) return true;
  }
  return false;
}

bool IsIn(const CellBox& box, const VecInt3D& cell) {
  return Max(box.min, cell) == cell && Min(box.max - VecInt3D{1, 1, 1}, cell) == cell;
}

/// Some face between two cells of a box is closed.
bool HasClosed(const OwnerSearch& search, const CellBox& box) {
  for (i32 axis = 0; axis < 3; ++axis) {
    CellBox faces = box;
    faces.min[axis] += 1;
    bool isClosed = false;
    ForEachCell(faces, [&](i32 x, i32 y, i32 z) { isClosed |= !search.IsOpen(axis, {x, y, z}); });
    if (isClosed) return true;
  }
  return false;
}

/// The parts of a box that open faces connect, by cell, from 1 on; 0 in cells without an open face.
class Parts {
 public:
  void Find(const OwnerSearch& search, const CellBox& box) {
    mBox = box;
    mSize = box.max - box.min;
    mPart.assign(CountOf(mSize), 0);
    mCells.clear();
    ForEachCell(box, [&](i32 x, i32 y, i32 z) {
      const VecInt3D cell{x, y, z};
      const bool isOpen = AnyNeighbour(cell, [&](const VecInt3D&, i32 axis, const VecInt3D& face) {
        return search.IsOpen(axis, face);
      });
      if (isOpen && (*this)[cell] == 0) Flood(search, cell);
    });
  }
  i32 Count() const { return static_cast<i32>(mCells.size()); }
  i32& operator[](const VecInt3D& cell) {
    const VecInt3D c = cell - mBox.min;
    return mPart[(mSize.y * c.z + c.y) * mSize.x + c.x];
  }
  i32 Largest() const {
    return static_cast<i32>(std::max_element(mCells.begin(), mCells.end()) - mCells.begin()) + 1;
  }

 private:
  void Flood(const OwnerSearch& search, const VecInt3D& from) {
    mCells.push_back(0);
    const i32 part = Count();
    (*this)[from] = part;
    mStack.push_back(from);
    while (!mStack.empty()) {
      const VecInt3D cell = mStack.back();
      mStack.pop_back();
      ++mCells.back();
      AnyNeighbour(cell, [&](const VecInt3D& next, i32 axis, const VecInt3D& face) {
        if (!IsIn(mBox, next) || (*this)[next] != 0 || !search.IsOpen(axis, face)) return false;
        (*this)[next] = part;
        mStack.push_back(next);
        return false;
      });
    }
  }

  CellBox mBox;
  VecInt3D mSize;
  std::vector<i32> mPart, mCells;
  std::vector<VecInt3D> mStack;
};

}  // namespace

bool OwnerSearch::IsNearSolid(const CellBox& box) const {
  return std::any_of(solids.begin(), solids.end(), [&](const CellBox& solid) {
    return !Clip(box, solid.min, solid.max).IsEmpty();
  });
}

bool OwnerSearch::IsParted(const VecInt3D& from, const VecInt3D& to) const {
  VecInt3D cell = from;
  for (i32 axis = 0; axis < 3; ++axis) {
    const i32 step = to[axis] > cell[axis] ? 1 : -1;
    while (cell[axis] != to[axis]) {
      VecInt3D face = cell;
      cell[axis] += step;
      if (step > 0) face = cell;
      for (const Wall& wall : walls)
        if (wall.walls->Closes(face - wall.origin, axis)) return true;
    }
  }
  return false;
}

i32 OuterOwners::OwnerOf(const VecInt3D& cell) const {
  const i32 home =
      (mLattice.y * mHome[2][cell.z] + mHome[1][cell.y]) * mLattice.x + mHome[0][cell.x];
  if (mStrays.empty()) return home;
  const i32 index = (mCells.y * cell.z + cell.y) * mCells.x + cell.x;
  const auto found =
      std::lower_bound(mStrays.begin(), mStrays.end(), index,
                       [](const Stray& stray, i32 wanted) { return stray.cell < wanted; });
  return found != mStrays.end() && found->cell == index ? found->owner : home;
}

void OuterOwners::FindStrays(const OwnerSearch& search, i32 layer,
                             std::vector<Stray>& found) const {
  const OuterLattice& lattice = *search.lattice;
  const VecInt3D inner = lattice.InnerDims();
  Parts parts;
  ForEachCell({{0, 0, layer}, {inner.x, inner.y, layer + 1}}, [&](i32 i, i32 j, i32 k) {
    const VecInt3D at{i, j, k};
    CellBox box;
    VecInt3D home, centre;
    for (i32 a = 0; a < 3; ++a) {
      home[a] = lattice[a].first + at[a];
      box.min[a] = (*search.cuts)[a][at[a]];
      box.max[a] = (*search.cuts)[a][at[a] + 1];
      centre[a] = OuterLattice::CellHolding(lattice[a].CentreOf(home[a])) - search.origin[a];
    }
    if (!search.IsNearSolid(box) || !HasClosed(search, box)) return;
    parts.Find(search, box);
    if (parts.Count() < 2) return;
    const i32 own = parts[centre] != 0 ? parts[centre] : parts.Largest();
    ForEachCell(box, [&](i32 x, i32 y, i32 z) {
      const VecInt3D cell{x, y, z};
      if (const i32 part = parts[cell]; part != 0 && part != own)
        found.push_back({(mCells.y * z + y) * mCells.x + x, kUnknown, cell, home});
    });
  });
}

/// Gives strays the owner of a neighbour, round by round, from what was known before the round.
void OuterOwners::FollowFaces(const OwnerSearch& search) {
  const VecInt3D n = search.lattice->Dims();
  const CellBox inner{{1, 1, 1}, mCells - VecInt3D{1, 1, 1}};
  std::vector<std::pair<std::size_t, i32>> known;
  do {
    known.clear();
    for (std::size_t i = 0; i < mStrays.size(); ++i) {
      const Stray& stray = mStrays[i];
      if (stray.owner != kUnknown) continue;
      AnyNeighbour(stray.at, [&](const VecInt3D& next, i32 axis, const VecInt3D& face) {
        if (!IsIn(inner, next) || !search.IsOpen(axis, face)) return false;
        const i32 owner = OwnerOf(next);
        if (owner < 0) return false;
        // Farther ones are beyond the samples that serve the sides here.
        const VecInt3D at{owner % n.x, owner / n.x % n.y, owner / (n.x * n.y)};
        for (i32 a = 0; a < 3; ++a)
          if (std::abs(at[a] - stray.home[a]) > 1) return false;
        known.push_back({i, owner});
        return true;
      });
    }
    for (const auto& [i, owner] : known) mStrays[i].owner = owner;
  } while (!known.empty());
}

/// Gives strays at a free side the cell beyond it, unless a wall stands on the way there.
void OuterOwners::LeaveBySides(const OwnerSearch& search) {
  const OuterLattice& lattice = *search.lattice;
  const VecInt3D n = lattice.Dims();
  for (Stray& stray : mStrays) {
    if (stray.owner != kUnknown) continue;
    AnyNeighbour(stray.at, [&](const VecInt3D& next, i32 axis, const VecInt3D& face) {
      const bool high = next[axis] > stray.at[axis];
      if (next[axis] > 0 && next[axis] < mCells[axis] - 1) return false;
      if (!(search.freeSides & (high ? kHighWall : kLowWall)[axis])) return false;
      if (!search.IsOpen(axis, face)) return false;
      VecInt3D beyond = stray.home, centre;
      beyond[axis] += high ? 1 : -1;
      for (i32 a = 0; a < 3; ++a)
        centre[a] = OuterLattice::CellHolding(lattice[a].CentreOf(beyond[a]));
      if (search.IsParted(next + search.origin, centre)) return false;
      stray.owner = (n.y * beyond.z + beyond.y) * n.x + beyond.x;
      return true;
    });
  }
}

void OuterOwners::Find(const OwnerSearch& search) {
  const OuterLattice& lattice = *search.lattice;
  mCells = search.open[0]->Dims() - ExtraOf(0);
  mLattice = lattice.Dims();
  for (i32 a = 0; a < 3; ++a) {
    const std::vector<i32>& cuts = (*search.cuts)[a];
    mHome[a].assign(mCells[a], 0);
    for (std::size_t i = 0; i + 1 < cuts.size(); ++i)
      std::fill(mHome[a].begin() + cuts[i], mHome[a].begin() + cuts[i + 1],
                lattice[a].first + static_cast<i32>(i));
  }
  const VecInt3D inner = lattice.InnerDims();
  std::vector<std::vector<Stray>> found(inner.z);
  ForEachBlock(inner.z, search.threads, [&](i32 k) { FindStrays(search, k, found[k]); });
  mStrays.clear();
  for (const std::vector<Stray>& layer : found)
    mStrays.insert(mStrays.end(), layer.begin(), layer.end());
  if (mStrays.empty()) return;
  std::sort(mStrays.begin(), mStrays.end(),
            [](const Stray& a, const Stray& b) { return a.cell < b.cell; });
  FollowFaces(search);
  LeaveBySides(search);
  FollowFaces(search);
  for (Stray& stray : mStrays)
    if (stray.owner == kUnknown) stray.owner = kNone;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
