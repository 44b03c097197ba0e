#include "run/memory_limit.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <fstream>

#include "framework/ibase.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

// Samples of 8 bytes per cell. A channel holds two buffers and, while it is resized, a third; a
// solver holds two velocity fields of three components, the scratch of forces and constraints (6),
// level set, divergence source and fractions (4), its linear system (13), and a share for the
// encoding of its exports and the volumes' grids (9).
constexpr double kScalarSamples = 3;
constexpr double kVectorSamples = 7;
constexpr double kSolverSamples = 6 + 6 + 4 + 13 + 9;

// Cells are counted in 32 bits; the samples on nodes are a few more than the cells.
constexpr double kMostCells = 2.1e9;

}  // namespace

u64 MachineMemory() {
  u64 bytes =
      static_cast<u64>(::sysconf(_SC_PHYS_PAGES)) * static_cast<u64>(::sysconf(_SC_PAGESIZE));
  for (const char* file :
       {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"}) {
    u64 limit = 0;
    if (std::ifstream(file) >> limit && limit > 0) bytes = std::min(bytes, limit);
  }
  return bytes;
}

std::string FormatBytes(double bytes) {
  const char* unit = "B";
  for (const char* next : {"kB", "MB", "GB", "TB", "PB", "EB"}) {
    if (bytes < 1000) break;
    bytes /= 1000;
    unit = next;
  }
  return bytes < 1000 ? fmt::format("{:.3g} {}", bytes, unit)
                      : fmt::format("{:.0f} {}", bytes, unit);
}

double EstimateGridMemory(const Scene& scene, double cells) {
  double samples = 0;
  for (const auto& [id, channel] : scene.List(kListChannels))
    if (channel->Has(FLAG_ENABLED))
      samples += channel->HasCategory(kBitVector) ? kVectorSamples : kScalarSamples;
  for (const auto& [id, solver] : scene.List(kListSolvers))
    if (solver->Has(FLAG_ENABLED)) samples += kSolverSamples;
  return samples * cells * 8;
}

MemoryGuard::MemoryGuard(u64 limit) : mLimit(limit) { SetGridMemoryLimit(limit); }
MemoryGuard::~MemoryGuard() { SetGridMemoryLimit(0); }

void MemoryGuard::Refuse(const std::string& what, double bytes, const Scene& scene) {
  const double limit = static_cast<double>(mLimit);
  mRefusal = fmt::format("out of memory: {} need about {}, ", what, FormatBytes(bytes));
  mRefusal += bytes > limit ? fmt::format("the limit is {}", FormatBytes(limit))
                            : fmt::format("and a grid may have at most {:.2g} cells", kMostCells);
  mRefusal += fmt::format("; raise cell_size (now {}) or lower the size of boxes and meshes",
                          scene.mDomain.cellSize);
}

bool MemoryGuard::Allows(const Scene& scene, const Vec3d& min, const Vec3d& max) {
  const double cell = scene.mDomain.cellSize;
  Vec3d cells;
  for (int a = 0; a < 3; ++a) cells[a] = std::max(1.0, std::ceil((max[a] - min[a]) / cell - 1e-6));
  const double count = cells.x * cells.y * cells.z;
  const double bytes = EstimateGridMemory(scene, count);
  if (count <= kMostCells && bytes <= static_cast<double>(mLimit)) return true;
  Refuse(fmt::format("{:.0f} x {:.0f} x {:.0f} cells", cells.x, cells.y, cells.z), bytes, scene);
  return false;
}

bool MemoryGuard::CheckGrids(const Scene& scene) {
  const GridRefusal refused = RefusedGrid();
  if (refused.bytes == 0) return true;
  const VecInt3D& d = refused.dims;
  Refuse(fmt::format("grids with one more of {} x {} x {} samples", d.x, d.y, d.z), refused.bytes,
         scene);
  return false;
}

}  // namespace MELDO_GLOBAL::app
