// Objects that the pipeline runs.
#pragma once
#include "framework/ibase.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Adds the stage operations. `Prepare`, `Begin` and `Finish` run on the pipeline thread;
/// `Evaluate` runs there too in the sequential kinds, and on every worker in the parallel kinds.
class iObject : public iBase {
 public:
  iObject() = default;
  iObject(host::BaseNode* node, Scene* scene) : iBase(node, scene) {}
  iObject(const iObject&) = default;

  bool IsPipelineObject() const override { return true; }
  std::unique_ptr<iBase> Clone() const override { return std::make_unique<iObject>(*this); }

  /// Class-specific hook: a force keeps its targets, a constraint answers whether it is on the
  /// particle side.
  virtual bool Attach(void* /*target*/, void* /*second*/ = nullptr) { return false; }
  /// `context` is null from the pipeline, the owning object where one prepares its helpers.
  virtual void Prepare(void* /*context*/ = nullptr) {}
  virtual void Begin(void* /*context*/ = nullptr) {}
  virtual void Evaluate(const EvaluationThreadData& /*data*/) {}
  virtual void Finish() {}
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
