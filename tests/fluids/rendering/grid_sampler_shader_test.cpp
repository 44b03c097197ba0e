#include "fluids/rendering/grid_sampler_shader.h"

#include <gtest/gtest.h>

#include "fluids/gas_rig.h"
#include "fluids/rendering/render_rig.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

struct ShaderRig {
  ShaderRig(host::Document& document, Scene* scene, const host::BaseNode* field)
      : node(document.Create<host::BaseNode>(GridSampler_Shader::kPluginId, "look", nullptr)) {
    node.SetTable(&GridSampler_Shader::Parameters());
    if (field) node.Set(3000, host::Link{field->Id()});
    node.Set(3001, host::Gradient{{{0, {0.1, 0, 0}}, {1, {1, 1, 2}}}});
    shader = std::make_unique<GridSampler_Shader>(node, std::vector<Scene*>{scene});
  }
  Vec3d At(const Vec3d& p) {
    host::HitRecord hit;
    hit.point = p;
    return shader->Output({{-1e9, 0, 0}, &hit});
  }
  host::BaseNode& node;
  std::unique_ptr<GridSampler_Shader> shader;
  host::RenderData data;
};

TEST(GridSampler, AChannelThroughTheGradient) {
  RenderRig rig({10, 10, 10});
  rig.Fill(*rig.smoke, [](const Vec3d& p) { return p.x / 100; });
  ShaderRig look(rig.test.document, rig.test.scene.get(), rig.smoke->Node());
  ASSERT_TRUE(look.shader->InitRender(look.data));
  EXPECT_NEAR(look.At({50, 50, 50}).x, 0.55, 1e-6);
  EXPECT_NEAR(look.At({50, 50, 50}).z, 1, 1e-6);      // 1.0 of 2, cut at 1
  EXPECT_NEAR(look.At({150, 50, 50}).x, 0.1, 1e-12);  // outside: the gradient at 0, not black
  look.node.Set(3007, i32{1});
  ASSERT_TRUE(look.shader->InitRender(look.data));
  EXPECT_NEAR(look.At({50, 50, 50}).x, 0.1, 1e-12);  // the shader's own point is far away
  ShaderRig none(rig.test.document, rig.test.scene.get(), nullptr);
  EXPECT_FALSE(none.shader->InitRender(none.data));
  EXPECT_EQ(none.At({50, 50, 50}), (Vec3d{1, 1, 1}));
}

TEST(GridSampler, TemperaturesGlowByTheirKelvin) {
  RenderRig rig({10, 10, 10});
  rig.Fill(*rig.heat, [](const Vec3d& p) { return p.y < 50 ? 1203.0 : 4703.0; });
  ShaderRig look(rig.test.document, rig.test.scene.get(), rig.heat->Node());
  look.node.Set(3009, i32{1});
  look.node.Set(3001, host::Gradient{{{0, {1, 1, 1}}}});
  look.node.Set(3011, i32{5});
  look.node.Set(3015, i32{0});
  ASSERT_TRUE(look.shader->InitRender(look.data));
  BlackBody body;
  body.mTStep = 5;
  body.Build(1, {1, 1, 1}, 5, false, false);
  Vec3d warm, hot;
  body.Colour(warm, 1500);
  body.Colour(hot, 5000);
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(look.At({50, 15, 50})[a], warm[a], 1e-9);
    EXPECT_NEAR(look.At({50, 85, 50})[a], hot[a], 1e-9);
  }
}

TEST(GridSampler, SpeedAndDivergenceOfASolver) {
  GasRig gas({10, 10, 10});
  gas.Begin();
  gas.FillVelocity([](const Vec3d&) { return Vec3d{0, 3, 4}; });
  ShaderRig look(gas.document, gas.scene.get(), gas.gasNode);
  look.node.Set(3001, host::Gradient{{{0, {0, 0, 0}}, {1, {1, 1, 1}}}});
  look.node.Set(3003, 0.0);
  look.node.Set(3004, 50.0);  // 50^2 times a cell of 0.1: a squared speed of 250
  ASSERT_TRUE(look.shader->InitRender(look.data));
  EXPECT_NEAR(look.At({50, 50, 50}).x, 0.1, 1e-6);
  gas.gas->mFlow.mDivergence.GetGrid(0)->Fill(0.25);
  look.node.Set(3002, i32{2});
  look.node.Set(3004, 1.0);
  ASSERT_TRUE(look.shader->InitRender(look.data));
  EXPECT_NEAR(look.At({50, 50, 50}).x, 0.25, 1e-6);
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
