// What stands before the state in a checkpoint.
#pragma once
#include <string>
#include <vector>

#include "cache/cache_origin.h"
#include "host/document.h"

namespace MELDO_GLOBAL::app {

inline constexpr u32 kCheckpointIdent = IdentOf("svcp");
/// Goes up with whatever an object keeps. Format 1 doesn't tell the nodes; 2 holds a pass of each
/// object.
inline constexpr i32 kCheckpointFormat = 15;

/// Where a run stands after a frame.
struct RunState {
  i32 frame = 0;
  i32 framesWritten = 0;  ///< lines of the statistics
};

struct CheckpointHeader {
  std::string version;  ///< of the program
  u64 scene = 0;        ///< fingerprint of the scene
  RunState run;
  i32 format = kCheckpointFormat;
  /// Whose state it is, in the order of the state; of a node without a field the unit is empty.
  std::vector<StoredObject> nodes;
};
void WriteCheckpointHeader(HyperFile& file, const CheckpointHeader& header);
/// False where what was found is no header. The nodes of another format stay unread.
bool ReadCheckpointHeader(HyperFile& file, CheckpointHeader& header);

/// The nodes of a document that keep a state, and the meshes that they may write, as checkpoints
/// name them: each by a name that no other node has. What only pictures are made of isn't among
/// them.
std::vector<StoredObject> NodesOf(const host::Document& document);

/// Why this build can't go on from a checkpoint, or not with the nodes of a document: one clause;
/// empty where it can.
std::string MisfitOf(const CheckpointHeader& header, const host::Document& document);

}  // namespace MELDO_GLOBAL::app
