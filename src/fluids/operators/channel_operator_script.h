// A rule of the user's own for the cells of a channel.
#pragma once
#include <string>
#include <vector>

#include "fluids/fields/channel_operator.h"
#include "framework/script_part.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Replaces the value of a cell by w m, with the weight w of the cell and what main(op) of a script
/// gives there: a number for a scalar channel, a vector for a vector one. A run of cells in which
/// it fails stays as it is, and so does all else once the operator sleeps.
class ChannelOperator_Script : public ChannelOperator {
 public:
  ChannelOperator_Script(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kIntensityRow = 1000, kScopeRow = 9003;

 private:
  bool Open() override;
  void Close() override { mScript.Close(); }
  void ChangeCells(const CellRecord* cells, i32 count, const EvaluationThreadData& data) override;
  template <class T>
  void Change(const CellRecord* cells, i32 count, u32 worker);
  double Read(const CellRecord& cell, double /*kind*/) const { return Value(cell, 0); }
  Vec3d Read(const CellRecord& cell, const Vec3d& /*kind*/) const {
    return {Value(cell, 0), Value(cell, 1), Value(cell, 2)};
  }
  void Write(const CellRecord& cell, double value) const { Value(cell, 0) = value; }
  void Write(const CellRecord& cell, const Vec3d& value) const {
    for (i32 a = 0; a < 3; ++a) Value(cell, a) = value[a];
  }

  ScriptPart& mScript;
  std::string mSource;
  double mIntensity = 1;
  std::vector<iObject*> mScope;  ///< channels and solvers that it works on; none means all
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
