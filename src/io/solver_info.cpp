#include "io/solver_info.h"

#include <fmt/format.h>

#include <cmath>

#include "fluids/flow/ifluid_solver.h"
#include "fluids/particles/particle_group.h"
#include "framework/server_rows.h"
#include "host/node.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

std::string CellsText(const VecInt3D& dims) {
  return fmt::format("{} x {} x {} ({})", dims.x, dims.y, dims.z, i64{dims.x} * dims.y * dims.z);
}

/// The cells of another size that fill the same container.
VecInt3D CellsOfSize(const GridLayout& layout, double cellSize) {
  const auto count = [&](double edge) {
    return std::max(1, static_cast<i32>(std::lround(edge / cellSize)));
  };
  return {count(layout.simSize.x), count(layout.simSize.y), count(layout.simSize.z)};
}

std::string Describe(const iFluidSolver& solver, const Scene& scene) {
  const GridLayout* layout = solver.GetFlow().GetLayout();
  if (!layout || layout->count == 0)
    return fmt::format("{}: has no cells: nothing is in its box yet\n", solver.mName);
  const double rendering = InterfaceHandler(scene.Server()).GetReal(server_row::kRenderCellSize);
  const Vec3d &edges = layout->simSize, &world = layout->worldSize;
  std::string text = solver.mName + ":\n";
  text += fmt::format("  Cells [Voxels]: {}\n", CellsText(layout->dims));
  text +=
      fmt::format("  Cells Rendering [Voxels]: {}\n", CellsText(CellsOfSize(*layout, rendering)));
  text += fmt::format("  Container Size: {:.6g} m / {:.6g} m / {:.6g} m (simulation space units)\n",
                      edges.x, edges.y, edges.z);
  text += fmt::format("  Container Size: {:.6g} / {:.6g} / {:.6g} (host space units)\n", world.x,
                      world.y, world.z);
  text += fmt::format("  Cell Size: {:.6g}\n", layout->cellSize);
  return text;
}

}  // namespace

std::string DescribeParticles(const Scene& scene) {
  std::string text;
  for (const auto& [id, object] : scene.List(kListParticles)) {
    const auto* group = dynamic_cast<const ParticleGroup*>(object.get());
    if (!group || !group->Has(FLAG_ENABLED)) continue;
    std::string counts;
    for (const ParticleKindRow& row : kParticleKindRows)
      if (const i32 count = group->Count(row.kind); count > 0)
        counts += fmt::format("{}{} {}", counts.empty() ? "" : ", ", count, row.name);
    text += fmt::format("{}:\n  Particles: {}\n", group->mName, counts.empty() ? "none" : counts);
  }
  return text;
}

std::string DescribeSolvers(const Scene& scene) {
  std::string text;
  for (const auto& [id, object] : scene.List(kListSolvers))
    if (const auto* solver = dynamic_cast<const iFluidSolver*>(object.get()))
      text += Describe(*solver, scene);
  return text;
}

}  // namespace MELDO_GLOBAL::app
