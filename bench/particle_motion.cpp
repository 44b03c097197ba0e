// Times the motion of particles through a staggered grid: million particles a second, and the bytes
// that a particle takes.
//
//   bench_particle_motion [--particles 4000000] [--size 128] [--threads 2] [--repeats 5]
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <numbers>

#include "fluids/advection/particle_mover.h"
#include "grids/random_stream.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct Settings {
  i32 particles = 4000000;
  i32 size = 128;
  i32 threads = 2;
  i32 repeats = 5;
};

constexpr f32 kCell = 0.05f;

/// A closed box of gas that whirls.
struct Box {
  GridLayout layout;
  EGrid<double> u, v, w;
  GridBoundary boundary;

  explicit Box(i32 n)
      : layout(LayoutOf(n)), u(layout, kFaceX), v(layout, kFaceY), w(layout, kFaceZ) {
    GridLayout domain;
    domain.Set({1, 1, 1}, Vec3d{1, 1, 1} * (100.0 * kCell), kCell, {});
    boundary.mWalls = 63;
    boundary.Fit(domain, layout.simOrigin, layout.simMax);
    boundary.Build(1);
    const double k = std::numbers::pi / layout.simMax.x;
    const auto flow = [&](const Vec3d& p) {
      return Vec3d{std::sin(k * p.x) * std::cos(k * p.y), -std::cos(k * p.x) * std::sin(k * p.y),
                   0.1 * std::sin(k * p.z)};
    };
    EGrid<double>* grids[] = {&u, &v, &w};
    for (int a = 0; a < 3; ++a)
      ForEachCell({{0, 0, 0}, grids[a]->Dims()}, [&](i32 x, i32 y, i32 z) {
        (*grids[a])(x, y, z) = flow(grids[a]->PositionOf(x, y, z))[a];
      });
  }
  static GridLayout LayoutOf(i32 n) {
    GridLayout layout;
    layout.Set({n, n, n}, Vec3d{1, 1, 1} * (100.0 * n * kCell), kCell, {});
    return layout;
  }
};

/// Particles all over the box, in no order, or cell by cell as emitters leave them.
ParticleColumns Fill(const Settings& s, const Box& box, bool isSorted) {
  RandomStream random;
  random.Seed(1);
  std::vector<Vec3d> places(static_cast<std::size_t>(s.particles));
  const double low = 2 * kCell, span = box.layout.simMax.x - 4 * kCell;
  for (Vec3d& p : places)
    p = {low + span * random.NextUnit(), low + span * random.NextUnit(),
         low + span * random.NextUnit()};
  if (isSorted)
    std::sort(places.begin(), places.end(), [](const Vec3d& a, const Vec3d& b) {
      const auto cell = [](const Vec3d& p) {
        return std::tuple(static_cast<i32>(p.z / kCell), static_cast<i32>(p.y / kCell),
                          static_cast<i32>(p.x / kCell));
      };
      return cell(a) < cell(b);
    });
  ParticleColumns particles;
  particles.Reserve(s.particles);
  ParticleTemplate particle;
  for (const Vec3d& p : places) {
    particle.position = p;
    particles.Append(particle);
  }
  return particles;
}

void Time(const char* name, const Settings& s, ParticleColumns& particles,
          const ParticleMotion& motion) {
  motion.RequireColumns(particles);
  constexpr i32 kParts = 64;
  const double wall = Best(
      [&] {
        ForEachBlock(kParts, s.threads, [&](i32 part) {
          MoveParticles(motion, particles, particles.PartOf(part, kParts), static_cast<u32>(part));
        });
      },
      s.repeats);
  fmt::print("{:44} {:7.1f} million/s  {:6.1f} ns each, {} threads\n", name,
             s.particles / wall * 1e-6, wall * s.threads / s.particles * 1e9, s.threads);
}

}  // namespace

int main(int argc, char** argv) {
  Settings s;
  CLI::App app{"times the motion of particles"};
  app.add_option("--particles", s.particles);
  app.add_option("--size", s.size);
  app.add_option("--threads", s.threads);
  app.add_option("--repeats", s.repeats);
  CLI11_PARSE(app, argc, argv);
  host::SetThreadCount(s.threads);

  const Box box(s.size);
  for (const bool isSorted : {false, true}) {
    ParticleColumns particles = Fill(s, box, isSorted);
    fmt::print("{} particles {}\n", s.particles, isSorted ? "cell by cell" : "in no order");
    ParticleMotion motion;
    motion.flows.emplace_back(StaggeredVelocity(box.u, box.v, box.w), box.boundary);
    motion.fliesOutside = false;
    motion.killsOutside = false;
    motion.step = 0.02;
    motion.collision = ParticleMotion::kNoCollision;
    Time("two-stage paths", s, particles, motion);
    motion.collision = ParticleMotion::kLevelSet;
    Time("two-stage paths, collisions", s, particles, motion);
    motion.order = 3;
    Time("four-stage paths, collisions", s, particles, motion);
    motion.order = 1;
    motion.substeps = 2;
    Time("two-stage paths, collisions, 2 substeps", s, particles, motion);
    motion.flows.clear();
    motion.substeps = 1;
    motion.fliesOutside = true;
    Time("free flight", s, particles, motion);
    fmt::print("{:.1f} bytes a particle\n", double(particles.Bytes()) / particles.Count());
  }
}
