// What a PLY file says of the data behind its header.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

enum class PlyType { I8, U8, I16, U16, I32, U32, F32, F64 };

struct PlyProperty {
  std::string name;
  PlyType type = PlyType::F32;
  bool isList = false;
  PlyType countType = PlyType::U8;
};

struct PlyElement {
  std::string name;
  i64 count = 0;
  std::vector<PlyProperty> properties;
};

enum class PlyEncoding { Ascii, Little, Big };

struct PlyHeader {
  PlyEncoding encoding = PlyEncoding::Ascii;
  std::vector<PlyElement> elements;
};

/// Takes the header off `text`; what is left is the data. Throws MeshFileError.
PlyHeader ReadPlyHeader(std::string_view& text);

}  // namespace MELDO_GLOBAL::host
