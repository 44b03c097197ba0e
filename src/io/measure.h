// Statistics of channels, solvers and particles.
#pragma once
#include "fluids/particles/particle_group.h"
#include "fluids/solvers/fluid_solver.h"
#include "framework/scene.h"
#include "io/frame_record.h"
#include "scene/node_names.h"

namespace MELDO_GLOBAL::app {

/// Minimum, maximum and sum of every component over all samples of its grid. Sums go layer by
/// layer in layer order, so that they don't depend on the thread count. A value that is not finite
/// makes the sum not finite.
ChannelRecord MeasureChannel(MELDO_SULVA::iBase& channel, i32 threads);

/// The largest component and the kinetic energy of a solver's velocity, and what its projections
/// reported since the last call.
///
/// The energy is that of the cells 1 to n - 2: each takes half of each of its faces, so that a face
/// with open fraction f between two of them counts 1/2 rho f u^2 h^3, with rho the solver's
/// constant density. The largest component is taken over all faces whose open fraction is above 0.
SolverRecord MeasureSolver(MELDO_SULVA::FluidSolver& solver, i32 threads);

/// What the particles of a group are together, and how many were born and died since the last call.
/// Means are sums of fixed blocks, and so don't depend on the thread count.
ParticlesRecord MeasureParticles(MELDO_SULVA::ParticleGroup& group, i32 threads);

/// Adds the channels, solvers and particles of a scene to a record.
void MeasureScene(const MELDO_SULVA::Scene& scene, const NodeNames& names, FrameRecord& record);

}  // namespace MELDO_GLOBAL::app
