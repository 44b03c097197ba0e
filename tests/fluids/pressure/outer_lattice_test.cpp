#include <gtest/gtest.h>

#include "fluids/pressure/outer_lattice.h"
#include "grids/for_each_cell.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A container whose lowest cell is `origin`.
GridLayout ContainerAt(const VecInt3D& origin, const VecInt3D& dims) {
  GridLayout layout;
  layout.Set(dims, ToReal(dims) * 10.0, 0.1F, ToReal(origin) * 10.0);
  return layout;
}

}  // namespace

TEST(OuterLattice, TilesTheContainerAndEndsAtTheUsersBox) {
  const GridLayout layout = ContainerAt({-7, 20, 95}, {45, 60, 37});
  const VecInt3D low{-1000, 21, 60}, high{1000, 200, 131};
  const OuterLattice lattice(layout, low, high);
  ASSERT_EQ(layout.originCell, (VecInt3D{-7, 20, 95}));
  for (i32 a = 0; a < 3; ++a) {
    const OuterAxis& axis = lattice[a];
    const i32 begin = layout.originCell[a] + 1, end = begin + layout.dims[a] - 2;
    EXPECT_EQ(axis.lines[axis.first], begin);
    EXPECT_EQ(axis.lines[axis.last], end);
    for (i32 i = 0; i < axis.Cells(); ++i) {
      EXPECT_GT(axis.SizeOf(i), 0);
      // Inside of the container lines lie on faces.
      if (i >= axis.first && i < axis.last) {
        EXPECT_EQ(axis.SizeOf(i), std::floor(axis.SizeOf(i)));
      }
      if (i > 0 && i + 2 < axis.Cells()) {
        EXPECT_LT(axis.SizeOf(i + 1), 5 * axis.SizeOf(i));
      }
    }
    const double first = axis.lines[1], last = axis.lines[axis.Cells() - 1];
    EXPECT_GE(first, low[a]);
    EXPECT_LE(last, high[a]);
  }
  // However far the sides of the box are, it takes few cells to get there.
  EXPECT_EQ(lattice[1].first, 1);
  EXPECT_EQ(lattice[2].lines[1], 60);
  EXPECT_EQ(lattice[2].lines[lattice[2].Cells() - 1], 131);
  EXPECT_EQ(lattice[0].lines[1], -1000);
  EXPECT_LE(i64{CountOf(lattice.Dims())} * 7, i64{43} * 58 * 35);
}

TEST(OuterLattice, HasFewCellsForManyFineOnes) {
  for (const i32 size : {100, 200}) {
    const OuterLattice lattice(ContainerAt({0, 0, 0}, {size, size, size}), {-5000, -5000, -5000},
                               {5000, 5000, 5000});
    EXPECT_LE(i64{CountOf(lattice.Dims())} * 16, i64{size} * size * size) << size;
    EXPECT_GE(lattice.InnerDims().x, 10) << size;
  }
}

TEST(OuterLattice, SamplesAreExactForParabolasAndSmooth) {
  const OuterLattice lattice(ContainerAt({0, 0, 0}, {40, 40, 40}), {-300, -300, -300},
                             {300, 300, 300});
  const VecInt3D n = lattice.Dims() + ExtraOf(kFaceY);
  const auto f = [](const Vec3d& p) {
    return 3 + 0.1 * p.x * p.x - 0.2 * p.y * p.y + 0.05 * p.z * p.z + 0.3 * p.x * p.y - p.z;
  };
  std::vector<double> values(CountOf(n));
  ForEachCell({{0, 0, 0}, n}, [&](i32 x, i32 y, i32 z) {
    values[(n.y * z + y) * n.x + x] =
        f({lattice[0].CentreOf(x), lattice[1].lines[y], lattice[2].CentreOf(z)});
  });
  LatticeTaps taps;
  for (i32 a = 0; a < 3; ++a) taps[a] = lattice.TapsOf(a, kFaceY, 0, {-9, 50});
  double worst = 0;
  Resample(values.data(), n, taps, 3, [&](i32 x, i32 y, i32 z, double value) {
    worst = std::max(worst, std::abs(value - f({x - 8.5, y - 9.0, z - 8.5})));
  });
  EXPECT_LT(worst, 1e-9);
}
