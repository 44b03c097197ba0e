// The section "render" of a scene file.
#pragma once
#include <optional>

#include "scene/render_spec.h"
#include "scene/scene_context.h"
#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

/// A type of material that a scene file may hold.
struct MaterialType {
  i32 id;
  std::string_view name;
  const host::ParameterTable& (*rows)();
  enum class Use { Surface, Medium, Shader, Particles };
  Use use;  ///< belongs to objects, fills space, is linked by surfaces, or draws particles
};
const std::vector<MaterialType>& MaterialTypes();

/// A table of parameters that scene files use beside those of nodes.
struct PictureTable {
  std::string_view name;
  std::string_view help;
  const host::ParameterTable& (*rows)();
};
/// Camera, light, deformer, the section itself, and the materials.
const std::vector<PictureTable>& PictureTables();

/// Keys of the section beside the names of `host::RenderParameters`.
inline constexpr std::string_view kRenderKeys[] = {"size", "files", "camera", "lights",
                                                   "materials"};
inline constexpr i32 kLargestPicture = 16384;

/// Makes the nodes that the section holds and resolves its names. Comes after the scene's objects
/// and nodes were made and before their parameters are read. Without a camera of its own the
/// picture has the scene's only one, without lights all lights. What doesn't fit gets a message;
/// nothing where a picture can't be made.
std::optional<RenderSpec> ReadRender(SceneContext& context, SceneBuilder& builder,
                                     const JsonValue& section);

}  // namespace MELDO_GLOBAL::app
