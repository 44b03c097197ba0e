// Whether what is moved gets more or less for no reason, for long.
#pragma once
#include <optional>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// Adds up what no account explains over windows of at least a second, so that the noise of single
/// steps is no alarm, and holds it against the larger of what there is and what was given.
class DriftWatch {
 public:
  struct Step {
    double seconds = 0;
    double drift = 0;
    double given = 0;
    double there = 0;  ///< the most
  };

  /// The drift as a share a second, below 0 for a loss, where a window ends in which it was above
  /// one per cent.
  std::optional<double> Add(const Step& step);
  void Reset() { mWindow = {}; }
  void Persist(StateArchive& archive);

 private:
  Step mWindow;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
