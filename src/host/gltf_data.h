// The JSON, the buffers and the accessors of a glTF file.
#pragma once
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::host {

/// Reads arrays out of a glTF 2.0 file, text or binary, with every offset checked. All operations
/// throw MeshFileError, or an exception of the JSON library where a value has the wrong type.
class GltfData {
 public:
  using Json = nlohmann::json;

  GltfData(std::string_view bytes, std::filesystem::path folder);

  const Json& Root() const { return mRoot; }
  /// Entry `index` of an array of the root.
  const Json& At(const char* array, u64 index) const;
  /// A whole number of an object; `missing` when it isn't there.
  static u64 Unsigned(const Json& object, const char* key, u64 missing);

  /// An accessor of two or three components; z is 0 with two.
  std::vector<Vec3d> Vectors(u64 accessor);
  /// All numbers of an accessor of elements of `components` each.
  std::vector<double> Numbers(u64 accessor, u64 components);
  /// An accessor of whole numbers.
  std::vector<u32> Indices(u64 accessor);

 private:
  /// The elements of an accessor as bytes.
  struct Elements {
    std::string_view bytes;  ///< of the first element and all behind it
    u64 count = 0, stride = 0;
    u64 components = 0, componentType = 0;
    bool normalised = false;
    double Component(u64 element, u64 component) const;
  };
  Elements Find(u64 accessor);
  std::string_view Buffer(u64 index);

  Json mRoot;
  std::string mBinary;  ///< the binary chunk of a .glb file
  std::filesystem::path mFolder;
  std::map<u64, std::string> mBuffers;
  u64 mBudget = u64{1} << 26;  ///< elements that may still be read
};

}  // namespace MELDO_GLOBAL::host
