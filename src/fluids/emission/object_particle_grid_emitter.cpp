#include "fluids/emission/object_particle_grid_emitter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/fields/channel_kinds.h"
#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/inflows.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
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
      .purpose = "fills a volume with particles and keeps it full, or lets a liquid through it",
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
      {LinkRow(kVolumeRow, "volume",
               "the shape that is filled and kept full; a liquid that gets a velocity comes "
               "through it at that speed instead, at speed 0 not at all, and nothing tops it up; "
               "a window of time opens and closes it, and the window's curve, if it has one, "
               "scales the speed")
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
       LongRow(kOuterRow, "outer_subdivision", 1, "",
               "how often a cell near the surface is halved: 0 is a particle a cell, 1 is 8, 2 is "
               "64")
           .Range(0, 8)
           .To(&ObjectParticleGridEmitter::mOuterSubdivision),
       LongRow(kInnerRow, "inner_subdivision", 1, "",
               "how often a cell below the band limit is halved")
           .Range(0, 8)
           .To(&ObjectParticleGridEmitter::mInnerSubdivision),
       LinkRow(1018, "colour_image", "an image that gives the property color where it is hung up",
               {kImageObject})
           .To(&ObjectParticleGridEmitter::mColourImage),
       RealRow(1019, "minimum_spacing", 1.0, "none",
               "how wide a cube about its place a new particle needs for itself, in steps of its "
               "lattice; what comes through a volume with a velocity has its places anyway")
           .Missing(0.5)
           .AtLeast(0)
           .To(&ObjectParticleGridEmitter::mMinSpacing),
       BoolRow(
           kRelativeRow, "relative_velocity", true,
           "what comes through a volume that moves has its velocity as seen from there, as from "
           "a hose; switched off, as seen from the world, and the volume's way sweeps up more or "
           "less")
           .Missing(false)
           .To(&ObjectParticleGridEmitter::mIsRelative)});
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
  return mVolume && mSettings && mSettings->IsOpen(mTime->elapsed, TimeGiven(), weight);
}

bool ObjectParticleGridEmitter::IsRepeated() const {
  double weight = 1;
  return mTime->IsUnderWay() && mTime->elapsed == 0 &&
         !mSettings->IsOpen(mTime->elapsed + mTime->stepDuration, 0, weight);
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
  // Who strays into a cell next door leaves a gap that is filled again in each step.
  lattice.jitter = std::min(0.25 * cell * mSettings->mJitter, 0.5 * lattice.step);
  return lattice;
}

ObjectParticleGridEmitter::Limits ObjectParticleGridEmitter::LimitsIn(
    const VolumeBase& volume) const {
  return {-mInnerLimit * volume.mMaximumDistance, mOuterLimit * volume.mMaximumDistance,
          mInnerLimit != 1.0};
}

