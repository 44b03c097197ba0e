#include "fluids/operators/channel_operator_math.h"

#include <gtest/gtest.h>

#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/operators/operator_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// What an operation makes of a value and a right side.
double Wanted(i32 operation, double t, double r) {
  switch (operation) {
    case 0: return t + r;
    case 1: return t - r;
    case 2:
    case 3: return t * r;
    case 4: return std::min(t, r);
    case 5: return std::max(t, r);
    default: return t;
  }
}

class MathOperator : public testing::Test {
 protected:
  MathOperator()
      : smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        other(s.Add<PlainField>("channel_scalar", "other")),
        wind(s.Add<VectorField>("channel_vector", "wind")),
        draught(s.Add<VectorField>("channel_vector", "draught")),
        math(s.Add<ChannelOperator_Math>("channelop_math", "math")),
        cells(s.Add<Grid_CellEmitter>("grid_celliterator", "cells")),
        left(s.AddOwn<HalfLeft>("duration", "left", 0.45, &asked)) {
    OperatorRig::Links(cells, 1001, {&math});
    OperatorRig::Set(math, 1002, 0.75);
    OperatorRig::Set(math, 1003, Vec3d{0.5, -1, 2});
    for (iBase* field : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&other)})
      OperatorRig::Set(*field, 1051, 1e6);
    for (iBase* field : {static_cast<iBase*>(&wind), static_cast<iBase*>(&draught)})
      OperatorRig::Set(*field, 1051, Vec3d{1, 1, 1} * 1e6);
  }
  void Start(const iBase& target, const iBase* operand) {
    OperatorRig::Link(cells, 1000, target);
    if (operand)
      OperatorRig::Link(math, 1000, *operand);
    else
      OperatorRig::Set(math, 1000, host::Link{});
    s.Begin();
    u32 seed = 1;
    for (EGrid<double>* g :
         {smoke.mGrid.get(), other.mGrid.get(), wind.GetGrid(0), wind.GetGrid(1), wind.GetGrid(2),
          draught.GetGrid(0), draught.GetGrid(1), draught.GetGrid(2)})
      OperatorRig::Randomise(*g, seed++, -2, 2);
  }
  OperatorRig s{{9, 6, 5}};
  int asked = 0;
  PlainField &smoke, &other;
  VectorField &wind, &draught;
  ChannelOperator_Math& math;
  Grid_CellEmitter& cells;
  HalfLeft& left;
};

TEST_F(MathOperator, NumbersTakeANumberOrAFieldWeighed) {
  OperatorRig::Links(math, 2502, {&left});
  for (const iBase* operand :
       {static_cast<const iBase*>(nullptr), static_cast<const iBase*>(&other),
        static_cast<const iBase*>(&draught)})
    for (i32 operation = 0; operation < 7; ++operation) {
      OperatorRig::Set(math, 1001, operation);
      Start(smoke, operand);
      const std::vector<double> before = OperatorRig::Copy(*smoke.mGrid);
      OperatorRig::Run(cells, 2);
      const EGrid<double>& g = *smoke.mGrid;
      s.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
        const i32 i = g.Index(x, y, z);
        double r = 0.75;
        if (operand) r = operand == &other ? (*other.mGrid)[i] : (*draught.GetGrid(0))[i];
        const double t = before[static_cast<std::size_t>(i)];
        // Right of the plane the weight is 0, and the cell stays.
        EXPECT_EQ(g[i], g.PositionOf(x, y, z).x < 0.45 ? Wanted(operation, t, 0.5 * r) : t);
      });
    }
}

TEST_F(MathOperator, VectorsGoByComponentAndDotIntoTheFirst) {
  for (i32 operation = 0; operation < 7; ++operation)
    for (i32 right = 0; right < 3; ++right) {
      OperatorRig::Set(math, 1001, operation);
      Start(wind, right == 0 ? nullptr : right == 1 ? static_cast<const iBase*>(&other) : &draught);
      std::vector<double> before[3];
      for (i32 a = 0; a < 3; ++a) before[a] = OperatorRig::Copy(*wind.GetGrid(a));
      OperatorRig::Run(cells);
      s.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
        const i32 i = smoke.mGrid->Index(x, y, z);
        const auto n = static_cast<std::size_t>(i);
        Vec3d r{0.5, -1, 2};
        if (right == 1) r = Vec3d{1, 1, 1} * (*other.mGrid)[i];
        for (i32 a = 0; right == 2 && a < 3; ++a) r[a] = (*draught.GetGrid(a))[i];
        const Vec3d t{before[0][n], before[1][n], before[2][n]};
        Vec3d wanted;
        for (i32 a = 0; a < 3; ++a) wanted[a] = Wanted(operation, t[a], r[a]);
        if (operation == 3) wanted = {Dot(t, r), t.y, t.z};
        for (i32 a = 0; a < 3; ++a) EXPECT_DOUBLE_EQ((*wind.GetGrid(a))[i], wanted[a]) << operation;
      });
    }
  // A field of numbers that holds nothing as yet gives way to the numbers.
  for (const bool useVector : {false, true}) {
    OperatorRig::Set(math, 1001, i32{0});
    OperatorRig::Set(math, 1005, i32{useVector});
    Start(wind, &other);
    other.mGrid.reset();
    const double before = (*wind.GetGrid(1))[wind.GetGrid(1)->Index(2, 2, 2)];
    OperatorRig::Run(cells);
    EXPECT_EQ((*wind.GetGrid(1))(2, 2, 2), before + (useVector ? -1 : 0.75));
  }
}

TEST_F(MathOperator, AFieldOfOtherCellsIsReadAtThePlace) {
  Start(smoke, &other);
  other.mGrid = std::make_unique<EGrid<double>>(VecInt3D{30, 20, 20}, Vec3d{150, 100, 100}, 0.05f,
                                                kCentre, Vec3d{-20, -20, -20});
  ForEachCell({{0, 0, 0}, other.mGrid->Dims()}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p = other.mGrid->PositionOf(x, y, z);
    (*other.mGrid)(x, y, z) = 2 * p.x - p.y + 3 * p.z;
  });
  smoke.mGrid->Fill(1);
  OperatorRig::Run(cells);
  s.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
    const Vec3d p = smoke.mGrid->PositionOf(x, y, z);
    EXPECT_NEAR((*smoke.mGrid)(x, y, z), 1 + 2 * p.x - p.y + 3 * p.z, 1e-6);
  });
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
