// What the file of a cache tells of where it comes from.
#pragma once
#include <string>
#include <vector>

#include "cache/hyper_file.h"

namespace MELDO_GLOBAL {

/// An object of which a cache holds data.
struct StoredObject {
  std::string name;
  std::string unit;  ///< of its values, such as "m/s"; "1" for a plain number
};

/// The last chunk of a cache file. Files of older versions have none.
struct CacheOrigin {
  bool isPresent = false;
  std::string version;  ///< of the program
  u64 simulation = 0;   ///< fingerprint of what was simulated; 0 where nobody knows it
  std::string stem;     ///< the file's name before the number of its frame
  i32 number = 0;       ///< of the frame, as the name has it
  i32 frame = 0;        ///< of the scene
  double seconds = 0;   ///< of the simulation
  double fps = 0;
  std::vector<StoredObject> objects;  ///< one for each chunk before
};

/// The id of that chunk; those of objects count from 1.
inline constexpr i32 kOriginChunk = -1;

void WriteOrigin(HyperFile& file, const CacheOrigin& origin);
/// Reads what stands in that chunk, which was entered, up to its end.
bool ReadOrigin(HyperFile& file, CacheOrigin& origin);

}  // namespace MELDO_GLOBAL
