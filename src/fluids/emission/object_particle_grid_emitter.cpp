#include "fluids/emission/object_particle_grid_emitter.h"

#include <algorithm>
#include <limits>
#include <span>

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ObjectParticleGridEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300006,
      .type = "particlegridemitter",
      .label = "Emitter::Particle In Volume",
      .className = "ObjectParticleGridEmitter",
      .typeId = 7,
      .list = kListEmitters,
      .categories = kCategoryParticle,
      .stages = {kEmitters},
      .priority = 5,
      .menu = {"Particles/Emitters"},
      .purpose = "fills a volume with particles and keeps it full",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "particlegroup", "name": "dust" })",
            R"({ "type": "particlemesh_emission_setting", "name": "fill" })",
            R"({ "type": "particlegridemitter", "name": "source", "parameters": { "group": "dust", "kind": "passive", "volume": "ball volume", "settings": "fill" } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "dust", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ObjectParticleGridEmitter>,
  };
  return kind;
}

const ParameterTable& ObjectParticleGridEmitter::Parameters() {
  static const ParameterTable table = WithRows(
      {.settings = 1003, .properties = 1004},
      {LinkRow(kVolumeRow, "volume", "the shape that is filled, and kept full")
           .AcceptsAny({kListGeometry, kCategoryVolume})
           .To(&ObjectParticleGridEmitter::mVolume)
           .Required(),
       AbsentLinksRow(kSolversRow, "solvers",
                      "the liquids in whose cells alone it fills; without the list, those that the "
                      "particles belong to; a gas limits nothing")
           .AcceptsAny(kSolvers)
           .To(&ObjectParticleGridEmitter::mNamedSolvers),
       BoolRow(1007, "per_sample", true,
               "constraints are asked at every particle; switched off, once for a cell")
           .To(&ObjectParticleGridEmitter::mPerSample),
       RealRow(1013, "inner_limit", 1.0, "none",
               "how deep it fills, as a share of the greatest depth: below 1 leaves the core empty")
           .Range(0, 1)
           .To(&ObjectParticleGridEmitter::mInnerLimit),
       RealRow(1014, "outer_limit", 0.0, "none",
               "how far beyond the surface it fills, as a share of the greatest depth")
           .AtLeast(-1)
           .To(&ObjectParticleGridEmitter::mOuterLimit),
       RealRow(1015, "band_limit", -3.0, "cells",
               "the distance from the surface, negative inside, that parts the two subdivisions")
           .Missing(0.0)
           .To(&ObjectParticleGridEmitter::mBandCells),
       LongRow(1016, "outer_subdivision", 1, "",
               "how often a cell near the surface is halved: 0 is a particle a cell, 1 is 8, 2 is "
               "64")
           .Range(0, 8)
           .To(&ObjectParticleGridEmitter::mOuterSubdivision),
       LongRow(1017, "inner_subdivision", 1, "", "how often a cell below the band limit is halved")
           .Range(0, 8)
           .To(&ObjectParticleGridEmitter::mInnerSubdivision),
       LinkRow(1018, "colour_image", "an image that gives the property color where it is hung up",
               {kImageObject})
           .To(&ObjectParticleGridEmitter::mColourImage),
       RealRow(1019, "minimum_spacing", 1.0, "none",
               "how near to another one a new particle may be, in steps of its lattice")
           .Missing(0.5)
           .AtLeast(0)
           .To(&ObjectParticleGridEmitter::mMinSpacing)});
  return table;
}

ObjectParticleGridEmitter::ObjectParticleGridEmitter(BaseNode* node, Scene* scene)
    : ParticleEmitter(node, scene) {}

bool ObjectParticleGridEmitter::ReadParameters() {
  if (!ParticleEmitter::ReadParameters()) return false;
  mBand = mBandCells * GetDomain().cellSize;
  return true;
}

bool ObjectParticleGridEmitter::IsDue() const {
  double weight = 1;
  return mVolume && mSettings && mSettings->IsOpen(mTime->elapsed, weight);
}

