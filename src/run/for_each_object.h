// The objects of a scene that stand for nodes.
#pragma once
#include "framework/scene.h"

namespace MELDO_GLOBAL::app {

/// Calls f(object) for every object of a scene that has a node, list by list.
template <class F>
void ForEachObject(const MELDO_SULVA::Scene& scene, F&& f) {
  for (i32 list = 1; list <= 11; ++list)
    for (const auto& [id, object] : scene.List(list))
      if (object->Node()) f(*object);
}

}  // namespace MELDO_GLOBAL::app
