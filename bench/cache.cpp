// bench_cache FILE: speed and ratio of a grid cache's file, packed in every way.
//
// Every figure counts bytes of samples in memory: what the simulation sees of a cache.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "cache/grid_cache_file.h"
#include "host/worker_pool.h"
#include "timing.h"

using namespace MELDO_GLOBAL;

namespace {

std::vector<std::vector<double>> LoadSamples(const char* path) {
  HyperFile file;
  GridCacheHeader header;
  std::string problem;
  std::vector<std::vector<double>> all;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead) ||
      !ReadGridCacheHeader(file, header, problem))
    return all;
  for (const i32 chunk : header.chunks) {
    i32 id, level;
    file.ReadChunkStart(id, level);
    for (i32 c = 0; chunk >= 0 && !file.AtEnd(); ++c) {
      const StoredGrid& grid = header.grids[chunk];
      const VecInt3D d = grid.kind == kFaceX ? grid.DimsOf(c) : grid.dims;
      all.emplace_back(static_cast<std::size_t>(CountOf(d)));
      if (!ReadSamples(file, all.back(), 1)) return {};
    }
    file.ReadChunkEnd();
  }
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  const auto samples = argc > 1 ? LoadSamples(argv[1]) : std::vector<std::vector<double>>();
  if (samples.empty()) {
    fmt::print(stderr, "usage: bench_cache FILE, a frame of a grid cache\n");
    return 2;
  }
  double bytes = 0;
  for (const auto& grid : samples) bytes += static_cast<double>(grid.size() * sizeof(double));
  const i32 threads = host::ThreadCount();
  const auto path = std::filesystem::temp_directory_path() / "sulva_bench_cache";
  fmt::print("{:.1f} MB of samples, {} threads\n{:<8}{:>8}{:>16}{:>16}{:>16}\n", bytes / 1e6,
             threads, "packing", "ratio", "pack MB/s", "to disk MB/s", "from disk MB/s");
  const char* names[] = {"none", "fast", "small"};
  for (i32 compression = 0; compression < 3; ++compression) {
    const auto write = [&](HyperFile& file) {
      for (const auto& grid : samples)
        WriteBlock(file, std::span<const double>(grid), {compression, threads});
    };
    const double pack = Best([&] {
      HyperFile file;
      file.StartMemory(kCacheIdent);
      write(file);
    });
    std::size_t size = 0;
    const double toDisk = Best([&] {
      HyperFile file;
      file.Open(kCacheIdent, path, HyperFile::Mode::kWrite);
      write(file);
      file.Close();
      size = file.Size();
    });
    std::vector<double> target;
    const double fromDisk = Best([&] {
      HyperFile file;
      file.Open(kCacheIdent, path, HyperFile::Mode::kRead);
      for (const auto& grid : samples) {
        target.resize(grid.size());
        ReadSamples(file, target, threads);
      }
    });
    fmt::print("{:<8}{:>8.2f}{:>16.0f}{:>16.0f}{:>16.0f}\n", names[compression],
               bytes / static_cast<double>(size), bytes / pack / 1e6, bytes / toDisk / 1e6,
               bytes / fromDisk / 1e6);
  }
  std::filesystem::remove(path);
  return 0;
}
