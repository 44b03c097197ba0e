// What exports and pictures say of where they come from.
#pragma once
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cache/cache_origin.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::app {

struct ExportOrigin {
  std::string version;  ///< of the program
  i32 frame = 0;
  std::optional<double> seconds = 0;  ///< of the simulation; none where they don't count
  double fps = 0;
  u64 simulation = 0;  ///< fingerprint of what was simulated
};

/// What files of grids and particles carry of it, with the unit of their values.
std::vector<exchange::Remark> RemarksOf(const ExportOrigin& origin, const std::string& unit);

/// Keys and texts that a file carries, in their order.
using FileTexts = std::vector<std::pair<std::string, std::string>>;

/// The origin of a picture and the fields that it shows, for formats that carry texts. No date is
/// among them: equal runs give equal files.
FileTexts TextsOf(const ExportOrigin& origin, const std::vector<StoredObject>& fields);

/// The nodes that have a unit, such as "smoke [1], gas [m/s]"; control characters are escaped.
std::string FieldsText(const std::vector<StoredObject>& nodes);

}  // namespace MELDO_GLOBAL::app
