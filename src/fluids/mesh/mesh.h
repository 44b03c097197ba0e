// Host polygons in the simulation.
#pragma once
#include "fluids/mesh/matrix_cache.h"
#include "fluids/mesh/obstacle_settings.h"
#include "fluids/mesh/tri_mesh.h"
#include "framework/body_state.h"
#include "framework/iobject.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The kind of nodes that are polygon objects themselves, which the simulation makes.
inline constexpr i32 kMeshMakerNode = host::kMesherNode;

/// The axes of both placements have the same lengths and angles.
bool AreRigidlyRelated(const Matrix& a, const Matrix& b);

/// A triangle copy of a host polygon object in simulation space; it follows the object's animation
/// and knows its motion.
///
/// The document moves once a frame, and the copy glides: at the end of each substep it stands where
/// that share of the frame's motion brings it, turned about its centre, or with each vertex on a
/// straight way where the shape deforms. In each substep the velocities are that substep's share of
/// the motion, and motion / `stepDuration` is the object's speed however a frame is cut. A copy
/// that operators alter takes its new place at once.
///
/// One that a rigid body moves follows that in every substep, and reads its object no more; with
/// `write_back` the object goes along.
///
/// With the obstacle tag's `baked` and `follow_bake` it replays the placements that the object had
/// in the frames that were run: in each frame that of `bake_offset` frames later, mixed between two
/// frames, and at the ends of what is stored the first or last one.
class Mesh : public iObject {
 public:
  Mesh() = default;
  Mesh(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kObjectRow = 1000;
  void GetCategories(u32& mask) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  bool AfterLinks() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare() override;
  void Persist(StateArchive& archive) override;

  /// Brings the host's polygons into the record: 0 nothing could be read, 1 read, 2 the counts
  /// changed.
  virtual i32 ConvertHostObject();
  virtual void UpdateBounds() { mMesh.UpdateBounds(); }

  /// The point about which it turns.
  void GetCentre(Vec3d& out) const { out = Pivot(); }
  /// Each substep of this frame has another place for it.
  bool IsGliding() const { return mGlides || IsFollowing(); }
  /// In this frame its vertices move in ways of their own: it is stretched or bent, or the parts of
  /// it are moved. `GetVelocities` tells of its box alone then.
  bool IsDeforming() const { return !mVertexWay.empty(); }
  /// Motion in the present substep of the surface at the point of a triangle that is nearest to
  /// `point`: there the vertices' motions are mixed, or where the shape doesn't deform it is that
  /// of `GetVelocityAt`. Simulation units per step.
  Vec3d GetSurfaceVelocity(i32 triangle, const Vec3d& point) const;
  /// The longest way that any of its vertices goes in the present substep, simulation units.
  double GetTravel() const;
  /// Motion in the present substep at a point: linear + angular x (point - centre). Simulation
  /// units per step, not scaled by transfer factors.
  void GetVelocityAt(Vec3d& out, const Vec3d& point) const;
  /// How it moves for the flow, over the present substep: simulation units, and axis times angle in
  /// radians, scaled by the transfer factors of its obstacle tag. Of a mesh that a rigid body moves
  /// it is what that one shows the flow.
  void GetVelocities(Vec3d& linear, Vec3d& angular) const;
  /// The same with angular x (point - centre) as `cross`.
  void GetVelocityParts(const Vec3d& point, Vec3d& linear, Vec3d& angular, Vec3d& cross) const;
  /// The rigid body that it has, which lasts as long as it is set; null for none. A new one is made
  /// of the present vertices, one that `goesOn` of those that a checkpoint kept.
  void SetBody(BodyState* body, bool goesOn = false);
  BodyState* GetBody() const { return mBody; }
  bool HasBody() const { return mBody; }
  /// The vertices of which its body was made.
  const std::vector<Vec3d>& RestVertices() const { return mRest; }
  /// Where its body stands by the present vertices; false without a body, and where they haven't
  /// moved as a whole since it was made.
  bool GetBodyPose(BodyPose& pose) const;
  /// How the axes of the object stand as the body has turned; without offset.
  Matrix BodyRotation() const;
  /// Brings it to its place in this substep before its turn in the stage.
  void PrepareAhead();
  /// A mesh without a rigid body is none of the three.
  bool IsDynamic() const { return mBody && mBody->IsDynamic(); }
  bool IsKinematic() const { return mBody && mBody->IsKinematic(); }
  bool IsStatic() const { return mBody && mBody->IsStatic(); }
  double GetDensity() const { return mBody ? mBody->Density() : 1.0; }
  double GetMass() const { return mBody ? mBody->Mass() : 1.0; }

  /// Makes the mesh a member of a group: it reads `source` in place of the linked object.
  void SetSource(host::BaseNode* source, i32 index) {
    mSource = host::BaseLink(source);
    mMemberIndex = index;
    mIsMember = true;
  }
  /// An operator moved vertices or normals of the record. The box follows; the next `Prepare`
  /// starts from the host's shape again.
  void MarkAltered();
  bool HasTag() const { return mTagPresent; }
  /// Of the tag of the object, or else of a volume over the mesh or the mesh's node.
  const ObstacleSettings& GetObstacle() const { return mObstacle; }
  /// The object that it reads; 0 and nothing without one.
  host::NodeId ObjectId() const { return mObject ? mObject->Id() : 0; }
  std::string ObjectName() const { return mObject ? mObject->Name() : std::string(); }
  std::string ObjectPath() const { return mObject ? mObject->Path() : std::string(); }

  /// Told by each volume over this mesh: its node if that carries the obstacle tag, else null.
  void SetTagOwner(host::BaseNode* owner);
  /// Ready for use: the record holds triangles.
  bool HasTriangles() const { return mMesh.GetTriangleCount() > 0; }
  /// Another number for other vertices or triangles, of the host's shape or as operators altered
  /// it; no two meshes share one.
  u32 Revision() const { return mAltered ? mAlteredRevision : mRevision; }

  TriMeshSTL mMesh;
  TriMeshSTL mPreviousMesh;  ///< state of the step before, then the host's shape of this one

 private:
  void RecordPlacement();
  bool HasObjectChanged() const;
  bool IsNextFrame() const;
  void UndoAlteration();
  /// The obstacle tag of the object, of a volume over the mesh or of the node itself; or null.
  host::BaseNode* FindTag() const;
  void ReadTag();
  /// A rigid body moves it.
  bool IsFollowing() const { return IsDynamic() && !mRest.empty(); }
  void FollowBody();
  void SetVelocitiesOfBody();
  void WriteBack(const BodyPose& pose);
  void LeaveBody();
  Matrix WantedMatrix() const;
  void UpdateMotion(const Vec3d& centreBefore, bool pointsChanged);
  void UpdateVertexVelocities(bool isStep);
  /// Tells the motion of a step from `start`, the vertices at the end of the frame before, which
  /// may be left out where nothing deforms and there is one substep.
  void StartMotion(std::vector<Vec3d> start, bool deforms, bool glides);
  void Glide();
  /// The vertices aren't those of the present revision any more.
  void NoteNewShape();
  Vec3d Pivot() const { return mGlides || IsFollowing() ? mPivot : mMesh.GetBoundsCentre(); }
  double StepShare() const { return mTime ? mTime->stepFraction : 1.0; }

  host::PolygonObject* mLinkedObject = nullptr;  ///< what the node links; members have a source
  host::PolygonObject* mObject = nullptr;
  host::NodeId mObjectId = 0;
  host::BaseLink mSource;  ///< of a member of a group
  bool mIsMember = false;
  bool mAltered = false;
  host::BaseNode* mTagOwner = nullptr;
  u32 mPointDirty = 0;
  u32 mPolygonDirty = 0;
  Matrix mMatrix, mMatrixBefore;
  Vec3d mWorldToSim{};
  bool mVertexVelocities = false;
  Vec3d mLinearVelocity{};   ///< simulation units per frame
  Vec3d mAngularVelocity{};  ///< axis times angle per frame
  bool mTagPresent = false;
  bool mHasHistory = false;  ///< a state of the step before exists
  bool mSettling = false;    ///< moved in the last step: velocities go to zero in the next one
  bool mGlides = false;
  std::vector<Vec3d> mVertexWay;  ///< of a shape that deforms: from the end of the last frame on
  Vec3d mPivot{}, mEndCentre{};
  u32 mRevision = 0;
  u32 mAlteredRevision = 0;
  /// Digests of the altered vertices since the host's shape changed, with their revisions.
  std::vector<std::pair<u64, u32>> mAlteredShapes;
  iRamCache<LMatrix> mMatrixCache;  ///< placements of the object by frame of the document
  ObstacleSettings mObstacle;
  bool mReplays = false;
  bool mIsAhead = false;  ///< it stands where it belongs in this substep
  BodyState* mBody = nullptr;
  std::vector<Vec3d> mRest;  ///< vertices of which the body was made
  Vec3d mRestCentre{};       ///< and its centre of mass there
  std::vector<Vec3d> mRestNormals;
  BodyPose mFollowed;        ///< the pose that the vertices have
  bool mAwaitsBody = false;  ///< a body that is still to be restored moves it
  bool mIsWrittenBack = false;
  Matrix mRestMatrix;   ///< of the object where the body was made
  Matrix mStartMatrix;  ///< and where a body first moved it
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
