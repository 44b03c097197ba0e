// The rows of an obstacle tag that hints speak of.
#pragma once
#include "host/node.h"
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row {

constexpr i32 kMass = 2002, kDensity = 2003, kMassMode = 2008, kStartDirection = 2023,
              kStartSpeed = 2024, kWakeOnContact = 2032, kWakeOnForce = 2034, kBaked = 2036,
              kFollowBake = 2040;
constexpr i32 kLinearDamping = 2009, kAngularDamping = 2010, kRestitution = 2012, kFriction = 2013,
              kRollingFriction = 2014;

/// A row that lists constraints, and the row of the value that these limit.
struct Limited {
  i32 constraints, value;
};
constexpr Limited kLinearDampingLimits{2025, kLinearDamping},
    kAngularDampingLimits{2026, kAngularDamping}, kFrictionLimits{2027, kFriction},
    kRollingFrictionLimits{2028, kRollingFriction}, kRestitutionLimits{2029, kRestitution};

/// Keys of the tag may give it a mass, in whatever frame.
inline bool MayGetMass(const host::BaseNode& tag) {
  const auto& tracks = tag.Tracks();
  return tracks.contains(kMass) || tracks.contains(kDensity) || tracks.contains(kMassMode);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row
