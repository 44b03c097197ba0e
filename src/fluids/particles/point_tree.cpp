#include "fluids/particles/point_tree.h"

#include <cmath>
#include <limits>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Cuts ranges of points in two until they fit into leaves.
class PointTree::Builder {
 public:
  explicit Builder(PointTree& tree) : mTree(tree), mPoints(tree.mPoints) {}

  /// The upper levels are cut one by one, each with all ranges of it at once, the trees below them
  /// each by one worker: which ranges these are follows from the number of points alone.
  void Run(i32 threads) {
    const i32 count = static_cast<i32>(mPoints.size());
    const i32 small = std::max(kSmallest, count / 256);
    mUpper.push_back({{0, count, 0, mTree.mMin, mTree.mMax}, {}, -1});
    for (std::size_t from = 0; from < mUpper.size();) {
      const std::size_t to = mUpper.size();
      const i32 ranges = static_cast<i32>(to - from);
      ForEachBlock(ranges, threads, [&](i32 i) {
        Upper& upper = mUpper[from + i];
        const Range& range = upper.range;
        if (range.last - range.first > small && range.depth < kUpperLevels)
          upper.split = Cut(upper.range, upper.node);
      });
      for (std::size_t i = from; i < to; ++i)
        if (mUpper[i].split >= 0) {
          const Upper upper = mUpper[i];
          mUpper[i].low = static_cast<i32>(mUpper.size());
          mUpper.push_back({Half(upper.range, upper.node, upper.split, false), {}, -1});
          mUpper.push_back({Half(upper.range, upper.node, upper.split, true), {}, -1});
        }
      from = to;
    }
    ForEachBlock(static_cast<i32>(mUpper.size()), threads, [&](i32 i) {
      if (mUpper[i].split < 0) Grow(mUpper[i].range, mUpper[i].below);
    });
    Join(0);
  }

 private:
  static constexpr i32 kUpperLevels = 10, kSmallest = 4096;

  struct Range {
    i32 first = 0, last = 0;
    i32 depth = 0;
    Vec3d min{}, max{};
  };
  /// A node of the upper levels; without a split, what grows below it.
  struct Upper {
    Range range;
    Node node;
    i32 split = -1;
    i32 low = 0;  ///< its children follow each other
    std::vector<Node> below{};
  };

  static Range Half(const Range& range, const Node& node, i32 split, bool high) {
    Range half = range;
    ++half.depth;
    (high ? half.first : half.last) = split;
    (high ? half.min : half.max)[node.axis] = node.cut;
    return half;
  }

  static i32 LongestAxis(const Vec3d& e) {
    if (e.x > e.y && e.x > e.z) return 0;
    return e.y > e.z ? 1 : 2;
  }

  /// Moves the points below `cut` to the front; returns where the others start. Without a branch on
  /// the outcome, which nothing could foretell.
  i32 Partition(const Range& range, i32 axis, double cut) {
    Record* points = mPoints.data();
    i32 low = range.first;
    for (i32 i = range.first; i < range.last; ++i) {
      const Record point = points[i];
      points[i] = points[low];
      points[low] = point;
      low += point.position[axis] < cut;
    }
    return low;
  }

  /// Chooses axis and cut of a range of two points or more, the middle of its longest side, and
  /// parts its points; returns where the upper ones start. A box that is empty on one side of the
  /// middle shrinks to its points first, so that each cut leaves some on both sides.
  i32 Cut(Range& range, Node& node) {
    for (;;) {
      const Vec3d extent = range.max - range.min;
      const i32 axis = LongestAxis(extent);
      node.axis = axis;
      node.cut = range.min[axis] + 0.5 * extent[axis];
      if (range.depth >= kDeep || !(extent[axis] > 0)) return CutByNumber(range, node);
      const i32 split = Partition(range, axis, node.cut);
      if (split > range.first && split < range.last) return split;
      if (!Shrink(range, axis)) {
        // Two neighbours among the doubles have no middle between them.
        node.cut = range.max[axis];
        return Partition(range, axis, node.cut);
      }
    }
  }

  /// Fits the box to its points along an axis; false where it was as small already.
  bool Shrink(Range& range, i32 axis) {
    double min = std::numeric_limits<double>::max(), max = -min;
    for (i32 i = range.first; i < range.last; ++i) {
      min = std::min(min, mPoints[i].position[axis]);
      max = std::max(max, mPoints[i].position[axis]);
    }
    const bool shrinks = min > range.min[axis] || max < range.max[axis];
    range.min[axis] = min;
    range.max[axis] = max;
    return shrinks;
  }

  /// Halves equal points, or a range that cuts at the middle have not made small.
  i32 CutByNumber(const Range& range, Node& node) {
    const i32 middle = range.first + (range.last - range.first) / 2;
    const i32 axis = node.axis;
    std::nth_element(
        mPoints.begin() + range.first, mPoints.begin() + middle, mPoints.begin() + range.last,
        [axis](const Record& a, const Record& b) { return a.position[axis] < b.position[axis]; });
    node.cut = mPoints[middle].position[axis];
    return middle;
  }

