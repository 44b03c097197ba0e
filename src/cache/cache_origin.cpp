#include "cache/cache_origin.h"

namespace MELDO_GLOBAL {

void WriteOrigin(HyperFile& file, const CacheOrigin& origin) {
  file.WriteChunkStart(kOriginChunk, 0);
  file.WriteText(origin.version);
  file.WriteLLong(static_cast<i64>(origin.simulation));
  file.WriteText(origin.stem);
  file.WriteLong(origin.number);
  file.WriteLong(origin.frame);
  file.WriteLReal(origin.seconds);
  file.WriteLReal(origin.fps);
  for (const StoredObject& object : origin.objects) {
    file.WriteText(object.name);
    file.WriteText(object.unit);
  }
  file.WriteChunkEnd();
}

bool ReadOrigin(HyperFile& file, CacheOrigin& origin) {
  origin = {};
  i64 simulation = 0;
  if (!file.ReadText(origin.version) || !file.ReadLLong(simulation) ||
      !file.ReadText(origin.stem) || !file.ReadLong(origin.number) ||
      !file.ReadLong(origin.frame) || !file.ReadLReal(origin.seconds) ||
      !file.ReadLReal(origin.fps))
    return false;
  origin.simulation = static_cast<u64>(simulation);
  while (!file.AtEnd()) {
    StoredObject& object = origin.objects.emplace_back();
    if (!file.ReadText(object.name) || !file.ReadText(object.unit)) return false;
  }
  origin.isPresent = true;
  return true;
}

}  // namespace MELDO_GLOBAL
