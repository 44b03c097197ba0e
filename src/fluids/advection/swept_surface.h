// Triangles on their way through a step.
#pragma once
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A surface whose corners go straight from their places at the start of a step to those at its
/// end, and what meets it. Times are shares of the step. Simulation units.
class SweptSurface {
 public:
  struct Triangle {
    Vec3d begin[3], end[3];
    Vec3d At(i32 corner, double time) const {
      return begin[corner] + (end[corner] - begin[corner]) * time;
    }
  };
  explicit SweptSurface(std::vector<Triangle> triangles);

  struct Meeting {
    double share = 0;          ///< of the way, up to there
    Vec3d at{}, normal{};      ///< there; the normal looks to where the way comes from
    Vec3d end{}, endNormal{};  ///< the same point of the surface when the way ends
    Vec3d motion{};            ///< of the point, per step
  };
  /// From which side of triangles a way may meet them: that to which their normals look, the other,
  /// or any.
  enum class Side { Any, Front, Back };
  /// Finds where a straight way between two times first meets the surface; false where it doesn't.
  ///
  /// A triangle holds the point at the roots of a cubic, that of the volume between them: Provot,
  /// "Collision and self-collision handling in cloth model dedicated to design garments" (1997).
  bool Meet(const Vec3d& from, const Vec3d& to, double begin, double end, Side side,
            Meeting& first) const;

 private:
  /// Calls f(bin) for the bins that a box covers.
  template <class F>
  void ForEachBin(const Vec3d& low, const Vec3d& high, F&& f) const;

  std::vector<Triangle> mTriangles;
  Vec3d mLow{}, mHigh{}, mBinSize{1, 1, 1};
  VecInt3D mBins{1, 1, 1};
  std::vector<i32> mStart, mEntries;  ///< triangles of bin i: [start[i], start[i + 1])
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
