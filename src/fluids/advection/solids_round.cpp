#include "fluids/advection/solids_round.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

bool Holds(std::span<const i32> solids, i32 solid) {
  return std::find(solids.begin(), solids.end(), solid) != solids.end();
}

}  // namespace

void SolidsRound::MeetVolumes(const std::vector<VolumeSolid>& volumes, const Leg& leg,
                              const Touch& touch, std::span<const i32> excluded, bool movers,
                              i32& solid, ParticleContact& first) {
  ParticleContact contact;
  for (i32 i = 0; i < static_cast<i32>(volumes.size()); ++i) {
    const bool isExcluded = (!movers && volumes[i].Moves()) || Holds(excluded, kFirstVolume + i);
    if (isExcluded || !volumes[i].Meet(leg, touch, contact)) continue;
    if (solid != kNone && contact.share >= first.share) continue;
    solid = kFirstVolume + i;
    first = contact;
  }
}

i32 SolidsRound::Meet(const FlowSolid* flow, const Leg& leg, bool isExact,
                      std::span<const i32> excluded, bool movers, ParticleContact& first) const {
  i32 solid = kNone;
  if (!flow || flow->IsEmpty()) {
    MeetVolumes(mVolumes, leg, {static_cast<f32>(mOffset), isExact}, excluded, movers, solid,
                first);
    return solid;
  }
  const Touch touch{static_cast<f32>(mOffset * flow->CellSize()), isExact};
  if (flow->MeetWall(leg, touch, first)) solid = kWall;
  if (mVolumesInFlows) {
    MeetVolumes(mVolumes, leg, {static_cast<f32>(mOffset), isExact}, excluded, movers, solid,
                first);
  } else if (flow->AsksObstacles(leg)) {
    MeetVolumes(flow->Obstacles(), leg, touch, excluded, movers, solid, first);
  } else if (ParticleContact contact; excluded.empty() && flow->MeetLevelSet(leg, touch, contact) &&
                                      (solid == kNone || contact.share < first.share)) {
    solid = kLevelSet;
    first = contact;
  }
  return solid;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
