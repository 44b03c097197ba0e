// Points of a surface by the edges on which they lie.
#pragma once
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A hash map from an edge, two numbers, to the index of its point: open addressing, no removal.
class EdgePoints {
 public:
  /// The index of an edge, -1 before it is given one; until the next call.
  i32& Find(u64 a, u64 b) {
    if (2 * (mCount + 1) > mEntries.size()) Grow();
    Entry& entry = Slot(a, b);
    if (entry.isFree) {
      entry = {a, b, -1, false};
      ++mCount;
    }
    return entry.point;
  }

  /// Calls f(a, b, index) for all, in no order.
  template <class F>
  void ForEach(F&& f) const {
    for (const Entry& entry : mEntries)
      if (!entry.isFree) f(entry.a, entry.b, entry.point);
  }

 private:
  struct Entry {
    u64 a = 0, b = 0;
    i32 point = -1;
    bool isFree = true;
  };

  Entry& Slot(u64 a, u64 b) {
    const u64 mask = mEntries.size() - 1;
    u64 hash = (a * 0x9E3779B97F4A7C15u ^ b) * 0x9E3779B97F4A7C15u;
    for (u64 i = (hash ^ hash >> 32) & mask;; i = (i + 1) & mask) {
      Entry& entry = mEntries[i];
      if (entry.isFree || (entry.a == a && entry.b == b)) return entry;
    }
  }

  void Grow() {
    std::vector<Entry> before(mEntries.empty() ? 1024 : 2 * mEntries.size());
    before.swap(mEntries);
    for (const Entry& entry : before)
      if (!entry.isFree) Slot(entry.a, entry.b) = entry;
  }

  std::vector<Entry> mEntries;
  std::size_t mCount = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
