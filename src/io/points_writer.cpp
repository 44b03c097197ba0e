#include "io/points_writer.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>

#include "io/point_table.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

static_assert(std::endian::native == std::endian::little, "files are written as numbers stand");

struct BinaryOut {
  std::string bytes;
  void Number(double value) { Put(&value, sizeof value); }
  void Whole(i32 value) { Put(&value, sizeof value); }
  void Byte(u8 value) { Put(&value, 1); }
  void EndRow() {}
  void Put(const void* data, std::size_t size) {
    bytes.append(static_cast<const char*>(data), size);
  }
};

struct TextOut {
  std::string text;
  void Number(double value) { fmt::format_to(std::back_inserter(text), "{},", value); }
  void Whole(i32 value) { fmt::format_to(std::back_inserter(text), "{},", value); }
  void Byte(u8 value) { Whole(value); }
  void EndRow() { text.back() = '\n'; }
};

}  // namespace

std::string EncodePointsPly(const ParticleSet& particles, u32 kinds) {
  const PointTable table(particles, kinds);
  std::string header = "ply\nformat binary_little_endian 1.0\ncomment metres, seconds\n";
  header += fmt::format("element vertex {}\n", table.Count());
  for (const char* name : {"x", "y", "z", "vx", "vy", "vz"})
    header += fmt::format("property double {}\n", name);
  header += "property int id\n";
  table.ForEachColumn([&](const std::string& name, bool isByte) {
    header += fmt::format("property {} {}\n", isByte ? "uchar" : "double", name);
  });
  BinaryOut out{header + "end_header\n"};
  table.Write(out);
  return std::move(out.bytes);
}

std::string EncodePointsCsv(const ParticleSet& particles, u32 kinds) {
  const PointTable table(particles, kinds);
  TextOut out{"x,y,z,vx,vy,vz,id,"};
  table.ForEachColumn([&](const std::string& name, bool) { out.text += name + ","; });
  out.EndRow();
  table.Write(out);
  return std::move(out.text);
}

}  // namespace MELDO_GLOBAL::app
