// Which narrow gaps are worth a word.
#include <algorithm>
#include <cmath>
#include <map>

#include "fluids/flow/narrow_gaps.h"
#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kUnresolved = 0.5;    // cells
constexpr double kComesNearer = 0.01;  // cells in a step
constexpr std::size_t kLooksAtPair = 8;  // at a pair of solids in a step

/// A solid by the node of its volume, 0 for a wall. A volume that no scene file names has no node.
u64 IdOf(const SolidSurfaces& solids, i32 solid) {
  if (solid < 0) return 0;
  const host::BaseNode* node = solids.Volume(solid)->Node();
  return node ? node->Id() : ~static_cast<u64>(solid);
}

std::pair<u64, u64> PairOf(const SolidSurfaces& solids, i32 one, i32 other) {
  return std::minmax({IdOf(solids, one), IdOf(solids, other)});
}

}  // namespace

void NarrowGaps::Tell(const SolidSurfaces& solids, const GapProbe::Gap& gap, double cell) {
  if (gap.width >= kUnresolved * cell || gap.width < kLeastOpening * cell) return;
  // Behind the crease of a mesh that crosses itself its triangles seem to leave room.
  if (gap.one == gap.other && !gap.isParallel) return;
  const auto volume = [&](i32 solid) { return solid < 0 ? nullptr : solids.Volume(solid); };
  const VolumeBase *one = volume(gap.one), *other = volume(gap.other);
  const auto way = [&](const VolumeBase* side) {
    return side && GridBoundary::TravelOf(*side) > 0 ? side->SurfaceVelocityAt(gap.at) : Vec3d{};
  };
  // Bodies come to lie on others, which no one means as a gap.
  const auto isBody = [](const VolumeBase* side) {
    return side && side->GetMesh() && side->GetMesh()->IsDynamic();
  };
  if (isBody(one) || isBody(other)) return;
  // One that a body has just left, or is about to close, is no way that smoke might take.
  if (std::fabs(Dot(way(one) - way(other), gap.normal)) > kComesNearer * cell) return;
  if (!one) std::swap(one, other);
  const auto pair = PairOf(solids, gap.one, gap.other);
  if (!one || std::find(mTold.begin(), mTold.end(), pair) != mTold.end()) return;
  mTold.push_back(pair);
  mPlaces.push_back({one, other, gap.at, gap.width / cell});
}

void NarrowGaps::FindPlaces(const SolidSurfaces& solids, double cell) {
  std::map<std::pair<u64, u64>, std::vector<const Suspect*>> pairs;
  for (const Suspect& suspect : mSuspects)
    pairs[PairOf(solids, suspect.one, suspect.other)].push_back(&suspect);
  const GapProbe probe(solids, cell);
  for (const auto& [pair, suspects] : pairs) {
    const std::size_t looks = std::min(suspects.size(), kLooksAtPair);
    for (std::size_t i = 0; i < looks; ++i) {
      if (std::find(mTold.begin(), mTold.end(), pair) != mTold.end()) break;
      // The narrowest place may lie between others.
      if (const auto gap = probe.Look(suspects[i * suspects.size() / looks]->at))
        Tell(solids, *gap, cell);
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
