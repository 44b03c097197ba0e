// PLY, ascii and binary of both byte orders: points with normals, uvs, velocities and colours,
// faces with corner uvs.
#include <fmt/format.h>

#include <bit>
#include <cmath>
#include <cstring>

#include "host/mesh_readers.h"
#include "host/ply_header.h"

namespace MELDO_GLOBAL::host {

namespace {
/// Takes one number after the other off the data.
class Source {
 public:
  Source(std::string_view data, PlyEncoding encoding) : mData(data), mEncoding(encoding) {}

  double Next(PlyType type) {
    if (mEncoding == PlyEncoding::Ascii) return NextText();
    switch (type) {
      case PlyType::I8: return static_cast<std::int8_t>(Bits<u8>());
      case PlyType::U8: return Bits<u8>();
      case PlyType::I16: return static_cast<i16>(Bits<std::uint16_t>());
      case PlyType::U16: return Bits<std::uint16_t>();
      case PlyType::I32: return static_cast<i32>(Bits<u32>());
      case PlyType::U32: return Bits<u32>();
      case PlyType::F32: return std::bit_cast<f32>(Bits<u32>());
      case PlyType::F64: return std::bit_cast<f64>(Bits<u64>());
    }
    return 0;
  }

  /// A whole number from 0 on.
  i64 NextIndex(PlyType type) {
    const double value = Next(type);
    if (!(value >= 0 && value < 0x1p53) || value != std::floor(value))
      throw MeshFileError(fmt::format("has {} where an index or a count was expected", value));
    return static_cast<i64>(value);
  }

 private:
  double NextText() {
    const std::string_view word = NextWord(mData);
    if (word.empty()) throw MeshFileError("is truncated");
    const auto value = ParseReal(word);
    if (!value) throw MeshFileError(fmt::format("has \"{}\" where a number was expected", word));
    return *value;
  }

  template <class T>
  T Bits() {
    if (mData.size() < sizeof(T)) throw MeshFileError("is truncated");
    T bits = 0;
    for (size_t i = 0; i < sizeof(T); ++i) {
      const size_t at = mEncoding == PlyEncoding::Little ? sizeof(T) - 1 - i : i;
      bits = static_cast<T>(static_cast<u64>(bits) << 8 | static_cast<u8>(mData[at]));
    }
    mData.remove_prefix(sizeof(T));
    return bits;
  }

  std::string_view mData;
  PlyEncoding mEncoding;
};

/// The slots of a point's numbers.
enum Slot : int { kPosition = 0, kNormal = 3, kUv = 6, kVelocity = 8, kColour = 11, kSlots = 14 };

/// Where the number of a point property goes; -1 nowhere.
int SlotOf(const PlyProperty& property) {
  constexpr std::pair<std::string_view, int> slots[] = {
      {"x", 0},         {"y", 1},         {"z", 2},   {"nx", 3},   {"ny", 4},     {"nz", 5},
      {"s", 6},         {"t", 7},         {"u", 6},   {"v", 7},    {"vx", 8},     {"vy", 9},
      {"texture_u", 6}, {"texture_v", 7}, {"vz", 10}, {"red", 11}, {"green", 12}, {"blue", 13}};
  for (const auto& [name, slot] : slots)
    if (!property.isList && property.name == name) return slot;
  return -1;
}

/// Light of the colour that a file has: whole numbers are as a screen wants them.
double LightOf(double value, PlyType type) {
  if (type == PlyType::U8) return LightOfSrgb(value / 255);
  if (type == PlyType::U16) return LightOfSrgb(value / 65535);
  return value;
}

void SkipList(Source& source, const PlyProperty& property) {
  for (i64 left = source.NextIndex(property.countType); left > 0; --left)
    source.Next(property.type);
}

class PlyReader {
 public:
  explicit PlyReader(std::string_view bytes)
      : mHeader(ReadPlyHeader(bytes)), mSource(bytes, mHeader.encoding) {}

