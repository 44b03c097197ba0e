#include "fluids/particles/cell_filling.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// What a spline gives of an even filling to its own cell, on an axis.
constexpr double kMiddle = 2.0 / 3;

/// Parts of a cell along an axis that so many particles may share out, or those of a cell that is
/// filled in part; 0 for other numbers.
i32 PartsOf(std::size_t particles) {
  return particles <= 8 ? 2 : particles <= 27 ? 3 : particles <= 64 ? 4 : 0;
}

/// What a particle at `v`, in cells, gives on an axis of n cells to its own cell and those beside
/// it. Closed cells and the ends of the grid give back what they get: `sides` has the axis's two
/// bits.
struct SplineWeights {
  double w[3];
  i32 at[3];

  SplineWeights(double v, i32 n, i32 sides) {
    const i32 own = std::clamp(static_cast<i32>(v), 0, n - 1);
    const double u = std::clamp(v - own - 0.5, -0.5, 0.5);
    w[0] = 0.5 * (0.5 - u) * (0.5 - u);
    w[1] = 0.75 - u * u;
    w[2] = 0.5 * (0.5 + u) * (0.5 + u);
    at[0] = own == 0 || (sides & 1) ? own : own - 1;
    at[1] = own;
    at[2] = own == n - 1 || (sides & 2) ? own : own + 1;
  }
};

}  // namespace

CellFilling::CellFilling(const ParticleSort& sort, const EGrid<float>* open, Grid<double>& sums)
    : mSort(sort),
      mOpen(open && open->mData && open->Dims() == sums.Dims() ? open : nullptr),
      mSums(sums),
      mNotes(sums.Dims(), kMarkKind) {}

Vec3d CellFilling::OffsetIn(std::span<const ParticleSort::Entry> particles, i32& notes) const {
  constexpr double kStillSpeed = 0.02;  // cells a second
  const double still = kStillSpeed * mSort.Layout().cellSize;
  for (const ParticleSort::Entry& entry : particles) {
    const Vec3d v = mSort.Groups()[entry.group]->Store(mSort.Kind()).Velocities()[entry.row];
    if (!(Dot(v, v) < still * still)) return {};
  }
  const i32 parts = PartsOf(particles.size());
  notes |= particles.empty() ? 0 : kStill;
  Vec3d offset;
  u64 taken = 0;
  for (const ParticleSort::Entry& entry : particles) {
    const Vec3d p = mSort.Layout().ToCells(entry.position);
    i32 part = 0;
    for (int a = 0; a < 3; ++a) {
      const double own = p[a] - std::floor(p[a]);
      const i32 at = std::min(static_cast<i32>(own * parts), parts - 1);
      part = part * parts + at;
      offset[a] += own - (at + 0.5) / parts;
    }
    if (parts == 0 || (taken & u64{1} << part)) return {};
    taken |= u64{1} << part;
  }
  notes |= particles.empty() ? 0 : kShared;
  return offset;
}

void CellFilling::FindNotes() {
  const VecInt3D n = mSums.Dims();
  const i32 steps[3] = {1, mSums.mNx, mSums.mSlice};
  const auto noteLayer = [&](i32 z) {
    Sharing found;
    for (i32 y = 0; y < n.y; ++y)
      for (i32 x = 0, i = mSums.Index(0, y, z); x < n.x; ++x, ++i) {
        const VecInt3D at{x, y, z};
        const auto particles = mSort.Cell(at);
        i32 notes = particles.empty() ? 0 : kHolds;
        const Vec3d offset = OffsetIn(particles, notes);
        if (notes & kShared) {
          found.offset += offset;
          found.sharing += static_cast<i64>(particles.size());
        }
        if (!HasOpening(i) || (notes && IsWhole(i))) notes |= kFull;
        for (i32 axis = 0; axis < 3 && mOpen; ++axis) {
          if (at[axis] > 0 && !HasOpening(i - steps[axis])) notes |= 1 << (2 * axis);
          if (at[axis] < n[axis] - 1 && !HasOpening(i + steps[axis])) notes |= 2 << (2 * axis);
        }
        mNotes[i] = static_cast<u16>(notes);
      }
    return found;
  };
  mParts = PartsOfScatter(ReduceBlocks(n.z, host::ThreadCount(), Sharing{}, noteLayer,
                                       [](const Sharing& a, const Sharing& b) {
                                         return Sharing{a.offset + b.offset, a.sharing + b.sharing};
                                       }));
}

