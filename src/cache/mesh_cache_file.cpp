#include "cache/mesh_cache_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "grids/grid_memory.h"
#include "grids/mesh_refusal.h"

namespace MELDO_GLOBAL {

using host::Geometry;
using host::Polygon;

namespace {

using Corners = std::array<Vec3d, 4>;

/// The normal of each point, where all corners at it agree; else none.
std::vector<Vec3d> NormalsOfPoints(const Geometry& mesh) {
  std::vector<Vec3d> normals(mesh.points.size());
  std::vector<u8> isKnown(mesh.points.size());
  for (std::size_t i = 0; i < mesh.polygons.size(); ++i) {
    const Polygon& polygon = mesh.polygons[i];
    const i32 points[] = {polygon.a, polygon.b, polygon.c, polygon.d};
    for (int corner = 0; corner < 4; ++corner) {
      const Vec3d& normal = mesh.normals[i][corner];
      Vec3d& known = normals[points[corner]];
      if (isKnown[points[corner]] && known != normal) return {};
      isKnown[points[corner]] = 1;
      known = normal;
    }
  }
  return normals;
}

template <class T>
void WriteList(HyperFile& file, const std::vector<T>& list, const BlockPacking& packing) {
  file.WriteBool(!list.empty());
  if (!list.empty()) WriteBlock(file, std::span<const T>(list), packing);
}

void WriteNormals(HyperFile& file, const Geometry& mesh, const BlockPacking& packing) {
  file.WriteBool(!mesh.normals.empty());
  if (mesh.normals.empty()) return;
  const std::vector<Vec3d> normals = NormalsOfPoints(mesh);
  file.WriteBool(!normals.empty());
  if (normals.empty())
    WriteBlock(file, std::span<const Corners>(mesh.normals), packing);
  else
    WriteBlock(file, std::span<const Vec3d>(normals), packing);
}

bool ReadSizes(HyperFile& file, StoredMesh& stored) {
  stored = {};
  bool isPresent = false;
  if (!file.ReadBool(isPresent)) return false;
  if (!isPresent) return true;
  return file.ReadLong(stored.polygons) && file.ReadLong(stored.points) && stored.polygons > 0 &&
         stored.points > 0;
}

/// The arrays of a mesh, packed.
class FoundMesh {
 public:
  FoundMesh(const StoredMesh& sizes, i32 threads)
      : mPolygonCount(static_cast<std::size_t>(sizes.polygons)),
        mPointCount(static_cast<std::size_t>(sizes.points)),
        mThreads(threads) {}

  bool Find(HyperFile& file) {
    return mBlocks.Find<Polygon>(file, mPolygons, mPolygonCount) &&
           mBlocks.Find<Vec3d>(file, mPoints, mPointCount) && FindNormals(file) &&
           FindList<Corners>(file, mUvs, mPolygonCount) &&
           FindList<Vec3d>(file, mVelocities, mPointCount) &&
           FindList<Vec3d>(file, mColours, mPointCount);
  }

  bool Take(Geometry& mesh) const {
    if (!HasMemoryFor(mBlocks.bytes)) {
      RefuseMesh(static_cast<double>(mPointCount), mBlocks.bytes);
      return false;
    }
    return TakeList(mPolygons, mPolygonCount, mesh.polygons) && AreInRange(mesh.polygons) &&
           TakeList(mPoints, mPointCount, mesh.points) && AreFinite(mesh.points, mThreads) &&
           TakeNormals(mesh) && TakeList(mUvs, mPolygonCount, mesh.uvs) &&
           TakeList(mVelocities, mPointCount, mesh.velocities) &&
           AreFinite(mesh.velocities, mThreads) && TakeList(mColours, mPointCount, mesh.colours);
  }

 private:
  template <class T>
  bool FindList(HyperFile& file, PackedBlock& block, std::size_t count) {
    bool has = false;
    return file.ReadBool(has) && (!has || mBlocks.Find<T>(file, block, count));
  }
  bool FindNormals(HyperFile& file) {
    bool has = false;
    if (!file.ReadBool(has)) return false;
    if (!has) return true;
    if (!file.ReadBool(mAreOfPoints)) return false;
    if (!mAreOfPoints) return mBlocks.Find<Corners>(file, mNormals, mPolygonCount);
    mBlocks.bytes += static_cast<double>(mPolygonCount * sizeof(Corners));
    return mBlocks.Find<Vec3d>(file, mNormals, mPointCount);
  }

