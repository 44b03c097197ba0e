// What the readers of the mesh formats share.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/geometry.h"

namespace MELDO_GLOBAL::host {

// Each reader takes the bytes of a file and throws MeshFileError with a sentence that goes on after
// the file's name ("line 3: ..."); indices and coordinates are checked by LoadMesh.
Geometry ReadObj(std::string_view bytes);
Geometry ReadStl(std::string_view bytes);
Geometry ReadPly(std::string_view bytes);
/// `folder` is where the external buffers of the file are.
Geometry ReadGltf(std::string_view bytes, const std::filesystem::path& folder);

/// The bytes of a regular file. Throws MeshFileError.
std::string ReadBytes(const std::filesystem::path& path);

/// Takes the next line off `text`, without its end; nothing at the end of the text.
std::optional<std::string_view> NextLine(std::string_view& text);
/// Takes the next word off `text`; empty at the end.
std::string_view NextWord(std::string_view& text);
/// The number that a whole word is, whatever the locale; nothing for another word.
std::optional<double> ParseReal(std::string_view word);
std::optional<i64> ParseInteger(std::string_view word);

/// One corner of a face while it is read: -1 where it has no uv or normal.
struct FaceCorner {
  i64 point = 0;
  i64 uv = -1;
  i64 normal = -1;
};

/// Builds a geometry out of faces whose corners index lists of points, uvs and normals.
class GeometryBuilder {
 public:
  std::vector<Vec3d> points, uvs, normals;
  std::vector<Vec3d> velocities, colours;  ///< of points; of some of them, 0 and white for others

  /// A face of three or more corners; more than four become a fan of triangles. Throws
  /// MeshFileError for an index beyond 32 bits.
  void AddFace(const std::vector<FaceCorner>& corners);
  /// The geometry, with corner data where at least one face has it (zeros on the others). Throws
  /// MeshFileError for an index out of range.
  Geometry Build();

 private:
  struct Corner {
    i32 point, uv, normal;
  };
  static Corner Narrow(const FaceCorner& corner);
  std::vector<std::array<Corner, 4>> mFaces;
};

/// The light of a share of the curve of sRGB (IEC 61966-2-1), both from 0 to 1.
double LightOfSrgb(double shown);

/// Gives every position one index, in order of first appearance.
class PointWelder {
 public:
  explicit PointWelder(std::vector<Vec3d>& points) : mPoints(points) {}
  i32 Index(const Vec3d& position);
  /// Positions from now on are new points.
  void Separate() { mIndices.clear(); }

 private:
  struct Hash {
    size_t operator()(const Vec3d& p) const;
  };
  std::vector<Vec3d>& mPoints;
  std::unordered_map<Vec3d, i32, Hash> mIndices;
};

}  // namespace MELDO_GLOBAL::host
