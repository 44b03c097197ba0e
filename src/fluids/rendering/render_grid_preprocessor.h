// What happens to the renderer's private grids before any ray reads them.
#pragma once
#include <memory>
#include <span>
#include <vector>

#include "fluids/fields/channel_operator.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// Runs channel operators, then filters, on every cell of one grid. Filters are constraints that
/// multiply a cell's value; one that answers no, or a value of 0, ends their row.
class RenderGridPreprocessor : public MELDO_SULVA::iObject {
 public:
  /// Takes what to work on: a scalar channel, or for colours a vector channel. `owner` is told to
  /// the filters. The filters must be prepared; null for none. False without a channel.
  virtual bool Bind(const iBase* owner, MELDO_SULVA::ScalarField* target,
                    MELDO_SULVA::VectorField* colourTarget,
                    const MELDO_SULVA::ConstraintList* filters);
  /// Appends an operator that maps the grid's values through a curve.
  void AddRemap(const host::SplineData& curve);
  void AddOperator(std::unique_ptr<MELDO_SULVA::ChannelOperator> op) {
    mOperators.push_back(std::move(op));
  }

  void Prepare() override;
  void Begin() override;
  /// The z layers of a worker.
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  /// All of the above on the workers.
  void Run(host::HostThread* thread);

 protected:
  /// The channel to work on, and its first grid; null where one is missing.
  virtual iObject* Target() const { return mTarget; }
  virtual const EGrid<double>* Shape() const;
  static constexpr i32 kRun = 64;  ///< cells that are worked on in one call

  /// Filters some cells, at most a run.
  virtual void Filter(std::span<const MELDO_SULVA::CellRecord> cells, i32 worker);
  /// Multiplies a value for each cell by the filters there.
  void AskFilters(std::span<const MELDO_SULVA::CellRecord> cells, double* values, i32 worker) const;

  std::vector<std::unique_ptr<MELDO_SULVA::ChannelOperator>> mOperators;
  const iBase* mOwner = nullptr;
  MELDO_SULVA::ScalarField* mTarget = nullptr;
  MELDO_SULVA::VectorField* mColourTarget = nullptr;
  const MELDO_SULVA::ConstraintList* mFilters = nullptr;
};

/// The same for three components that are one colour: filters scale it as a whole.
class ColorRenderGridPreprocessor : public RenderGridPreprocessor {
 protected:
  iObject* Target() const override { return mColourTarget; }
  const EGrid<double>* Shape() const override;
  void Filter(std::span<const MELDO_SULVA::CellRecord> cells, i32 worker) override;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
