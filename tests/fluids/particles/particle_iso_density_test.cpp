#include "fluids/particles/particle_iso_density.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

TEST(ParticleIsoDensity, MeasuresTheLatticeOnceForEachSetting) {
  TestScene scene(0.2);
  const ParticleIsoDensity* density = ParticleIsoDensity::Of(*scene.scene);
  ASSERT_NE(density, nullptr);
  // Two particles to the edge of a cell, which look 1.25 cells far: the sum round one in the
  // middle.
  double sum = 0;
  ForEachCell({{-3, -3, -3}, {4, 4, 4}}, [&](i32 x, i32 y, i32 z) {
    sum += std::max(0.0, 1 - (x * x + y * y + z * z) * 0.25 / (1.25 * 1.25));
  });
  EXPECT_NEAR(density->Value(), sum, 1e-6);
  EXPECT_EQ(density->Measurements(), 1);
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_EQ(density->Measurements(), 1) << "nothing changed";
  scene.server->Set(1401, i32{0});
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_EQ(density->Measurements(), 2);
  EXPECT_NEAR(density->Value(), 1 + 6 * (1 - 1 / (1.25 * 1.25)), 1e-6) << "one to a cell";
  Kernel& kernel = scene.Add<Kernel>("kernel", "cube");
  TestScene::Set(kernel, Kernel::kTypeRow, static_cast<i32>(KernelType::kClampedCube));
  scene.server->Set(1400, host::Link{kernel.Node()->Id()});
  scene.scene->UpdateDomain(100, 1, 0.2);
  EXPECT_NEAR(density->Value(), 1 + 6 * std::pow(1 - 1 / (1.25 * 1.25), 3), 1e-6);
  EXPECT_EQ(density->Measurements(), 3);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
