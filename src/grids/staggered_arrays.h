// Arrays that are walked in lockstep.
#pragma once
#if defined(__linux__)
#include <sys/mman.h>
#endif
#include <new>

#include "host/types.h"

namespace MELDO_GLOBAL {

/// Arrays of numbers of one length in one allocation. Large arrays usually all start at the same
/// place within a memory page, so that equal indices compete for the same few cache lines; these
/// start nine lines apart from one another. Large ones ask for large pages.
template <class T>
class StaggeredArraysOf {
 public:
  /// `first` is the number of the first array among all that are walked together.
  explicit StaggeredArraysOf(i32 arrays, i32 first = 0) : mArrays(arrays), mFirst(first) {}
  StaggeredArraysOf(const StaggeredArraysOf&) = delete;
  StaggeredArraysOf& operator=(const StaggeredArraysOf&) = delete;
  ~StaggeredArraysOf() { Free(); }

  /// Arrays of `length` numbers; their values are undefined when the length changed. False, without
  /// arrays, when the memory can't be had.
  bool Resize(i64 length) {
    if (mData && length == mLength) return true;
    Free();
    mStride = (length + kPage - 1) / kPage * kPage + kStagger;
    const std::size_t bytes = sizeof(T) * (mStride * mArrays + Lead());
    mAlignment = bytes > 2 * kLargePage ? kLargePage : std::size_t{64};
    mData = static_cast<T*>(::operator new (bytes, std::align_val_t{mAlignment}, std::nothrow));
    if (!mData) return false;
    mLength = length;
#if defined(__linux__)
    if (mAlignment == kLargePage) madvise(mData, bytes, MADV_HUGEPAGE);
#endif
    return true;
  }
  void Free() {
    if (mData) ::operator delete (mData, std::align_val_t{mAlignment});
    mData = nullptr;
    mLength = 0;
  }
  i32 Count() const { return mArrays; }
  i64 Length() const { return mLength; }
  /// Null without memory.
  T* operator[](i32 array) const { return mData ? mData + Lead() + array * mStride : nullptr; }

 private:
  static constexpr i64 kPage = 4096 / sizeof(T), kStagger = 9 * 64 / sizeof(T);
  static constexpr std::size_t kLargePage = std::size_t{2} << 20;
  i64 Lead() const { return mFirst * kStagger; }

  i32 mArrays, mFirst;
  i64 mLength = 0, mStride = 0;
  std::size_t mAlignment = 64;
  T* mData = nullptr;
};
using StaggeredArrays = StaggeredArraysOf<double>;

}  // namespace MELDO_GLOBAL