  Geometry Read() {
    for (const PlyElement& element : mHeader.elements) {
      if (element.properties.empty()) continue;
      if (element.name == "vertex") {
        ReadPoints(element);
      } else {
        ReadFaces(element, element.name == "face");
      }
    }
    return mBuilder.Build();
  }

 private:
  void ReadPoints(const PlyElement& element) {
    std::vector<int> slots;
    bool has[kSlots] = {};
    for (const PlyProperty& property : element.properties) {
      slots.push_back(SlotOf(property));
      if (slots.back() >= 0) has[slots.back()] = true;
    }
    const auto hasVector = [&](int slot) { return has[slot] && has[slot + 1] && has[slot + 2]; };
    if (!hasVector(kPosition)) throw MeshFileError("has points without x, y and z");
    for (i64 i = 0; i < element.count; ++i) {
      double value[kSlots] = {};
      for (size_t p = 0; p < slots.size(); ++p) {
        const PlyProperty& property = element.properties[p];
        if (property.isList) {
          SkipList(mSource, property);
        } else {
          const double number = mSource.Next(property.type);
          if (slots[p] >= 0)
            value[slots[p]] = slots[p] >= kColour ? LightOf(number, property.type) : number;
        }
      }
      const auto take = [&](std::vector<Vec3d>& list, int slot) {
        if (hasVector(slot)) list.push_back({value[slot], value[slot + 1], value[slot + 2]});
      };
      take(mBuilder.points, kPosition);
      take(mBuilder.normals, kNormal);
      take(mBuilder.velocities, kVelocity);
      take(mBuilder.colours, kColour);
      if (has[kUv] && has[kUv + 1]) mBuilder.uvs.push_back({value[kUv], value[kUv + 1], 0});
    }
    mPointNormals = !mBuilder.normals.empty();
    mPointUvs = static_cast<i64>(mBuilder.uvs.size());
  }

  // Elements other than faces are read the same way, and dropped.
  void ReadFaces(const PlyElement& element, bool keep) {
    for (i64 i = 0; i < element.count; ++i) {
      mCorners.clear();
      mFaceUvs.clear();
      for (const PlyProperty& property : element.properties) {
        if (!property.isList) {
          mSource.Next(property.type);
        } else if (property.name == "vertex_indices" || property.name == "vertex_index") {
          for (i64 left = mSource.NextIndex(property.countType); left > 0; --left)
            mCorners.push_back({mSource.NextIndex(property.type)});
        } else if (property.name == "texcoord") {
          for (i64 left = mSource.NextIndex(property.countType); left > 0; --left)
            mFaceUvs.push_back(mSource.Next(property.type));
        } else {
          SkipList(mSource, property);
        }
      }
      if (keep) AddFace(i);
    }
  }

  void AddFace(i64 number) {
    if (mCorners.size() < 3)
      throw MeshFileError(
          fmt::format("has fewer than three corners in face {} (counted from 0)", number));
    const bool cornerUvs = mFaceUvs.size() == 2 * mCorners.size();
    for (size_t i = 0; i < mCorners.size(); ++i) {
      FaceCorner& corner = mCorners[i];
      if (mPointNormals) corner.normal = corner.point;
      if (cornerUvs) {
        corner.uv = static_cast<i64>(mBuilder.uvs.size());
        mBuilder.uvs.push_back({mFaceUvs[2 * i], mFaceUvs[2 * i + 1], 0});
      } else if (mPointUvs > 0) {
        corner.uv = corner.point;
      }
    }
    mBuilder.AddFace(mCorners);
  }

  PlyHeader mHeader;
  Source mSource;
  GeometryBuilder mBuilder;
  bool mPointNormals = false;
  i64 mPointUvs = 0;
  std::vector<FaceCorner> mCorners;
  std::vector<double> mFaceUvs;
};
}  // namespace

Geometry ReadPly(std::string_view bytes) { return PlyReader(bytes).Read(); }

}  // namespace MELDO_GLOBAL::host
