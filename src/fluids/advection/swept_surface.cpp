#include "fluids/advection/swept_surface.h"

#include <algorithm>
#include <cmath>

#include "fluids/mesh/nearest_point.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostBins = 48;  // along an axis
constexpr i32 kHalvings = 60;
constexpr double kSkin = 1e-9;  // of a triangle's size: ways between two triangles meet one of them

void BoxOf(const SweptSurface::Triangle& triangle, Vec3d& low, Vec3d& high) {
  low = high = triangle.begin[0];
  for (i32 i = 0; i < 3; ++i) {
    low = Min(low, Min(triangle.begin[i], triangle.end[i]));
    high = Max(high, Max(triangle.begin[i], triangle.end[i]));
  }
}

/// A triangle as a point on its way sees it; s goes from 0 to 1 along the way.
struct Encounter {
  const SweptSurface::Triangle& triangle;
  const Vec3d &from, &to;
  double begin, end;

  Vec3d Corner(i32 i, double s) const { return triangle.At(i, begin + (end - begin) * s); }
  Vec3d Point(double s) const { return from + (to - from) * s; }
  Vec3d Normal(double s) const {
    return Cross(Corner(1, s) - Corner(0, s), Corner(2, s) - Corner(0, s));
  }
  /// Six times the volume between point and triangle, a cubic in s.
  double Volume(double s) const { return Dot(Point(s) - Corner(0, s), Normal(s)); }

  /// Where the cubic turns, in order.
  i32 Turns(double turns[2]) const {
    // By its values at four places.
    const double f0 = Volume(0), f1 = Volume(1.0 / 3), f2 = Volume(2.0 / 3), f3 = Volume(1);
    const double a = 4.5 * (f3 - f0 + 3 * (f1 - f2)), b = 9 * f0 - 22.5 * f1 + 18 * f2 - 4.5 * f3;
    const double c = -5.5 * f0 + 9 * f1 - 4.5 * f2 + f3;
    const double scale = std::abs(a) + std::abs(b) + std::abs(c);
    if (scale == 0) return 0;
    if (std::abs(a) < 1e-12 * scale) {
      if (b == 0) return 0;
      turns[0] = -c / (2 * b);
      return 1;
    }
    const double root = b * b - 3 * a * c;
    if (root <= 0) return 0;
    const double q = -(b + std::copysign(std::sqrt(root), b));
    turns[0] = q / (3 * a);
    turns[1] = q == 0 ? 0 : c / q;
    if (turns[0] > turns[1]) std::swap(turns[0], turns[1]);
    return 2;
  }

  /// Whether the point lies on the triangle when it crosses its plane.
  bool IsOnTriangle(double s, double weights[3]) const {
    const Vec3d p = Point(s), a = Corner(0, s), b = Corner(1, s), c = Corner(2, s);
    const Vec3d off = p - NearestPoint(p, a, b, c, weights);
    const double size = std::max({Dot(b - a, b - a), Dot(c - a, c - a), Dot(c - b, c - b)});
    return Dot(off, off) <= kSkin * kSkin * size;
  }

  /// The first crossing: just before it, with the weights of the corners, and whether the point
  /// comes from where the volume is positive.
  bool FindCrossing(double& share, double weights[3], bool& isAbove) const {
    double places[4] = {}, turns[2];
    i32 count = 1;
    const i32 found = Turns(turns);
    for (i32 i = 0; i < found; ++i)
      if (turns[i] > 0 && turns[i] < 1) places[count++] = turns[i];
    places[count] = 1;
    for (i32 i = 0; i < count; ++i) {
      double low = places[i], high = places[i + 1];
      isAbove = Volume(low) > 0;
      if ((Volume(high) > 0) == isAbove) continue;
      for (i32 k = 0; k < kHalvings; ++k) {
        const double middle = 0.5 * (low + high);
        ((Volume(middle) > 0) == isAbove ? low : high) = middle;
      }
      share = low;
      if (IsOnTriangle(high, weights)) return true;
    }
    return false;
  }
};

}  // namespace

