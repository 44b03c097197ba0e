// glTF 2.0: the triangles of a scene's nodes, placed by their transforms.
#include <fmt/format.h>

#include "host/gltf_data.h"
#include "host/matrix.h"
#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {
using Json = GltfData::Json;

Vec3d VectorOf(const Json& node, const char* key, const Vec3d& missing) {
  if (!node.contains(key)) return missing;
  const Json& v = node.at(key);
  return {v.at(0).get<double>(), v.at(1).get<double>(), v.at(2).get<double>()};
}

/// The placement of a node: a matrix in columns, or translation, rotation (quaternion) and scale.
Matrix LocalMatrix(const Json& node) {
  if (node.contains("matrix")) {
    const Json& m = node.at("matrix");
    const auto column = [&](int c) {
      return Vec3d{m.at(4 * c).get<double>(), m.at(4 * c + 1).get<double>(),
                   m.at(4 * c + 2).get<double>()};
    };
    return {column(3), column(0), column(1), column(2)};
  }
  const Vec3d scale = VectorOf(node, "scale", {1, 1, 1});
  double x = 0, y = 0, z = 0, w = 1;
  if (node.contains("rotation")) {
    const Json& q = node.at("rotation");
    x = q.at(0).get<double>(), y = q.at(1).get<double>();
    z = q.at(2).get<double>(), w = q.at(3).get<double>();
  }
  Matrix m;
  m.offset = VectorOf(node, "translation", {});
  m.v1 = Vec3d{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)} * scale.x;
  m.v2 = Vec3d{2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)} * scale.y;
  m.v3 = Vec3d{2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)} * scale.z;
  return m;
}

class GltfReader {
 public:
  GltfReader(std::string_view bytes, const std::filesystem::path& folder)
      : mData(bytes, folder), mRoot(mData.Root()) {}

  Geometry Read() {
    if (mRoot.contains("nodes")) {
      ReadNodes();
    } else if (mRoot.contains("meshes")) {
      for (u64 i = 0; i < mRoot.at("meshes").size(); ++i) ReadMesh(i, {});
    }
    return mBuilder.Build();
  }

 private:
  struct Placed {
    u64 node;
    Matrix parent;
  };

  /// The nodes that the file's scene begins with; all that are nobody's child without a scene.
  std::vector<u64> RootNodes() const {
    std::vector<u64> roots;
    if (mRoot.contains("scenes")) {
      const Json& scene = mData.At("scenes", GltfData::Unsigned(mRoot, "scene", 0));
      if (scene.contains("nodes"))
        for (const Json& node : scene.at("nodes")) roots.push_back(Index(node));
      return roots;
    }
    std::vector<bool> isChild(mRoot.at("nodes").size());
    for (const Json& node : mRoot.at("nodes"))
      if (node.contains("children"))
        for (const Json& child : node.at("children"))
          if (Index(child) < isChild.size()) isChild[Index(child)] = true;
    for (u64 i = 0; i < isChild.size(); ++i)
      if (!isChild[i]) roots.push_back(i);
    return roots;
  }

  static u64 Index(const Json& value) {
    if (!value.is_number_unsigned()) throw MeshFileError("has an index that isn't one");
    return value.get<u64>();
  }

  /// Parents before children, in the order of the file; an own stack, as files can be deep.
  void ReadNodes() {
    std::vector<Placed> open;
    std::vector<bool> seen(mRoot.at("nodes").size());
    const auto push = [&](std::vector<u64> nodes, const Matrix& parent) {
      for (auto node = nodes.rbegin(); node != nodes.rend(); ++node)
        open.push_back({*node, parent});
    };
    push(RootNodes(), {});
    while (!open.empty()) {
      const Placed placed = open.back();
      open.pop_back();
      const Json& node = mData.At("nodes", placed.node);
      if (seen[placed.node]) throw MeshFileError("has a node in two places of its tree");
      seen[placed.node] = true;
      const Matrix global = placed.parent * LocalMatrix(node);
      if (node.contains("mesh")) ReadMesh(Index(node.at("mesh")), global);
      std::vector<u64> children;
      if (node.contains("children"))
        for (const Json& child : node.at("children")) children.push_back(Index(child));
      push(std::move(children), global);
    }
  }

  void ReadMesh(u64 index, const Matrix& placement) {
    const size_t first = mBuilder.points.size();
    mWelder.Separate();
    for (const Json& primitive : mData.At("meshes", index).at("primitives"))
      ReadPrimitive(primitive, placement);
    for (size_t i = first; i < mBuilder.points.size(); ++i)
      mBuilder.points[i] = placement * mBuilder.points[i];
  }

  void ReadPrimitive(const Json& primitive, const Matrix& placement) {
    const u64 mode = GltfData::Unsigned(primitive, "mode", 4);
    if (mode < 4) return;  // points and lines
    if (mode > 6) throw MeshFileError(fmt::format("has an unknown primitive mode {}", mode));
    const Json& attributes = primitive.at("attributes");
    if (!attributes.contains("POSITION")) return;

    mPoints.clear();
    for (const Vec3d& p : mData.Vectors(Index(attributes.at("POSITION"))))
      mPoints.push_back(mWelder.Index(p));
    TakeVelocities(attributes, placement);
    TakeColours(attributes);
    mFirstUv = AppendUvs(attributes);
    mFirstNormal = AppendNormals(attributes, placement);

    std::vector<u32> indices;
    if (primitive.contains("indices")) {
      indices = mData.Indices(Index(primitive.at("indices")));
    } else {
      indices.resize(mPoints.size());
      for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<u32>(i);
    }
    for (const u32 i : indices)
      if (i >= mPoints.size())
        throw MeshFileError(fmt::format("names point {} (counted from 0) in a face, but has {}", i,
                                        mPoints.size()));
    // A mirrored mesh is turned inside out by its placement.
    const bool mirrored = Dot(placement.v1, Cross(placement.v2, placement.v3)) < 0;
    AddTriangles(indices, mode, mirrored);
  }

