#include "fluids/particles/property_column.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

i32 WordsFor(i32 count) { return (count + 63) / 64; }

/// ORs the bits of `from` into those of `to`, from bit `first` on.
void OrBits(std::vector<u64>& to, i32 first, const std::vector<u64>& from) {
  const i32 shift = first & 63;
  std::size_t word = static_cast<std::size_t>(first >> 6);
  for (const u64 bits : from) {
    if (word < to.size()) to[word] |= bits << shift;
    ++word;
    if (shift > 0 && word < to.size()) to[word] |= bits >> (64 - shift);
  }
}

}  // namespace

template <class T>
void PropertyColumn<T>::Fill(const T& value) {
  std::fill(mValues.begin(), mValues.end(), static_cast<Stored>(value));
  std::fill(mPresent.begin(), mPresent.end(), ~u64{0});
  Resize(Count());
}

template <class T>
bool PropertyColumn<T>::IsAnywhere() const {
  return std::any_of(mPresent.begin(), mPresent.end(), [](u64 word) { return word != 0; });
}

template <class T>
bool PropertyColumn<T>::IsEverywhere() const {
  const i32 whole = Count() >> 6, rest = Count() & 63;
  if (rest > 0 && mPresent[whole] != (u64{1} << rest) - 1) return false;
  return std::all_of(mPresent.begin(), mPresent.begin() + whole,
                     [](u64 word) { return word == ~u64{0}; });
}

template <class T>
void PropertyColumn<T>::Resize(i32 count) {
  mValues.resize(count);
  mPresent.resize(WordsFor(count));
  if (count & 63) mPresent.back() &= (u64{1} << (count & 63)) - 1;
}

template <class T>
void PropertyColumn<T>::Append(const PropertyColumn* other, i32 count) {
  const i32 first = Count();
  Resize(first + count);
  if (!other) return;
  std::copy_n(other->mValues.begin(), count, mValues.begin() + first);
  OrBits(mPresent, first, other->mPresent);
}

template class PropertyColumn<bool>;
template class PropertyColumn<double>;
template class PropertyColumn<Vec3d>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
