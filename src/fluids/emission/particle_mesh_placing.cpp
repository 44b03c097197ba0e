// How `ObjectParticleMeshEmitter` picks places, and what it leaves out of them.
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

/// Places the particles of one share.
class ObjectParticleMeshEmitter::Placer {
 public:
  Placer(ObjectParticleMeshEmitter& emitter, i32 share)
      : mEmitter(emitter),
        mShare(share),
        mParticle(emitter.mTemplate),
        mNormal(emitter.mWritesNormal ? mParticle.FindVector(property_id::kNormal) : nullptr),
        mUv(emitter.mWritesUv ? mParticle.FindVector(property_id::kUv) : nullptr),
        mTint(emitter.mColour ? mParticle.FindVector(property_id::kColor) : nullptr) {}

  void Place(i32 index) {
    const MeshPoint point = Pick(index);
    const ObjectParticleMeshEmitter& e = mEmitter;
    if (e.mSpacing > 0 && e.mGroup->CountNeighbours(e.mKind, point.position, e.mSpacing, 1) > 0)
      return;
    if (!e.IsAllowed(point.position, 1.0, mShare)) return;
    if (!e.HasRoomAt(point.position)) return mEmitter.NoteRefusal(point.position, mShare);
    const SurfaceData at = Read(point);
    if (e.mTestsCurvature && !IsBent(at.curvature)) return;
    if (e.mDensity && Look(*e.mDensity, point, at.uv).x < e.mDensityThreshold) return;
    if (mNormal) *mNormal = at.normal;
    if (mUv) *mUv = at.uv;
    if (mTint) *mTint = Look(*e.mColour, point, at.uv);
    if (e.mSourceParticles.Count() > 0) e.mSourceParticles.HandOn(point.vertex, mParticle);
    mParticle.position = point.position;
    mEmitter.mHandler.Emit(mParticle, mShare, at.normal);
  }

 private:
  /// What the source says of one of its points.
  struct SurfaceData {
    Vec3d normal{}, uv{};
    double curvature = 0;
  };

  SurfaceData Read(const MeshPoint& point) const {
    const ObjectParticleMeshEmitter& e = mEmitter;
    if (e.mRecord)
      return {.normal = e.mPoints.NormalAt(point),
              .uv = e.mPoints.UvAt(point),
              .curvature = e.mPoints.CurvatureAt(point)};
    if (e.mSourceParticles.Count() == 0) return {};
    const SourceParticles& from = e.mSourceParticles;
    return {.normal = from.ValueOf<Vec3d>(property_id::kNormal, point.vertex),
            .uv = from.ValueOf<Vec3d>(property_id::kUv, point.vertex),
            .curvature = from.ValueOf<double>(property_id::kCurvature, point.vertex)};
  }
  MeshPoint Pick(i32 index) {
    ParticleEmissionHandler& handler = mEmitter.mHandler;
    if (mEmitter.mUsed == kTriangles) {
      RandomStream& random = handler.Random(mShare);
      const double u = random.NextUnit(), a = random.NextUnit(), b = random.NextUnit();
      return mEmitter.mPoints.OnTriangle(u, a, b);
    }
    const bool isLoose = mEmitter.mUsed == kPoints;
    const i32 count =
        isLoose ? static_cast<i32>(mEmitter.mLoose.size()) : mEmitter.mRecord->GetVertexCount();
    const i32 i = mEmitter.mEveryPoint ? index : handler.Pick(mShare, count);
    if (!isLoose) return mEmitter.mPoints.AtVertex(i);
    return {.position = mEmitter.mLoose[i], .vertex = i};
  }
  bool IsBent(double curvature) const {
    const double threshold = mEmitter.mCurvature * 100;
    return mEmitter.mInvertsCurvature ? curvature <= threshold : threshold <= curvature;
  }
  Vec3d Look(const ImageObject::Sampler& image, const MeshPoint& point, const Vec3d& uv) const {
    if (mEmitter.mLookup == kByUv) return image.AtUv(uv);
    return image.AtPlace(point.position * mEmitter.GetDomain().simToWorld);
  }

  ObjectParticleMeshEmitter& mEmitter;
  i32 mShare;
  ParticleTemplate mParticle;
  Vec3d *mNormal, *mUv, *mTint;
};

void ObjectParticleMeshEmitter::EmitShare(const EvaluationThreadData& share) {
  Placer placer(*this, share.index);
  const IndexRange range = share.ItemsOf(0, mCount);
  for (i32 i = range.first; i < range.last; ++i) {
    if (i % 4096 == 0 && share.TestBreak()) return;
    placer.Place(i);
  }
}

void ObjectParticleMeshEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (i32 round = 0; round <= mRepeats && !data.TestBreak(); ++round) {
    if (round > 0) {
      mGroup->Take(mKind, mHandler.Births());
      if (mSpacing > 0) mGroup->BuildTree(mKind, mScene->mThreadCount, true);
    }
    ForEachShare(mScene->mThreadCount, data.thread,
                 [&](const EvaluationThreadData& share) { EmitShare(share); });
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
