// Where a liquid has no room for more.
#pragma once
#include <memory>
#include <vector>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// The cells in which a liquid takes no more: those of sealed rooms that hold all that fits into
/// them, each with the number of its room, and those of sources whose water would come into such
/// rooms alone. A step finds them, and emitters of the next one ask.
class FullRooms {
 public:
  static constexpr u8 kNone = 0, kMostRooms = 254, kSource = 255;

  bool IsEmpty() const { return !mRooms; }
  void Clear() { mRooms.reset(); }
  /// Forgets all, and makes room for cells of a lattice; false without memory.
  bool Begin(const GridLayout& layout);
  /// By the index of a cell, after `Begin`.
  void Mark(i32 cell, u8 room) { (*mRooms)[cell] = room; }
  u8 RoomOf(i32 cell) const { return (*mRooms)[cell]; }
  /// The lattice of the cells; null where none are full.
  const GridLayout* Layout() const { return mRooms ? &mRooms->mLayout : nullptr; }
  /// Whether a place, in simulation units, lies in one.
  bool Holds(const Vec3d& place) const;
  /// Whether all of some cells are full; not of none.
  bool HoldAll(const std::vector<i32>& cells) const;
  void Persist(StateArchive& archive);

 private:
  std::unique_ptr<EGrid<u8>> mRooms;  ///< null where none are full
};

/// A liquid that knows where it is full.
class FillsRooms {
 public:
  virtual ~FillsRooms() = default;
  virtual const FullRooms& Full() const = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
