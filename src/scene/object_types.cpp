#include "scene/object_types.h"

#include "host/deformer.h"
#include "host/image.h"
#include "host/render_objects.h"

namespace MELDO_GLOBAL::app {

using namespace host;

const std::vector<ObjectType>& ObjectTypes() {
  static const std::vector<ObjectType> types = {
      {"mesh", kMeshObject, false, {"file", "frames", "go_on_after_failure", "placements"}},
      {"box", kMeshObject, true, {"size", "placements"}},
      {"sphere", kMeshObject, true, {"radius", "segments", "placements"}},
      {"plane", kMeshObject, true, {"size", "placements"}},
      {"cylinder", kMeshObject, true, {"radius", "height", "segments", "placements"}},
      {"cone", kMeshObject, true, {"radius", "height", "segments", "placements"}},
      {"torus", kMeshObject, true, {"radius", "tube", "segments", "placements"}},
      {"spline", kSplineObject, false, {"points", "closed", "smooth", "segments"}},
      {"points", kPointsObject, false, {"points"}},
      {"particles", kPointsObject, false, {"file", "go_on_after_failure"}},
      {"image", kImageObject, false, {"file", "parameters"}, ImageParameters},
      {"deformer", kDeformerObject, false, {"parameters"}, DeformerParameters},
      {"light", kLightObject, false, {"parameters"}, LightParameters},
      {"camera", kCameraObject, false, {"parameters"}, CameraParameters},
  };
  return types;
}

}  // namespace MELDO_GLOBAL::app
