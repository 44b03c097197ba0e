#include "cache/stored_columns.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// A link in a file.
struct StoredLink {
  f32 weight;
  i32 other;
};

template <class T>
using Stored = typename PropertyColumn<T>::Stored;

// ---- writing ------------------------------------------------------------------------------------

template <class T>
void WriteProperties(HyperFile& file, const ParticleColumns& particles,
                     const PropertySelection& selection, const BlockPacking& packing) {
  std::vector<const PropertyColumn<T>*> columns;
  for (const auto& column : particles.List<T>())
    if (selection.Holds(column->Key()) && column->IsAnywhere()) columns.push_back(column.get());
  file.WriteLong(static_cast<i32>(columns.size()));
  for (const PropertyColumn<T>* column : columns) {
    const bool isEverywhere = column->IsEverywhere();
    file.WriteLong(column->Key().id);
    file.WriteText(column->Name());
    file.WriteBool(isEverywhere);
    if (!isEverywhere) WriteBlock(file, column->Present(), packing);
    WriteBlock(file, std::span<const Stored<T>>(column->Values(), column->Count()), packing);
  }
}

void WriteLinks(HyperFile& file, const ParticleColumns& particles, const BlockPacking& packing) {
  file.WriteBool(particles.HasLinks());
  if (!particles.HasLinks()) return;
  std::vector<u32> counts;
  std::vector<StoredLink> links;
  for (i32 row = 0; row < particles.Count(); ++row) {
    counts.push_back(static_cast<u32>(particles.LinksOf(row).size()));
    for (const ParticleLink& link : particles.LinksOf(row))
      links.push_back({link.weight, link.other});
  }
  WriteBlock(file, std::span<const u32>(counts), packing);
  WriteBlock(file, std::span<const StoredLink>(links), packing);
}

// ---- reading ------------------------------------------------------------------------------------

/// A property as it stands in a file.
struct FoundColumn {
  PropertyKey key;
  std::string name;
  bool isEverywhere = false;
  PackedBlock present, values;
};

/// All that a file holds of particles, packed.
class FoundColumns {
 public:
  FoundColumns(const ColumnReading& reading, const FindOwner& owner)
      : mReading(reading), mOwner(owner), mCount(static_cast<std::size_t>(reading.count)) {}

  /// Looks at every block and its size.
  bool Find(HyperFile& file) {
    return FindPlaces(file) && mBlocks.Find<Vec3d>(file, mVelocities, mCount) &&
           FindList<double>(file, mScalars) && FindList<Vec3d>(file, mVectors) &&
           FindList<bool>(file, mSwitches) && FindLinks(file);
  }
  bool FindPlaces(HyperFile& file) {
    return mReading.count >= 0 && (!mReading.hasIds || mBlocks.Find<i32>(file, mIds, mCount)) &&
           mBlocks.Find<u16>(file, mFlags, mCount) && mBlocks.Find<Vec3d>(file, mPositions, mCount);
  }

  bool Take(ParticleColumns& particles) const {
    if (!HasRoom(particles)) return false;
    if (!HasSame<double>(particles, mScalars) || !HasSame<Vec3d>(particles, mVectors) ||
        !HasSame<bool>(particles, mSwitches))
      particles.Clear();
    particles.ClearLinks();
    particles.SetCount(mReading.count);
    return TakeIds(particles.Ids()) && Unpack(mFlags, particles.Flags(), mReading.threads) &&
           TakeVectors(mPositions, particles.Positions()) &&
           TakeVectors(mVelocities, particles.Velocities()) &&
           TakeList<double>(mScalars, particles) && TakeList<Vec3d>(mVectors, particles) &&
           TakeList<bool>(mSwitches, particles) && TakeLinks(particles);
  }
  bool TakePlaces(std::span<i32> ids, std::span<Vec3d> positions) const {
    return TakeIds(ids) && TakeVectors(mPositions, positions);
  }

 private:
  template <class T>
  bool FindList(HyperFile& file, std::vector<FoundColumn>& list) {
    i32 columns = 0;
    if (!file.ReadLong(columns)) return false;
    for (i32 i = 0; i < columns; ++i) {
      FoundColumn& column = list.emplace_back();
      i32 id = 0;
      if (!file.ReadLong(id) || !file.ReadText(column.name) ||
          !file.ReadBool(column.isEverywhere) ||
          (!column.isEverywhere && !mBlocks.Find<u64>(file, column.present, (mCount + 63) / 64)) ||
          !mBlocks.Find<Stored<T>>(file, column.values, mCount))
        return false;
      const bool isOfUser = id >= property_id::kFirstUser;
      column.key = PropertyKey(id, isOfUser && mOwner ? mOwner(id, column.name) : 0);
    }
    return true;
  }

