// The pipeline: its 26 stages in one table, in the order in which they run.
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
    { 0, "Load Cache",                         "caches read their frame"},
    { 1, "Start Simulation Stage",             "set-up passes and dirty checks over all lists"},
    // Stages 2 to 16 and 18: once per substep.
    { 2, "Initialise Framework sub-stepping",  "rigid bodies of collider meshes clear their contacts"},
    { 3, "Volumes",                            "the rigid-body world steps; meshes move, volumes voxelise"},
    { 4, "Calculate Bounds",                   "channels and solvers fit to the box of active data"},
    { 5, "Emitters",                           "solid level set and fractions; emission into channels"},
    { 6, "Advection",                          "scalars, vectors and velocity move with the flow"},
    { 7, "Operators",                          "combustion, density, particle and mesh operators"},
    { 8, "Fluid Dynamics",                     "liquid solver steps"},
    { 9, "Forces Emission",                    "forces change the velocity"},
    {10, "Pressure",                           "viscosity, solid velocities, projection, extrapolation"},
    {11, "FLIP",                               "liquid reads the change back; the gas frees its workers"},
    {12, "Fluid Dynamics Post",                "objects"},
    {13, "Channels",                           "objects"},
    {14, "Channels Advection",                 "objects"},
    {15, "Channels Operators",                 "cooling, dissipation, diffusion"},
    {16, "Finish",                             "ranges and statistics of the step"},
    {17, "Save Cache",                         "caches write their frame, at the end of the evaluation"},
    {18, "Finish Framework sub-stepping",      "marks the end of a substep"},
    // Stages 19 to 23: once per frame.
    {19, "Start Visual Stage",                 "objects"},
    {20, "Reconstruction",                     "surfaces from particles"},
    {21, "Meshing",                            "level sets become meshes"},
    {22, "Visual Stage Post",                  "foam and render geometry"},
    {23, "Finish Visual Stage",                "links are dropped"},
    {24, "Update",                             "as stage 1, for a refresh of the same frame"},
    {25, "Process",                            "the three set-up passes alone"},
    // clang-format on
}};

constexpr u32 StageBit(i32 stage) { return 1u << stage; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
