// Times boxes that fall on each other and settle: milliseconds a frame, beside the library of rigid
// bodies alone with the same boxes and settings.
//
//   bench_bodies [--boxes 1000] [--frames 25] [--repeats 3]
#include <BulletCollision/CollisionDispatch/btDefaultCollisionConfiguration.h>
#include <BulletCollision/CollisionShapes/btBoxShape.h>
#include <btBulletDynamicsCommon.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "host/worker_pool.h"
#include "run/simulation.h"
#include "scene/scene_file.h"
#include "timing.h"

using namespace MELDO_GLOBAL;

namespace {

constexpr double kRolling = 0.3, kSize = 0.2, kPitch = 0.24, kMass = 8, kMargin = 0.0004;
constexpr double kGravity = 9.81, kOverlap = 1e-4;
constexpr int kSubsteps = 10, kIterations = 10;
constexpr double kFrameSeconds = 0.04;

/// Where the boxes stand: layers of a square lattice, each box a little off its place.
std::vector<Vec3d> Places(int count) {
  const int row = count <= 1000 ? 10 : 20;
  u64 state = 7;
  const auto jitter = [&] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return (static_cast<double>(state >> 40) / (1 << 24) - 0.5) * 0.02;
  };
  std::vector<Vec3d> places;
  for (int i = 0; i < count; ++i)
    places.push_back({kPitch * (i % row - row / 2.0) + jitter(),
                      0.6 * kSize + kPitch * (i / (row * row)),
                      kPitch * (i / row % row - row / 2.0) + jitter()});
  return places;
}

double Product(const btCollisionObject* a, const btCollisionObject* b) {
  return a->getFriction() * b->getFriction();
}
double Rolling(const btCollisionObject*, const btCollisionObject*) {
  return kRolling * kRolling * std::sqrt(0.75) * kSize;
}

/// The library alone, its world made once.
double TimeBare(const std::vector<Vec3d>& places, int frames) {
  btDefaultCollisionConfiguration configuration;
  btCollisionDispatcher dispatcher(&configuration);
  btDbvtBroadphase broadphase;
  btSequentialImpulseConstraintSolver solver;
  btDiscreteDynamicsWorld world(&dispatcher, &broadphase, &solver, &configuration);
  world.setGravity({0, -kGravity, 0});
  world.getSolverInfo().m_numIterations = kIterations;
  world.getSolverInfo().m_solverMode |= SOLVER_SIMD | SOLVER_RANDMIZE_ORDER;
  world.getSolverInfo().m_splitImpulse = true;
  const double step = kFrameSeconds / kSubsteps;
  world.getSolverInfo().m_splitImpulsePenetrationThreshold =
      -kGravity * step * step / world.getSolverInfo().m_erp;
  world.getSolverInfo().m_linearSlop = kOverlap;
  gCalculateCombinedFrictionCallback = Product;
  gCalculateCombinedRollingFrictionCallback = Rolling;
  gCalculateCombinedSpinningFrictionCallback = Rolling;
  btBoxShape floor(btVector3(20, 0.1, 20)), box(btVector3(kSize, kSize, kSize) * 0.5);
  for (btBoxShape* shape : {&floor, &box}) shape->setMargin(kMargin);
  std::vector<std::unique_ptr<btRigidBody>> bodies;
  const auto add = [&](btBoxShape& shape, double mass, const btVector3& at) {
    btVector3 inertia(0, 0, 0);
    if (mass > 0) shape.calculateLocalInertia(mass, inertia);
    bodies.push_back(std::make_unique<btRigidBody>(mass, nullptr, &shape, inertia));
    btTransform place(btQuaternion::getIdentity(), at);
    bodies.back()->setWorldTransform(place);
    bodies.back()->setFriction(0.3);
    bodies.back()->setRestitution(0.4);
    bodies.back()->setContactProcessingThreshold(1e18);
    bodies.back()->setSleepingThresholds(0.1, 0.0873);
    world.addRigidBody(bodies.back().get());
  };
  add(floor, 0, {0, -0.1, 0});
  for (const Vec3d& p : places) add(box, kMass, {p.x, p.y, p.z});
  const double seconds = Best(
      [&] {
        for (int i = 0; i < frames; ++i)
          world.stepSimulation(kFrameSeconds, kSubsteps, kFrameSeconds / kSubsteps);
      },
      1);
  for (auto& body : bodies) world.removeRigidBody(body.get());
  return seconds;
}

std::filesystem::path WriteScene(const std::vector<Vec3d>& places) {
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "bench_bodies.json";
  std::ofstream file(path);
  std::string
      names = R"("floor")",
      objects =
          R"({"name": "floor", "type": "box", "size": [4000, 20, 4000], "position": [0, -10, 0], "obstacle": {}})";
  for (std::size_t i = 0; i < places.size(); ++i) {
    const Vec3d p = places[i] * 100.0;
    names += fmt::format(R"(, "b{}")", i);
    objects += fmt::format(R"(, {{"name": "b{}", "type": "box", "size": [20, 20, 20],
      "position": [{}, {}, {}], "obstacle": {{"mass": {}}}}})",
                           i, p.x, p.y, p.z, kMass);
  }
  file << fmt::format(R"({{"sulva": 1, "fps": 25, "range": [0, 1000], "objects": [{}], "nodes": [
    {{"type": "server", "name": "scene", "parameters": {{"cell_size": 0.1}}, "children": [
      {{"type": "mesh_multi", "name": "all", "parameters": {{"objects": [{}]}}}}]}}]}})",
                      objects, names);
  return path;
}

double TimeOurs(const std::filesystem::path& path, int frames) {
  app::Diagnostics diagnostics;
  auto loaded = app::LoadScene(path, diagnostics);
  app::Simulation simulation(*loaded->document, loaded->servers, u64{8} << 30);
  app::FrameRecord record;
  simulation.Evaluate(0, record);
  return Best(
      [&] {
        for (int i = 1; i <= frames; ++i) simulation.Evaluate(i, record);
      },
      1);
}

}  // namespace

int main(int argc, char** argv) {
  int boxes = 1000, frames = 25, repeats = 3;
  CLI::App arguments("Times rigid boxes.");
  arguments.add_option("--boxes", boxes);
  arguments.add_option("--frames", frames);
  arguments.add_option("--repeats", repeats);
  CLI11_PARSE(arguments, argc, argv);
  host::SetThreadCount(1);
  const std::vector<Vec3d> places = Places(boxes);
  const std::filesystem::path scene = WriteScene(places);
  double ours = HUGE_VAL, bare = HUGE_VAL;
  for (int i = 0; i < repeats; ++i) {
    ours = std::min(ours, TimeOurs(scene, frames));
    bare = std::min(bare, TimeBare(places, frames));
  }
  fmt::print("{} boxes, {} frames: {:.1f} ms a frame, the library alone {:.1f} ms, ratio {:.2f}\n",
             boxes, frames, 1000 * ours / frames, 1000 * bare / frames, ours / bare);
  return 0;
}
