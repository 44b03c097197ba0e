// Frames that play from caches, so that nothing has to be simulated.
#pragma once
#include <filesystem>
#include <set>

#include "run/simulation.h"

namespace MELDO_GLOBAL::app {

/// If the caches hold these nodes (channels and solvers) in all frames, sets the document up to
/// play them alone: whatever else works in the scenes is switched off, and the caches record
/// nothing. Any of the frames may then be evaluated first. Only caches that play count, with
/// `anyMode` those that only record as well. Otherwise nothing changes, and the answer is false.
bool PlayRecordedFrames(const Simulation& simulation, const std::set<host::NodeId>& nodes,
                        const FrameRange& frames, bool anyMode);

/// Before pictures are made: caches that rest while a scene is only simulated work.
void WakeRenderCaches(host::Document& document);

/// Whether a cache of the scenes records.
bool HasRecordingCache(const Simulation& simulation);

/// A file of another simulation than `own` in the place of a recording of the scenes; empty where
/// there is none. Of each recording the first and the last file are asked.
std::filesystem::path ForeignRecording(const Simulation& simulation, u64 own);

}  // namespace MELDO_GLOBAL::app
