// The columns of particles in a file.
#pragma once
#include <functional>
#include <optional>

#include "cache/packed_block.h"
#include "fluids/particles/particle_columns.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Which properties of particles a file takes.
struct PropertySelection {
  /// Without a list, all that mean something to others.
  std::optional<std::vector<PropertyKey>> listed;

  bool Holds(const PropertyKey& key) const;
};

/// The node that declares the property of this id and name; 0 where there is none.
using FindOwner = std::function<host::NodeId(i32 id, std::string_view name)>;

/// Writes particles as blocks, one for each field and property: ids (unless `hasIds` is false),
/// flags, positions, velocities; of numbers, vectors and switches how many there are, and of each,
/// by ascending ids, its id, its name, whether all particles have it, if not the bits of those that
/// do, and the values; at last whether there are links, and if so how many each particle has, and
/// all of them by the ids of their other ends.
void WriteColumns(HyperFile& file, const ParticleColumns& particles,
                  const PropertySelection& selection, bool hasIds, const BlockPacking& packing);

/// How a block of columns is read.
struct ColumnReading {
  i32 count = 0;  ///< particles that the file says to hold
  bool hasIds = true;
  i32 threads = 1;
  i32 firstId = 0;  ///< those without ids count from it
};
/// Replaces `particles` by what `WriteColumns` wrote. False where
/// it can't be read, with anything in `particles`: sizes are held against the bytes that are there
/// before memory is taken, and against the limit of memory, and what isn't finite is refused.
bool ReadColumns(HyperFile& file, const ColumnReading& reading, const FindOwner& owner,
                 ParticleColumns& particles);
/// Has places for columns that are read one after the other. Each is asked for when its block is
/// known to be as long, for the number of particles that are read, of vectors three numbers each.
class ColumnTaker {
 public:
  virtual ~ColumnTaker() = default;
  virtual std::span<i32> RoomForIds() = 0;
  virtual std::span<double> RoomForPositions() = 0;
  virtual std::span<double> RoomForVelocities() = 0;
  virtual std::span<double> RoomForScalars(i32 id, const std::string& name) = 0;
  virtual std::span<double> RoomForVectors(i32 id, const std::string& name) = 0;
  virtual std::span<u8> RoomForSwitches(i32 id, const std::string& name) = 0;
};
/// Reads the same without flags and links. Of what is packed no more than a block stands in memory
/// at a time, of what isn't nothing. Who doesn't have a property has 0.
bool StreamColumns(HyperFile& file, const ColumnReading& reading, ColumnTaker& taker);
/// Ids and positions alone; the stream stands behind the positions.
bool ReadPlaces(HyperFile& file, const ColumnReading& reading, std::vector<i32>& ids,
                std::vector<Vec3d>& positions);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
