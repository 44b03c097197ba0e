#include "run/memory_limit.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

#include "framework/ibase.h"
#include "grids/grid_memory.h"
#include "grids/memory_owner.h"
#include "grids/mesh_refusal.h"
#include "host/memory_budget.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
namespace fs = std::filesystem;

namespace {

// Cells are counted in 32 bits; the samples on nodes are a few more than the cells.
constexpr double kMostCells = 2.1e9;
constexpr double kMostParticles = 2.1e9;

u64 NumberIn(const fs::path& file, u64 otherwise) {
  u64 number = 0;
  return std::ifstream(file) >> number ? number : otherwise;
}

/// What a control group leaves free: its limit without what is in use. Copies of files count as
/// free, since they make room.
u64 FreeInGroup(const fs::path& group, bool isSecond) {
  constexpr u64 kNone = std::numeric_limits<u64>::max();
  const u64 limit = NumberIn(group / (isSecond ? "memory.max" : "memory.limit_in_bytes"), kNone);
  if (limit == kNone) return kNone;
  const u64 used = NumberIn(group / (isSecond ? "memory.current" : "memory.usage_in_bytes"), 0);
  u64 files = 0;
  std::ifstream stat(group / "memory.stat");
  std::string key;
  for (u64 value = 0; stat >> key >> value;)
    if (key == (isSecond ? "inactive_file" : "total_inactive_file")) files = value;
  const u64 taken = used - std::min(used, files);
  return limit - std::min(limit, taken);
}

}  // namespace

u64 FreeMemory(const std::filesystem::path& root) {
  u64 bytes =
      static_cast<u64>(::sysconf(_SC_PHYS_PAGES)) * static_cast<u64>(::sysconf(_SC_PAGESIZE));
  std::ifstream info(root / "proc/meminfo");
  for (std::string line; std::getline(info, line);)
    if (unsigned long long kilobytes = 0;
        std::sscanf(line.c_str(), "MemAvailable: %llu kB", &kilobytes) == 1)
      bytes = std::min<u64>(bytes, u64{kilobytes} * 1024);
  std::ifstream groups(root / "proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    // A number, the controllers and the path of a group; "0::/path" in the second version.
    const std::size_t first = line.find(':'), second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const bool isSecond = controllers.empty();
    if (!isSecond && (',' + controllers + ',').find(",memory,") == std::string::npos) continue;
    const fs::path mount = root / "sys/fs/cgroup" / (isSecond ? "" : "memory");
    // A limit holds for all groups below. Inside of a container its own group is the mount.
    for (fs::path group = fs::path(line.substr(second + 1)).relative_path();;
         group = group.parent_path()) {
      bytes = std::min(bytes, FreeInGroup(mount / group, isSecond));
      if (group.empty()) break;
    }
  }
  return bytes;
}

u64 MachineMemory() { return FreeMemory("/"); }

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

namespace {

/// Cells of a box along each axis, at least one; none in a box that holds nothing.
Vec3d CellsIn(const Bounds& box, double cell) {
  Vec3d cells;
  for (int a = 0; a < 3 && box.IsValid(); ++a)
    cells[a] = std::max(1.0, std::ceil((box.max[a] - box.min[a]) / cell - 1e-6));
  return cells;
}

/// Calls f(object, bytes) for every object that takes part.
template <class F>
void ForEachWant(const Scene& scene, const NegotiatedBounds& bounds, F&& f) {
  for (i32 list = 1; list <= 11; ++list)
    for (const auto& [id, object] : scene.List(list)) {
      if (!object->Has(FLAG_ENABLED)) continue;
      if (bounds.own.contains(object.get()) && !object->Has(FLAG_ACTIVE)) continue;
      const Vec3d cells = CellsIn(bounds.Of(*object), scene.mDomain.cellSize);
      double bytes = object->MemoryPerCell() * (cells.x * cells.y * cells.z);
      for (const auto& part : object->mParts) bytes += part->Memory();
      f(*object, bytes);
    }
}

/// Cells along each axis of the largest box of which anything is kept cell by cell; 0 where nothing
/// is.
Vec3d MostCellsKept(const Scene& scene, const NegotiatedBounds& bounds) {
  Vec3d most{};
  for (i32 list = 1; list <= 11; ++list)
    for (const auto& [id, object] : scene.List(list)) {
      if (!object->Has(FLAG_ENABLED) || !(object->MemoryPerCell() > 0)) continue;
      const Vec3d cells = CellsIn(bounds.Of(*object), scene.mDomain.cellSize);
      if (cells.x * cells.y * cells.z > most.x * most.y * most.z) most = cells;
    }
  return most;
}

}  // namespace

