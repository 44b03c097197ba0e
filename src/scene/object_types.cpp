#include "scene/object_types.h"

#include "host/image.h"
#include "host/render_objects.h"

namespace MELDO_GLOBAL::app {

using namespace host;

const std::vector<ObjectType>& ObjectTypes() {
  static const std::vector<ObjectType> types = {
      {"mesh", kMeshObject, false, {"file", "frames", "go_on_after_failure"}},
      {"box", kMeshObject, true, {"size"}},
      {"sphere", kMeshObject, true, {"radius", "segments"}},
      {"plane", kMeshObject, true, {"size"}},
      {"cylinder", kMeshObject, true, {"radius", "height", "segments"}},
      {"cone", kMeshObject, true, {"radius", "height", "segments"}},
      {"torus", kMeshObject, true, {"radius", "tube", "segments"}},
      {"spline", kSplineObject, false, {"points", "closed"}},
      {"points", kPointsObject, false, {"points"}},
      {"image", kImageObject, false, {"file", "parameters"}, ImageParameters},
      {"light", kLightObject, false, {"parameters"}, LightParameters},
      {"camera", kCameraObject, false, {"parameters"}, CameraParameters},
  };
  return types;
}

}  // namespace MELDO_GLOBAL::app
