#include "host/ply_header.h"

#include <fmt/format.h>

#include <utility>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {

PlyType PlyTypeNamed(std::string_view word) {
  constexpr std::pair<std::string_view, PlyType> names[] = {
      {"char", PlyType::I8},    {"int8", PlyType::I8},     {"uchar", PlyType::U8},
      {"uint8", PlyType::U8},   {"short", PlyType::I16},   {"int16", PlyType::I16},
      {"ushort", PlyType::U16}, {"uint16", PlyType::U16},  {"int", PlyType::I32},
      {"int32", PlyType::I32},  {"uint", PlyType::U32},    {"uint32", PlyType::U32},
      {"float", PlyType::F32},  {"float32", PlyType::F32}, {"double", PlyType::F64},
      {"float64", PlyType::F64}};
  for (const auto& [name, type] : names)
    if (name == word) return type;
  throw MeshFileError(fmt::format("has an unknown type \"{}\" in its header", word));
}

PlyEncoding PlyEncodingNamed(std::string_view word) {
  if (word == "ascii") return PlyEncoding::Ascii;
  if (word == "binary_little_endian") return PlyEncoding::Little;
  if (word == "binary_big_endian") return PlyEncoding::Big;
  throw MeshFileError(fmt::format("has an unknown format \"{}\"", word));
}

PlyProperty ReadPlyProperty(std::string_view line) {
  PlyProperty property;
  std::string_view type = NextWord(line);
  if (type == "list") {
    property.isList = true;
    property.countType = PlyTypeNamed(NextWord(line));
    type = NextWord(line);
  }
  property.type = PlyTypeNamed(type);
  property.name = NextWord(line);
  return property;
}

}  // namespace

PlyHeader ReadPlyHeader(std::string_view& text) {
  if (NextLine(text) != "ply") throw MeshFileError("isn't a PLY file");
  PlyHeader header;
  while (auto line = NextLine(text)) {
    const std::string_view key = NextWord(*line);
    if (key == "end_header") return header;
    if (key == "format") header.encoding = PlyEncodingNamed(NextWord(*line));
    if (key == "element") {
      PlyElement& element = header.elements.emplace_back();
      element.name = NextWord(*line);
      const auto count = ParseInteger(NextWord(*line));
      if (!count || *count < 0) throw MeshFileError("has a count in its header that isn't one");
      element.count = *count;
    }
    if (key == "property") {
      if (header.elements.empty()) throw MeshFileError("has a property before any element");
      header.elements.back().properties.push_back(ReadPlyProperty(*line));
    }
  }
  throw MeshFileError("is truncated: its header doesn't end");
}

}  // namespace MELDO_GLOBAL::host
