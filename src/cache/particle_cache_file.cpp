#include "cache/particle_cache_file.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

void WriteBounds(HyperFile& file, const ParticleBounds& bounds) {
  for (const VecInt3D& cell : {bounds.minCell, bounds.maxCell})
    for (int a = 0; a < 3; ++a) file.WriteLong(cell[a]);
  for (const Vec3d& corner : {bounds.box.min, bounds.box.max})
    for (int a = 0; a < 3; ++a) file.WriteLReal(corner[a]);
  file.WriteLReal(bounds.maxRadiusCells);
  file.WriteLReal(bounds.maxRadius);
}

bool ReadBounds(HyperFile& file, ParticleBounds& bounds) {
  for (VecInt3D* cell : {&bounds.minCell, &bounds.maxCell})
    if (!file.ReadLong(cell->x) || !file.ReadLong(cell->y) || !file.ReadLong(cell->z)) return false;
  bool isFinite = true;
  for (Vec3d* corner : {&bounds.box.min, &bounds.box.max})
    for (int a = 0; a < 3; ++a) {
      if (!file.ReadLReal((*corner)[a])) return false;
      isFinite = isFinite && std::isfinite((*corner)[a]);
    }
  return isFinite && file.ReadLReal(bounds.maxRadiusCells) && file.ReadLReal(bounds.maxRadius);
}

bool ReadLists(HyperFile& file, StoredParticles& stored) {
  i32 lists = 0;
  if (!file.ReadBool(stored.isPresent)) return false;
  if (!stored.isPresent) return true;
  if (!file.ReadLong(lists) || lists < 0) return false;
  for (i32 i = 0; i < lists; ++i) {
    i32 count = 0;
    if (!file.ReadLong(count) || count < 0) return false;
    stored.lists.push_back(count);
  }
  return stored.Count() <= std::numeric_limits<i32>::max();
}

bool ReadStart(HyperFile& file, ParticleCacheHeader& header) {
  header.version = ParticleCacheHeader::kPlainVersion;
  if (file.IsAtLong() && !file.ReadLong(header.version)) return false;
  i32 count = 0;
  // A store has an item of two bytes at the least.
  if (!ReadLayout(file, header.domain) || !file.ReadLong(count) || count < 0 ||
      static_cast<std::size_t>(count) > file.Size() / 2)
    return false;
  header.stores.assign(static_cast<std::size_t>(count), {});
  for (StoredParticles& stored : header.stores)
    if (!ReadLists(file, stored)) return false;
  return true;
}

}  // namespace

i64 StoredParticles::Count() const { return std::accumulate(lists.begin(), lists.end(), i64{0}); }

void WriteParticleCache(HyperFile& file, const GridLayout& domain,
                        std::span<const ParticleSource> sources, const PropertySelection& selection,
                        bool isPlain, const BlockPacking& packing) {
  if (!isPlain) file.WriteLong(ParticleCacheHeader::kVersion);
  WriteLayout(file, domain);
  file.WriteLong(static_cast<i32>(sources.size()));
  for (const ParticleSource& source : sources) {
    file.WriteBool(!source.rows->IsEmpty());
    if (source.rows->IsEmpty()) continue;
    file.WriteLong(1);
    file.WriteLong(source.rows->Count());
  }
  for (const ParticleSource& source : sources) {
    file.WriteChunkStart(1, 0);
    if (!source.rows->IsEmpty()) {
      WriteBounds(file, source.store->GetBounds());
      WriteLayout(file, source.store->Layout());
      WriteColumns(file, *source.rows, selection, !isPlain, packing);
    }
    file.WriteChunkEnd();
  }
}