double EstimateGridMemory(const Scene& scene, const NegotiatedBounds& bounds) {
  double sum = 0;
  ForEachWant(scene, bounds, [&](const iBase&, double bytes) { sum += bytes; });
  return sum;
}

MemoryWant LargestWant(const Scene& scene, const NegotiatedBounds& bounds) {
  MemoryWant largest;
  ForEachWant(scene, bounds, [&](const iBase& object, double bytes) {
    if (bytes > largest.bytes) largest = {&object, bytes};
  });
  return largest;
}

MemoryGuard::MemoryGuard(u64 limit) : mLimit(limit), mOuterLimit(host::MemoryLimit()) {
  SetGridMemoryLimit(limit);
}
MemoryGuard::~MemoryGuard() { SetGridMemoryLimit(mOuterLimit); }

void MemoryGuard::Refuse(const std::string& what, const std::string& share, double cells,
                         double bytes, const Scene& scene) {
  const double limit = static_cast<double>(mLimit);
  mRefusal = fmt::format("out of memory: {} need about {}{}, ", what, FormatBytes(bytes), share);
  if (bytes > limit) {
    mRefusal += fmt::format("the limit is {}", FormatBytes(limit));
  } else if (cells > kMostCells) {
    mRefusal += fmt::format("and a grid may have at most {:.2g} cells", kMostCells);
  } else {
    mRefusal += "more than the system gives";
  }
  AddAdvice(scene);
}

void MemoryGuard::NoteFailure(const Scene& scene) {
  const std::string& owner = MemoryOwner::Last();
  mRefusal = fmt::format("out of memory: the system gives no more{}",
                         owner.empty() ? "" : fmt::format(" to '{}'", Shown(owner)));
  AddAdvice(scene);
}

void MemoryGuard::AddAdvice(const Scene& scene) {
  mRefusal += fmt::format("; raise cell_size (now {}) or lower the size of boxes and meshes",
                          scene.mDomain.cellSize);
}

bool MemoryGuard::Allows(const Scene& scene, const NegotiatedBounds& bounds) {
  const Vec3d cells = MostCellsKept(scene, bounds);
  const double count = cells.x * cells.y * cells.z;
  const double bytes = EstimateGridMemory(scene, bounds);
  if (count <= kMostCells && bytes <= static_cast<double>(mLimit)) return true;
  const MemoryWant largest = LargestWant(scene, bounds);
  const std::string share = largest.object
                                ? fmt::format(", {} of it for '{}'", FormatBytes(largest.bytes),
                                              Shown(largest.object->mName))
                                : "";
  Refuse(fmt::format("{:.0f} x {:.0f} x {:.0f} cells", cells.x, cells.y, cells.z), share, count,
         bytes, scene);
  return false;
}

bool MemoryGuard::CheckParticles(const Scene& scene) {
  const ParticleRefusal refused = RefusedParticles();
  if (refused.count == 0) return true;
  const std::string owner = RefusedOwner();
  mRefusal = fmt::format("out of memory: {:.6g} particles{} need about {}, ", refused.count,
                         owner.empty() ? "" : fmt::format(" of '{}'", Shown(owner)),
                         FormatBytes(refused.bytes));
  mRefusal += refused.count > kMostParticles
                  ? fmt::format("and a group may have at most {:.2g} of a kind", kMostParticles)
                  : fmt::format("the limit is {}", FormatBytes(static_cast<double>(mLimit)));
  mRefusal +=
      fmt::format("; lower what emits them, or raise cell_size (now {})", scene.mDomain.cellSize);
  return false;
}

bool MemoryGuard::CheckMeshes() {
  const MeshRefusal refused = RefusedMesh();
  if (refused.points == 0) return true;
  const std::string owner = RefusedOwner();
  mRefusal = fmt::format(
      "out of memory: grids with a mesh of about {:.0f} points{} need about {}, the limit is {}; "
      "lower the resolution of the mesher, or of its source",
      refused.points, owner.empty() ? "" : fmt::format(", that of '{}',", Shown(owner)),
      FormatBytes(refused.bytes), FormatBytes(static_cast<double>(mLimit)));
  return false;
}

bool MemoryGuard::CheckGrids(const Scene& scene) {
  if (!CheckParticles(scene) || !CheckMeshes()) return false;
  const GridRefusal refused = RefusedGrid();
  if (refused.bytes == 0) return true;
  const VecInt3D& d = refused.dims;
  const std::string owner = RefusedOwner();
  Refuse(fmt::format("grids with one more of {} x {} x {} samples{}", d.x, d.y, d.z,
                     owner.empty() ? "" : fmt::format(", for '{}',", Shown(owner))),
         "", double(d.x) * d.y * d.z, refused.bytes, scene);
  return false;
}

}  // namespace MELDO_GLOBAL::app
