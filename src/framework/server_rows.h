// The parameters of a server that others speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::server_row {

enum Row : i32 {
  kHostUnits = 1000,
  kSimulationUnits = 1001,
  kCellSize = 1002,
  kTimeMode = 1003,
  kFixedStep = 1004,
  kExtraSubsteps = 1005,
  kUsePreviewRange = 1006,
  kFirstFrame = 1007,
  kLastFrame = 1008,
  kExtraMinSubsteps = 1010,
  kGravity = 1012,
  kTimeScale = 1013,
  kRenderCellSize = 1015,
  kRigidIterations = 1300,
  kRigidSubsteps = 1301,
  kRigidBroadphase = 1302,
  // A viewport's, and how the iso density of particles is measured: see `ParticleIsoDensity`.
  kIsoKernel = 1400,
  kShowStatistics = 1401,
  kDisplayScale = 1402,
};

/// Those from which the lattice of the fields and the start of the simulation follow: a change
/// starts it anew.
inline constexpr Row kRestarting[] = {kHostUnits,      kSimulationUnits, kCellSize,
                                      kRenderCellSize, kUsePreviewRange, kFirstFrame};

}  // namespace MELDO_GLOBAL::MELDO_SULVA::server_row