void ObjectParticleGridEmitter::ExpandBounds(Vec3d& min, Vec3d& max) {
  std::vector<VolumeBase*> members;
  if (IsDue()) mVolume->CollectMembers(members);
  for (VolumeBase* member : members)
    if (member->HasGridData()) member->ExpandBounds(min, max);
}

void ObjectParticleGridEmitter::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                                   Vec3d& max) {
  std::vector<VolumeBase*> members;
  if (IsDue()) mVolume->CollectMembers(members);
  for (VolumeBase* member : members)
    if (member->HasGridData()) member->ExpandBoundsWithin(low, high, min, max);
}

ObjectParticleGridEmitter::Lattice ObjectParticleGridEmitter::LatticeOf(i32 subdivision,
                                                                        double cell) const {
  Lattice lattice;
  lattice.perAxis = 1 << subdivision;
  lattice.step = cell / lattice.perAxis;
  lattice.spacing = lattice.step * mMinSpacing;
  return lattice;
}

ObjectParticleGridEmitter::Limits ObjectParticleGridEmitter::LimitsIn(
    const VolumeBase& volume) const {
  return {-mInnerLimit * volume.mMaximumDistance, mOuterLimit * volume.mMaximumDistance,
          mInnerLimit != 1.0};
}

double ObjectParticleGridEmitter::CountWanted() const {
  double count = 0;
  for (const VolumeBase* member : mMembers) {
    const EGrid<double>& grid = *member->GetGrid();
    const double cell = grid.mLayout.cellSize;
    const Limits limits = LimitsIn(*member);
    // Places in a cell lie up to half of its diagonal off a node.
    const double low = limits.hasLow ? limits.low - cell : -std::numeric_limits<double>::max();
    const double outer = LatticeOf(mOuterSubdivision, cell).Count(),
                 inner = LatticeOf(mInnerSubdivision, cell).Count();
    const VecInt3D end = grid.Dims() - VecInt3D{2, 2, 2};
    count += SumBlocks(std::max(end.z - 1, 0), 1, mScene->mThreadCount, [&](i64 first, i64 last) {
      double sum = 0;
      ForEachCell({{1, 1, static_cast<i32>(first) + 1}, {end.x, end.y, static_cast<i32>(last) + 1}},
                  [&](i32 x, i32 y, i32 z) {
                    const double phi = grid(x, y, z);
                    if (phi < limits.high && phi >= low) sum += phi >= mBand ? outer : inner;
                  });
      return sum;
    });
  }
  return count;
}

void ObjectParticleGridEmitter::FindLiquids() {
  mLiquids.clear();
  std::vector<iFluidSolver*> solvers = mNamedSolvers;
  if (solvers.empty())
    for (const auto& [id, object] : mScene->List(kListSolvers))
      solvers.push_back(dynamic_cast<iFluidSolver*>(object.get()));
  for (const iFluidSolver* solver : solvers) {
    if (!solver || !solver->Has(FLAG_ENABLED)) continue;
    const std::vector<ParticleGroup*>* groups = solver->LiquidGroups();
    if (!groups || groups->empty()) continue;
    const bool isOurs =
        mKind == kLiquid && std::find(groups->begin(), groups->end(), mGroup) != groups->end();
    if (isOurs || !mNamedSolvers.empty()) mLiquids.push_back(&solver->GetFlow());
  }
}