  bool FindLinks(HyperFile& file) {
    if (!file.ReadBool(mHasLinks)) return false;
    return !mHasLinks || (mBlocks.Find<u32>(file, mLinkCounts, mCount) && ReadBlock(file, mLinks) &&
                          mLinks.size % sizeof(StoredLink) == 0);
  }

  bool HasRoom(const ParticleColumns& particles) const {
    const double links = mHasLinks ? double(mCount) * sizeof(std::vector<ParticleLink>) : 0;
    const double held = static_cast<double>(particles.Bytes());
    const double bytes = mBlocks.bytes + static_cast<double>(mLinks.size) + links;
    if (HasMemoryFor(std::max(bytes - held, 0.0))) return true;
    RefuseParticles(static_cast<double>(mCount), bytes);
    return false;
  }

  template <class T>
  static bool HasSame(const ParticleColumns& particles, const std::vector<FoundColumn>& found) {
    const auto& list = particles.List<T>();
    return std::equal(list.begin(), list.end(), found.begin(), found.end(),
                      [](const auto& own, const FoundColumn& column) {
                        return own->Key() == column.key && own->Name() == column.name;
                      });
  }

  bool TakeIds(std::span<i32> ids) const {
    if (mReading.hasIds) return Unpack(mIds, ids, mReading.threads);
    std::iota(ids.begin(), ids.end(), mReading.firstId);
    return true;
  }
  bool TakeVectors(const PackedBlock& block, std::span<Vec3d> values) const {
    return Unpack(block, values, mReading.threads) && AreFinite(values, mReading.threads);
  }

  template <class T>
  bool TakeList(const std::vector<FoundColumn>& list, ParticleColumns& particles) const {
    for (const FoundColumn& found : list) {
      PropertyColumn<T>& column = particles.Require<T>(found.key, found.name);
      if (!Unpack(found.values, std::span(column.Values(), mCount), mReading.threads)) return false;
      const std::span<u64> present = column.Present();
      if (found.isEverywhere)
        std::fill(present.begin(), present.end(), ~u64{0});
      else if (!Unpack(found.present, present, mReading.threads))
        return false;
      column.Resize(mReading.count);
      for (i32 row = 0; !found.isEverywhere && row < mReading.count; ++row)
        if (!column.Has(row)) column.Remove(row);
    }
    return true;
  }

  bool TakeLinks(ParticleColumns& particles) const {
    if (!mHasLinks) return true;
    std::vector<u32> counts(mCount);
    std::vector<StoredLink> links(mLinks.size / sizeof(StoredLink));
    if (!Unpack(mLinkCounts, std::span(counts), mReading.threads) ||
        !Unpack(mLinks, std::span(links), mReading.threads))
      return false;
    std::size_t next = 0;
    for (std::size_t row = 0; row < mCount; ++row) {
      if (counts[row] > links.size() - next) return false;
      for (const std::size_t last = next + counts[row]; next < last; ++next)
        particles.EditLinks(static_cast<i32>(row))
            .push_back({links[next].weight, links[next].other});
    }
    return next == links.size();
  }

  const ColumnReading& mReading;
  const FindOwner& mOwner;
  const std::size_t mCount;
  BlockFinder mBlocks;
  PackedBlock mIds, mFlags, mPositions, mVelocities, mLinkCounts, mLinks;
  std::vector<FoundColumn> mScalars, mVectors, mSwitches;
  bool mHasLinks = false;
};

// ---- reading block by block ---------------------------------------------------------------------

/// Passes the columns of a file on to a taker.
class ColumnStream {
 public:
  ColumnStream(HyperFile& file, const ColumnReading& reading, ColumnTaker& taker)
      : mFile(file),
        mReading(reading),
        mTaker(taker),
        mCount(static_cast<std::size_t>(reading.count)) {}

  bool Pass() {
    return mReading.count >= 0 && PassIds() && SkipBlock(mFile) &&
           PassVectors([&] { return mTaker.RoomForPositions(); }) &&
           PassVectors([&] { return mTaker.RoomForVelocities(); }) &&
           PassList<double>(mCount,
                            [&](i32 id, const auto& n) { return mTaker.RoomForScalars(id, n); }) &&
           PassList<double>(3 * mCount,
                            [&](i32 id, const auto& n) { return mTaker.RoomForVectors(id, n); }) &&
           PassList<u8>(mCount,
                        [&](i32 id, const auto& n) { return mTaker.RoomForSwitches(id, n); }) &&
           SkipLinks();
  }