  void Grow(Range range, std::vector<Node>& nodes) {
    const std::size_t own = nodes.size();
    nodes.emplace_back();
    if (range.last - range.first <= kBucket) {
      nodes[own].first = range.first;
      nodes[own].high = range.last;
      return;
    }
    Node node;
    const i32 split = Cut(range, node);
    Grow(Half(range, node, split, false), nodes);
    node.high = static_cast<i32>(nodes.size());
    nodes[own] = node;
    Grow(Half(range, node, split, true), nodes);
  }

  /// Puts an upper node and all below it behind the tree's nodes.
  void Join(i32 at) {
    std::vector<Node>& nodes = mTree.mNodes;
    const i32 own = static_cast<i32>(nodes.size());
    if (mUpper[at].split < 0) {
      for (Node node : mUpper[at].below) {
        if (node.axis != kLeaf) node.high += own;
        nodes.push_back(node);
      }
      return;
    }
    nodes.push_back(mUpper[at].node);
    Join(mUpper[at].low);
    nodes[own].high = static_cast<i32>(nodes.size());
    Join(mUpper[at].low + 1);
  }

  PointTree& mTree;
  std::vector<Record>& mPoints;
  std::vector<Upper> mUpper;
};

void PointTree::Build(std::span<const Vec3d> points, i32 threads, std::span<const u16> flags,
                      u16 wanted) {
  Clear();
  constexpr double huge = std::numeric_limits<double>::max();
  mMin = {huge, huge, huge};
  mMax = {-huge, -huge, -huge};
  mPoints.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3d& p = points[i];
    if (!flags.empty() && !(flags[i] & wanted)) continue;
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) continue;
    mPoints.push_back({p, static_cast<i32>(i)});
    mMin = Min(mMin, p);
    mMax = Max(mMax, p);
  }
  if (!mPoints.empty()) Builder(*this).Run(threads);
}

void PointTree::Clear() {
  mPoints.clear();
  mNodes.clear();
}

i64 PointTree::Bytes() const {
  return static_cast<i64>(mPoints.capacity() * sizeof(Record) + mNodes.capacity() * sizeof(Node));
}

PointTree::Branch PointTree::FromOutside(const Vec3d& p) const {
  Branch root{0, {}, 0};
  for (int a = 0; a < 3; ++a) {
    root.offset[a] = std::max({mMin[a] - p[a], p[a] - mMax[a], 0.0});
    root.distanceSquared += root.offset[a] * root.offset[a];
  }
  return root;
}

namespace {

/// Sorts the last record of a heap of `count` upwards.
void SiftUp(TreeHit* heap, i32 count) {
  const TreeHit hit = heap[count - 1];
  i32 at = count - 1;
  for (; at > 0; at = (at - 1) / 2) {
    const TreeHit& parent = heap[(at - 1) / 2];
    if (parent.distanceSquared >= hit.distanceSquared) break;
    heap[at] = parent;
  }
  heap[at] = hit;
}

/// Puts a nearer hit in the place of the farthest one.
void ReplaceTop(TreeHit* heap, i32 count, const TreeHit& hit) {
  i32 at = 0;
  for (i32 child = 1; child < count; child = 2 * at + 1) {
    if (child + 1 < count && heap[child + 1].distanceSquared > heap[child].distanceSquared) ++child;
    if (heap[child].distanceSquared <= hit.distanceSquared) break;
    heap[at] = heap[child];
    at = child;
  }
  heap[at] = hit;
}

}  // namespace

TreeHit PointTree::FindNearest(const Vec3d& p, double radius) const {
  TreeHit nearest;
  double limit = radius * radius;
  Visit(p, limit, [&](i32 index, double distanceSquared) {
    nearest = {index, distanceSquared};
    limit = distanceSquared;
    return true;
  });
  return nearest;
}

i32 PointTree::FindNearest(const Vec3d& p, double radius, NeighbourBuffer& out) const {
  TreeHit* heap = out.mHits.data();
  const i32 capacity = out.Capacity();
  i32 count = 0;
  double limit = radius * radius;
  Visit(p, limit, [&](i32 index, double distanceSquared) {
    if (count < capacity) {
      heap[count++] = {index, distanceSquared};
      SiftUp(heap, count);
    } else {
      ReplaceTop(heap, count, {index, distanceSquared});
    }
    if (count == capacity) limit = heap[0].distanceSquared;
    return true;
  });
  std::sort(heap, heap + count, [](const TreeHit& a, const TreeHit& b) {
    return a.distanceSquared < b.distanceSquared ||
           (a.distanceSquared == b.distanceSquared && a.index < b.index);
  });
  return out.mCount = count;
}

i32 PointTree::CountWithin(const Vec3d& p, double radius, i32 limit) const {
  i32 count = 0;
  const double squared = radius * radius;
  if (limit > 0) Visit(p, squared, [&](i32, double) { return ++count < limit; });
  return count;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
