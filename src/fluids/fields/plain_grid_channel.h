// Plain scalars.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A field of numbers that means nothing of its own, in grids of kind 5.
template <class T, class G>
class PlainGridChannel : public ScalarGridChannel<T, G> {
 public:
  PlainGridChannel();
  PlainGridChannel(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
};

using PlainField = PlainGridChannel<double, EGrid<double>>;

extern template class PlainGridChannel<double, EGrid<double>>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