/// A lattice that stands off the cells is one that moves, or came so; chance has no such mean. One
/// of another step shares out some cells, and the others have more or less.
i32 CellFilling::PartsOfScatter(const Sharing& all) const {
  const double sharing = static_cast<double>(all.sharing);
  if (sharing == 0) return 0;
  const double most = 0.01 * sharing + 0.5 * std::sqrt(sharing);
  for (int a = 0; a < 3; ++a)
    if (std::abs(all.offset[a]) > most) return 0;
  struct Amidst {
    i64 cells = 0, particles = 0;
  };
  const VecInt3D n = mSums.Dims();
  const Amidst amidst = ReduceBlocks(
      n.z, host::ThreadCount(), Amidst{},
      [&](i32 z) {
        Amidst found;
        for (i32 y = 0; y < n.y; ++y)
          for (i32 x = 0, i = mSums.Index(0, y, z); x < n.x; ++x, ++i) {
            if (!Holds(i) || !IsWhole(i) || !IsAmidst({x, y, z}, 1)) continue;
            ++found.cells;
            found.particles += static_cast<i64>(mSort.Cell({x, y, z}).size());
          }
        return found;
      },
      [](const Amidst& a, const Amidst& b) {
        return Amidst{a.cells + b.cells, a.particles + b.particles};
      });
  if (amidst.cells == 0) return 0;
  const double mean = static_cast<double>(amidst.particles) / static_cast<double>(amidst.cells);
  const double parts = std::round(std::cbrt(mean)), full = parts * parts * parts;
  return std::abs(mean - full) < 0.02 * full ? static_cast<i32>(parts) : 0;
}

bool CellFilling::IsAmongShared(const VecInt3D& at) const {
  constexpr double kMost = 0.75;
  const VecInt3D one{1, 1, 1}, two{2, 2, 2};
  std::size_t all = 0, shared = 0;
  ForEachCell(Clip({at - one, at + two}, {}, mSums.Dims()), [&](i32 x, i32 y, i32 z) {
    const std::size_t own = mSort.Cell({x, y, z}).size();
    all += own;
    shared += mNotes[mSums.Index(x, y, z)] & kShared ? own : 0;
  });
  return static_cast<double>(shared) >= kMost * static_cast<double>(all);
}

void CellFilling::FindEven() {
  mEven = mParts > 0 ? std::make_unique<EvenCells>(mSums.Dims(), kMarkKind) : nullptr;
  if (mEven && !mEven->mData) mEven.reset();
  if (!mEven) return;
  // What has strayed over the border of its part since doesn't turn the rest into chance again.
  const std::size_t full = static_cast<std::size_t>(mParts) * mParts * mParts,
                    most = full + full / 4;
  ForEachLine(mSums, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mSums.Index(0, y, z); x < mSums.mNx; ++x, ++i) {
      const bool isEven =
          (mNotes[i] & kStill) && mSort.Cell({x, y, z}).size() <= most && IsAmongShared({x, y, z});
      (*mEven)[i] = static_cast<u8>(isEven ? mParts : 0);
    }
  });
}

void CellFilling::Spread() {
  FindNotes();
  FindEven();
  SpreadAll(mEven.get());
}

void CellFilling::SpreadWith(const EvenCells* even) {
  FindNotes();
  SpreadAll(even);
}

