// How `ObjectParticleGridEmitter` fills cells.
#include <algorithm>
#include <span>
#include <utility>

#include "fluids/emission/object_particle_grid_emitter.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One share of the cells of a volume.
class ObjectParticleGridEmitter::Filler {
 public:
  /// `member` counts the volumes of a group.
  Filler(ObjectParticleGridEmitter& emitter, std::size_t member, i32 share)
      : mEmitter(emitter),
        mVolume(emitter.mMembers[member]),
        mBefore(std::span(emitter.mMembers).first(member)),
        mBehind(std::span(emitter.mMembers).subspan(member + 1)),
        mShare(share),
        mCell(mVolume.Grid().mLayout.cellSize),
        mLimits(emitter.LimitsIn(*mVolume.Volume())),
        mOuter(emitter.LatticeOf(emitter.mOuterSubdivision, mCell)),
        mInner(emitter.LatticeOf(emitter.mInnerSubdivision, mCell)),
        mParticle(emitter.mTemplate),
        mColour(mParticle.FindVector(property_id::kColor)) {}

  void FillCell(const VecInt3D& cell) {
    const Vec3d half{mCell * 0.5, mCell * 0.5, mCell * 0.5};
    mCorner = mVolume.Grid().PositionOf(cell.x, cell.y, cell.z);
    mCentre = mCorner + half;
    const double phi = mVolume.Volume()->DistanceAtWorld(mCentre);
    if (static_cast<f32>(phi - (mCell + mLimits.high)) >= 0) return;
    const Lattice& lattice = phi >= mEmitter.mBand ? mOuter : mInner;
    double budget = lattice.Count() - CountInside(half);
    if (budget < 1 || !mEmitter.IsInReach(mCentre)) return;
    if (!mEmitter.mPerSample && !mEmitter.IsAllowed(mCentre, mEmitter.mWeight, mShare)) return;
    // Those that may be in the way of new ones are looked for where there is room for any.
    mNear.clear();
    ForEachNear(Length(half) + lattice.jitter * 1.75 + lattice.spacing,
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
  bool Holds(std::span<const FilledVolume> volumes, const Vec3d& p) const {
    return std::any_of(volumes.begin(), volumes.end(), [&](const FilledVolume& other) {
      return other.Volume()->IsInBounds(p) &&
             mEmitter.LimitsIn(*other.Volume()).Hold(other.DistanceAt(p));
    });
  }
  bool IsMine(const Vec3d& p) const { return mLimits.Hold(mVolume.DistanceAt(p)); }
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

  /// Whether a liquid has a particle for a place of the lattice, whatever jitter makes of it: if
  /// the volume holds the place. Chance in the last layer would be a rough surface, which never
  /// rests. A sheet that passes between the places goes by where jitter puts them.
  bool IsPlaceMine(const Lattice& lattice, const Vec3d& middle, const Vec3d& jittered) const {
    if (IsMine(middle)) return true;
    if (!IsMine(jittered)) return false;
    for (i32 axis = 0; axis < 3; ++axis)
      for (const double side : {-1.0, 1.0}) {
        Vec3d next = middle;
        next[axis] += side * lattice.step;
        if (IsMine(next)) return false;
      }
    return true;
  }

  /// Makes a particle at a place of the lattice, if it may be there; returns by how much fewer are
  /// missing: what lies outside isn't.
  double TryPlace(const Lattice& lattice, const Vec3d& place) {
    RandomStream& random = mEmitter.mHandler.Random(mShare);
    const Vec3d middle = mCorner + (place + Vec3d{0.5, 0.5, 0.5}) * lattice.step;
    Vec3d off{};
    for (const i32 axis : {2, 1, 0}) off[axis] = (2 * random.NextUnit() - 1) * lattice.jitter;
    Vec3d p = middle + off;
    if (mEmitter.mKind == kLiquid && lattice.jitter > 0) {
      if (!IsPlaceMine(lattice, middle, p)) return 1;
      if (!IsMine(p)) p = IsMine(middle - off) ? middle - off : middle;
    }
    if (!IsMine(p) || Holds(mBefore, p) || mEmitter.IsInSolid(p)) return 1;
    if (!IsFree(lattice, p) || !mEmitter.IsInReach(p)) return 0;
    if (mEmitter.mPerSample && !mEmitter.IsAllowed(p, mEmitter.mWeight, mShare)) return 0;
    if (mColour && mEmitter.mColour)
      *mColour = mEmitter.mColour->AtPlace(mCentre * mEmitter.GetDomain().simToWorld);
    mParticle.position = p;
    mEmitter.mHandler.Emit(mParticle, mShare);
    // With a wider spacing not every place is taken.
    if (lattice.spacing <= lattice.step)
      mEmitter.mHandler.Births().FillSpace(mShare, lattice.step * lattice.step * lattice.step);
    return 1;
  }

  ObjectParticleGridEmitter& mEmitter;
  const FilledVolume& mVolume;
  /// Volumes of the group: the places of those before are theirs, and its own no later one's.
  std::span<const FilledVolume> mBefore, mBehind;
  i32 mShare;
  double mCell;
  Limits mLimits;
  Lattice mOuter, mInner;
  ParticleTemplate mParticle;
  Vec3d* mColour;
  Vec3d mCorner{}, mCentre{};
  std::vector<Vec3d> mNear;
};

void ObjectParticleGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (std::size_t member = 0; member < mMembers.size(); ++member) {
    Filler filler(*this, member, data.index);
    const VecInt3D n = mMembers[member].Grid().Dims();
    const IndexRange layers = data.ItemsOf(1, n.z - 2);
    for (i32 z = layers.first; z < layers.last && !data.TestBreak(); ++z)
      for (i32 y = 1; y < n.y - 2; ++y)
        for (i32 x = 1; x < n.x - 2; ++x) filler.FillCell({x, y, z});
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