template <class F>
void SweptSurface::ForEachBin(const Vec3d& low, const Vec3d& high, F&& f) const {
  VecInt3D first, last;
  for (int a = 0; a < 3; ++a) {
    const auto bin = [&](double x) {
      return static_cast<i32>(std::clamp((x - mLow[a]) / mBinSize[a], 0.0, mBins[a] - 1.0));
    };
    first[a] = bin(low[a]);
    last[a] = bin(high[a]) + 1;
  }
  ForEachCell({first, last}, [&](i32 x, i32 y, i32 z) { f((z * mBins.y + y) * mBins.x + x); });
}

SweptSurface::SweptSurface(std::vector<Triangle> triangles) : mTriangles(std::move(triangles)) {
  if (mTriangles.empty()) return;
  BoxOf(mTriangles[0], mLow, mHigh);
  Vec3d low, high, sizes{};
  for (const Triangle& triangle : mTriangles) {
    BoxOf(triangle, low, high);
    mLow = Min(mLow, low);
    mHigh = Max(mHigh, high);
    sizes += high - low;
  }
  // Bins as large as a triangle is on the average.
  const Vec3d mean = sizes / static_cast<double>(mTriangles.size());
  for (int a = 0; a < 3; ++a) {
    const double span = mHigh[a] - mLow[a];
    mBins[a] = mean[a] > 0 ? static_cast<i32>(std::clamp(span / mean[a], 1.0, 1.0 * kMostBins)) : 1;
    if (span > 0) mBinSize[a] = span / mBins[a];
  }
  mStart.assign(static_cast<std::size_t>(mBins.x) * mBins.y * mBins.z + 2, 0);
  const auto forEachEntry = [&](auto&& f) {
    for (std::size_t i = 0; i < mTriangles.size(); ++i) {
      BoxOf(mTriangles[i], low, high);
      ForEachBin(low, high, [&](i32 bin) { f(bin, static_cast<i32>(i)); });
    }
  };
  forEachEntry([&](i32 bin, i32) { ++mStart[bin + 2]; });
  for (std::size_t i = 2; i < mStart.size(); ++i) mStart[i] += mStart[i - 1];
  mEntries.resize(mStart.back());
  forEachEntry([&](i32 bin, i32 triangle) { mEntries[mStart[bin + 1]++] = triangle; });
  mStart.pop_back();
}

bool SweptSurface::Meet(const Vec3d& from, const Vec3d& to, double begin, double end, Side looked,
                        Meeting& first) const {
  const Vec3d low = Min(from, to), high = Max(from, to);
  if (mTriangles.empty() || !BoxesMeet(low, high, mLow, mHigh)) return false;
  first.share = 2;
  i32 nearest = -1;
  ForEachBin(low, high, [&](i32 bin) {
    for (i32 k = mStart[bin]; k < mStart[bin + 1]; ++k) {
      const Triangle& triangle = mTriangles[mEntries[k]];
      Vec3d least, most;
      BoxOf(triangle, least, most);
      double share, weights[3];
      bool isAbove;
      const Encounter encounter{triangle, from, to, begin, end};
      if (!BoxesMeet(low, high, least, most) || !encounter.FindCrossing(share, weights, isAbove))
        continue;
      if (looked != Side::Any && isAbove != (looked == Side::Front)) continue;
      // Of two that meet it at once the first one in the mesh counts, whatever the bins.
      if (share > first.share || (share == first.share && mEntries[k] >= nearest)) continue;
      nearest = mEntries[k];
      const double side = isAbove ? 1 : -1;
      first.share = share;
      first.normal = Normalised(encounter.Normal(share)) * side;
      first.endNormal = Normalised(encounter.Normal(1)) * side;
      first.at = first.end = first.motion = {};
      for (i32 i = 0; i < 3; ++i) {
        first.at += encounter.Corner(i, share) * weights[i];
        first.end += encounter.Corner(i, 1) * weights[i];
        first.motion += (triangle.end[i] - triangle.begin[i]) * weights[i];
      }
    }
  });
  return nearest >= 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
