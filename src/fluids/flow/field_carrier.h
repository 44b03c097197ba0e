// Who moves fields along a flow.
#pragma once

namespace MELDO_GLOBAL::MELDO_SULVA {

class iBase;

/// An operator that carries fields along, as emitters see it.
class FieldCarrier {
 public:
  virtual ~FieldCarrier() = default;
  /// Whether it moves a field and gives what lies in solids to the gas beside them.
  virtual bool HandsOver(const iBase& field) const = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