void ObjectParticleGridEmitter::Prepare() {
  mMembers.clear();
  if (!PrepareEmission()) return;
  SetFlag(FLAG_ACTIVE, false);
  if (!mVolume) return void(Deactivate("it has no volume; name one under 'volume'"));
  mVolume->CollectMembers(mMembers);
  std::erase_if(mMembers, [](const VolumeBase* member) { return !member->HasGridData(); });
  if (mMembers.empty()) return void(Deactivate("its volume has no grid"));
  i32 layers = 0;
  for (const VolumeBase* member : mMembers) layers = std::max(layers, member->GetGrid()->mNz - 3);
  if (layers <= 0) return void(Deactivate("its volume is thinner than a cell"));
  if (mSettings->mRate && mSettings->GetAmount() <= 0) return void(Deactivate(kNoRateReason));
  if (mColourImage) mTemplate.Set(property_id::kColor, Vec3d{});
  const double wanted = CountWanted();
  if (wanted == 0) return void(Deactivate("no cell lies inside of its volume and its limits"));
  // What has gone elsewhere was made here: only what is missing is new.
  if (!HasRoom(std::max(0.0, wanted - mGroup->Count(mKind)))) return;
  if (mSettings->mAlignment) mSettings->mAlignment->Follow(mVolume, nullptr);
  mGroup->BuildTree(mKind, mScene->mThreadCount);
  mColour = SamplerOf(mColourImage);
  mConstraints.Prepare(this);
  FindLiquids();
  SetFlag(FLAG_ACTIVE, true);
}

/// One share of the cells of a volume.
class ObjectParticleGridEmitter::Filler {
 public:
  /// `member` counts the volumes of a group.
  Filler(ObjectParticleGridEmitter& emitter, std::size_t member, i32 share)
      : mEmitter(emitter),
        mVolume(*emitter.mMembers[member]),
        mBefore(std::span(emitter.mMembers).first(member)),
        mBehind(std::span(emitter.mMembers).subspan(member + 1)),
        mShare(share),
        mCell(mVolume.GetGrid()->mLayout.cellSize),
        mLimits(emitter.LimitsIn(mVolume)),
        mOuter(emitter.LatticeOf(emitter.mOuterSubdivision, mCell)),
        mInner(emitter.LatticeOf(emitter.mInnerSubdivision, mCell)),
        mJitter(mCell * emitter.mSettings->mJitter * 0.25),
        mParticle(emitter.mTemplate),
        mColour(mParticle.FindVector(property_id::kColor)) {}

  void FillCell(const VecInt3D& cell) {
    const Vec3d half{mCell * 0.5, mCell * 0.5, mCell * 0.5};
    mCorner = mVolume.GetGrid()->PositionOf(cell.x, cell.y, cell.z);
    mCentre = mCorner + half;
    const double phi = mVolume.DistanceAtWorld(mCentre);
    if (static_cast<f32>(phi - (mCell + mLimits.high)) >= 0) return;
    const Lattice& lattice = phi >= mEmitter.mBand ? mOuter : mInner;
    double budget = lattice.Count() - CountInside(half);
    if (budget < 1 || !mEmitter.IsInReach(mCentre)) return;
    if (!mEmitter.mPerSample && !mEmitter.IsAllowed(mCentre, mEmitter.mWeight, mShare)) return;
    // Those that may be in the way of new ones are looked for where there is room for any.
    mNear.clear();
    ForEachNear(Length(half) + mJitter * 1.75 + lattice.spacing,
                [&](const Vec3d& p) { mNear.push_back(p); });
    for (i32 z = 0; z < lattice.perAxis; ++z)
      for (i32 y = 0; y < lattice.perAxis; ++y)
        for (i32 x = 0; x < lattice.perAxis && budget > 0; ++x)
          budget -= TryPlace(lattice, ToReal({x, y, z}));
  }

 private:
  /// Calls f(position) with the particles closer to the middle of the cell than `reach`.
  template <class F>
  void ForEachNear(double reach, F&& f) const {
    const PointTree* tree = mEmitter.mGroup->Tree(mEmitter.mKind);
    if (!tree) return;
    const auto positions = std::as_const(*mEmitter.mGroup).Store(mEmitter.mKind).Positions();
    tree->ForEachWithin(mCentre, reach, [&](i32 row, double) { f(positions[row]); });
  }

