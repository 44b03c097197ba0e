// Nodes of a document: the tree, their placement, parameters, tags and links.
#pragma once
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/matrix.h"
#include "host/parameter.h"
#include "host/text_origin.h"
#include "host/value.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
struct NodeKind;
}

namespace MELDO_GLOBAL::host {

class Document;

/// Types of host objects and tags; simulation nodes have the plug-in ids of the catalogue.
enum HostType : i32 {
  kMeshObject = 5100,
  kSplineObject = 5101,
  kPointsObject = 5102,
  kLightObject = 5103,
  kCameraObject = 5104,
  kServerNode = 1300000,   ///< owner of a scene, and the base type of every simulation node
  kMesherNode = 1300033,   ///< makes polygons, and is the object that holds them
  kGeometryNode = 1300163,  ///< as a mesher, of objects at particles
  kObstacleTag = 1300111,  ///< marks an object as an obstacle
  kGroupNode = 1300150,    ///< keeps nodes together; links to it mean its children
  // Other programs bring nodes that count as instances of these.
  kForeignConstraint = 1300139,
  kForeignOperator = 1300140,
  kForeignForce = 1300141,
};

/// How the values between two keys follow.
enum class Interpolation { Linear, Step, Smooth };

/// Keyed values of one parameter or placement component, sorted by frame.
struct Track {
  struct Key {
    double frame;
    Value value;  ///< real, long or vector, the same kind in all keys
  };
  std::vector<Key> keys;
  Interpolation interpolation = Interpolation::Linear;

  /// The value at `frame`; the first or last key's outside the keys. Longs are rounded down.
  Value Evaluate(double frame) const;
};

/// A node of a document. Nodes are made and owned by a Document.
class BaseNode {
 public:
  BaseNode(Document& document, NodeId id, i32 type, std::string name);
  virtual ~BaseNode();
  BaseNode(const BaseNode&) = delete;
  BaseNode& operator=(const BaseNode&) = delete;

  NodeId Id() const { return mId; }
  i32 Type() const { return mType; }
  Document& GetDocument() const { return mDocument; }
  const std::string& Name() const { return mName; }
  /// The names from the top down to the node, with a slash between them.
  std::string Path() const;
  void SetName(std::string name) { mName = std::move(name); }

  /// True for the node's own type and every type it counts as an instance of.
  bool IsInstanceOf(i32 type) const;
  void AddInstanceOf(i32 type) { mInstanceOf.push_back(type); }
  const std::vector<i32>& InstanceOfList() const { return mInstanceOf; }

  BaseNode* Parent() const { return mParent; }
  const std::vector<BaseNode*>& Children() const { return mChildren; }
  bool HasAncestor(const BaseNode* node) const;

  /// A node that is off, or has an ancestor that is off, takes no part in a simulation.
  bool IsEnabled() const;
  void SetEnabled(bool enabled) { mEnabled = enabled; }

  /// Placement relative to the parent, in host units and degrees.
  void SetPlacement(const Vec3d& position, const Vec3d& rotationDegrees, const Vec3d& scale);
  /// Replaces the placement by a matrix.
  void SetLocalMatrix(const Matrix& m);
  /// Replaces the placement by what a simulation found: it belongs to the simulation's state, which
  /// a checkpoint keeps.
  void WriteBack(const Matrix& m) { SetLocalMatrix(m), mIsWrittenBack = true; }
  bool IsWrittenBack() const { return mIsWrittenBack; }
  const Matrix& LocalMatrix() const { return mLocal; }
  Matrix GlobalMatrix() const;

  /// Rises with every change of the node's data.
  u32 DirtyCount() const { return mDirty; }
  void Touch() { ++mDirty; }
  /// Calls visit(counter) for the counters of the node and its tags, always in the same order: what
  /// the history of a document leaves in it beside its values.
  virtual void VisitCounters(const std::function<void(u32&)>& visit);

  /// The stored value, or null when the node doesn't hold the parameter.
  const Value* Get(i32 id) const;
  /// Stores a value; the dirty count rises when it differs from the stored one.
  void Set(i32 id, Value value);
  void Erase(i32 id);
  const std::map<i32, Value>& Values() const { return mValues; }
  /// Where the text of a parameter was read from, for messages; null where nobody has said so.
  const TextOrigin* OriginOf(i32 id) const;
  void SetOrigin(i32 id, TextOrigin origin) { mOrigins[id] = std::move(origin); }

  /// The rows that describe this node's parameters; null for plain host objects.
  const ParameterTable* Table() const { return mTable; }
  /// Attaches the rows and stores every creation default that isn't "absent".
  void SetTable(const ParameterTable* table);

  /// The descriptor of a simulation node's kind, which the document carries and doesn't look into;
  /// null for all else.
  const MELDO_SULVA::NodeKind* Kind() const { return mKind; }
  void SetKind(const MELDO_SULVA::NodeKind* kind) { mKind = kind; }

  /// The tag of a type, or null. A tag is a node of its own with parameters, outside the tree.
  BaseNode* Tag(i32 type) const;
  BaseNode& AddTag(i32 type);
  void RemoveTag(i32 type);

  /// Keys a parameter. `Animate` stores the values of a frame.
  void SetTrack(i32 id, Track track) { mTracks[id] = std::move(track); }
  enum PlacementTrack { kPosition, kRotation, kScale };
  void SetPlacementTrack(PlacementTrack which, Track track);
  const std::map<i32, Track>& Tracks() const { return mTracks; }
  virtual void Animate(double frame);

 private:
  friend class Document;
  void UpdateLocal();

  Document& mDocument;
  NodeId mId;
  i32 mType;
  std::string mName;
  std::vector<i32> mInstanceOf;
  BaseNode* mParent = nullptr;
  std::vector<BaseNode*> mChildren;
  bool mEnabled = true;
  Vec3d mPosition{}, mRotation{}, mScale{1, 1, 1};
  Matrix mLocal;
  bool mIsWrittenBack = false;
  u32 mDirty = 1;
  std::map<i32, Value> mValues;
  std::map<i32, TextOrigin> mOrigins;
  const ParameterTable* mTable = nullptr;
  const MELDO_SULVA::NodeKind* mKind = nullptr;
  std::vector<std::unique_ptr<BaseNode>> mTags;
  std::map<i32, Track> mTracks;
  std::map<PlacementTrack, Track> mPlacementTracks;
};

/// A weak link to a node: it resolves to null once the node has gone.
class BaseLink {
 public:
  BaseLink() = default;
  explicit BaseLink(const BaseNode* node);
  /// The node, if it still lives, counts as an instance of `instanceOf` (0 for any) and belongs
  /// to `document` (null for any).
  BaseNode* Resolve(i32 instanceOf = 0, const Document* document = nullptr) const;

 private:
  std::weak_ptr<Document*> mDocument;
  NodeId mNode = 0;
};

}  // namespace MELDO_GLOBAL::host
