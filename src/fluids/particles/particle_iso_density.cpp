#include "fluids/particles/particle_iso_density.h"

#include "fluids/particles/point_tree.h"
#include "framework/server_rows.h"
#include "framework/sulva_scene.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr i32 kCells = 10;          ///< on an edge of the lattice
constexpr double kLeastSum = 1e-5;  ///< no density is less

/// Places of the particles along an edge: in each cell from half a spacing on.
std::vector<double> PlacesOnEdge(double cell, double spacing) {
  std::vector<double> places;
  for (i32 i = 0; i < kCells; ++i)
    for (i32 k = 0; (k + 0.5) * spacing < 1; ++k)
      places.push_back((i + (k + 0.5) * spacing) * cell);
  return places;
}

std::vector<Vec3d> MakeLattice(double cell, double spacing) {
  const std::vector<double> places = PlacesOnEdge(cell, spacing);
  std::vector<Vec3d> points;
  points.reserve(places.size() * places.size() * places.size());
  for (const double z : places)
    for (const double y : places)
      for (const double x : places) points.push_back({x, y, z});
  return points;
}

}  // namespace

double ParticleIsoDensity::Measure(double cell, double spacing, double radius,
                                   const Kernel& kernel) {
  const std::vector<Vec3d> points = MakeLattice(cell, spacing);
  const double r2 = radius * radius, r3 = r2 * radius;
  PointTree tree;
  tree.Build(points, host::ThreadCount());
  constexpr i64 kBlock = 512;
  const double largest = MaxBlocks(
      static_cast<i64>(points.size()), kBlock, host::ThreadCount(), [&](i64 first, i64 last) {
        double most = 0;
        for (i64 i = first; i < last; ++i) {
          double sum = 0;
          tree.ForEachWithin(points[i], radius,
                             [&](i32, double d2) { sum += kernel.EvaluateSquared(d2, r2, r3); });
          most = std::max(most, sum);
        }
        return most;
      });
  return std::max(largest, kLeastSum);
}

void ParticleIsoDensity::UpdateDomain(SulvaScene& scene) {
  const auto row = [&](i32 id) { return scene.Server() ? scene.Server()->Get(id) : nullptr; };
  const host::Value* points = row(server_row::kShowStatistics);
  const host::Value* reach = row(server_row::kDisplayScale);
  Settings settings;
  settings.cell = scene.mDomain.cellSize;
  settings.spacing = 1.0 / (std::max(points ? LongOf(*points, 1) : 1, 0) + 1);
  settings.radius = (reach ? RealOf(*reach, 2.5) : 2.5) * scene.mCellHalf;
  // Objects don't exist yet in the first evaluation: the node itself says what its kernel is.
  const host::Value* kernelRow = row(server_row::kIsoKernel);
  const Link* link = kernelRow ? std::get_if<Link>(kernelRow) : nullptr;
  BaseNode* node = link ? scene.GetDocument()->Find(link->node) : nullptr;
  if (node && (node->Type() != Kernel::kNodeType || !node->IsEnabled())) node = nullptr;
  if (node) settings.kernel = node->Values();
  if (mMeasurements > 0 && settings == mMeasured) return;
  Kernel kernel = node ? Kernel(node, &scene) : Kernel();
  if (node) kernel.ReadParameters();
  mValue = Measure(settings.cell, settings.spacing, settings.radius, kernel);
  mMeasured = std::move(settings);
  ++mMeasurements;
}

const ParticleIsoDensity* ParticleIsoDensity::Of(const SulvaScene& scene) {
  for (const auto& part : scene.mParts)
    if (const auto* density = dynamic_cast<const ParticleIsoDensity*>(part.get())) return density;
  return nullptr;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
