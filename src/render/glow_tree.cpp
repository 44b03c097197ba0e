#include "render/glow_tree.h"

#include <algorithm>

namespace MELDO_GLOBAL::app {

using host::GlowingBox;

namespace {

/// Nearer than this part of its radius a box gets no brighter, squared.
constexpr double kNearest2 = 0.25;

double Distance2(const Vec3d& a, const Vec3d& b) {
  const Vec3d way = a - b;
  return Dot(way, way);
}

}  // namespace

double GlowTree::Node::Radius2() const { return Distance2(min, max) / 4; }

double GlowTree::Node::WeightAt(const Vec3d& at) const {
  return weight / std::max(Distance2((min + max) * 0.5, at), Radius2());
}

GlowTree::GlowTree(std::vector<GlowingBox> boxes) : mBoxes(std::move(boxes)) {
  std::erase_if(mBoxes, [](const GlowingBox& box) { return !(box.weight > 0); });
  mNodes.reserve(2 * mBoxes.size());
  if (!mBoxes.empty()) Build(0, static_cast<i32>(mBoxes.size()));
}

void GlowTree::Build(i32 first, i32 last) {
  Node node{mBoxes[first].min, mBoxes[first].max};
  for (i32 i = first; i < last; ++i) {
    node.min = Min(node.min, mBoxes[i].min);
    node.max = Max(node.max, mBoxes[i].max);
    node.weight += mBoxes[i].weight;
  }
  const std::size_t self = mNodes.size();
  if (last - first == 1) {
    node.box = first;
    mNodes.push_back(node);
    return;
  }
  const Vec3d size = node.max - node.min;
  const int axis = size.x >= size.y && size.x >= size.z ? 0 : size.y >= size.z ? 1 : 2;
  const i32 middle = (first + last) / 2;
  std::nth_element(mBoxes.begin() + first, mBoxes.begin() + middle, mBoxes.begin() + last,
                   [axis](const GlowingBox& a, const GlowingBox& b) {
                     return a.min[axis] + a.max[axis] < b.min[axis] + b.max[axis];
                   });
  mNodes.push_back(node);
  Build(first, middle);
  mNodes[self].right = static_cast<i32>(mNodes.size());
  Build(middle, last);
}

GlowTree::Pick GlowTree::Choose(const Vec3d& at, double choice, const Vec3d& place) const {
  double share = 1;
  i32 i = 0;
  while (mNodes[i].box < 0) {
    const double left = mNodes[i + 1].WeightAt(at), right = mNodes[mNodes[i].right].WeightAt(at);
    const double part = left / (left + right);
    if (choice < part) {
      choice /= part;
      share *= part;
      i = i + 1;
    } else {
      choice = (choice - part) / (1 - part);
      share *= 1 - part;
      i = mNodes[i].right;
    }
  }
  const Node& leaf = mNodes[i];
  const Vec3d point = leaf.min + (leaf.max - leaf.min) * place;
  const double distance2 = std::max(Distance2(point, at), kNearest2 * leaf.Radius2());
  return {point, mBoxes[leaf.box].power / (share * distance2)};
}

}  // namespace MELDO_GLOBAL::app
