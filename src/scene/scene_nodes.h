// The sections "objects" and "nodes" of a scene file.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "host/polygon_object.h"
#include "scene/object_types.h"
#include "scene/scene_context.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

/// A node or object that was made, with what is read once all names are known.
struct MadeNode {
  host::BaseNode* node = nullptr;
  Subject subject;
  const JsonValue* value = nullptr;
  const JsonValue* parameters = nullptr;
  const JsonValue* obstacle = nullptr;
};

/// Makes the objects and nodes of a scene, in two passes: links may point forward.
class SceneBuilder {
 public:
  SceneBuilder(SceneContext& context, i32 firstFrame, i32 lastFrame)
      : mContext(context), mFirstFrame(firstFrame), mLastFrame(lastFrame) {}

  /// Makes and places all objects and nodes; either may be null.
  void Make(const JsonValue* objects, const JsonValue* nodes);
  /// Reads the parameters and obstacle tags of what was made.
  void ReadParameters();

  /// Makes an object of the type `word` ("camera", "light") outside the list of objects.
  host::BaseNode* MakeObjectOf(const JsonValue& value, std::string_view word);
  /// Makes a node with a table and without a place; `keys` are those that it may have.
  host::BaseNode* MakeMaterial(const JsonValue& value, i32 type, std::string_view word,
                               const host::ParameterTable& table,
                               const std::vector<std::string_view>& keys);

  const std::vector<MadeNode>& Made() const { return mMade; }
  const NameTable& Names() const { return mNames; }
  const std::vector<host::BaseNode*>& Servers() const { return mServers; }

 private:
  using Members = std::vector<const JsonValue*>;
  /// Of what stands in other lists than those whose names it shares.
  static constexpr std::string_view kTakenName =
      "another object, node or material has this name already";

  /// The items of a list of objects; reports what isn't one.
  Members ObjectsOf(const JsonValue* list, const Subject& subject, const std::string& what);
  /// `word` is what a sibling without a type is called in messages.
  void ReserveNames(const Members& siblings, SiblingNames& names, std::string_view word = "node",
                    std::string_view taken = "a sibling has this name already");
  /// The name of a node: the one given, or the label made unique.
  std::string NameOf(const JsonValue& value, const std::string& label, SiblingNames& names);

  void MakeObject(const JsonValue& value, SiblingNames& names, host::BaseNode* parent = nullptr);
  host::BaseNode* MakeKnownObject(const JsonValue& value, const ObjectType& type,
                                  SiblingNames& names, host::BaseNode* parent = nullptr);
  host::BaseNode* CreateObject(const JsonValue& value, const ObjectType& type,
                               const std::string& name, const Subject& subject);
  void ReadSplineSegments(const JsonValue& value, host::SplineObject& spline,
                          const Subject& subject);
  void ReadShape(const JsonValue& value, const std::string& type, host::BaseNode& node,
                 const Subject& subject);
  // The sizes of a shape: false, with a message, where one is given that doesn't fit.
  bool ReadSize(const JsonValue& value, const char* key, const Subject& subject, double& size);
  bool ReadExtents(const JsonValue& value, bool isFlat, const Subject& subject, Vec3d& size);
  bool ReadSegments(const JsonValue& value, const Subject& subject, i32& segments);
  void ReadImage(const JsonValue& value, host::BaseNode& node, const Subject& subject);
  void ReadMesh(const JsonValue& value, host::BaseNode& node, const Subject& subject);
  void ReadPlacements(const JsonValue& value, host::PolygonObject& object, const Subject& subject);
  void ReadFrames(const JsonValue& frames, bool goesOn, host::BaseNode& node,
                  const Subject& subject);
  /// The first file of a sequence in the frames of the scene; nothing, with a message under `key`,
  /// where there is none.
  std::optional<std::string> FirstOfFrames(const JsonValue& value, const char* key,
                                           const std::string& pattern, const std::string& told,
                                           const Subject& subject);
  /// The key "go_on_after_failure" of what may have a file per frame.
  std::optional<bool> ReadGoesOn(const JsonValue& value, bool hasFrames, const char* key,
                                 const Subject& subject);
  std::optional<std::string> ReadFileName(const JsonValue& value, const Subject& subject,
                                          const std::string& what);
  void ReadParticleFile(const JsonValue& value, host::BaseNode& node, const Subject& subject);
  void WarnOfHoles(const JsonValue& frames, const char* key, const std::string& pattern,
                   const Subject& subject);

  void MakeNode(const JsonValue& value, host::BaseNode* parent, SiblingNames& names);
  void MakeChildren(const JsonValue& value, host::BaseNode& node, const Subject& subject);
  void ReadPlacement(const JsonValue& value, host::BaseNode& node, const Subject& subject);
  void Remember(host::BaseNode& node, Subject subject, const JsonValue& value);

  SceneContext& mContext;
  i32 mFirstFrame, mLastFrame;
  NameTable mNames;
  SiblingNames mRootNames;
  std::vector<MadeNode> mMade;
  std::vector<host::BaseNode*> mServers;
};

}  // namespace MELDO_GLOBAL::app
