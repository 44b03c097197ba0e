#include "fluids/emission/emission_rate.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const ParameterTable& EmissionRate::Parameters() {
  static const ParameterTable table = {
      LongRow(5000, "kind", 0, "", "which of the three numbers below counts")
          .Choices({{0, "real"}, {1, "vector"}, {2, "whole_number"}}),
      RealRow(5001, "rate", 1.0, "1/s", "how fast a field of numbers fills").OnlyWith(5000, {0}),
      VectorRow(5002, "vector_rate", {1, 0, 0}, "1/s", "how fast a field of vectors fills")
          .OnlyWith(5000, {1}),
      LongRow(5003, "whole_rate", 100, "1/s", "how many particles appear").OnlyWith(5000, {2}),
  };
  return table;
}

bool EmissionRate::ReadParameters(void* context) {
  mPriority = 0;
  if (!iBase::ReadParameters(context)) return false;
  mKind = mInterface.GetLong(5000);
  mReal = mInterface.GetReal(5001);
  mVector = mInterface.GetVector(5002);
  mWhole = mInterface.GetLong(5003);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
