// Whether what is moved gets more or less for no reason, for long.
#pragma once
#include <optional>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// Adds up what no account explains over the last second, so that the noise of single steps is no
/// alarm, and holds it against the larger of what there was in the mean and what was given.
class DriftWatch {
 public:
  struct Step {
    double seconds = 0;
    double drift = 0;
    double given = 0;
    double there = 0;
    void Persist(StateArchive& archive);
  };

  /// The drift as a share a second, below 0 for a loss, where it was above one per cent in the
  /// second that ends with this step.
  std::optional<double> Add(const Step& step);
  void Reset() { mSteps.clear(); }
  void Persist(StateArchive& archive);

 private:
  std::vector<Step> mSteps;  ///< those that make up a second
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
