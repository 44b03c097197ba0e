// Times the search of neighbours among particles, and their columns, beside a k-d tree of a
// library: points in a cube and in a thin sheet, with about 30 neighbours in the radius.
//
//   bench_particles [--count 1000000] [--threads 2] [--repeats 3]
#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <nanoflann.hpp>
#include <random>

#include "fluids/particles/particle_sort.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct Settings {
  i32 count = 1000000;
  i32 threads = 2;
  i32 repeats = 3;
};

/// What the library's tree asks of a set of points.
struct Cloud {
  std::vector<Vec3d> points;
  std::size_t kdtree_get_point_count() const { return points.size(); }
  double kdtree_get_pt(std::size_t i, std::size_t axis) const {
    return points[i][static_cast<int>(axis)];
  }
  template <class Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }
};
using Other =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, Cloud>, Cloud, 3>;

Cloud MakeCloud(i32 count, double thickness) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> unit(0, 1);
  Cloud cloud;
  cloud.points.resize(count);
  for (Vec3d& p : cloud.points) p = {unit(random), thickness * unit(random), unit(random)};
  return cloud;
}

void Print(const char* name, double own, double other) {
  fmt::print("  {:28} {:9.1f} ms, the library {:9.1f} ms: {:.2f} of its time\n", name, own * 1e3,
             other * 1e3, own / other);
}

/// Sums of distances, so that no search is left out; both sides have to find the same.
struct Sums {
  double own = 0, other = 0;
  void Check(const char* what) const {
    if (std::abs(own - other) > 1e-9 * other)
      fmt::print("  {}: the two differ: {} and {}\n", what, own, other);
  }
};

void TimeTree(const char* name, const Cloud& cloud, double radius, bool isSheet,
              const Settings& s) {
  fmt::print("{}: {} points, radius {:.4f}\n", name, cloud.points.size(), radius);
  const std::span<const Vec3d> points = cloud.points;
  PointTree tree;
  std::unique_ptr<Other> other;
  const double build = Best([&] { tree.Build(points, 1); }, s.repeats);
  const double otherBuild = Best(
      [&] {
        other = std::make_unique<Other>(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10));
        other->buildIndex();
      },
      s.repeats);
  Print("build, one thread", build, otherBuild);
  const double shared = Best([&] { tree.Build(points, s.threads); }, s.repeats);
  Print("build, all threads", shared, otherBuild);

  constexpr std::size_t kNearest = 32, kStep = 10;
  Sums sums;
  NeighbourBuffer buffer(kNearest);
  const double nearest = Best(
      [&] {
        sums.own = 0;
        for (std::size_t i = 0; i < points.size(); i += kStep) {
          tree.FindNearest(points[i], 10, buffer);
          sums.own += buffer.Hits().back().distanceSquared;
        }
      },
      s.repeats);
  std::vector<u32> indices(kNearest);
  std::vector<double> distances(kNearest);
  const double otherNearest = Best(
      [&] {
        sums.other = 0;
        for (std::size_t i = 0; i < points.size(); i += kStep) {
          other->knnSearch(&points[i].x, kNearest, indices.data(), distances.data());
          sums.other += distances.back();
        }
      },
      s.repeats);
  Print("32 nearest", nearest, otherNearest);
  sums.Check("32 nearest");

  i64 found = 0;
  const double within = Best(
      [&] {
        sums.own = 0;
        found = 0;
        for (std::size_t i = 0; i < points.size(); i += kStep)
          tree.ForEachWithin(points[i], radius, [&](i32, double d) { sums.own += d, ++found; });
      },
      s.repeats);
  std::vector<std::pair<u32, double>> matches;
  const double otherWithin = Best(
      [&] {
        sums.other = 0;
        nanoflann::SearchParams how;
        how.sorted = false;
        for (std::size_t i = 0; i < points.size(); i += kStep) {
          other->radiusSearch(&points[i].x, radius * radius, matches, how);
          for (const auto& match : matches) sums.other += match.second;
        }
      },
      s.repeats);
  Print("all in the radius", within, otherWithin);
  sums.Check("all in the radius");
  fmt::print("  {:.1f} neighbours each, the tree {:.1f} bytes a point\n",
             static_cast<double>(found) * kStep / static_cast<double>(points.size()),
             static_cast<double>(tree.Bytes()) / static_cast<double>(points.size()));

  ParticleGroup group;
  ParticleTemplate particle;
  for (const Vec3d& p : points) {
    particle.position = p;
    group.Store(kLiquid).Create(particle);
  }
  ParticleGroup* const groups[] = {&group};
  ParticleSort sort;
  GridLayout layout;
  // A cell more than the points need: the size of a cell is rounded.
  const i32 cells = static_cast<i32>(1 / radius), wide = cells + 1;
  const i32 layers = isSheet ? 1 : wide;
  const double edge = 100.0 / cells;
  layout.Set({wide, layers, wide}, {wide * edge, layers * edge, wide * edge},
             static_cast<f32>(1.0 / cells), {});
  sort.Reset(layout);
  const double sorting = Best([&] { sort.Build(groups, kLiquid, s.threads); }, s.repeats);
  fmt::print("  {:28} {:9.1f} ms on {} threads, {} cells\n", "sort by cells", sorting * 1e3,
             s.threads, layout.count);
  const double byCells = Best(
      [&] {
        sums.own = 0;
        for (std::size_t i = 0; i < points.size(); i += kStep)
          sort.ForEachWithin(points[i], radius,
                             [&](const ParticleSort::Entry&, double d) { sums.own += d; });
      },
      s.repeats);
  Print("all in the radius, by cells", byCells, otherWithin);
  sums.Check("by cells");
}

double PeakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

/// Ten million particles with a life and the place where they were: born in a pass, moved, bounded,
/// and a tenth of them removed.
void TimeColumns(const Settings& s) {
  constexpr i32 kMany = 10000000;
  fmt::print("columns: {} particles, {} threads\n", kMany, s.threads);
  const double before = PeakBytes();
  ParticleGroup group;
  ParticleStore& store = group.Store(kPassive);
  ParticleTemplate particle;
  particle.Set(property_id::kAge, 40.0);
  particle.Set(property_id::kLifeSpan, 40.0);
  particle.Set(property_id::kOldPosition, Vec3d{});
  ParticleBirths births;
  const double born = Best(
      [&] {
        ForEachShare(s.threads, nullptr, [&](const EvaluationThreadData& share) {
          const IndexRange own = share.ItemsOf(0, kMany);
          ParticleTemplate mine = particle;
          births.Of(share.index).Reserve(own.last - own.first);
          for (i32 i = own.first; i < own.last; ++i) {
            mine.position = {i * 1e-7, 0, 1};
            births.Of(share.index).Append(mine);
          }
        });
        group.Take(kPassive, births);
      },
      1);
  const double moved = Best(
      [&] {
        PropertyColumn<Vec3d>& old = store.Require<Vec3d>(property_id::kOldPosition);
        PropertyColumn<double>& age = store.Require<double>(property_id::kAge);
        ForEachShare(s.threads, nullptr, [&](const EvaluationThreadData& share) {
          const IndexRange own = store.PartOf(share.index, share.count);
          const auto positions = store.Positions();
          const auto velocities = store.Velocities();
          for (i32 row = own.first; row < own.last; ++row) {
            old.Set(row, positions[row]);
            velocities[row] += Vec3d{0, -9.81, 0} * 0.01;
            positions[row] += velocities[row] * 0.01;
            age.Set(row, age.Get(row, 1.0) - 1);
          }
        });
      },
      s.repeats);
  const double bounds = Best([&] { store.UpdateBounds(s.threads); }, s.repeats);
  const double peak = PeakBytes() - before;
  const double each = static_cast<double>(store.Bytes()) / kMany;
  for (i32 row = 0; row < store.Count(); row += 10) store.Flags()[row] = 0;
  const double removed = Best([&] { store.RemoveDead(false); }, 1);
  fmt::print("  {:.1f} bytes each in the columns, {:.1f} at most with the births\n", each,
             peak / kMany);
  fmt::print(
      "  born in {:.0f} ms, a step of motion {:.0f} ms, bounds {:.0f} ms, a tenth removed in "
      "{:.0f} ms\n",
      born * 1e3, moved * 1e3, bounds * 1e3, removed * 1e3);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Times of particles");
  Settings s;
  app.add_option("--count", s.count, "points of a search");
  app.add_option("--threads", s.threads, "threads");
  app.add_option("--repeats", s.repeats, "runs, of which the best counts");
  CLI11_PARSE(app, argc, argv);
  const double pi = std::acos(-1.0);
  const double n = s.count;
  TimeTree("cube", MakeCloud(s.count, 1), std::cbrt(30 / (n * 4 / 3 * pi)), false, s);
  TimeTree("sheet", MakeCloud(s.count, 1e-4), std::sqrt(30 / (n * pi)), true, s);
  TimeColumns(s);
}
