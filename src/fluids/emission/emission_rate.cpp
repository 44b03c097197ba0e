#include "fluids/emission/emission_rate.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& EmissionRate::Kind() {
  static const NodeKind kind = {
      .id = 1300011,
      .type = "rate",
      .label = "Value",
      .className = "EmissionRate",
      .list = kListSettings,
      .menu = {"General"},
      .purpose = "a number that several nodes share: change it once, all of them follow",
      .example =
          {{example::kBall},
           {example::kSmoke, example::kBallMesh, example::kBallVolume,
            R"({ "type": "rate", "name": "strength", "parameters": { "rate": 4 } })",
            R"({ "type": "emission_setting", "name": "rate", "parameters": { "rate": "strength" } })",
            example::kPair, example::kEmitter}},
      .rows = Parameters,
      .make = MakeNode<EmissionRate>,
  };
  return kind;
}

const ParameterTable& EmissionRate::Parameters() {
  static const ParameterTable table = {
      LongRow(5000, "kind", 0, "",
              "which of the three numbers a dialog shows; what reads the node takes the one that "
              "fits its field")
          .Choices({{0, "real"}, {1, "vector"}, {2, "whole_number"}})
          .Kept(),
      RealRow(kRealRow, "rate", 1.0, "1/s", "how fast a field of numbers fills")
          .To(&EmissionRate::mReal),
      VectorRow(kVectorRow, "vector_rate", {1, 0, 0}, "1/s", "how fast a field of vectors fills")
          .To(&EmissionRate::mVector),
      LongRow(kWholeRow, "whole_rate", 100, "1/s", "how many particles appear")
          .AtLeast(0)
          .To(&EmissionRate::mWhole),
  };
  return table;
}

bool EmissionRate::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
