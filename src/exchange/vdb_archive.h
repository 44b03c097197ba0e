// Grids of the volume library as the bytes of a file; for the sources that include it alone.
#pragma once
#include <openvdb/openvdb.h>

#include <string>
#include <vector>

#include "exchange/byte_source.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::exchange {

/// Gives a grid texts and numbers as metadata, and says who made it.
void Describe(openvdb::GridBase& grid, const std::vector<Remark>& remarks);

/// The bytes of a file with the grids. Its identifier is made from its content: equal grids give
/// equal bytes.
std::string EncodeArchive(const openvdb::GridCPtrVec& grids);

/// Whether the identifier of a file is of our own making, and whether the content is another one
/// than it was made from.
enum class ArchiveState { Foreign, Whole, Damaged };
/// Rewinds the source.
ArchiveState StateOfArchive(ByteSource& source);

}  // namespace MELDO_GLOBAL::exchange
