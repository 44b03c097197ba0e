// bench_particle_cache [MILLIONS] [FOLDER] [keep]: speed of a particle cache's file, packed in
// every way; with `keep` the files stay in the folder, as none.cache, fast.cache and small.cache.
//
// Every figure counts bytes of particles in memory, those of a liquid: places, velocities, ages and
// where each was before. Beside them stands what the disk does with as many plain bytes.
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "cache/particle_cache_file.h"
#include "fluids/particles/particle.h"
#include "grids/random_stream.h"
#include "host/atomic_file.h"
#include "host/worker_pool.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

void Fill(ParticleStore& store, i32 count) {
  GridLayout unit;
  unit.Set({1, 1, 1}, {1, 1, 1}, 0.01f, {});
  store.Reset(unit);
  store.SetCount(count);
  RandomStream stream;
  auto& ages = store.Require<double>(property_id::kAge);
  auto& before = store.Require<Vec3d>(property_id::kOldPosition);
  const auto vector = [&] {
    return Vec3d{stream.NextUnit(), stream.NextUnit(), stream.NextUnit()};
  };
  // Neighbours in the rows are neighbours in space, as particles that a volume was filled with are.
  for (i32 row = 0; row < count; ++row) {
    store.Ids()[row] = row;
    store.Flags()[row] = PF_ALIVE | PF_KIND_LIQUID;
    store.Velocities()[row] = vector() * 0.1 + Vec3d{1, 0, 0};
    store.Positions()[row] = Vec3d{1e-6 * row, 0, 0} + vector() * 0.01;
    before.Set(row, store.Positions()[row] - store.Velocities()[row] * 0.01);
    ages.Set(row, 100);
  }
  store.UpdateBounds(host::ThreadCount());
}

}  // namespace

int main(int argc, char** argv) {
  const double millions = argc > 1 ? std::atof(argv[1]) : 1;
  const std::filesystem::path folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
  const bool keeps = argc > 3 && std::string_view(argv[3]) == "keep";
  const auto path = folder / "sulva_bench_particle_cache";
  const i32 threads = host::ThreadCount(), count = static_cast<i32>(millions * 1e6);
  ParticleStore store;
  Fill(store, count);
  constexpr double kRow = sizeof(i32) + sizeof(u16) + 3 * sizeof(Vec3d) + sizeof(double);
  const double bytes = kRow * count;
  const std::string plain(static_cast<std::size_t>(bytes), 'x');
  const double disk = Best([&] { host::WriteFileAtomically(path, plain); });
  const double fromDisk = Best([&] { host::ReadFile(path); });
  fmt::print(
      "{:.1f} million particles, {:.0f} MB, {} threads; plain bytes to disk {:.0f} MB/s, "
      "from disk {:.0f} MB/s\n{:<8}{:>8}{:>14}{:>14}{:>14}{:>14}\n",
      millions, bytes / 1e6, threads, bytes / disk / 1e6, bytes / fromDisk / 1e6, "packing",
      "ratio", "pack MB/s", "unpack MB/s", "to disk", "from disk");
  const char* names[] = {"none", "fast", "small"};
  for (i32 compression = 0; compression < 3; ++compression) {
    const ParticleSource sources[] = {{&store, &store}};
    const auto write = [&](HyperFile& file) {
      WriteParticleCache(file, store.Layout(), sources, {}, false, {compression, threads});
    };
    ParticleColumns target;
    const auto read = [&](HyperFile& file) {
      ParticleCacheHeader header;
      std::string problem;
      i32 id, level;
      return ReadParticleCacheHeader(file, header, problem) && file.ReadChunkStart(id, level) &&
             ReadParticleChunk(file, header, 0, {}, threads, target);
    };
    std::string whole;
    const double pack = Best([&] {
      HyperFile file;
      file.StartMemory(kCacheIdent);
      write(file);
      whole = file.TakeBytes();
    });
    const double size = static_cast<double>(whole.size());
    HyperFile memory;
    memory.OpenMemory(kCacheIdent, std::move(whole));
    bool isRead = true;
    const double unpack = Best([&] { isRead = read(memory) && isRead; });
    const double toDisk = Best([&] {
      HyperFile file;
      file.Open(kCacheIdent, path, HyperFile::Mode::kWrite);
      write(file);
      file.Close();
    });
    const double back = Best([&] {
      HyperFile file;
      isRead = file.Open(kCacheIdent, path, HyperFile::Mode::kRead) && read(file) && isRead;
    });
    if (!isRead || target.Count() != count) return 1;
    if (keeps) std::filesystem::rename(path, folder / (std::string(names[compression]) + ".cache"));
    fmt::print("{:<8}{:>8.2f}{:>14.0f}{:>14.0f}{:>14.0f}{:>14.0f}\n", names[compression],
               bytes / size, bytes / pack / 1e6, bytes / unpack / 1e6, bytes / toDisk / 1e6,
               bytes / back / 1e6);
  }
  std::filesystem::remove(path);
  return 0;
}
