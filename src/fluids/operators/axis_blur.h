// A Gaussian blur along one axis.
#pragma once
#include <vector>

#include "fluids/operators/open_links.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A blur of the inner samples along one axis, from one grid into another of the same shape. What
/// would pass a closed link comes back from it as from a mirror, so that every pair of samples
/// exchanges by the same weight and the sum of all stays.
class AxisBlur {
 public:
  /// `kernel` are the weights of the taps -half..half, with a sum of 1; no result exceeds `most`.
  AxisBlur(const EGrid<double>& source, EGrid<double>& target, i32 axis,
           const std::vector<double>& kernel, const OpenLinks& links, double most)
      : mSource(source),
        mTarget(target),
        mAxis(axis),
        mKernel(kernel),
        mLinks(links),
        mMost(most) {}

  /// The rows of a share. The axis of the blur runs inside the other one, so that the rows of the
  /// taps stay at hand.
  void Run(const EvaluationThreadData& share) const;

 private:
  i32 Half() const { return static_cast<i32>(mKernel.size() / 2); }
  void BlurAlong(i32 y, i32 z, std::vector<double>& sum, std::vector<double>& padded) const;
  /// Taps are whole rows where the links of whole rows are alike, else each sample finds its own.
  void BlurAcross(i32 y, i32 z, std::vector<double>& sum) const;
  double Single(i32 index, i32 stride) const;
  void Take(const std::vector<double>& sum, i32 y, i32 z) const;

  const EGrid<double>& mSource;
  EGrid<double>& mTarget;
  const i32 mAxis;
  const std::vector<double>& mKernel;
  const OpenLinks& mLinks;
  const double mMost;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
