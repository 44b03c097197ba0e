// All that may stop a particle.
#pragma once
#include <span>
#include <vector>

#include "fluids/advection/flow_solid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The solids that stop particles in a step: the walls and obstacles of a flow, or volumes one by
/// one. Finds the first one that a leg meets.
class SolidsRound {
 public:
  /// What a contact is with; volumes have the numbers from `kFirstVolume` on.
  enum Solid : i32 { kNone = -1, kWall = 0, kLevelSet = 1, kFirstVolume = 2 };

  /// `offset` is how far off surfaces a particle stops: in cells in a flow, in simulation units off
  /// the volumes, which count in a flow only where `volumesInFlows` says so.
  SolidsRound(const std::vector<VolumeSolid>& volumes, double offset, bool volumesInFlows)
      : mVolumes(volumes), mOffset(offset), mVolumesInFlows(volumesInFlows) {}

  /// Whether a leg in a flow is so far off everything that it meets nothing.
  bool IsClear(const FlowSolid& flow, const Leg& leg) const {
    return !mVolumesInFlows && flow.IsClear(leg, mOffset);
  }
  /// The first solid that a leg meets, but for those `excluded`, or `kNone`; `flow` is what is
  /// solid about the flow round the particle, or null. Without `movers` what moves in the step
  /// doesn't count.
  i32 Meet(const FlowSolid* flow, const Leg& leg, bool isExact, std::span<const i32> excluded,
           bool movers, ParticleContact& first) const;

 private:
  static void MeetVolumes(const std::vector<VolumeSolid>& volumes, const Leg& leg,
                          const Touch& touch, std::span<const i32> excluded, bool movers,
                          i32& solid, ParticleContact& first);

  const std::vector<VolumeSolid>& mVolumes;
  double mOffset;
  bool mVolumesInFlows;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