void CellFilling::SpreadAll(const EvenCells* even) {
  const GridLayout& layout = mSort.Layout();
  const VecInt3D n = layout.dims;
  ForEachLine(mSums,
              [&](i32 y, i32 z) { std::fill_n(mSums.mData + mSums.Index(0, y, z), n.x, 0.0); });
  std::vector<std::span<const u16>> flags;
  for (ParticleGroup* group : mSort.Groups()) flags.push_back(group->Store(mSort.Kind()).Flags());
  mSort.ForEachBySlab(host::ThreadCount(), [&](const ParticleSort::Entry& entry) {
    if (flags[entry.group][entry.row] & PF_SHEET_FILLER) return;
    Vec3d p = layout.ToCells(entry.position);
    VecInt3D cell;
    for (int a = 0; a < 3; ++a) cell[a] = std::clamp(static_cast<i32>(p[a]), 0, n[a] - 1);
    const i32 own = mSums.Index(cell.x, cell.y, cell.z), sides = mNotes[own];
    if (even) p = even->Place(p);
    const SplineWeights x(p.x, n.x, sides), y(p.y, n.y, sides >> 2), z(p.z, n.z, sides >> 4);
    for (i32 k = 0; k < 3; ++k)
      for (i32 j = 0; j < 3; ++j) {
        double* line = mSums.mData + mSums.Index(0, y.at[j], z.at[k]);
        const double weight = z.w[k] * y.w[j];
        for (i32 i = 0; i < 3; ++i) line[x.at[i]] += weight * x.w[i];
      }
  });
}

bool CellFilling::IsAmidst(const VecInt3D& at, i32 reach) const {
  const VecInt3D wide{reach, reach, reach}, one{1, 1, 1};
  const CellBox box = Clip({at - wide, at + wide + one}, {}, mSums.Dims());
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y)
      for (i32 x = box.min.x; x < box.max.x; ++x)
        if (!(mNotes[mSums.Index(x, y, z)] & kFull)) return false;
  return true;
}

bool CellFilling::IsGap(const VecInt3D& at, double rest) const {
  const i32 i = mSums.Index(at.x, at.y, at.z), sides = mNotes[i] & kBesideClosed;
  if (!sides || !HasOpening(i) || ParticlesIn(at) >= kLeast * rest) return false;
  for (i32 side = 0; side < 6; ++side)
    if ((sides >> side & 1) && IsBare(at, side, rest)) return true;
  return false;
}

bool CellFilling::IsBare(const VecInt3D& at, i32 side, double rest) const {
  // Of what fills three quarters of a cell the middle is an eighth of it off the cell's.
  constexpr double kOff = 0.08;
  const i32 axis = side / 2;
  const double out = side % 2 == 0 ? -1 : 1;
  VecInt3D low = at - VecInt3D{1, 1, 1}, high = at + VecInt3D{2, 2, 2};
  low[axis] = at[axis];
  high[axis] = at[axis] + 1;
  double particles = 0, cells = 0, towards = 0;
  ForEachCell(Clip({low, high}, {}, mSums.Dims()), [&](i32 x, i32 y, i32 z) {
    const i32 near = mSums.Index(x, y, z);
    if (!(mNotes[near] >> side & 1) || !HasOpening(near)) return;
    for (const ParticleSort::Entry& entry : mSort.Cell({x, y, z}))
      towards += out * (mSort.Layout().ToCells(entry.position)[axis] - at[axis] - 0.5);
    particles += ParticlesIn({x, y, z});
    ++cells;
  });
  return particles < kLeast * rest * cells && towards <= -kOff * particles;
}

bool CellFilling::IsUnderLid(const VecInt3D& at, double rest) const {
  if (IsGap(at, rest)) return true;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const i32 side : {-1, 1}) {
      VecInt3D next = at;
      next[axis] += side;
      if (next[axis] >= 0 && next[axis] < mSums.Dims()[axis] && IsGap(next, rest)) return true;
    }
  return false;
}