double ObjectParticleGridEmitter::CountWanted() const {
  double count = 0;
  for (const FilledVolume& member : mMembers) {
    const EGrid<double>& grid = member.Grid();
    const double cell = grid.mLayout.cellSize;
    const Limits limits = LimitsIn(*member.Volume());
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

void ObjectParticleGridEmitter::Reset() {
  ParticleEmitter::Reset();
  mIsFlowing = mHolds = false;
  mHeld = {};
}

void ObjectParticleGridEmitter::Persist(StateArchive& archive) {
  ParticleEmitter::Persist(archive);
  archive(mIsFlowing, mHolds, mLastTime, mShift, mHeld);
}

void ObjectParticleGridEmitter::BeginInflow(bool wasFlowing, bool didHold) {
  // One whose speed is 0 for now is a tap that is closed, not a volume that is kept full.
  const bool hasVelocity = std::any_of(mProperties.begin(), mProperties.end(), [](iProperty* own) {
    return own->Has(FLAG_ENABLED) && own->PropertyId() == property_id::kVelocity;
  });
  const bool isTap = mKind == kLiquid && !mFed.empty() && hasVelocity;
  if (isTap) mTemplate.velocity *= CurveShare();
  mIsOpen = isTap && mTemplate.velocity != Vec3d{};
  if (mIsOpen && mIsRelative) mTemplate.velocity += OwnVelocity();
  mIsFlowing = isTap && (wasFlowing || mIsOpen);
  mAdmits = mIsFlowing && wasFlowing;
  mHasStopped = mAdmits && mIsOpen && IsBlocked();
  mMoves = mAdmits && didHold && !mHasStopped;
  if (!mAdmits) mShift = {};
  mAdvance = mMoves ? mHeld * (mTime->elapsed - mLastTime) : Vec3d{};
  mShift += mAdvance;
  mHolds = mIsOpen && !mHasStopped;
  mHeld = mHolds ? mTemplate.velocity : Vec3d{};
  mLastTime = mTime->elapsed;
  // It had no water to hold back yet.
  if (isTap && !mIsFlowing) Deactivate(kShutReason);
}

double ObjectParticleGridEmitter::CurveShare() const {
  const Duration* window = mSettings->mDuration;
  if (!window || !window->Has(FLAG_ENABLED) || !window->spline) return 1;
  double share = 0;
  if (!window->MeanWeight(mTime->elapsed, mTime->stepDuration, share)) return 0;
  return std::max(share, 0.0);
}

Vec3d ObjectParticleGridEmitter::OwnVelocity() const {
  Vec3d way{};
  for (const FilledVolume& member : mMembers)
    if (const Mesh* mesh = member.Volume()->GetMesh()) {
      Vec3d own;
      mesh->GetVelocityAt(own, member.Middle());
      way += own;
    }
  return way / (static_cast<double>(mMembers.size()) * mTime->stepDuration);
}

bool ObjectParticleGridEmitter::Feeds(const iFluidSolver& liquid) const {
  return mIsOpen && Has(FLAG_ENABLED) && mLastTime == mTime->elapsed && mVolume &&
         MayFill(liquid) && IsMadeOfOurs(liquid);
}

bool ObjectParticleGridEmitter::MayFill(const iFluidSolver& solver) const {
  return mNamedSolvers.empty() ||
         std::find(mNamedSolvers.begin(), mNamedSolvers.end(), &solver) != mNamedSolvers.end();
}

bool ObjectParticleGridEmitter::IsBlocked() const {
  return std::any_of(mFull.begin(), mFull.end(), [&](const FullRooms* full) {
    return full->HoldAll(CellsIn(*full->Layout()));
  });
}

std::vector<i32> ObjectParticleGridEmitter::CellsIn(const GridLayout& layout) const {
  const double half = 0.5 * layout.cellSize, touch = 0.05 * layout.cellSize;
  const VecInt3D one{1, 1, 1};
  std::vector<VolumeBase*> members;
  mVolume->CollectMembers(members);
  std::vector<i32> cells;
  for (const VolumeBase* member : members) {
    if (!member->HasGridData()) continue;
    const Limits limits = LimitsIn(*member);
    const CellBox box = Clip({TruncateNudged(layout.ToCells(member->mBoxMin)),
                              TruncateNudged(layout.ToCells(member->mBoxMax)) + one},
                             one, layout.dims - one);
    ForEachCell(box, [&](i32 x, i32 y, i32 z) {
      const Vec3d p =
          layout.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
      if (!member->IsInBounds(p)) return;
      const double phi = member->DistanceAtWorld(p);
      const Vec3d n = member->GradientAtWorld(p);
      // So far off its middle a plane passes a cube.
      const double reach = half * (std::abs(n.x) + std::abs(n.y) + std::abs(n.z)) - touch;
      if (phi - limits.high < reach && !(limits.hasLow && phi - limits.low < -reach))
        cells.push_back((z * layout.dims.y + y) * layout.dims.x + x);
    });
  }
  std::sort(cells.begin(), cells.end());
  cells.erase(std::unique(cells.begin(), cells.end()), cells.end());
  return cells;
}

void ObjectParticleGridEmitter::FindLiquids() {
  mLiquids.clear();
  mFed.clear();
  std::vector<iFluidSolver*> solvers = mNamedSolvers;
  if (solvers.empty())
    for (const auto& [id, object] : mScene->List(kListSolvers))
      solvers.push_back(dynamic_cast<iFluidSolver*>(object.get()));
  for (iFluidSolver* solver : solvers) {
    if (!solver || !solver->Has(FLAG_ENABLED)) continue;
    const std::vector<ParticleGroup*>* groups = solver->LiquidGroups();
    if (!groups || groups->empty()) continue;
    const bool isOurs = IsMadeOfOurs(*solver);
    if (isOurs || !mNamedSolvers.empty()) mLiquids.push_back(&solver->GetFlow());
    if (isOurs) mFed.push_back(&solver->GetFlow());
  }
}

void ObjectParticleGridEmitter::FindSolids() {
  mSolids.clear();
  if (mKind != kLiquid) return;
  CollectObstacles(*mScene, mSolids);
  std::erase_if(mSolids, [&](const VolumeBase* solid) {
    return !solid->Has(FLAG_ENABLED) || !solid->HasGridData() ||
           std::any_of(mMembers.begin(), mMembers.end(),
                       [&](const FilledVolume& member) { return member.Volume() == solid; });
  });
}

void ObjectParticleGridEmitter::Prepare() {
  mMembers.clear();
  // Without a step a frame is looked at again, and nothing ends.
  const bool wasFlowing = mIsFlowing, didHold = mHolds;
  mHasStopped = mIsOpen = mMoves = false;
  if (mTime->stepDuration > 0) mIsFlowing = mHolds = false;
  if (!PrepareEmission()) return;
  SetFlag(FLAG_ACTIVE, false);
  if (IsRepeated()) return void(Deactivate(kNotDueReason));
  if (!mVolume) return void(Deactivate("it has no volume; name one under 'volume'"));
  std::vector<VolumeBase*> members;
  mVolume->CollectMembers(members);
  for (VolumeBase* member : members)
    if (member->HasGridData()) mMembers.emplace_back(*member, mKind == kLiquid);
  if (mMembers.empty()) return void(Deactivate("its volume has no grid"));
  i32 layers = 0;
  for (const FilledVolume& member : mMembers) layers = std::max(layers, member.Grid().mNz - 3);
  if (layers <= 0) return void(Deactivate("its volume is thinner than a cell"));
  if (mSettings->mRate && mSettings->GetAmount() <= 0) return void(Deactivate(kNoRateReason));
  if (mColourImage) mTemplate.Set(property_id::kColor, Vec3d{});
  const double wanted = CountWanted();
  if (wanted == 0) return void(Deactivate("no cell lies inside of its volume and its limits"));
  // What has gone elsewhere was made here: only what is missing is new.
  if (!HasRoom(std::max(0.0, wanted - mGroup->Count(mKind)))) return;
  mConstraints.Prepare(this);
  if (mSettings->mAlignment) mSettings->mAlignment->Follow(mVolume, nullptr);
  mGroup->BuildTree(mKind, mScene->mThreadCount);
  mColour = SamplerOf(mColourImage);
  FindLiquids();
  FindSolids();
  SetFlag(FLAG_ACTIVE, true);
  BeginInflow(wasFlowing, didHold);
}

void ObjectParticleGridEmitter::Finish() {
  // Before the liquid has held it the water would begin with the velocity of the air there.
  if (Has(FLAG_ACTIVE) && mHolds && !mMoves)
    for (Flow* flow : mFed)
      if (const GridLayout* layout = flow->GetLayout())
        Inflows::Begin(*flow, CellsIn(*layout), mTemplate.velocity, mTime->stepDuration);
  ParticleEmitter::Finish();
  mMembers.clear();
  mLiquids.clear();
  mFed.clear();
  mSolids.clear();
  mColour.reset();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
