// Directions at points.
#pragma once
#include "fluids/volume/volume_base.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A direction at a point, by a mode: of the node's axes, away from a centre, of a volume's
/// surface or motion, fixed, or random. Forces and particle emitters link to it.
class AlignmentVector2D : public iObject {
 public:
  using iObject::iObject;
  AlignmentVector2D() = default;

  enum Mode : i32 {
    kAxisX = 0,
    kAxisY = 1,
    kAxisZ = 2,
    kRadial = 3,
    kNearestAxis = 4,
    kCylindrical = 5,
    kNormal = 6,
    kFixed = 7,
    kRandom = 8,
    kBodyVelocity = 9,
  };

  bool ReadParameters() override;
  void ClearLinks() override;

  /// The direction at `position` for axes and a centre of the caller (simulation units); not always
  /// of length 1. `worker` has a random stream of its own.
  virtual void GetDirection(Vec3d& out, const Vec3d& position, const Matrix& matrix,
                            const Vec3d& centre, u32 worker);
  /// The same with the node's, or the volume's, axes and centre.
  virtual void GetDirection(Vec3d& out, const Vec3d& position, u32 worker);
  /// Before a run: a random stream for each of `workers`, newly seeded from the node, the step and
  /// the caller's seed.
  virtual void SetWorkerCount(i32 workers, u64 seed = 0);
  /// Modes 0 to 2 also make the fixed vector that axis.
  virtual void SetMode(i32 mode);
  virtual void SetVector(const Vec3d& vector) { mVector = vector; }
  virtual const Vec3d& GetVector() const { return mVector; }
  virtual void SetSecondVector(const Vec3d& vector) { mSecondVector = vector; }
  virtual const Vec3d& GetSecondVector() const { return mSecondVector; }
  /// Points it at a volume: its centre and axes, and its surface for the mode of normals.
  void PointAt(iVolume& volume);
  /// For an emitter's pass: what the node names no centre of comes from the source, a volume or a
  /// mesh. `Unfollow` ends it, so that whoever else shares the node sees no trace of that.
  void Follow(iVolume* volume, const Mesh* mesh);
  void Unfollow();
  /// The direction at a place of a surface whose normal is known; `normal` may be zero.
  void GetDirectionOn(Vec3d& out, const Vec3d& position, const Vec3d& normal, u32 worker);

 protected:
  /// What directions refer to.
  struct Reference {
    Matrix axes;
    Vec3d centre{};  ///< simulation units
    iVolume* volume = nullptr;
    std::vector<VolumeBase*> members;  ///< of the volume
    const Mesh* mesh = nullptr;        ///< whose motion is meant where there is no volume
  };
  void Take(iVolume& volume, bool withCentre);
  /// The member of the volume that holds a point, or the first one; null without a volume.
  const VolumeBase* MemberAt(const Vec3d& position) const;
  Vec3d NormalAt(const Vec3d& position) const;
  /// How fast the volume moves at a point in this step, m/s; 0 without a mesh.
  Vec3d BodyVelocityAt(const Vec3d& position) const;

  std::vector<RandomStream> mStreams;
  Vec3d mVector{0, 1, 0};
  Vec3d mSecondVector{};
  i32 mMode = 0;
  bool mFlip = false;
  host::BaseNode* mCentreNode = nullptr;  ///< a volume, or any object
  Reference mAt;
  Reference mOwn;  ///< kept while it follows an emitter's source
  bool mFollows = false;
};

/// With a centre that may be another object.
class AlignmentVector3D : public AlignmentVector2D {
 public:
  using AlignmentVector2D::AlignmentVector2D;
  AlignmentVector3D() = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kModeRow = 1000;
  static constexpr i32 kCentreRow = 1003;
  bool ResolveLinks() override;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
