// Volume files for other tools.
//
// Voxels are counted in cells from the origin of the simulation, so that a voxel keeps its index
// while a container grows. Positions are in simulation units (metres): voxel (i, j, k) of a field
// at cell centres, or of a staggered field, stands at ((i, j, k) + 0.5) times the cell size; of a
// field at nodes at (i, j, k) times the cell size. Component a of a staggered vector belongs to the
// low face of the voxel on axis a. Values are single precision, the transform is double.
#pragma once
#include <string>
#include <vector>

#include "io/export_origin.h"
#include "io/field.h"

namespace MELDO_GLOBAL::app {

struct NamedField {
  std::string name;
  Field field;
  i32 sampleKind = -1;  ///< of a cache's grid, which a cache that plays it asks for; -1 untold
};

/// The metadata that keep `NamedField::sampleKind`.
inline constexpr const char* kSampleKindKey = "sample_kind";

/// Half the width of the band of a level set in which distances are exact, in cells.
inline constexpr int kLevelSetBand = 3;

/// The bytes of a file with one volume per field. Scalars are fog volumes with background 0 whose
/// active voxels are those that are not 0; level sets hold exact distances within `kLevelSetBand`
/// cells of the surface and plus or minus that distance elsewhere; velocities are active in the
/// whole container. A field without a grid gives an empty volume. The file's identifier is made
/// from its content: equal fields give equal bytes. Each volume has its origin, the unit of its
/// values and that of lengths as metadata.
std::string EncodeVdb(const std::vector<NamedField>& fields, const ExportOrigin& origin = {});

}  // namespace MELDO_GLOBAL::app
