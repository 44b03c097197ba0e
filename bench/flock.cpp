// Times a step of a flock beside the search of neighbours that it rests on: particles in a cube, in
// no order, with about as many neighbours as a radius of 2 cells has there.
//
//   bench_flock [--count 1000000] [--neighbours 30] [--threads 2] [--repeats 3]
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <numbers>

#include "fluids/operators/pop_flock.h"
#include "grids/random_stream.h"
#include "nodes/catalogue.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct Settings {
  i32 count = 1000000;
  double neighbours = 30;
  i32 threads = 2;
  i32 repeats = 3;
};

/// A server with a flock in a cube of 1 m.
struct Flight {
  host::Document document;
  host::BaseNode* server = &CreateNode(document, *FindKind("server"), "sim", nullptr);
  std::unique_ptr<SulvaScene> scene = CreateScene(*server);
  ParticleGroup& birds = Add<ParticleGroup>("particlegroup");
  POP_Flock& flock = Add<POP_Flock>("pop_flock");
  double radius;

  explicit Flight(const Settings& s)
      : radius(std::cbrt(s.neighbours / s.count * 3 / (4 * std::numbers::pi))) {
    scene->UpdateDomain(100, 1, radius / 2);
    scene->mTime.stepDuration = 0.04;
    scene->mThreadCount = s.threads;
    flock.Node()->Set(POP_Flock::kGroupRow, host::Link{birds.Node()->Id()});
    scene->mFlags |= Scene::kTimeChanged;
    scene->SetStage(kStartSimulation);
    scene->DispatchStage();
    RandomStream random;
    random.Seed(1);
    ParticleTemplate bird;
    bird.flags |= PF_KIND_PASSIVE;
    for (i32 i = 0; i < s.count; ++i) {
      for (i32 a = 0; a < 3; ++a) bird.position[a] = random.NextUnit();
      for (i32 a = 0; a < 3; ++a) bird.velocity[a] = random.NextUnit() - 0.5;
      birds.Store(kPassive).Create(bird);
    }
    birds.BuildTree(kPassive, s.threads);
  }

  /// Sums what a search of all finds; `rowAt` says in which order.
  template <class RowAt>
  i64 Search(i32 threads, RowAt&& rowAt) const {
    const PointTree& tree = *birds.Tree(kPassive);
    std::vector<i64> found(kShares);
    ForEachShare(threads, nullptr, [&](const EvaluationThreadData& share) {
      NeighbourBuffer buffer;
      const IndexRange own = share.ItemsOf(0, tree.Count());
      for (i32 i = own.first; i < own.last; ++i)
        found[share.index] +=
            tree.FindNearest(birds.Store(kPassive).Positions()[rowAt(i)], radius, buffer);
    });
    i64 all = 0;
    for (const i64 part : found) all += part;
    return all;
  }
  void Step() {
    flock.Prepare();
    flock.Evaluate({});
    flock.Finish();
  }

 private:
  template <class T>
  T& Add(const char* type) {
    const NodeKind& kind = *FindKind(type);
    host::BaseNode& node = CreateNode(document, kind, type, server);
    scene->CreateObject(&node, kind.id);
    return dynamic_cast<T&>(*scene->FindObject(&node, kListAll));
  }
};

void Print(const char* name, double seconds, double search, i32 count) {
  fmt::print("  {:32} {:9.1f} ms, {:7.1f} ns a particle: {:.2f} of the search\n", name,
             seconds * 1e3, seconds * 1e9 / count, seconds / search);
}

}  // namespace

int main(int argc, char** argv) {
  Settings s;
  CLI::App app("Times a step of a flock beside the search of neighbours.");
  app.add_option("--count", s.count);
  app.add_option("--neighbours", s.neighbours);
  app.add_option("--threads", s.threads);
  app.add_option("--repeats", s.repeats);
  CLI11_PARSE(app, argc, argv);

  Flight flight(s);
  const PointTree& tree = *flight.birds.Tree(kPassive);
  i64 found = 0;
  const double search =
      Best([&] { found = flight.Search(s.threads, [](i32 i) { return i; }); }, s.repeats);
  const double inOrder = Best(
      [&] { found = flight.Search(s.threads, [&](i32 i) { return tree.IndexAt(i); }); }, s.repeats);
  const double step = Best([&] { flight.Step(); }, s.repeats);
  fmt::print("{} particles, {:.1f} neighbours on average, {} threads\n", s.count,
             static_cast<double>(found) / s.count - 1, s.threads);
  Print("search, as they come", search, search, s.count);
  Print("search, in the tree's order", inOrder, search, s.count);
  Print("step of the flock", step, search, s.count);
  return flight.flock.mInactiveReason ? 1 : 0;
}
