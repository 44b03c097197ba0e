// Particles in files for other tools, read back as these do.
#include "fluids/particles/point_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "exchange/particle_files.h"
#include "io/png_preview.h"

namespace MELDO_GLOBAL::app {
namespace {

using namespace MELDO_SULVA;

/// Three passive particles, the second without an age, and one of liquid with a switch.
struct FewParticles {
  ParticleSet set;
  FewParticles() {
    ParticleTemplate particle;
    particle.position = {0.1, -2, 1e-30};
    particle.velocity = {1, 2, 3};
    particle.Set(property_id::kAge, 7.25);
    particle.Set(property_id::kColor, Vec3d{1, 0.5, 0});
    particle.Set(property_id::kFrameStart, Vec3d{9, 9, 9});
    set.Store(kPassive).Create(particle);
    set.Store(kPassive).Create({});
    particle.Set(PropertyKey(75, 4), 0.3, "heat of it");
    set.Store(kPassive).Create(particle);
    ParticleTemplate drop;
    drop.Set(PropertyKey(76, 5), true, "heat of it");
    set.Store(kLiquid).Create(drop);
  }
};

std::string EncodedAs(std::string_view format, const ParticleSet& particles, u32 kinds) {
  return exchange::EncodeParticles(TableOf(particles, kinds), *exchange::FindFormat(format));
}

}  // namespace

TEST(PointsWriter, PlyHoldsAColumnForEachProperty) {
  FewParticles few;
  const std::string bytes = EncodedAs("ply", few.set, 0);
  std::istringstream text(bytes);
  std::vector<std::pair<std::string, std::string>> columns;
  i64 count = -1;
  std::size_t size = 0;
  for (std::string line; std::getline(text, line) && line != "end_header";) {
    std::istringstream words(line);
    std::string first, type, name;
    words >> first >> type >> name;
    if (first == "element") count = std::stoll(name);
    if (first != "property") continue;
    columns.emplace_back(type, name);
    size += type == "double" ? 8 : type == "int" ? 4 : 1;
  }
  std::string names;
  for (const auto& column : columns) names += column.second + " ";
  EXPECT_EQ(names, "x y z vx vy vz id kind age color_x color_y color_z heat_of_it heat_of_it_2 ");
  EXPECT_EQ(count, 4);
  const std::size_t body = static_cast<std::size_t>(text.tellg());
  ASSERT_EQ(bytes.size(), body + 4 * size);
  const auto numberAt = [&](std::size_t row, std::size_t offset) {
    double value;
    std::memcpy(&value, bytes.data() + body + row * size + offset, sizeof value);
    return value;
  };
  EXPECT_EQ(numberAt(0, 16), 1e-30);
  EXPECT_EQ(numberAt(0, 40), 3);
  EXPECT_EQ(numberAt(0, 53), 7.25);
  EXPECT_EQ(numberAt(1, 53), 0);
  EXPECT_EQ(numberAt(2, 85), 0.3);
  EXPECT_EQ(bytes[body + 3 * size + 52], kLiquid);
  EXPECT_EQ(bytes.back(), 1);
}

TEST(PointsWriter, CsvHoldsTheKindsThatAreAsked) {
  FewParticles few;
  EXPECT_EQ(EncodedAs("csv", few.set, 1u << kLiquid),
            "x,y,z,vx,vy,vz,id,heat_of_it\n"
            "0,0,0,0,0,0,0,1\n");
  const std::string passive = EncodedAs("csv", few.set, 1u << kPassive);
  EXPECT_EQ(passive.substr(0, passive.find('\n', 60)),
            "x,y,z,vx,vy,vz,id,age,color_x,color_y,color_z,heat_of_it\n"
            "0.1,-2,1e-30,1,2,3,0,7.25,1,0.5,0,0");
  EXPECT_EQ(EncodedAs("csv", ParticleSet(), 0), "x,y,z,vx,vy,vz,id,kind\n");
}

TEST(PngPreview, ShowsParticlesWhereTheyAre) {
  ParticleStore store;
  ParticleTemplate particle;
  particle.position = {0.75, 0.25, 0.5};
  particle.Set(property_id::kRadius, 0.1);
  particle.Set(property_id::kColor, Vec3d{1, 0, 0});
  store.Create(particle);
  const Picture picture =
      DrawPreview({{0, 0, 0}, {1, 1, 1}, 0.125, 2}, {}, {}, {{&store, {1, 1, 1}}});
  const auto redAt = [&](i32 x, i32 y) { return picture.rgb[3 * (y * picture.width + x)]; };
  EXPECT_EQ(picture.width, 512);
  EXPECT_GT(redAt(384, 384), 200);
  EXPECT_GT(redAt(384 + 45, 384), 200);
  EXPECT_LT(redAt(384 + 60, 384), 60);
  EXPECT_LT(redAt(384, 128), 60);
}

}  // namespace MELDO_GLOBAL::app
