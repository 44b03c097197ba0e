// The objects of a scene file.
#include <fmt/format.h>

#include <stdexcept>

#include "exchange/particles_object.h"
#include "host/image.h"
#include "host/polygon_object.h"
#include "host/render_objects.h"
#include "host/shapes.h"
#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

const ObjectType* FindObjectType(std::string_view name) {
  for (const ObjectType& type : ObjectTypes())
    if (type.name == name) return &type;
  return nullptr;
}

}  // namespace

void SceneBuilder::MakeObject(const JsonValue& value, SiblingNames& names, BaseNode* parent) {
  const JsonValue* type = value.Find("type");
  const std::string* word = type ? type->Text() : nullptr;
  const ObjectType* known = word ? FindObjectType(*word) : nullptr;
  if (known) {
    MakeKnownObject(value, *known, names, parent);
    return;
  }
  const std::string name = NameOf(value, "object", names);
  const Subject subject = fmt::format("object \"{}\": ", Shown(name));
  if (!type) {
    mContext.Error(value, subject, "'type' is missing");
  } else if (!word) {
    mContext.Error(*type, subject, fmt::format("'type': expected text, got {}", KindOf(*type)));
  } else {
    std::vector<std::string_view> types;
    for (const ObjectType& t : ObjectTypes()) types.push_back(t.name);
    mContext.Error(
        *type, subject,
        fmt::format("unknown object type '{}'{}", Shown(*word), mContext.SuggestOrList(*word, types)));
  }
  BaseNode& node = mContext.document.Create<BaseNode>(kUnknownNode, name, nullptr);
  mNames.Add(node);
  ReadPlacement(value, node, subject);
  Remember(node, subject, value);
}

BaseNode* SceneBuilder::MakeKnownObject(const JsonValue& value, const ObjectType& type,
                                        SiblingNames& names, BaseNode* parent) {
  const std::string name = NameOf(value, std::string(type.name), names);
  const Subject subject = fmt::format("{} \"{}\": ", type.name, Shown(name));
  std::vector<std::string_view> keys = {"name",  "type",     "position", "rotation",
                                        "scale", "obstacle", "children"};
  keys.insert(keys.end(), type.keys.begin(), type.keys.end());
  mContext.CheckKeys(value, keys, subject);
  BaseNode* node = CreateObject(value, type, name, subject);
  if (parent) mContext.document.Reparent(*node, parent);
  mNames.Add(*node);
  ReadPlacement(value, *node, subject);
  if (const JsonValue* file = value.Find("placements"))
    if (auto* mesh = dynamic_cast<PolygonObject*>(node)) ReadPlacements(*file, *mesh, subject);
  Remember(*node, subject, value);
  if (const JsonValue* below = value.Find("children")) {
    const Members children = ObjectsOf(below, subject, "'children'");
    SiblingNames own;
    ReserveNames(children, own);
    for (const JsonValue* child : children) MakeObject(*child, own, node);
  }
  return node;
}

BaseNode* SceneBuilder::MakeObjectOf(const JsonValue& value, std::string_view word) {
  ReserveNames({&value}, mRootNames, word, kTakenName);
  if (const JsonValue* type = value.Find("type"); type && (!type->Text() || *type->Text() != word))
    mContext.Error(*type, fmt::format("render: {}: ", word),
                   fmt::format("'type': expected '{}' here", word));
  return MakeKnownObject(value, *FindObjectType(word), mRootNames);
}

BaseNode* SceneBuilder::CreateObject(const JsonValue& value, const ObjectType& type,
                                     const std::string& name, const Subject& subject) {
  Document& document = mContext.document;
  const JsonValue* points = value.Find("points");
  const auto readPoints = [&](PointsObject& object, std::size_t atLeast) {
    if (!points) return mContext.Error(value, subject, "'points' is missing");
    if (points->Members()) {
      const auto track = ReadPointTrack(mContext, *points, atLeast, subject, "'points'");
      if (!track) return;
      object.track = *track;
      object.points = track->keys.front().points;
    } else if (const auto read = mContext.ReadPoints(*points, atLeast, subject, "'points'")) {
      object.points = *read;
    }
  };
  switch (type.type) {
    case kSplineObject: {
      auto& spline = document.Create<SplineObject>(kSplineObject, name, nullptr);
      readPoints(spline, 2);
      if (const JsonValue* closed = value.Find("closed"))
        spline.closed = mContext.ReadBool(*closed, subject, "'closed'").value_or(false);
      if (const JsonValue* smooth = value.Find("smooth"))
        spline.smooth = mContext.ReadBool(*smooth, subject, "'smooth'").value_or(false);
      ReadSplineSegments(value, spline, subject);
      return &spline;
    }
    case kPointsObject: {
      if (type.name == "particles") {
        auto& read = document.Create<exchange::ParticlesObject>(kPointsObject, name, nullptr);
        ReadParticleFile(value, read, subject);
        return &read;
      }
      auto& cloud = document.Create<PointsObject>(kPointsObject, name, nullptr);
      readPoints(cloud, 1);
      return &cloud;
    }
    case kMeshObject: {
      auto& mesh = document.Create<PolygonObject>(kMeshObject, name, nullptr);
      if (type.isShape) {
        ReadShape(value, std::string(type.name), mesh, subject);
      } else {
        ReadMesh(value, mesh, subject);
      }
      return &mesh;
    }
    case kImageObject: {
      auto& image = document.Create<ImageObject>(kImageObject, name, nullptr);
      image.SetTable(&type.rows());
      ReadImage(value, image, subject);
      return &image;
    }
    default: break;
  }
  auto& node = document.Create<BaseNode>(type.type, name, nullptr);
  if (type.rows) node.SetTable(&type.rows());
  return &node;
}

