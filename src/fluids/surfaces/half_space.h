// What particles that fill a half space evenly give near its surface.
#pragma once
#include <functional>
#include <vector>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Tells how far off a flat surface a place lies, in units of the reach of particles, by what the
/// particles in reach give there: outside above 0, from -kDeepest to 1.
class HalfSpace {
 public:
  static constexpr double kDeepest = 0.7;  ///< farther inside, particles tell next to nothing

  /// `weight` is that of a squared distance up to 1.
  explicit HalfSpace(const std::function<double(double)>& weight);

  /// By the distance of the particles' mean.
  double OfMean(double distance) const { return Lookup(mByMean, distance); }
  /// By the sum of their weights, over that of a full space.
  double OfShare(double share) const { return Lookup(mByShare, share); }
  /// The distance of the mean at the surface itself.
  double MeanAtSurface() const { return mMeanAtSurface; }
  /// What a full space gives, of particles of which one fills the cube of the reach.
  double FullSum() const { return mFullSum; }

 private:
  static constexpr int kEntries = 256;
  static double Lookup(const std::vector<double>& table, double at) {
    const double v = at * kEntries;
    if (!(v > 0)) return table.front();
    if (v >= kEntries) return table.back();
    const int i = static_cast<int>(v);
    return table[i] + (table[i + 1] - table[i]) * (v - i);
  }

  std::vector<double> mByMean, mByShare;
  double mMeanAtSurface = 0, mFullSum = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
