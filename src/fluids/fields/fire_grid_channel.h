// Fire.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Age of a flame, 0..1, in grids of kind 6: 1 is fresh, the ignition over the hottest temperature
/// marks the end of burning, 0 is no fire.
template <class T, class G>
class FireGridChannel : public ScalarGridChannel<T, G> {
 public:
  FireGridChannel();
  FireGridChannel(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters() override;
  void CreateEmissionHandler() override;

  double mIgnition = 0.7;  ///< temperature at which the cell counts as burning
  double mBurnTime = 1.0;  ///< seconds in which fire falls from 1 to the threshold
  double mFadeTime = 1.0;  ///< seconds in which fire falls from the threshold to 0
};

using FireField = FireGridChannel<double, EGrid<double>>;

extern template class FireGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
