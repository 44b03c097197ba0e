// What a user wants to know of a solver: how many cells it has, and how large they are.
#pragma once
#include <string>

#include "framework/scene.h"

namespace MELDO_GLOBAL::app {

/// Lines about the container that each solver of a scene has now, in the order of the list; a
/// solver without one is told by a line of its own.
std::string DescribeSolvers(const MELDO_SULVA::Scene& scene);

/// The particles of the groups of a scene by kind.
std::string DescribeParticles(const MELDO_SULVA::Scene& scene);

}  // namespace MELDO_GLOBAL::app
