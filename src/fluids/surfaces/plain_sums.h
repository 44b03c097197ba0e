// Sums over particles that have one weight and no frames.
#pragma once
#include <span>
#include <vector>

#include "grids/point_lookup.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What particles add to the samples of a block: the sums of their weights (1 - d^2 / R^2)^3, and
/// of their ways to the samples times those, in steps of samples.
struct PlainSums {
  // Lines fill the registers, and small blocks leave more of them alone.
  static constexpr i32 kWide = 8, kHigh = 4, kThick = 4;
  static constexpr i32 kSamples = kWide * kHigh * kThick;
  alignas(32) double weight[kSamples], x[kSamples], y[kSamples], z[kSamples];
};

/// What a worker works with to make them.
class PlainScratch {
 public:
  void Clear() { mBlock.count = 0; }
  /// Takes the points that reach a block whose first sample is `origin`; `reach` in steps, of which
  /// `perStep` make a simulation unit.
  void Gather(std::span<const PointLookup::Entry> points, const Vec3d& origin, double perStep,
              double reach);
  bool IsEmpty() const { return mBlock.count == 0; }
  void AddUp(double reach, PlainSums& sums);

 private:
  /// Particles in steps of samples from the first one of a block, or what is left of them for a
  /// line.
  struct NearPoints {
    std::vector<double> x, y, z, left;
    std::size_t count = 0;

    void Grow(std::size_t more) {
      if (count + more <= x.size()) return;
      for (auto* column : {&x, &y, &z, &left}) column->resize(2 * (count + more));
    }
    void Add(double px, double py, double pz, double pLeft, bool counts) {
      x[count] = px;
      y[count] = py;
      z[count] = pz;
      left[count] = pLeft;
      count += counts;
    }
  };
  static void SumLine(const NearPoints& line, double reach2, PlainSums& sums, i32 row);

  NearPoints mBlock, mLayer, mLine;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
