// Objects that the pipeline runs.
#pragma once
#include "framework/ibase.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Adds the stage operations. `Prepare`, `Begin` and `Finish` run on the pipeline thread;
/// `Evaluate` runs there too, once, in the sequential and iterative kinds, which share their work
/// out themselves, and once for each share in all others.
class iObject : public iBase {
 public:
  iObject() = default;
  iObject(host::BaseNode* node, Scene* scene) : iBase(node, scene) {}
  iObject(const iObject&) = delete;

  bool IsPipelineObject() const override { return true; }

  virtual void Prepare() {}
  virtual void Begin() {}
  virtual void Evaluate(const EvaluationThreadData& /*data*/) {}
  virtual void Finish() {}
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
