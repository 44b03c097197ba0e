// Neighbours by the tree and by the cells are those that a look at every pair finds.
#include "fluids/particles/point_tree.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>

#include "fluids/particles/particle_sort.h"
#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using Points = std::vector<Vec3d>;

Points Uniform(i32 count, u32 seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0, 1);
  Points points(count);
  for (Vec3d& p : points) p = {unit(random), unit(random), unit(random)};
  return points;
}

/// Shapes of clouds that make a tree's life hard.
std::vector<std::pair<const char*, Points>> Clouds() {
  Points doubled = Uniform(10000, 1);
  for (i32 i = 0; i < 1000; ++i) doubled.push_back(doubled[7 * i]);
  Points plane = Uniform(5000, 2), line = Uniform(3000, 3), scales = Uniform(4000, 4);
  for (Vec3d& p : plane) p.y = 0.5;
  for (Vec3d& p : line) p.x = p.z = 0.25;
  // Half as far from the origin, over and over: each middle leaves all but one on one side.
  for (std::size_t i = 0; i < scales.size(); ++i)
    scales[i] *= std::ldexp(1.0, -static_cast<int>(i / 4));
  return {{"uniform", Uniform(10000, 1)},
          {"doubled", doubled},
          {"plane", plane},
          {"line", line},
          {"scales", scales},
          {"equal", Points(3000, {1, 2, 3})},
          {"one", {{0.5, 0.5, 0.5}}},
          {"two", {{0, 0, 0}, {1, 0, 0}}}};
}

/// All points closer than `radius`, by distance.
std::vector<TreeHit> BruteForce(const Points& points, const Vec3d& q, double radius) {
  std::vector<TreeHit> hits;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3d d = points[i] - q;
    if (Dot(d, d) < radius * radius) hits.push_back({static_cast<i32>(i), Dot(d, d)});
  }
  std::sort(hits.begin(), hits.end(), [](const TreeHit& a, const TreeHit& b) {
    return std::pair(a.distanceSquared, a.index) < std::pair(b.distanceSquared, b.index);
  });
  return hits;
}

void ExpectSameSet(const PointTree& tree, const Points& points, const Vec3d& q, double radius) {
  const std::vector<TreeHit> expected = BruteForce(points, q, radius);
  std::set<i32> found, wanted;
  i32 calls = 0;
  tree.ForEachWithin(q, radius, [&](i32 index, double distanceSquared) {
    const Vec3d d = points[index] - q;
    EXPECT_EQ(distanceSquared, Dot(d, d));
    found.insert(index);
    ++calls;
  });
  for (const TreeHit& hit : expected) wanted.insert(hit.index);
  EXPECT_EQ(found, wanted);
  EXPECT_EQ(calls, static_cast<i32>(found.size()));
  EXPECT_EQ(tree.CountWithin(q, radius), calls);
  EXPECT_EQ(tree.CountWithin(q, radius, 3), std::min(calls, 3));
}

void ExpectNearest(const PointTree& tree, const Points& points, const Vec3d& q, double radius,
                   i32 capacity) {
  std::vector<TreeHit> expected = BruteForce(points, q, radius);
  expected.resize(std::min<std::size_t>(expected.size(), capacity));
  NeighbourBuffer buffer(capacity);
  ASSERT_EQ(tree.FindNearest(q, radius, buffer), static_cast<i32>(expected.size()));
  std::set<i32> seen;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const TreeHit& hit = buffer.Hits()[i];
    // Of points at one distance any may be among them.
    EXPECT_EQ(hit.distanceSquared, expected[i].distanceSquared);
    const Vec3d d = points[hit.index] - q;
    EXPECT_EQ(hit.distanceSquared, Dot(d, d));
    EXPECT_TRUE(seen.insert(hit.index).second);
  }
}

}  // namespace

TEST(PointTree, FindsWhatALookAtEveryPairFinds) {
  for (const auto& [name, points] : Clouds()) {
    SCOPED_TRACE(name);
    PointTree tree;
    tree.Build(points, 1);
    EXPECT_EQ(tree.Count(), static_cast<i32>(points.size()));
    // From inside of the cloud, from its own points, and from outside of its box.
    Points queries = Uniform(60, 99);
    for (std::size_t i = 0; i < 30; ++i) queries.push_back(points[i * 31 % points.size()]);
    for (std::size_t i = 0; i < 30; ++i)
      queries.push_back((queries[i] - Vec3d{0.5, 0.5, 0.5}) * 3 + Vec3d{0.5, 0.5, 0.5});
    for (const Vec3d& q : queries) {
      ExpectSameSet(tree, points, q, 0.05);
      ExpectNearest(tree, points, q, 10, 1);
      ExpectNearest(tree, points, q, 10, 16);
      ExpectNearest(tree, points, q, 0.1, 72);
    }
  }
}