bool ReadParticleCacheHeader(HyperFile& file, ParticleCacheHeader& header, std::string& problem) {
  header = {};
  file.Rewind();
  const auto fail = [&](const char* what) {
    problem = file.Error().empty() ? fmt::format("{}: {}", file.Name(), what) : file.Error();
    return false;
  };
  if (!ReadStart(file, header)) return fail("its counts of particles are damaged");
  if (header.version > ParticleCacheHeader::kVersion)
    return fail("a later version of sulva wrote it");
  for (StoredParticles& stored : header.stores) {
    i32 id, level;
    if (!file.ReadChunkStart(id, level)) return fail("its chunks are damaged");
    if (file.AtEnd() != (stored.Count() == 0)) return fail("it holds other particles than it says");
    if (stored.Count() > 0 &&
        (!ReadBounds(file, stored.bounds) || !ReadLayout(file, stored.layout)))
      return fail("its bounds are damaged");
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) return fail("its chunks are damaged");
  }
  i32 id, level;
  if (!file.AtEnd() && (!file.ReadChunkStart(id, level) || id != kOriginChunk ||
                        !ReadOrigin(file, header.origin) || !file.ReadChunkEnd() || !file.AtEnd() ||
                        header.origin.objects.size() != header.stores.size()))
    return fail("what it says of its origin is damaged");
  file.Rewind();
  ParticleCacheHeader again;
  return ReadStart(file, again) || fail("its counts of particles are damaged");
}

bool ReadParticleChunk(HyperFile& file, const ParticleCacheHeader& header, std::size_t chunk,
                       const FindOwner& owner, i32 threads, ParticleColumns& particles) {
  ParticleBounds bounds;
  GridLayout layout;
  const StoredParticles& stored = header.stores[chunk];
  if (stored.Count() == 0) {
    particles.SetCount(0);
    return true;
  }
  if (!ReadBounds(file, bounds) || !ReadLayout(file, layout)) return false;
  const auto read = [&](i32 count, ParticleColumns& into) {
    return ReadColumns(file, {count, header.HasIds(), threads}, owner, into);
  };
  if (stored.lists.size() == 1) return read(stored.lists.front(), particles);
  particles.Clear();
  for (const i32 count : stored.lists) {
    ParticleColumns list;
    if (!read(count, list)) return false;
    particles.Append(list);
  }
  if (!header.HasIds()) std::iota(particles.Ids().begin(), particles.Ids().end(), 0);
  return true;
}

bool StreamParticleChunk(HyperFile& file, const ParticleCacheHeader& header, std::size_t chunk,
                         i32 threads, const std::function<void(i32 count)>& nextList,
                         ColumnTaker& taker) {
  ParticleBounds bounds;
  GridLayout layout;
  const StoredParticles& stored = header.stores[chunk];
  if (stored.Count() == 0) return true;
  if (!ReadBounds(file, bounds) || !ReadLayout(file, layout)) return false;
  i32 first = 0;
  for (const i32 count : stored.lists) {
    nextList(count);
    if (!StreamColumns(file, {count, header.HasIds(), threads, first}, taker)) return false;
    first += count;
  }
  return true;
}

std::vector<ParticlePlaces> ReadParticlePlaces(HyperFile& file, const ParticleCacheHeader& header,
                                               i32 threads) {
  std::vector<ParticlePlaces> all(header.stores.size());
  for (std::size_t chunk = 0; chunk < all.size(); ++chunk) {
    i32 id, level;
    ParticleBounds bounds;
    GridLayout layout;
    if (!file.ReadChunkStart(id, level)) break;
    // Parts of several lists would have to be passed over to come to the next one.
    const StoredParticles& stored = header.stores[chunk];
    const bool isRead = stored.lists.size() == 1 && stored.Count() > 0 &&
                        ReadBounds(file, bounds) && ReadLayout(file, layout) &&
                        ReadPlaces(file, {stored.lists.front(), header.HasIds(), threads},
                                   all[chunk].ids, all[chunk].positions);
    if (!isRead) all[chunk] = {};
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) break;
  }
  return all;
}

std::string DescribeParticleCache(HyperFile& file) {
  ParticleCacheHeader header;
  std::string problem;
  if (!ReadParticleCacheHeader(file, header, problem)) return problem + "\n";
  i64 sum = 0;
  std::string lines;
  for (std::size_t i = 0; i < header.stores.size(); ++i) {
    sum += header.stores[i].Count();
    lines += fmt::format("Particle Group ({}): {}\n", i + 1, header.stores[i].Count());
  }
  return fmt::format("Particles: {}\nParticle Groups: {}\n{}", sum, header.stores.size(), lines);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
