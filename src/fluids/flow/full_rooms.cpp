#include "fluids/flow/full_rooms.h"

#include <algorithm>

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool FullRooms::Begin(const GridLayout& layout) {
  mRooms = std::make_unique<EGrid<u8>>(layout, kCentre);
  if (!mRooms->mData) mRooms.reset();
  return mRooms != nullptr;
}

bool FullRooms::Holds(const Vec3d& place) const {
  VecInt3D cell;
  return mRooms && mRooms->mLayout.CellOf(place, false, cell) &&
         RoomOf(mRooms->Index(cell.x, cell.y, cell.z)) != kNone;
}

bool FullRooms::HoldAll(const std::vector<i32>& cells) const {
  return mRooms && !cells.empty() &&
         std::all_of(cells.begin(), cells.end(), [&](i32 cell) { return RoomOf(cell) != kNone; });
}

void FullRooms::Persist(StateArchive& archive) { archive(mRooms); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
