// The material that draws smoke and fire.
#pragma once
#include <memory>
#include <vector>

#include "fluids/rendering/ray_marcher.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Hands the rays of a picture to a `RayMarcher`, and finishes its colours.
class GasRenderer_Material : public host::VolumeMaterial {
 public:
  static constexpr i32 kPluginId = 1300062;
  static constexpr std::string_view kTypeName = "shader_gas";
  static const host::ParameterTable& Parameters() { return GasLook::Rows(); }
  /// A material's node with its creation defaults.
  static host::BaseNode& CreateNode(host::Document& document, std::string name);

  /// `node` holds the parameters; the channels that it links live in one of `scenes`.
  GasRenderer_Material(host::BaseNode& node, std::vector<MELDO_SULVA::Scene*> scenes)
      : mNode(&node), mScenes(std::move(scenes)) {}

  bool InitRender(const host::RenderData& data) override;
  void FreeRender() override;
  std::vector<host::GlowingBox> Glow() const override;
  void Volumetric(host::VolumeRecord& record, const host::RenderData& data) const override;
  void Transparency(host::TransparencyRecord& record, const host::RenderData& data) const override;

  /// The engine between `InitRender` and `FreeRender`; null when there is nothing to draw.
  const RayMarcher* Marcher() const { return mMarcher.get(); }

 private:
  double Escape(const host::GlowingBox& part) const;
  bool Passes(u32 rayFlags) const;
  void FinishColours(host::VolumeRecord& record) const;

  host::BaseNode* mNode;
  std::vector<MELDO_SULVA::Scene*> mScenes;
  std::unique_ptr<RayMarcher> mMarcher;

  u32 mUnseenBy = 0;  ///< ray flags that pass unchanged
  Ramp<Vec3d> mGlowGradient;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
