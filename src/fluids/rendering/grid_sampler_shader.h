// A field of the simulation as the colour of a surface.
#pragma once
#include <string_view>
#include <vector>

#include "fluids/rendering/black_body.h"
#include "fluids/rendering/displacer.h"
#include "fluids/rendering/ramp.h"
#include "framework/scene.h"
#include "grids/egrid.h"
#include "host/render_objects.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// What the rows of the shader say. The gradient points into the node.
struct GridSamplerSettings : host::ParameterHolder {
  MELDO_SULVA::iBase* field = nullptr;
  const host::Gradient* gradient = nullptr;
  i32 solverField = 0;
  double low = 0, high = 1;
  double clampLow = 0, clampHigh = 1;
  bool ownPoint = false;
  double displacement = 0;  ///< seconds
  bool isBlackBody = false;
  double brightness = 1;
};

/// Reads a channel, a solver or a volume at a point and maps the value to a colour: through a
/// gradient, or as the colour of a temperature times the gradient. White without a link.
///
/// The grids are read in place: no step of the simulation may run while a picture is made.
class GridSampler_Shader : public host::Shader {
 public:
  static constexpr i32 kPluginId = host::kGridSamplerShader;
  static constexpr std::string_view kTypeName = "shader_gridsampler";
  static const host::ParameterTable& Parameters();

  GridSampler_Shader(host::BaseNode& node, std::vector<MELDO_SULVA::Scene*> scenes)
      : mNode(&node), mScenes(std::move(scenes)) {}

  /// False without a link that has data.
  bool InitRender(const host::RenderData& data) override;
  void FreeRender() override;
  Vec3d Output(const host::ShaderPoint& point) const override;

 private:
  /// A value for the gradient, 0 to 1, and for the black body, in Kelvin less 297.
  struct Reading {
    double value = 0, kelvin = 0;
  };
  enum class Source { None, Speed, Distance, Cell, Vector, Scalar, Temperature };

  bool Bind(MELDO_SULVA::iBase& object);
  void BindVector(const EGrid<double>* x, const EGrid<double>* y, const EGrid<double>* z);
  Reading Read(const Vec3d& sim) const;
  Vec3d Colour(const Reading& reading) const;
  Vec3d VectorAt(const Vec3d& sim) const;

  host::BaseNode* mNode;
  std::vector<MELDO_SULVA::Scene*> mScenes;
  Source mSource = Source::None;
  const EGrid<double>* mGrid = nullptr;  ///< the field, or its first component
  const EGrid<double>* mOthers[2] = {};  ///< the other components
  double mLow = 0, mHigh = 1;            ///< of the remapped input
  GridSamplerSettings mSettings;
  Ramp<Vec3d> mGradient;
  BlackBody mBlackbody;
  VelocityGridDisplacer mDisplacer;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
