// Nearest neighbours of any point among many, by a k-d tree.
#pragma once
#include <algorithm>
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A point that was found: its index among those of `PointTree::Build`.
struct TreeHit {
  i32 index = -1;
  double distanceSquared = 0;
};

/// The results of a query of the nearest, and the room to find them in: each worker has its own,
/// and a query allocates nothing.
class NeighbourBuffer {
 public:
  /// At most `capacity` neighbours are found.
  explicit NeighbourBuffer(i32 capacity = kDefault) { SetCapacity(capacity); }
  static constexpr i32 kDefault = 72;
  void SetCapacity(i32 capacity) {
    mHits.resize(std::max(capacity, 1));
    mCount = 0;
  }
  i32 Capacity() const { return static_cast<i32>(mHits.size()); }
  /// What the last query found, by ascending distance.
  std::span<const TreeHit> Hits() const { return {mHits.data(), static_cast<std::size_t>(mCount)}; }

 private:
  friend class PointTree;
  std::vector<TreeHit> mHits;
  i32 mCount = 0;
};

/// A k-d tree with sliding midpoints (Maneewongvatana, Mount 1999) over a copy of the points, 32
/// bytes a point, in the order of its leaves. Any number of workers may query at once. All tests
/// are strict: a point at the radius isn't found.
class PointTree {
 public:
  /// Sorts the points; those that aren't finite are left out, and with `flags` those without any of
  /// the bits of `wanted`. The tree depends on the points alone, not on `threads`.
  void Build(std::span<const Vec3d> points, i32 threads, std::span<const u16> flags = {},
             u16 wanted = 0);
  void Clear();
  bool IsEmpty() const { return mPoints.empty(); }
  i32 Count() const { return static_cast<i32>(mPoints.size()); }
  i64 Bytes() const;
  /// The index of the point that stands at a place of the leaves' order. Who asks about all points
  /// does it fastest in that order: near ones follow each other, and so do their neighbours.
  i32 IndexAt(i32 place) const { return mPoints[static_cast<std::size_t>(place)].index; }

  /// The nearest points closer than `radius`, as many as the buffer takes; returns their number.
  i32 FindNearest(const Vec3d& p, double radius, NeighbourBuffer& out) const;
  /// The nearest point closer than `radius`; index -1 where there is none.
  TreeHit FindNearest(const Vec3d& p, double radius) const;
  /// Calls f(index, distanceSquared) for every point closer than `radius`, in the order of the
  /// leaves.
  template <class F>
  void ForEachWithin(const Vec3d& p, double radius, F&& f) const {
    const double limit = radius * radius;
    Visit(p, limit, [&](i32 index, double distanceSquared) {
      f(index, distanceSquared);
      return true;
    });
  }
  /// The number of points closer than `radius`; the count ends at `limit`.
  i32 CountWithin(const Vec3d& p, double radius, i32 limit = 0x7fffffff) const;

 private:
  static constexpr i32 kBucket = 10;  ///< most points of a leaf
  static constexpr i32 kLeaf = 3;     ///< in place of an axis
  /// From here on points are halved by their number, which bounds the depth.
  static constexpr i32 kDeep = 64;
  static constexpr i32 kDeepest = kDeep + 32;
  struct Record {
    Vec3d position;
    i32 index;
  };
  /// An inner node: its low child follows it, the high one stands at `high`. A leaf: the points
  /// from `first` to below `high`.
  struct Node {
    double cut = 0;
    i32 axis = kLeaf;
    i32 first = 0;
    i32 high = 0;
  };
  /// A branch that waits: the offsets of the query from its box along each axis.
  struct Branch {
    double distanceSquared;
    double offset[3];
    i32 node;
  };
  class Builder;

  /// Calls take(index, distanceSquared) for the points closer than the root of `limit`, nearer
  /// branches first, until it answers false. It may lower `limit` meanwhile.
  ///
  /// Arya, Mount, "Algorithms for fast vector quantization" (1993): the distance of a branch
  /// follows from that of its parent.
  template <class Take>
  void Visit(const Vec3d& p, const double& limit, Take&& take) const {
    if (mNodes.empty()) return;
    const double query[3] = {p.x, p.y, p.z};
    Branch waiting[kDeepest];
    Branch at = FromOutside(p);
    if (!(at.distanceSquared < limit)) return;
    for (i32 count = 0;;) {
      const Node* node = &mNodes[at.node];
      while (node->axis != kLeaf) {
        const double d = query[node->axis] - node->cut, o = at.offset[node->axis];
        const i32 low = at.node + 1;
        const double far = at.distanceSquared - o * o + d * d;
        if (far < limit) {
          Branch& other = waiting[count++];
          other = at;
          other.node = d < 0 ? node->high : low;
          other.distanceSquared = far;
          other.offset[node->axis] = d;
        }
        at.node = d < 0 ? low : node->high;
        node = &mNodes[at.node];
      }
      for (i32 i = node->first; i < node->high; ++i) {
        const Vec3d d = mPoints[i].position - p;
        const double squared = Dot(d, d);
        if (squared < limit && !take(mPoints[i].index, squared)) return;
      }
      do {
        if (count == 0) return;
        at = waiting[--count];
      } while (!(at.distanceSquared < limit));
    }
  }
  /// The root, as far as `p` is from the box of all points.
  Branch FromOutside(const Vec3d& p) const;

  std::vector<Record> mPoints;
  std::vector<Node> mNodes;
  Vec3d mMin{}, mMax{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
