#include "grids/grid_memory.h"

#include <exception>
#include <limits>
#include <mutex>
#include <new>

#include "grids/memory_owner.h"
#include "grids/mesh_refusal.h"
#include "host/memory_budget.h"

namespace MELDO_GLOBAL {

namespace {

constexpr std::align_val_t kAlignment{64};

std::mutex gRefusalMutex;
GridRefusal gRefusal;
ParticleRefusal gParticleRefusal;
MeshRefusal gMeshRefusal;
std::string gRefusedOwner;
thread_local std::string tOwner;

void* Refuse(const VecInt3D& dims, double bytes) {
  const std::lock_guard lock(gRefusalMutex);
  if (gRefusal.bytes == 0) {
    gRefusal = {dims, bytes + static_cast<double>(GridMemory())};
    gRefusedOwner = tOwner;
  }
  return nullptr;
}

}  // namespace

MemoryOwner::MemoryOwner(const std::string& name) : mExceptions(std::uncaught_exceptions()) {
  tOwner = name;
}
MemoryOwner::~MemoryOwner() {
  if (std::uncaught_exceptions() == mExceptions) tOwner.clear();
}
const std::string& MemoryOwner::Last() { return tOwner; }

std::string RefusedOwner() {
  const std::lock_guard lock(gRefusalMutex);
  return gRefusedOwner;
}

void SetGridMemoryLimit(u64 bytes) {
  const std::lock_guard lock(gRefusalMutex);
  host::SetMemoryLimit(bytes);
  gRefusal = {};
  gParticleRefusal = {};
  gMeshRefusal = {};
}

u64 GridMemory() { return host::MemoryInUse(); }

GridRefusal RefusedGrid() {
  const std::lock_guard lock(gRefusalMutex);
  return gRefusal;
}

bool HasMemoryFor(double bytes) { return host::MemoryAllows(bytes); }

void RefuseParticles(double count, double bytes) {
  const std::lock_guard lock(gRefusalMutex);
  if (gParticleRefusal.count > 0) return;
  gParticleRefusal = {count, bytes};
  gRefusedOwner = tOwner;
}

ParticleRefusal RefusedParticles() {
  const std::lock_guard lock(gRefusalMutex);
  return gParticleRefusal;
}

void RefuseMesh(double points, double bytes) {
  const std::lock_guard lock(gRefusalMutex);
  if (gMeshRefusal.points > 0) return;
  gMeshRefusal = {points, bytes + static_cast<double>(GridMemory())};
  gRefusedOwner = tOwner;
}

MeshRefusal RefusedMesh() {
  const std::lock_guard lock(gRefusalMutex);
  return gMeshRefusal;
}

void CountedMemory::Set(u64 bytes) {
  host::CountMemory(bytes - mBytes);
  mBytes = bytes;
}

void* AllocateGridMemory(const VecInt3D& dims, std::size_t sampleSize) {
  const double samples = double(dims.x) * dims.y * dims.z;
  const double wanted = samples * static_cast<double>(sampleSize);
  if (samples >= std::numeric_limits<i32>::max()) return Refuse(dims, wanted);
  const u64 bytes = u64(dims.x) * u64(dims.y) * u64(dims.z) * sampleSize;
  if (!HasMemoryFor(static_cast<double>(bytes))) return Refuse(dims, wanted);
  void* data = ::operator new(bytes, kAlignment, std::nothrow);
  if (!data) return Refuse(dims, wanted);
  host::CountMemory(bytes);
  return data;
}

void FreeGridMemory(void* data, std::size_t bytes) {
  if (!data) return;
  host::UncountMemory(bytes);
  ::operator delete(data, kAlignment);
}

}  // namespace MELDO_GLOBAL