  /// A list that isn't there comes out empty.
  template <class T>
  bool TakeList(const PackedBlock& block, std::size_t count, std::vector<T>& list) const {
    list.resize(block.size > 0 ? count : 0);
    return list.empty() || Unpack(block, std::span<T>(list), mThreads);
  }
  bool TakeNormals(Geometry& mesh) const {
    if (!mAreOfPoints) return TakeList(mNormals, mPolygonCount, mesh.normals);
    std::vector<Vec3d> normals;
    if (!TakeList(mNormals, mPointCount, normals)) return false;
    mesh.normals.resize(mPolygonCount);
    for (std::size_t i = 0; i < mPolygonCount; ++i) {
      const Polygon& p = mesh.polygons[i];
      mesh.normals[i] = {normals[p.a], normals[p.b], normals[p.c], normals[p.d]};
    }
    return true;
  }

  bool AreInRange(const std::vector<Polygon>& polygons) const {
    const i32 count = static_cast<i32>(mPointCount);
    return std::all_of(polygons.begin(), polygons.end(), [&](const Polygon& p) {
      return std::min({p.a, p.b, p.c, p.d}) >= 0 && std::max({p.a, p.b, p.c, p.d}) < count;
    });
  }
  const std::size_t mPolygonCount, mPointCount;
  const i32 mThreads;
  BlockFinder mBlocks;
  bool mAreOfPoints = false;
  PackedBlock mPolygons, mPoints, mNormals, mUvs, mVelocities, mColours;
};

}  // namespace

void WriteMeshCache(HyperFile& file, std::span<const Geometry* const> meshes,
                    const BlockPacking& packing) {
  file.WriteLong(static_cast<i32>(meshes.size()));
  for (const Geometry* mesh : meshes) {
    const bool hasMesh = mesh && !mesh->polygons.empty() && !mesh->points.empty();
    file.WriteChunkStart(1, 0);
    file.WriteBool(hasMesh);
    if (hasMesh) {
      file.WriteLong(static_cast<i32>(mesh->polygons.size()));
      file.WriteLong(static_cast<i32>(mesh->points.size()));
      WriteBlock(file, std::span<const Polygon>(mesh->polygons), packing);
      WriteBlock(file, std::span<const Vec3d>(mesh->points), packing);
      WriteNormals(file, *mesh, packing);
      WriteList(file, mesh->uvs, packing);
      WriteList(file, mesh->velocities, packing);
      WriteList(file, mesh->colours, packing);
    }
    file.WriteChunkEnd();
  }
}

bool ReadMeshCacheHeader(HyperFile& file, MeshCacheHeader& header, std::string& problem) {
  header = {};
  file.Rewind();
  const auto fail = [&](const char* what) {
    problem = file.Error().empty() ? fmt::format("{}: {}", file.Name(), what) : file.Error();
    return false;
  };
  i32 count = 0, id, level;
  // A mesh has a chunk of some bytes at the least.
  if (!file.ReadLong(count) || count < 0 || static_cast<std::size_t>(count) > file.Size() / 2)
    return fail("its number of meshes is damaged");
  header.meshes.resize(static_cast<std::size_t>(count));
  for (StoredMesh& mesh : header.meshes)
    if (!file.ReadChunkStart(id, level) || !ReadSizes(file, mesh) || !file.SkipToEndChunk() ||
        !file.ReadChunkEnd())
      return fail("what it says of a mesh is damaged");
  if (!file.AtEnd() && (!file.ReadChunkStart(id, level) || id != kOriginChunk ||
                        !ReadOrigin(file, header.origin) || !file.ReadChunkEnd() || !file.AtEnd() ||
                        header.origin.objects.size() != header.meshes.size()))
    return fail("what it says of its origin is damaged");
  file.Rewind();
  return file.ReadLong(count) || fail("its number of meshes is damaged");
}

bool ReadMeshChunk(HyperFile& file, i32 threads, Geometry& mesh) {
  StoredMesh sizes;
  if (!ReadSizes(file, sizes)) return false;
  mesh = {};
  if (sizes.polygons == 0) return true;
  FoundMesh found(sizes, threads);
  return found.Find(file) && found.Take(mesh);
}

std::string DescribeMeshCache(HyperFile& file) {
  MeshCacheHeader header;
  std::string problem;
  if (!ReadMeshCacheHeader(file, header, problem)) return problem + "\n";
  StoredMesh most;
  for (const StoredMesh& mesh : header.meshes) {
    most.polygons = std::max(most.polygons, mesh.polygons);
    most.points = std::max(most.points, mesh.points);
  }
  return fmt::format("Meshers: {}\nMax. Polygons: {}\nMax. Points: {}\n", header.meshes.size(),
                     most.polygons, most.points);
}

}  // namespace MELDO_GLOBAL
