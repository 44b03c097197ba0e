#include "host/gltf_data.h"

#include <fmt/format.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <optional>

#include "host/mesh_readers.h"
#include "host/output_guard.h"

namespace MELDO_GLOBAL::host {

namespace {
constexpr u32 kMagic = 0x46546C67, kJsonChunk = 0x4E4F534A, kBinaryChunk = 0x004E4942;

enum ComponentType : u64 { kI8 = 5120, kU8, kI16, kU16, kU32 = 5125, kF32 };

u64 SizeOf(u64 componentType) {
  switch (componentType) {
    case kI8:
    case kU8: return 1;
    case kI16:
    case kU16: return 2;
    case kU32:
    case kF32: return 4;
  }
  throw MeshFileError(fmt::format("has an unknown component type {}", componentType));
}

u64 ComponentsOf(const std::string& type) {
  if (type == "SCALAR") return 1;
  if (type == "VEC2") return 2;
  if (type == "VEC3") return 3;
  if (type == "VEC4") return 4;
  throw MeshFileError(fmt::format("has an accessor of type \"{}\" where vectors belong", type));
}

u32 Little(std::string_view bytes, u64 at, u64 size) {
  u32 word = 0;
  for (u64 i = size; i-- > 0;) word = word << 8 | static_cast<u8>(bytes[at + i]);
  return word;
}

/// The chunks of a .glb file.
struct Chunks {
  std::string_view json, binary;
};

Chunks SplitBinary(std::string_view bytes) {
  if (bytes.size() < 12 || Little(bytes, 4, 4) != 2)
    throw MeshFileError("isn't a binary glTF file of version 2");
  Chunks chunks;
  bytes.remove_prefix(12);
  while (bytes.size() >= 8) {
    const u64 size = Little(bytes, 0, 4);
    const u32 type = Little(bytes, 4, 4);
    if (size > bytes.size() - 8) throw MeshFileError("is truncated");
    if (type == kJsonChunk && chunks.json.empty()) chunks.json = bytes.substr(8, size);
    if (type == kBinaryChunk && chunks.binary.empty()) chunks.binary = bytes.substr(8, size);
    bytes.remove_prefix(8 + size);
  }
  return chunks;
}

int Base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::string DecodeBase64(std::string_view text) {
  std::string bytes;
  u32 word = 0;
  int bits = 0;
  for (const char c : text) {
    if (c == '=') break;
    const int digit = Base64Digit(c);
    if (digit < 0) throw MeshFileError("has a data address that isn't base64");
    word = word << 6 | static_cast<u32>(digit);
    bits += 6;
    if (bits >= 8) bytes.push_back(static_cast<char>(word >> (bits -= 8)));
  }
  return bytes;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// What a file names is read from its own folder alone, whatever links there lead to: a mesh of
/// somebody else's must not get at other files.
bool LeadsBelow(const std::filesystem::path& folder, const std::string& name) {
  if (name.find('\0') != std::string::npos) return false;
  std::error_code failed;
  const std::filesystem::path root =
      std::filesystem::canonical(folder.empty() ? std::filesystem::path(".") : folder, failed);
  if (failed) return false;
  const std::filesystem::path whole = std::filesystem::weakly_canonical(root / name, failed);
  return !failed && IsBelow(whole, root);
}

std::string DecodePercent(const std::string& uri) {
  std::string path;
  for (size_t i = 0; i < uri.size(); ++i) {
    const bool escape = uri[i] == '%' && i + 2 < uri.size() && HexDigit(uri[i + 1]) >= 0 &&
                        HexDigit(uri[i + 2]) >= 0;
    if (escape) {
      path.push_back(static_cast<char>(HexDigit(uri[i + 1]) << 4 | HexDigit(uri[i + 2])));
      i += 2;
    } else {
      path.push_back(uri[i]);
    }
  }
  return path;
}
}  // namespace

GltfData::GltfData(std::string_view bytes, std::filesystem::path folder)
    : mFolder(std::move(folder)) {
  std::string_view text = bytes;
  if (bytes.size() >= 4 && Little(bytes, 0, 4) == kMagic) {
    const Chunks chunks = SplitBinary(bytes);
    text = chunks.json;
    mBinary = chunks.binary;
  }
  mRoot = Json::parse(text, nullptr, false);
  if (!mRoot.is_object() || !mRoot.contains("asset"))
    throw MeshFileError("isn't a glTF file: it has no readable JSON description");
  if (mRoot.contains("extensionsRequired"))
    for (const Json& extension : mRoot.at("extensionsRequired")) {
      const std::string name = extension.get<std::string>();
      if (name.find("compression") != std::string::npos)
        throw MeshFileError(fmt::format("is compressed by {}, which isn't read", name));
    }
}

const GltfData::Json& GltfData::At(const char* array, u64 index) const {
  if (!mRoot.contains(array) || !mRoot.at(array).is_array() || index >= mRoot.at(array).size())
    throw MeshFileError(fmt::format("has no entry {} in its {}", index, array));
  return mRoot.at(array).at(index);
}

u64 GltfData::Unsigned(const Json& object, const char* key, u64 missing) {
  const auto found = object.find(key);
  if (found == object.end()) return missing;
  if (!found->is_number_unsigned())
    throw MeshFileError(fmt::format("has a \"{}\" that isn't a whole number from 0 on", key));
  return found->get<u64>();
}

std::string_view GltfData::Buffer(u64 index) {
  const Json& buffer = At("buffers", index);
  if (!buffer.contains("uri")) return mBinary;
  const auto [entry, isNew] = mBuffers.try_emplace(index);
  if (!isNew) return entry->second;
  const std::string& uri = buffer.at("uri").get_ref<const std::string&>();
  if (uri.starts_with("data:")) {
    const size_t comma = uri.find(";base64,");
    if (comma == std::string::npos) throw MeshFileError("has a data address that isn't base64");
    entry->second = DecodeBase64(std::string_view(uri).substr(comma + 8));
  } else {
    const std::string path = DecodePercent(uri);
    if (!LeadsBelow(mFolder, path))
      throw MeshFileError(fmt::format("needs \"{}\", which isn't below its own folder", path));
    try {
      entry->second = ReadBytes(mFolder / path);
    } catch (const MeshFileError& error) {
      throw MeshFileError(fmt::format("needs \"{}\", which {}", path, error.what()));
    }
  }
  return entry->second;
}

GltfData::Elements GltfData::Find(u64 accessor) {
  const Json& a = At("accessors", accessor);
  if (a.contains("sparse")) throw MeshFileError("has a sparse accessor, which isn't read");
  if (!a.contains("bufferView")) throw MeshFileError("has an accessor without data");
  const Json& view = At("bufferViews", Unsigned(a, "bufferView", 0));

  Elements e;
  e.count = Unsigned(a, "count", 0);
  e.componentType = Unsigned(a, "componentType", 0);
  e.components = ComponentsOf(a.at("type").get<std::string>());
  e.normalised = a.value("normalized", false);
  const u64 size = e.components * SizeOf(e.componentType);
  e.stride = Unsigned(view, "byteStride", size);
  if (e.count > mBudget) throw MeshFileError("is too large");
  mBudget -= e.count;

  const std::string_view buffer = Buffer(Unsigned(view, "buffer", 0));
  const u64 start = Unsigned(view, "byteOffset", 0), length = Unsigned(view, "byteLength", 0);
  if (start > buffer.size() || length > buffer.size() - start)
    throw MeshFileError("has a buffer view that goes past the end of its buffer");
  const u64 offset = Unsigned(a, "byteOffset", 0);
  const bool fits =
      e.count == 0 || (e.stride >= size && offset <= length && length - offset >= size &&
                       (length - offset - size) / e.stride >= e.count - 1);
  if (!fits) throw MeshFileError("has an accessor that goes past the end of its buffer view");
  if (e.count > 0) e.bytes = buffer.substr(start + offset, length - offset);
  return e;
}

double GltfData::Elements::Component(u64 element, u64 component) const {
  const u64 size = SizeOf(componentType);
  const u32 bits = Little(bytes, element * stride + component * size, size);
  switch (componentType) {
    case kF32: return std::bit_cast<f32>(bits);
    case kI8: {
      const double value = static_cast<std::int8_t>(bits);
      return normalised ? std::max(value / 127, -1.0) : value;
    }
    case kI16: {
      const double value = static_cast<i16>(bits);
      return normalised ? std::max(value / 32767, -1.0) : value;
    }
    case kU8: return normalised ? bits / 255.0 : bits;
    case kU16: return normalised ? bits / 65535.0 : bits;
    default: return bits;
  }
}

std::vector<Vec3d> GltfData::Vectors(u64 accessor) {
  const Elements e = Find(accessor);
  if (e.components < 2 || e.components > 3)
    throw MeshFileError("has an accessor of the wrong type where vectors belong");
  std::vector<Vec3d> vectors(e.count);
  for (u64 i = 0; i < e.count; ++i)
    for (u64 c = 0; c < e.components; ++c) vectors[i][static_cast<int>(c)] = e.Component(i, c);
  return vectors;
}

std::vector<double> GltfData::Numbers(u64 accessor, u64 components) {
  const Elements e = Find(accessor);
  if (e.components != components)
    throw MeshFileError("has an accessor of the wrong type where an animation's numbers belong");
  std::vector<double> numbers;
  for (u64 i = 0; i < e.count; ++i)
    for (u64 c = 0; c < components; ++c) {
      numbers.push_back(e.Component(i, c));
      if (!std::isfinite(numbers.back()))
        throw MeshFileError("has a number that isn't finite in an animation");
    }
  return numbers;
}

std::vector<u32> GltfData::Indices(u64 accessor) {
  const Elements e = Find(accessor);
  const u64 type = e.componentType;
  if (e.components != 1 || (type != kU8 && type != kU16 && type != kU32))
    throw MeshFileError("has an accessor of the wrong type where indices belong");
  std::vector<u32> indices(e.count);
  for (u64 i = 0; i < e.count; ++i) indices[i] = Little(e.bytes, i * e.stride, SizeOf(type));
  return indices;
}

}  // namespace MELDO_GLOBAL::host
