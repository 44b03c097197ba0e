// One property of many particles.
#pragma once
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "fluids/particles/particle_property_ids.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A value of type bool, double or Vec3d for each particle, and a bit for those that have it.
///
/// Bits of 64 particles share a word: workers may set values of different particles as long as
/// their ranges start at multiples of 64, as those of `ParticleColumns::PartOf` do. The value of a
/// particle without the property is 0.
template <class T>
class PropertyColumn {
 public:
  using Stored = std::conditional_t<std::is_same_v<T, bool>, u8, T>;

  PropertyColumn() = default;
  PropertyColumn(const PropertyKey& key, std::string name, i32 count)
      : mKey(key), mName(std::move(name)) {
    Resize(count);
  }

  const PropertyKey& Key() const { return mKey; }
  const std::string& Name() const { return mName; }
  i32 Count() const { return static_cast<i32>(mValues.size()); }

  bool Has(i32 i) const { return mPresent[i >> 6] >> (i & 63) & 1; }
  T Get(i32 i, const T& fallback) const { return Has(i) ? static_cast<T>(mValues[i]) : fallback; }
  /// Gives the particle the value, whether it has had one or not.
  void Set(i32 i, const T& value) {
    mValues[i] = value;
    mPresent[i >> 6] |= Bit(i);
  }
  void Remove(i32 i) {
    mValues[i] = Stored{};
    mPresent[i >> 6] &= ~Bit(i);
  }
  /// Gives all particles the value.
  void Fill(const T& value);
  /// The values alone, for loops that know or ask who has one.
  Stored* Values() { return mValues.data(); }
  const Stored* Values() const { return mValues.data(); }
  /// The bits of those that have one, 64 to a word; those behind the last particle stay clear.
  std::span<u64> Present() { return mPresent; }
  std::span<const u64> Present() const { return mPresent; }
  /// Whether any, and whether every particle has it.
  bool IsAnywhere() const;
  bool IsEverywhere() const;

  /// New particles don't have it.
  void Resize(i32 count);
  /// One particle more.
  void Push() {
    mValues.emplace_back();
    if ((mValues.size() & 63) == 1) mPresent.push_back(0);
  }
  void Reserve(i64 count) { mValues.reserve(count), mPresent.reserve((count + 63) / 64); }
  void CopyRow(i32 from, i32 to) {
    mValues[to] = mValues[from];
    const u64 bit = u64{Has(from)} << (to & 63);
    mPresent[to >> 6] = (mPresent[to >> 6] & ~Bit(to)) | bit;
  }
  /// Appends `count` particles, of which those of `other` have its values; null: none has one.
  void Append(const PropertyColumn* other, i32 count);
  i64 Bytes() const {
    return static_cast<i64>(mValues.capacity() * sizeof(Stored) + mPresent.capacity() * 8);
  }
  /// Whether it has rows for `count` particles, as one that was read should.
  bool Fits(i32 count) const {
    return Count() == count && static_cast<i32>(mPresent.size()) == (count + 63) / 64;
  }
  void Persist(StateArchive& archive) { archive(mKey.id, mKey.owner, mName, mValues, mPresent); }

 private:
  static constexpr u64 Bit(i32 i) { return u64{1} << (i & 63); }

  PropertyKey mKey;
  std::string mName;
  std::vector<Stored> mValues;
  std::vector<u64> mPresent;  ///< bits behind the last particle are clear
};

extern template class PropertyColumn<bool>;
extern template class PropertyColumn<double>;
extern template class PropertyColumn<Vec3d>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