TEST(PointTree, TakesWhatItIsAsked) {
  Points points = Uniform(2000, 5);
  std::vector<u16> flags(points.size(), PF_ALIVE);
  for (std::size_t i = 0; i < points.size(); i += 3) flags[i] |= PF_MARK;
  points[3].y = std::numeric_limits<double>::quiet_NaN();
  points[6].x = std::numeric_limits<double>::infinity();
  PointTree tree;
  tree.Build(points, 1, flags, PF_MARK);
  EXPECT_EQ(tree.Count(), 667 - 2);
  tree.ForEachWithin({0.5, 0.5, 0.5}, 0.3, [&](i32 index, double) { EXPECT_EQ(index % 3, 0); });
  // A point at the radius isn't found, and there is nothing to find without any.
  tree.Build(Points{{0, 0, 0}, {1, 0, 0}}, 1);
  EXPECT_EQ(tree.CountWithin({0, 0, 0}, 1.0), 1);
  tree.Build({}, 1);
  NeighbourBuffer buffer;
  EXPECT_EQ(tree.FindNearest({0, 0, 0}, 1, buffer), 0);
  EXPECT_TRUE(buffer.Hits().empty());
}

TEST(PointTree, IsTheSameForAnyNumberOfThreads) {
  const Points points = Uniform(50000, 6);
  PointTree one, three;
  one.Build(points, 1);
  three.Build(points, 3);
  for (const Vec3d& q : Uniform(50, 7)) {
    std::vector<i32> a, b;
    one.ForEachWithin(q, 0.05, [&](i32 index, double) { a.push_back(index); });
    three.ForEachWithin(q, 0.05, [&](i32 index, double) { b.push_back(index); });
    EXPECT_EQ(a, b);
  }
}

namespace {

/// Two groups of liquid in a grid of 12 x 9 x 7 cells that some of them lie beside.
struct SortedGroups {
  TestScene scene{0.1};
  ParticleGroup& first = scene.Add<ParticleGroup>("particlegroup", "first");
  ParticleGroup& second = scene.Add<ParticleGroup>("particlegroup", "second");
  std::vector<ParticleGroup*> groups{&first, &second};
  GridLayout layout;

  SortedGroups() {
    layout.Set({12, 9, 7}, {120, 90, 70}, 0.1f, {-20, 0, 10});
    ParticleTemplate particle;
    for (const Vec3d& p : Uniform(4000, 8)) {
      particle.position = p * Vec3d{1.6, 1.2, 1.0} - Vec3d{0.4, 0.1, 0};
      (p.x < 0.3 ? first : second).Store(kLiquid).Create(particle);
    }
    // On the upper corner, and a rounding below it.
    particle.position = layout.simMax;
    first.Store(kLiquid).Create(particle);
    particle.position = layout.simMax - Vec3d{1e-12, 1e-12, 1e-12};
    first.Store(kLiquid).Create(particle);
    first.Store(kLiquid).Flags()[5] &= static_cast<u16>(~PF_ALIVE);
  }
};

}  // namespace

TEST(ParticleSort, KeepsEachParticleInItsCellInOrder) {
  SortedGroups rig;
  ParticleSort sort;
  sort.Reset(rig.layout);
  for (const i32 threads : {1, 3}) {
    sort.Build(rig.groups, kLiquid, threads, true);
    i32 inside = 0;
    for (ParticleGroup* group : rig.groups)
      for (const u16 flags : group->Store(kLiquid).Flags()) inside += (flags & PF_SORTED) != 0;
    EXPECT_EQ(sort.Count(), inside);
    EXPECT_GT(inside, 1500);
    EXPECT_FALSE(rig.first.Store(kLiquid).Flags()[5] & PF_SORTED);
    i32 seen = 0;
    ForEachCell({{0, 0, 0}, rig.layout.dims}, [&](i32 x, i32 y, i32 z) {
      std::pair<i32, i32> last{-1, -1};
      for (const ParticleSort::Entry& entry : sort.Cell({x, y, z})) {
        const Vec3d v = rig.layout.ToCells(entry.position);
        EXPECT_TRUE(std::abs(v.x - x - 0.5) <= 0.5 + 2e-6 &&
                    std::abs(v.y - y - 0.5) <= 0.5 + 2e-6 && std::abs(v.z - z - 0.5) <= 0.5 + 2e-6);
        EXPECT_LT(last, std::pair(entry.group, entry.row));
        last = {entry.group, entry.row};
        ++seen;
      }
    });
    EXPECT_EQ(seen, inside);
  }
  EXPECT_TRUE(rig.second.Store(kLiquid).At(3).HasProperty(property_id::kSortedVelocity));
  sort.Clear(true);
  EXPECT_EQ(sort.Count(), 0);
  EXPECT_FALSE(rig.second.Store(kLiquid).At(3).HasProperty(property_id::kSortedVelocity));
}

TEST(ParticleSort, FindsWhatLiesWithinARadius) {
  SortedGroups rig;
  ParticleSort sort;
  sort.Reset(rig.layout);
  sort.Build(rig.groups, kLiquid, 1);
  for (const Vec3d& unit : Uniform(40, 9)) {
    const Vec3d q = unit * Vec3d{1.8, 1.3, 1.1} - Vec3d{0.5, 0.2, 0.1};
    i32 expected = 0, found = 0;
    for (ParticleGroup* group : rig.groups) {
      const ParticleStore& store = group->Store(kLiquid);
      for (i32 row = 0; row < store.Count(); ++row) {
        const Vec3d d = store.Positions()[row] - q;
        expected += (store.Flags()[row] & PF_SORTED) && Dot(d, d) < 0.15 * 0.15;
      }
    }
    sort.ForEachWithin(q, 0.15, [&](const ParticleSort::Entry&, double) { ++found; });
    EXPECT_EQ(found, expected);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
