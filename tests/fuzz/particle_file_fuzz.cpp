// Any bytes as a particle file of any format: the first byte picks which.
#include "exchange/particle_files.h"
#include "host/file_error.h"

using namespace MELDO_GLOBAL;

namespace {

/// The readers that are our own.
const std::vector<const exchange::ParticleFormat*>& Readers() {
  static const std::vector<const exchange::ParticleFormat*> readers = [] {
    std::vector<const exchange::ParticleFormat*> found;
    for (const exchange::ParticleFormat* format : exchange::ParticleFormats())
      if (format->read) found.push_back(format);
    return found;
  }();
  return readers;
}

}  // namespace

// The volume library stands apart: it isn't ours to search.
const exchange::ParticleFormat& exchange::VdbPointsFormat() {
  static const ParticleFormat format = {.name = "vdb"};
  return format;
}

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const exchange::ParticleFormat& format = *Readers()[data[0] % Readers().size()];
  try {
    const exchange::ParticleTable table = exchange::ParseParticles(bytes, format);
    for (const exchange::ParticleColumn& column : table.Columns()) {
      const std::size_t values =
          std::visit([](const auto& list) { return list.size(); }, column.values);
      if (values != static_cast<std::size_t>(table.Count()) * column.components) __builtin_trap();
    }
    if (format.write && table.Find("position", 3)) exchange::EncodeParticles(table, format);
  } catch (const host::FileError& error) {
    if (!*error.what()) __builtin_trap();
  }
  return 0;
}
