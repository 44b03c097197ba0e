// The pipeline: its 26 stages in one table, by number. A frame that is simulated runs 0, 1, then 2
// to 16 and 18 once per substep, then 19 to 23, and 17 behind that; 24 takes the place of 1 where a
// frame is only looked at again.
#pragma once
#include <array>
#include <string_view>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum Stage : i32 {
  kLoadCache = 0,
  kStartSimulation = 1,
  kInitialiseSubstep = 2,
  kVolumes = 3,
  kCalculateBounds = 4,
  kEmitters = 5,
  kAdvection = 6,
  kOperators = 7,
  kFluidDynamics = 8,
  kForcesEmission = 9,
  kPressure = 10,
  kFlip = 11,
  kFluidDynamicsPost = 12,
  kChannels = 13,
  kChannelsAdvection = 14,
  kChannelsOperators = 15,
  kFinish = 16,
  kSaveCache = 17,
  kFinishSubstep = 18,
  kStartVisual = 19,
  kReconstruction = 20,
  kMeshing = 21,
  kVisualPost = 22,
  kFinishVisual = 23,
  kUpdate = 24,
  kProcess = 25,
  kStageCount = 26,
};

struct StageRow {
  i32 number;
  std::string_view name;  ///< the text of the status line and the statistics
  std::string_view work;  ///< what happens in it
};

inline constexpr std::array<StageRow, kStageCount> kPipeline = {{
    // clang-format off
    { 0, "Load Cache",                         "caches open the file of the frame and hand on its sizes"},
    { 1, "Start Simulation Stage",             "parameters, links and changes of all objects but the caches"},
    // Stages 2 to 16 and 18: once per substep.
    { 2, "Initialise Framework sub-stepping",  "parts without a node make ready for the step"},
    { 3, "Volumes",                            "parts without a node move; meshes take shape, volumes distances"},
    { 4, "Calculate Bounds",                   "solvers, then channels, fit their boxes to the content"},
    { 5, "Emitters",                           "solid level set and open fractions; emission; played grids are filled"},
    { 6, "Advection",                          "the velocity, then the fields that it carries, move on"},
    { 7, "Operators",                          "combustion, density, points to grids, changes of meshes"},
    { 8, "Fluid Dynamics",                     "liquids take their particles' velocity to their grid"},
    { 9, "Forces Emission",                    "forces change the velocity"},
    {10, "Pressure",                           "velocities at walls, projection, extrapolation into solids"},
    {11, "FLIP",                               "the gas rests until the next step finds content in its box"},
    {12, "Fluid Dynamics Post",                "nodes that are moved here; no kind has it as its own"},
    {13, "Channels",                           "nodes that are moved here; no kind has it as its own"},
    {14, "Channels Advection",                 "nodes that are moved here; no kind has it as its own"},
    {15, "Channels Operators",                 "cooling, dissipation, blurring; particles change hands"},
    {16, "Finish",                             "objects take the step over; boxes of data and fastest speed"},
    {17, "Save Cache",                         "caches write the frame, at the end of the evaluation"},
    {18, "Finish Framework sub-stepping",      "the clock moves on by the step"},
    // Stages 19 to 23: once per frame.
    {19, "Start Visual Stage",                 "deformers say where they take particles"},
    {20, "Reconstruction",                     "particles become level sets"},
    {21, "Meshing",                            "level sets become polygons"},
    {22, "Visual Stage Post",                  "copies of objects are placed at particles"},
    {23, "Finish Visual Stage",                "links are dropped"},
    {24, "Update",                             "as stage 1, for a refresh of the same frame"},
    {25, "Process",                            "set-up without a look at changes; no evaluation comes here"},
    // clang-format on
}};

constexpr u32 StageBit(i32 stage) { return 1u << stage; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
