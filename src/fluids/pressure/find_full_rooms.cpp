#include "fluids/pressure/find_full_rooms.h"

#include <algorithm>
#include <array>
#include <utility>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// What a room holds, and what is open of it, in cells.
struct RoomContent {
  double particles = 0, volume = 0;
  bool IsFull(double rest) const { return particles >= rest * volume; }
};

/// Calls f(region, cell, index) for the cells of closed regions.
template <class F>
void ForEachSealedCell(const ClosedRegions& regions, const EGrid<float>& grid, F&& f) {
  for (i32 z = 0; z < grid.mNz; ++z)
    for (const RegionRun& run : regions.Runs(z))
      for (i32 x = run.first; regions.Of(run).isClosed && x < run.last; ++x)
        f(run.region, VecInt3D{x, run.y, z}, grid.Index(x, run.y, z));
}

/// Calls f(room, cell, index) for the cells of rooms that were full.
template <class F>
void ForEachFullCell(const FullRooms& full, const EGrid<float>& grid, F&& f) {
  if (full.IsEmpty()) return;
  ForEachCell({{}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
    const i32 i = grid.Index(x, y, z);
    const u8 room = full.RoomOf(i);
    if (room != FullRooms::kNone && room != FullRooms::kSource) f(room, VecInt3D{x, y, z}, i);
  });
}

}  // namespace

void FindFullRooms(const ClosedRegions& regions, const ParticleSort& sort, const EGrid<float>& open,
                   double rest, FullRooms& full) {
  FullRooms before = std::exchange(full, {});
  if (!before.IsEmpty() && !before.Layout()->Equals(sort.Layout())) before.Clear();
  const std::span<const Region> all = regions.All();
  const bool anySealed =
      std::any_of(all.begin(), all.end(), [](const Region& region) { return region.isClosed; });
  if ((!anySealed && before.IsEmpty()) || !full.Begin(sort.Layout())) return;
  std::vector<RoomContent> sealed(all.size());
  std::array<RoomContent, FullRooms::kMostRooms + 1> rooms;
  const auto add = [&](RoomContent& content, const VecInt3D& at, i32 cell) {
    content.particles += static_cast<double>(sort.Cell(at).size());
    content.volume += double{open[cell]};
  };
  ForEachSealedCell(regions, open, [&](i32 region, const VecInt3D& at, i32 cell) {
    add(sealed[region], at, cell);
  });
  ForEachFullCell(before, open,
                  [&](u8 room, const VecInt3D& at, i32 cell) { add(rooms[room], at, cell); });
  // More rooms than have numbers share the last one.
  i32 count = 0;
  const auto number = [&](u8& own) {
    if (own == FullRooms::kNone)
      own = static_cast<u8>(std::min(++count, i32{FullRooms::kMostRooms}));
    return own;
  };
  std::vector<u8> sealedNumbers(all.size());
  ForEachSealedCell(regions, open, [&](i32 region, const VecInt3D&, i32 cell) {
    if (sealed[region].IsFull(rest)) full.Mark(cell, number(sealedNumbers[region]));
  });
  std::array<u8, FullRooms::kMostRooms + 1> numbers{};
  ForEachFullCell(before, open, [&](u8 room, const VecInt3D&, i32 cell) {
    if (rest > 0 && rooms[room].IsFull(rest) && full.RoomOf(cell) == FullRooms::kNone)
      full.Mark(cell, number(numbers[room]));
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