  /// How many particles of the volume are in the cell.
  double CountInside(const Vec3d& half) const {
    constexpr double kCorner = 1 + 1e-9;  // a corner belongs to one of its cells
    double count = 0;
    ForEachNear(Length(half) * kCorner, [&](const Vec3d& p) {
      const Vec3d off = p - mCentre;
      const bool isInCell = off.x >= -half.x && off.x < half.x && off.y >= -half.y &&
                            off.y < half.y && off.z >= -half.z && off.z < half.z;
      if (isInCell && !IsOfOthers(p)) ++count;
    });
    return count;
  }

  /// Whether one of other volumes of the group holds a place.
  bool Holds(std::span<VolumeBase* const> volumes, const Vec3d& p) const {
    return std::any_of(volumes.begin(), volumes.end(), [&](const VolumeBase* other) {
      return other->IsInBounds(p) && mEmitter.LimitsIn(*other).Hold(other->DistanceAtWorld(p));
    });
  }
  bool IsMine(const Vec3d& p) const { return mLimits.Hold(mVolume.DistanceAtWorld(p)); }
  /// Whether a particle stands where another volume fills the cell.
  bool IsOfOthers(const Vec3d& p) const {
    return Holds(mBefore, p) || (!mBehind.empty() && !IsMine(p) && Holds(mBehind, p));
  }

  bool IsFree(const Lattice& lattice, const Vec3d& p) const {
    const f32 least = static_cast<f32>(lattice.spacing * lattice.spacing);
    return std::none_of(mNear.begin(), mNear.end(), [&](const Vec3d& other) {
      return static_cast<f32>(Dot(p - other, p - other)) < least;
    });
  }

  /// Makes a particle at a place of the lattice, if it may be there; returns by how much fewer are
  /// missing: what lies outside isn't.
  double TryPlace(const Lattice& lattice, const Vec3d& place) {
    RandomStream& random = mEmitter.mHandler.Random(mShare);
    Vec3d p = mCorner + (place + Vec3d{0.5, 0.5, 0.5}) * lattice.step;
    for (const i32 axis : {2, 1, 0}) p[axis] += (2 * random.NextUnit() - 1) * mJitter;
    if (!IsMine(p) || Holds(mBefore, p)) return 1;
    if (!IsFree(lattice, p) || !mEmitter.IsInReach(p)) return 0;
    if (mEmitter.mPerSample && !mEmitter.IsAllowed(p, mEmitter.mWeight, mShare)) return 0;
    if (mColour && mEmitter.mColour)
      *mColour = mEmitter.mColour->AtPlace(mCentre * mEmitter.GetDomain().simToWorld);
    mParticle.position = p;
    mEmitter.mHandler.Emit(mParticle, mShare);
    return 1;
  }

  ObjectParticleGridEmitter& mEmitter;
  const VolumeBase& mVolume;
  /// Volumes of the group: the places of those before are theirs, and its own no later one's.
  std::span<VolumeBase*const> mBefore, mBehind;
  i32 mShare;
  double mCell;
  Limits mLimits;
  Lattice mOuter, mInner;
  double mJitter;
  ParticleTemplate mParticle;
  Vec3d* mColour;
  Vec3d mCorner{}, mCentre{};
  std::vector<Vec3d> mNear;
};

void ObjectParticleGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (std::size_t member = 0; member < mMembers.size(); ++member) {
    Filler filler(*this, member, data.index);
    const VecInt3D n = mMembers[member]->GetGrid()->Dims();
    const IndexRange layers = data.ItemsOf(1, n.z - 2);
    for (i32 z = layers.first; z < layers.last && !data.TestBreak(); ++z)
      for (i32 y = 1; y < n.y - 2; ++y)
        for (i32 x = 1; x < n.x - 2; ++x) filler.FillCell({x, y, z});
  }
}

void ObjectParticleGridEmitter::Finish() {
  ParticleEmitter::Finish();
  mMembers.clear();
  mLiquids.clear();
  mColour.reset();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