  /// Puts the values of the primitive's points where these stand in the builder.
  void TakeOfPoints(const std::vector<Vec3d>& values, const Vec3d& missing,
                    std::vector<Vec3d>& list) {
    RequireCount(values.size());
    list.resize(mBuilder.points.size(), missing);
    for (size_t i = 0; i < values.size(); ++i) list[static_cast<size_t>(mPoints[i])] = values[i];
  }

  /// Velocities turn and grow with the mesh.
  void TakeVelocities(const Json& attributes, const Matrix& placement) {
    const char* key = attributes.contains("VELOCITY") ? "VELOCITY" : "_VELOCITY";
    if (!attributes.contains(key)) return;
    std::vector<Vec3d> velocities = mData.Vectors(Index(attributes.at(key)));
    for (Vec3d& v : velocities) v = placement.Rotate(v);
    TakeOfPoints(velocities, {}, mBuilder.velocities);
  }

  void TakeColours(const Json& attributes) {
    if (!attributes.contains("COLOR_0")) return;
    const u64 accessor = Index(attributes.at("COLOR_0"));
    // The fourth number is how opaque a point is.
    const bool isOpen = mData.At("accessors", accessor).value("type", "") == "VEC4";
    if (!isOpen) return TakeOfPoints(mData.Vectors(accessor), {1, 1, 1}, mBuilder.colours);
    const std::vector<double> numbers = mData.Numbers(accessor, 4);
    std::vector<Vec3d> colours;
    for (size_t i = 0; i + 3 < numbers.size(); i += 4)
      colours.push_back({numbers[i], numbers[i + 1], numbers[i + 2]});
    TakeOfPoints(colours, {1, 1, 1}, mBuilder.colours);
  }

  /// Index of the first uv in the builder's list, or -1 when the primitive has none. The origin
  /// moves from the picture's upper left to its lower left corner.
  i64 AppendUvs(const Json& attributes) {
    if (!attributes.contains("TEXCOORD_0")) return -1;
    const std::vector<Vec3d> uvs = mData.Vectors(Index(attributes.at("TEXCOORD_0")));
    RequireCount(uvs.size());
    const i64 first = static_cast<i64>(mBuilder.uvs.size());
    for (const Vec3d& uv : uvs) mBuilder.uvs.push_back({uv.x, 1 - uv.y, 0});
    return first;
  }

  /// The same for normals, which turn with the inverse transpose of the placement.
  i64 AppendNormals(const Json& attributes, const Matrix& placement) {
    if (!attributes.contains("NORMAL")) return -1;
    const std::vector<Vec3d> normals = mData.Vectors(Index(attributes.at("NORMAL")));
    RequireCount(normals.size());
    const i64 first = static_cast<i64>(mBuilder.normals.size());
    const Matrix inverse = Inverse(placement);
    for (const Vec3d& n : normals)
      mBuilder.normals.push_back(
          Normalised(Vec3d{Dot(inverse.v1, n), Dot(inverse.v2, n), Dot(inverse.v3, n)}));
    return first;
  }

  void RequireCount(size_t count) const {
    if (count != mPoints.size())
      throw MeshFileError(
          "has a mesh whose uvs, normals, velocities or colours aren't as many as its points");
  }

  void AddTriangles(const std::vector<u32>& indices, u64 mode, bool mirrored) {
    const auto add = [&](u32 a, u32 b, u32 c) {
      if (mirrored) std::swap(b, c);
      const i32 i = mPoints[a], j = mPoints[b], k = mPoints[c];
      if (i == j || j == k || k == i) return;  // joins of strips, and triangles without area
      mCorners = {Corner(a), Corner(b), Corner(c)};
      mBuilder.AddFace(mCorners);
    };
    const size_t count = indices.size();
    if (mode == 4) {
      for (size_t i = 0; i + 2 < count; i += 3) add(indices[i], indices[i + 1], indices[i + 2]);
    } else if (mode == 5) {
      for (size_t i = 0; i + 2 < count; ++i)
        add(indices[i], indices[i + 1 + i % 2], indices[i + 2 - i % 2]);
    } else {
      for (size_t i = 1; i + 1 < count; ++i) add(indices[0], indices[i], indices[i + 1]);
    }
  }

  FaceCorner Corner(u32 i) const {
    return {mPoints[i], mFirstUv < 0 ? -1 : mFirstUv + i, mFirstNormal < 0 ? -1 : mFirstNormal + i};
  }

  GltfData mData;
  const Json& mRoot;
  GeometryBuilder mBuilder;
  PointWelder mWelder{mBuilder.points};
  std::vector<i32> mPoints;  ///< of the present primitive: element to point of the builder
  i64 mFirstUv = -1, mFirstNormal = -1;
  std::vector<FaceCorner> mCorners;
};
}  // namespace

Geometry ReadGltf(std::string_view bytes, const std::filesystem::path& folder) {
  try {
    return GltfReader(bytes, folder).Read();
  } catch (const Json::exception& error) {
    throw MeshFileError(fmt::format("isn't a valid glTF file ({})", error.what()));
  }
}

}  // namespace MELDO_GLOBAL::host