 private:
  template <class T, class MakeRoom>
  bool Fill(std::size_t count, std::span<T>& values, MakeRoom&& makeRoom) {
    return ReadBlockTo(mFile, count * sizeof(T), mReading.threads, [&] {
      values = makeRoom();
      return std::as_writable_bytes(values);
    });
  }
  bool PassIds() {
    std::span<i32> ids;
    const auto makeRoom = [&] { return mTaker.RoomForIds(); };
    if (mReading.hasIds) return Fill(mCount, ids, makeRoom);
    ids = makeRoom();
    std::iota(ids.begin(), ids.end(), mReading.firstId);
    return true;
  }
  template <class MakeRoom>
  bool PassVectors(MakeRoom&& makeRoom) {
    std::span<double> values;
    return Fill(3 * mCount, values, makeRoom) &&
           std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
  }
  /// The properties of a type, each of so many numbers.
  template <class T, class MakeRoom>
  bool PassList(std::size_t numbers, MakeRoom&& makeRoom) {
    i32 columns = 0, id = 0;
    std::string name;
    bool isEverywhere = false;
    if (!mFile.ReadLong(columns)) return false;
    for (i32 i = 0; i < columns; ++i) {
      std::vector<u64> present;
      std::span<T> values;
      if (!mFile.ReadLong(id) || !mFile.ReadText(name) || !mFile.ReadBool(isEverywhere) ||
          (!isEverywhere && !ReadPresent(present)) ||
          !Fill(numbers, values, [&] { return makeRoom(id, name); }))
        return false;
      const std::size_t width = mCount > 0 ? numbers / mCount : 0;
      for (std::size_t row = 0; !isEverywhere && row < mCount; ++row)
        if (!(present[row / 64] >> row % 64 & 1))
          std::fill_n(values.begin() + static_cast<std::ptrdiff_t>(row * width), width, T{});
    }
    return true;
  }
  bool ReadPresent(std::vector<u64>& present) {
    const std::size_t words = (mCount + 63) / 64;
    return ReadBlockTo(mFile, words * sizeof(u64), mReading.threads, [&] {
      present.resize(words);
      return std::as_writable_bytes(std::span(present));
    });
  }
  bool SkipLinks() {
    bool hasLinks = false;
    return mFile.ReadBool(hasLinks) && (!hasLinks || (SkipBlock(mFile) && SkipBlock(mFile)));
  }

  HyperFile& mFile;
  const ColumnReading& mReading;
  ColumnTaker& mTaker;
  const std::size_t mCount;
};

}  // namespace

bool PropertySelection::Holds(const PropertyKey& key) const {
  if (!listed) return IsDeclaredProperty(key.id);
  return std::any_of(listed->begin(), listed->end(), [&](const PropertyKey& one) {
    return one.id == key.id && (one.owner == key.owner || key.owner == 0);
  });
}

void WriteColumns(HyperFile& file, const ParticleColumns& particles,
                  const PropertySelection& selection, bool hasIds, const BlockPacking& packing) {
  if (hasIds) WriteBlock(file, particles.Ids(), packing);
  WriteBlock(file, particles.Flags(), packing);
  WriteBlock(file, particles.Positions(), packing);
  WriteBlock(file, particles.Velocities(), packing);
  WriteProperties<double>(file, particles, selection, packing);
  WriteProperties<Vec3d>(file, particles, selection, packing);
  WriteProperties<bool>(file, particles, selection, packing);
  WriteLinks(file, particles, packing);
}

bool ReadColumns(HyperFile& file, const ColumnReading& reading, const FindOwner& owner,
                 ParticleColumns& particles) {
  FoundColumns found(reading, owner);
  return found.Find(file) && found.Take(particles);
}

bool StreamColumns(HyperFile& file, const ColumnReading& reading, ColumnTaker& taker) {
  return ColumnStream(file, reading, taker).Pass();
}

bool ReadPlaces(HyperFile& file, const ColumnReading& reading, std::vector<i32>& ids,
                std::vector<Vec3d>& positions) {
  const FindOwner none;
  FoundColumns found(reading, none);
  if (!found.FindPlaces(file)) return false;
  ids.resize(static_cast<std::size_t>(reading.count));
  positions.resize(ids.size());
  return found.TakePlaces(ids, positions);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
