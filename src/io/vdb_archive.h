// Grids of the volume library as the bytes of a file; for the sources that include it alone.
#pragma once
#include <openvdb/openvdb.h>

#include <string>

#include "io/export_origin.h"

namespace MELDO_GLOBAL::app {

/// Gives a grid its origin, the unit of its values and that of lengths as metadata.
void Describe(openvdb::GridBase& grid, const char* unit, const ExportOrigin& origin);

/// The bytes of a file with the grids. Its identifier is made from its content: equal grids give
/// equal bytes.
std::string EncodeArchive(const openvdb::GridCPtrVec& grids);

}  // namespace MELDO_GLOBAL::app