CellFilling::Rest CellFilling::FindRest() const {
  struct Found {
    i64 cells = 0;
    double particles = 0, most = 0;  ///< in those cells, and the most in any
    Rest deep, free;                 ///< what deep cells got, and those of them off closed ones
  };
  const VecInt3D n = mSums.Dims();
  const Found all = ReduceBlocks(
      n.z, host::ThreadCount(), Found{},
      [&](i32 z) {
        Found found;
        for (i32 y = 0; y < n.y; ++y)
          for (i32 x = 0, i = mSums.Index(0, y, z); x < n.x; ++x, ++i) {
            if (!Holds(i)) continue;
            const double own = static_cast<double>(mSort.Cell({x, y, z}).size());
            found.most = std::max(found.most, own);
            if (!IsWhole(i) || !IsAmidst({x, y, z}, 1)) continue;
            ++found.cells;
            found.particles += own;
            // Those at the surface, which may be full in part, give it nothing.
            if (!IsAmidst({x, y, z}, 2)) continue;
            found.deep.Add({mSums[i], 1});
            if (!(mNotes[i] & kBesideClosed)) found.free.Add({mSums[i], 1});
          }
        return found;
      },
      [](const Found& a, const Found& b) {
        Found sum{a.cells + b.cells, a.particles + b.particles, std::max(a.most, b.most), a.deep,
                  a.free};
        sum.deep.Add(b.deep);
        sum.free.Add(b.free);
        return sum;
      });
  constexpr i64 kEnough = 8;
  // Under a lid there may be air in a cell that closed ones make deep.
  for (const Rest& told : {all.free, all.deep})
    if (told.cells >= kEnough)
      return {told.particles / static_cast<double>(told.cells), told.cells};
  const double mean = all.cells > 0 ? all.particles / static_cast<double>(all.cells) : all.most;
  return {mean >= 1 ? std::pow(8.0, std::round(std::log(mean) / std::log(8.0))) : mean, 0};
}

CellFilling::Opening CellFilling::OpenAbout(const VecInt3D& at, i32 i) const {
  const VecInt3D n = mSums.Dims();
  Opening all{0, 0};
  for (i32 z = -1; z <= 1; ++z)
    for (i32 y = -1; y <= 1; ++y)
      for (i32 x = -1; x <= 1; ++x) {
        const VecInt3D from = at + VecInt3D{x, y, z};
        if (from.x < 0 || from.y < 0 || from.z < 0 || from.x >= n.x || from.y >= n.y ||
            from.z >= n.z)
          continue;
        const i32 c = i + (z * mSums.mNy + y) * mSums.mNx + x;
        const VecInt3D way{x, y, z};
        if (!HasOpening(c)) continue;
        double given = 1;
        for (i32 axis = 0; axis < 3; ++axis) {
          const i32 sides = mNotes[c] >> (2 * axis) & 3;
          const bool low = from[axis] == 0 || (sides & 1);
          const bool high = from[axis] == n[axis] - 1 || (sides & 2);
          // What comes from the low side went up.
          if (way[axis] == 0)
            given *= kMiddle + kSide * (low + high);
          else
            given *= (way[axis] < 0 ? high : low) ? 0.0 : kSide;
        }
        all.share += IsWhole(c) ? given : given * (*mOpen)[c];
        all.cut += IsWhole(c) || IsCorner(c) ? 0.0 : given;
      }
  return all;
}

void CellFilling::Find(i32 y, i32 z, Surroundings& line) const {
  const VecInt3D n = mSums.Dims();
  line.open.assign(n.x + 2, 1.0F);
  line.full.assign(n.x + 4, kFull);
  line.near.assign(n.x + 2, kFull);
  for (i32 k = std::max(z - 2, 0); k <= std::min(z + 2, n.z - 1); ++k)
    for (i32 j = std::max(y - 2, 0); j <= std::min(y + 2, n.y - 1); ++j) {
      const i32 first = mSums.Index(0, j, k);
      for (i32 x = 0; x < n.x; ++x) line.full[x + 2] &= mNotes[first + x];
      if (std::abs(k - z) > 1 || std::abs(j - y) > 1) continue;
      for (i32 x = 0; x < n.x; ++x) line.near[x + 1] &= mNotes[first + x];
      if (!mOpen) continue;
      for (i32 x = 0; x < n.x; ++x)
        line.open[x + 1] = std::min(line.open[x + 1], (*mOpen)[first + x]);
    }
  line.least.resize(n.x);
  line.depth.resize(n.x);
  for (i32 x = 0; x < n.x; ++x) {
    const u8* full = line.full.data() + x;
    line.least[x] = std::min({line.open[x], line.open[x + 1], line.open[x + 2]});
    const bool isCovered = line.near[x] & line.near[x + 1] & line.near[x + 2];
    const bool isDeep = full[0] & full[1] & full[2] & full[3] & full[4];
    line.depth[x] = static_cast<u8>(isDeep ? 2 : isCovered ? 1 : 0);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
