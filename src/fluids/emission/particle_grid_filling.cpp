// How `ObjectParticleGridEmitter` fills cells.
#include <algorithm>
#include <cmath>
#include <optional>
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
        mShare(share),
        mCell(mVolume.Grid().mLayout.cellSize),
        mLimits(emitter.LimitsIn(*mVolume.Volume())),
        mOuter(emitter.LatticeOf(emitter.mOuterSubdivision, mCell)),
        mInner(emitter.LatticeOf(emitter.mInnerSubdivision, mCell)),
        mParticle(emitter.mTemplate),
        mColour(mParticle.FindVector(property_id::kColor)) {
    // As a whole: a pipe that turns about itself gives no more than one that rests.
    if (const Mesh* mesh = mVolume.Volume()->GetMesh())
      mesh->GetVelocityAt(mOwnWay, mVolume.Middle());
  }

  /// Fills places of a cell in which no particle stands, as long as some are missing.
  void FillCell(const VecInt3D& cell) {
    const double phi = Enter(cell);
    if (static_cast<f32>(phi - (mCell + mLimits.high)) >= 0) return;
    const Lattice& lattice = phi >= mEmitter.mBand ? mOuter : mInner;
    if (CountInside() >= lattice.Count() || !IsCellAllowed()) return;
    NoteTaken(lattice);
    double missing = 0;
    mFree.clear();
    ForEachPlace(lattice, [&](const Vec3d& middle, std::size_t place) {
      Vec3d p = middle;
      if (!Scatter(lattice, p)) return;
      missing += 1.0 - mStanding[place];
      if (!mIsTaken[place] && mEmitter.IsInReach(p) && mEmitter.HasRoomAt(p)) mFree.push_back(p);
    });
    for (const Vec3d& p : mFree)
      if (missing >= 1 && Make(lattice, p)) --missing;
  }

  /// Makes what has come into the volume within a cell since the last step, on a lattice that goes
  /// with the water: places that weren't in the volume before. In pieces of the way, each a step of
  /// the lattice at most: what has crossed a corner, or a thin volume, may have left it again.
  void AdmitCell(const VecInt3D& cell) {
    const double phi = Enter(cell);
    const Lattice& finest = mOuter.step < mInner.step ? mOuter : mInner;
    const Vec3d own = mOwnWay;
    const double way = Length(mEmitter.mAdvance - own);
    mAdmits.reset();
    const i32 pieces = std::max(static_cast<i32>(std::ceil(way / finest.step)), 1);
    const double reach = Length(mHalf) + std::max(mOuter.step, mInner.step) + way / pieces;
    if (phi - reach - Length(own) >= mLimits.high) return;
    const bool isDeep = !mLimits.hasLow && phi + reach + Length(own) < mLimits.high;
    if (isDeep && IsClear(way)) return;
    mWay = mEmitter.mAdvance / pieces;
    for (i32 piece = 1; piece <= pieces; ++piece) {
      mLeft = 1 - static_cast<double>(piece) / pieces;
      mPiece = (mEmitter.mAdvance - own) / pieces;
      // Where the volume was then.
      mThen = own * mLeft;
      Admit(mOuter);
      if (mOuter.perAxis != mInner.perAxis) Admit(mInner);
    }
  }

 private:
  /// Turns to a cell; returns the distance of its middle from the surface.
  double Enter(const VecInt3D& cell) {
    mCorner = mVolume.Grid().PositionOf(cell.x, cell.y, cell.z);
    mHalf = Vec3d{mCell, mCell, mCell} * 0.5;
    mCentre = mCorner + mHalf;
    return mVolume.Volume()->DistanceAtWorld(mCentre);
  }
  /// `AdmitCell` for a piece of the way and the zone of a lattice.
  void Admit(const Lattice& lattice) {
    // Where the way out is blocked no more comes. Along the wall behind a source that stands in a
    // liquid what comes is slow at first, and more than twice as dense as it should be.
    constexpr double kMostFull = 4;
    const bool alike = mOuter.perAxis == mInner.perAxis;
    ForEachMovedPlace(lattice, [&](const Vec3d& middle) {
      if (!Enters(middle)) return;
      const bool isOuter = mVolume.DistanceAt(middle + mThen) >= mEmitter.mBand;
      if (!alike && isOuter != (&lattice == &mOuter)) return;
      if (Holds(mBefore, OffSide(middle + mThen)) || !mEmitter.IsInReach(middle)) return;
      if (!mAdmits) mAdmits = IsCellAllowed() && CountInside() < kMostFull * lattice.Count();
      if (!*mAdmits) return;
      // By now it has gone on.
      const Vec3d gone = mEmitter.mAdvance * mLeft;
      const Vec3d p = PutOff(lattice, middle, mThen);
      const Vec3d end =
          mEmitter.IsInReach(p + gone) && !mEmitter.IsInSolid(p + gone) ? p + gone : p;
      if (!mEmitter.IsInSolid(end)) Make(lattice, end);
    });
  }
  /// Whether water may stand at a place: in the liquid's box, and in no solid.
  bool MayHoldWater(const Vec3d& p) const {
    return mEmitter.IsInReach(p) && !mEmitter.IsInSolid(p);
  }
  /// Water may stand all about the cell, as far as `way`.
  bool IsClear(double way) const {
    bool isClear = MayHoldWater(mCentre);
    ForEachCell({{0, 0, 0}, {2, 2, 2}}, [&](i32 x, i32 y, i32 z) {
      const Vec3d side = ToReal({x, y, z}) * 2.0 - Vec3d{1, 1, 1};
      isClear = isClear && MayHoldWater(mCentre + side * (mHalf.x + way));
    });
    return isClear;
  }
  /// Whether a place has come into the volume on the last piece of its way, or within it from where
  /// there is no water: from beyond a wall, or out of a solid.
  bool Enters(const Vec3d& middle) const {
    constexpr i32 kParts = 4;
    const Vec3d place = OffSide(middle + mThen);
    const double depth = mVolume.DistanceAt(place) - mLimits.high, way = Length(mPiece);
    if (!mLimits.hasLow && !(depth <= way)) return false;
    bool isIn = IsMine(place);
    for (i32 part = 1; part < kParts && !isIn; ++part)
      isIn = IsMine(place - mPiece * (static_cast<double>(part) / kParts));
    if (!isIn || mEmitter.IsInSolid(middle)) return false;
    return !Holds(mEmitter.mMembers, place - mPiece) || !MayHoldWater(middle - mWay);
  }

  bool IsCellAllowed() const {
    return mEmitter.IsInReach(mCentre) &&
           (mEmitter.mPerSample || mEmitter.IsAllowed(mCentre, mEmitter.mWeight, mShare));
  }

  /// Calls f(position) with the particles closer to the middle of the cell than `reach`.
  template <class F>
  void ForEachNear(double reach, F&& f) const {
    const PointTree* tree = mEmitter.mGroup->Tree(mEmitter.mKind);
    if (!tree) return;
    const auto positions = std::as_const(*mEmitter.mGroup).Store(mEmitter.mKind).Positions();
    tree->ForEachWithin(mCentre, reach, [&](i32 row, double) { f(positions[row]); });
  }
  /// A corner belongs to one of its cells.
  bool IsInCell(const Vec3d& p) const {
    const Vec3d off = p - mCentre;
    return off.x >= -mHalf.x && off.x < mHalf.x && off.y >= -mHalf.y && off.y < mHalf.y &&
           off.z >= -mHalf.z && off.z < mHalf.z;
  }
  double CountInside() const {
    double count = 0;
    ForEachNear(Length(mHalf) * kCorner, [&](const Vec3d& p) { count += IsInCell(p); });
    return count;
  }

  /// Notes for each place how many particles of the cell stand in its part, and whether any is in
  /// the way of a new one: in the cube about its middle that new ones need.
  void NoteTaken(const Lattice& lattice) {
    const i32 n = lattice.perAxis;
    mStanding.assign(static_cast<std::size_t>(lattice.Count()), 0);
    mIsTaken.assign(mStanding.size(), 0);
    const double half = 0.5 * lattice.spacing / lattice.step;
    const Vec3d far = mHalf + Vec3d{0.5, 0.5, 0.5} * lattice.spacing;
    ForEachNear(Length(far) * kCorner, [&](const Vec3d& p) {
      const Vec3d at = (p - mCorner) / lattice.step;
      const auto clamped = [&](double v) { return std::clamp(static_cast<i32>(v), 0, n - 1); };
      if (IsInCell(p)) ++mStanding[IndexOf(lattice, clamped(at.x), clamped(at.y), clamped(at.z))];
      VecInt3D first, last;
      for (int a = 0; a < 3; ++a) {
        first[a] = std::max(static_cast<i32>(std::floor(at[a] - 0.5 - half)) + 1, 0);
        last[a] = std::min(static_cast<i32>(std::floor(at[a] - 0.5 + half)) + 1, n);
      }
      ForEachCell({first, last},
                  [&](i32 x, i32 y, i32 z) { mIsTaken[IndexOf(lattice, x, y, z)] = 1; });
    });
  }
  static std::size_t IndexOf(const Lattice& lattice, i32 x, i32 y, i32 z) {
    const std::size_t n = lattice.perAxis;
    return (z * n + y) * n + x;
  }

  /// Calls f(middle, index) for the places of a lattice in the cell.
  template <class F>
  void ForEachPlace(const Lattice& lattice, F&& f) const {
    const i32 n = lattice.perAxis;
    ForEachCell({{0, 0, 0}, {n, n, n}}, [&](i32 x, i32 y, i32 z) {
      const Vec3d middle = (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * lattice.step;
      f(mCorner + middle, IndexOf(lattice, x, y, z));
    });
  }
  /// Calls f(middle) for the places of a lattice that goes with the water: those of the cell, and
  /// up to half a step off. Each of its layers across the way stands elsewhere in them, by a
  /// sequence that fills a square evenly (Roberts 2018): through a section that is no whole number
  /// of steps wide comes what belongs to it, in the mean.
  template <class F>
  void ForEachMovedPlace(const Lattice& lattice, F&& f) const {
    constexpr double kSpread[2] = {0.7548776662466927, 0.5698402909980532};
    const Vec3d shift = mEmitter.mShift - mEmitter.mAdvance * mLeft;
    const double step = lattice.step;
    const auto nearest = [&](double v) { return v - std::round(v / step) * step; };
    i32 along = 0;
    for (i32 axis = 1; axis < 3; ++axis)
      if (std::abs(mEmitter.mAdvance[axis]) > std::abs(mEmitter.mAdvance[along])) along = axis;
    const i32 across[2] = {(along + 1) % 3, (along + 2) % 3};
    ForEachPlace(lattice, [&](Vec3d middle, std::size_t) {
      middle[along] += nearest(shift[along]);
      const double layer = std::floor((middle[along] - shift[along]) / step);
      for (i32 k = 0; k < 2; ++k)
        middle[across[k]] += nearest(shift[across[k]] + layer * kSpread[k] * step);
      f(middle);
    });
  }
  /// Whether one of some volumes of the group holds a place.
  bool Holds(std::span<const FilledVolume> volumes, const Vec3d& p) const {
    return std::any_of(volumes.begin(), volumes.end(), [&](const FilledVolume& other) {
      return other.Volume()->IsInBounds(p) &&
             mEmitter.LimitsIn(*other.Volume()).Hold(other.DistanceAt(p));
    });
  }
  bool IsMine(const Vec3d& p) const { return mLimits.Hold(mVolume.DistanceAt(p)); }
  /// Of a place on the side that two volumes share one has to be the owner.
  Vec3d OffSide(const Vec3d& middle) const {
    const double nudge = 4e-6 * mCell;
    return middle + Vec3d{nudge, nudge, nudge};
  }

  bool IsOpen(const Vec3d& p) const { return IsMine(p) && !mEmitter.IsInSolid(p); }
  Vec3d DrawOff(const Lattice& lattice) {
    RandomStream& random = mEmitter.mHandler.Random(mShare);
    Vec3d off{};
    for (const i32 axis : {2, 1, 0}) off[axis] = (2 * random.NextUnit() - 1) * lattice.jitter;
    return off;
  }
  /// A place off the middle of one by chance, where the volume, which was elsewhere by `then`, has
  /// that too: what jitter carries out goes as far the other way, or stays in the middle.
  Vec3d PutOff(const Lattice& lattice, const Vec3d& middle, const Vec3d& then) {
    const Vec3d off = DrawOff(lattice);
    for (const Vec3d& p : {middle + off, middle - off})
      if (IsOpen(p + then)) return p;
    return middle;
  }
  /// Puts a particle off the middle of its place by chance; false where it has none. Whether the
  /// volume has the place its middle tells, whatever jitter makes of it: chance in the last layer
  /// would be a rough surface, which never rests. A sheet that passes between the places goes by
  /// where jitter puts the particles.
  bool Scatter(const Lattice& lattice, Vec3d& p) {
    const Vec3d middle = p;
    if (Holds(mBefore, OffSide(middle)) || mEmitter.IsInSolid(middle)) return false;
    if (IsMine(OffSide(middle))) {
      p = PutOff(lattice, middle, {});
      return true;
    }
    p = middle + DrawOff(lattice);
    return IsBetweenPlaces(lattice, middle) && IsOpen(p);
  }
  /// Neither a place of the lattice nor those beside it are the volume's.
  bool IsBetweenPlaces(const Lattice& lattice, const Vec3d& middle) const {
    for (i32 axis = 0; axis < 3; ++axis)
      for (const double side : {-1.0, 1.0}) {
        Vec3d next = middle;
        next[axis] += side * lattice.step;
        if (IsMine(OffSide(next))) return false;
      }
    return true;
  }

  /// Makes a particle, if the constraints let it.
  bool Make(const Lattice& lattice, const Vec3d& p) {
    if (mEmitter.mPerSample && !mEmitter.IsAllowed(p, mEmitter.mWeight, mShare)) return false;
    if (mColour && mEmitter.mColour)
      *mColour = mEmitter.mColour->AtPlace(mCentre * mEmitter.GetDomain().simToWorld);
    mParticle.position = p;
    mEmitter.mHandler.Emit(mParticle, mShare);
    // With a wider spacing not every place of a volume that is kept full is taken.
    if (mEmitter.mAdmits || lattice.spacing <= lattice.step)
      mEmitter.mHandler.Births().FillSpace(mShare, lattice.step * lattice.step * lattice.step);
    return true;
  }

  static constexpr double kCorner = 1 + 1e-9;  // beyond the corners of a cell, by rounding

  ObjectParticleGridEmitter& mEmitter;
  const FilledVolume& mVolume;
  /// Volumes of the group that come first: the places of those are theirs.
  std::span<const FilledVolume> mBefore;
  i32 mShare;
  double mCell;
  Limits mLimits;
  Lattice mOuter, mInner;
  ParticleTemplate mParticle;
  Vec3d* mColour;
  Vec3d mOwnWay{};  ///< of the volume since the last step
  Vec3d mCorner{}, mCentre{}, mHalf{};
  std::optional<bool> mAdmits;  ///< the cell takes what comes; nothing before that is asked
  // Of a piece of the water's way:
  double mLeft = 0;  ///< of the step behind it, as a share
  Vec3d mWay{};      ///< of the water
  Vec3d mPiece{};    ///< likewise, as the volume sees it
  Vec3d mThen{};     ///< from where the volume was then to where it is
  // Of a cell, by place:
  std::vector<u16> mStanding;
  std::vector<u8> mIsTaken;
  std::vector<Vec3d> mFree;
};

void ObjectParticleGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  if (mHasStopped) return NoteRefusal(mMembers.front().Middle(), data.index);
  if (mAdmits && !mMoves) return;
  for (std::size_t member = 0; member < mMembers.size(); ++member) {
    Filler filler(*this, member, data.index);
    const VecInt3D n = mMembers[member].Grid().Dims();
    const IndexRange layers = data.ItemsOf(1, n.z - 2);
    for (i32 z = layers.first; z < layers.last && !data.TestBreak(); ++z)
      for (i32 y = 1; y < n.y - 2; ++y)
        for (i32 x = 1; x < n.x - 2; ++x)
          if (mAdmits)
            filler.AdmitCell({x, y, z});
          else
            filler.FillCell({x, y, z});
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