void SceneBuilder::ReadImage(const JsonValue& value, BaseNode& node, const Subject& subject) {
  const JsonValue* file = value.Find("file");
  if (!file) return;
  const auto path = ReadFileName(*file, subject, "'file'");
  if (!path) return;
  try {
    static_cast<ImageObject&>(node).picture = LoadImage(mContext.Resolve(*path));
  } catch (const ImageFileError& error) {
    mContext.Error(*file, subject, fmt::format("'file': {}", error.what()));
  }
}

bool SceneBuilder::ReadSize(const JsonValue& value, const char* key, const Subject& subject,
                            double& size) {
  const JsonValue* given = value.Find(key);
  if (!given) return true;
  const auto number = mContext.ReadNumber(*given, subject, fmt::format("'{}'", key));
  if (!number) return false;
  if (*number > 0) {
    size = *number;
    return true;
  }
  mContext.Error(*given, subject,
                 fmt::format("'{}': expected a size above 0, got {}", key, *number));
  return false;
}

/// The extents of a box, or of a plane along x and z.
bool SceneBuilder::ReadExtents(const JsonValue& value, bool isFlat, const Subject& subject,
                               Vec3d& size) {
  const JsonValue* given = value.Find("size");
  if (!given) return true;
  const auto numbers = mContext.ReadNumbers(*given, isFlat ? 2 : 3, subject, "'size'");
  if (!numbers) return false;
  if (*std::min_element(numbers->begin(), numbers->end()) <= 0) {
    mContext.Error(*given, subject, "'size': expected sizes above 0");
    return false;
  }
  size.x = numbers->front();
  size.z = numbers->back();
  if (!isFlat) size.y = (*numbers)[1];
  return true;
}

bool SceneBuilder::ReadSegments(const JsonValue& value, const Subject& subject, i32& segments) {
  const JsonValue* given = value.Find("segments");
  if (!given) return true;
  const auto count = mContext.ReadWhole(*given, subject, "'segments'");
  if (!count) return false;
  if (*count >= kMinSegments && *count <= kMaxSegments) {
    segments = *count;
    return true;
  }
  mContext.Error(*given, subject,
                 fmt::format("'segments': {} is out of range; expected {} to {}", *count,
                             kMinSegments, kMaxSegments));
  return false;
}

void SceneBuilder::ReadSplineSegments(const JsonValue& value, SplineObject& spline,
                                      const Subject& subject) {
  const JsonValue* given = value.Find("segments");
  if (!given) return;
  const JsonValue::Array* items = given->Items();
  if (!items || items->empty())
    return mContext.Error(
        *given, subject,
        fmt::format("'segments': expected how many points each line has, such as [4, 3], got {}",
                    items ? "an empty list" : KindOf(*given)));
  i64 total = 0;
  for (const JsonValue& item : *items) {
    const auto count = mContext.ReadWhole(item, subject, "'segments'");
    if (!count) return;
    if (*count < 2)
      return mContext.Error(
          item, subject,
          fmt::format("'segments': expected at least 2 points for a line, got {}", *count));
    total += *count;
    spline.segments.push_back(*count);
  }
  if (!spline.points.empty() && total != static_cast<i64>(spline.points.size())) {
    spline.segments.clear();
    mContext.Error(*given, subject,
                   fmt::format("'segments': its numbers come to {} points; 'points' has {}", total,
                               spline.points.size()));
  }
}

void SceneBuilder::ReadShape(const JsonValue& value, const std::string& type, BaseNode& node,
                             const Subject& subject) {
  ShapeArguments arguments;
  const bool results[] = {ReadSize(value, "radius", subject, arguments.radius),
                          ReadSize(value, "height", subject, arguments.height),
                          ReadSize(value, "tube", subject, arguments.tube),
                          ReadExtents(value, type == "plane", subject, arguments.size),
                          ReadSegments(value, subject, arguments.segments)};
  if (std::find(std::begin(results), std::end(results), false) != std::end(results)) return;
  try {
    static_cast<PolygonObject&>(node).SetGeometry(MakeShape(type, arguments).value());
  } catch (const std::invalid_argument& error) {
    mContext.Error(value, subject, error.what());
  }
}

void SceneBuilder::ReadPlacements(const JsonValue& value, PolygonObject& object,
                                  const Subject& subject) {
  const auto path = ReadFileName(value, subject, "'placements'");
  if (!path) return;
  try {
    object.SetPlacements(
        host::ReadPlacements(mContext.Resolve(*path), object.Name(), mContext.document.fps));
    object.Animate(mFirstFrame);
  } catch (const MeshFileError& error) {
    mContext.Error(value, subject, fmt::format("'placements': {}", error.what()));
  }
}

}  // namespace MELDO_GLOBAL::app
