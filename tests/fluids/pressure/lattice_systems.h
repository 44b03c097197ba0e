// Linear systems of random domains, and plain reference versions of what the solvers do.
#pragma once
#include <cmath>
#include <map>
#include <vector>

#include "fluids/pressure/lattice_matrix.h"
#include "grids/random_stream.h"

namespace lattice {

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

/// A Poisson-like system on a random mask: every cell off the outermost layer that is open couples
/// to all six neighbours, with one random weight per face, 0 towards closed cells.
struct System {
  VecInt3D dims;
  std::vector<std::map<i32, double>> rows;  ///< entries by column
  std::vector<double> rhs;

  i32 Cell(i32 x, i32 y, i32 z) const { return (dims.y * z + y) * dims.x + x; }

  /// `open` is the share of open cells; `border` makes the outermost layer couple as if its cells
  /// held the value 0 (otherwise the domain is closed).
  System(const VecInt3D& n, double open, bool border, u32 seed) : dims(n) {
    RandomStream random;
    random.Seed(seed);
    const i32 count = n.x * n.y * n.z;
    rows.resize(count);
    rhs.assign(count, 0.0);
    std::vector<char> kind(count);  // 0 closed, 1 open, 2 border
    for (i32 z = 0; z < n.z; ++z)
      for (i32 y = 0; y < n.y; ++y)
        for (i32 x = 0; x < n.x; ++x) {
          const bool edge =
              x == 0 || y == 0 || z == 0 || x == n.x - 1 || y == n.y - 1 || z == n.z - 1;
          kind[Cell(x, y, z)] = edge ? (border ? 2 : 0) : random.NextUnit() < open;
        }
    const i32 offsets[3] = {1, n.x, n.x * n.y};
    std::vector<double> weight[3];
    for (auto& w : weight) {
      w.resize(count);
      for (double& v : w) v = 0.1 + random.NextUnit();
    }
    for (i32 c = 0; c < count; ++c) {
      if (kind[c] != 1) continue;
      rhs[c] = random.NextUnit() - 0.5;
      for (i32 axis = 0; axis < 3; ++axis)
        for (const i32 step : {1, -1}) {
          const i32 other = c + step * offsets[axis];
          const double w = kind[other] ? weight[axis][std::min(c, other)] : 0.0;
          rows[c][c] += w;
          rows[c][other] -= w;
        }
    }
    // A cell without open neighbours has entries that are all zero; it is no unknown.
    for (i32 c = 0; c < count; ++c)
      if (rows[c].contains(c) && rows[c][c] == 0) rhs[c] = 0;
  }

  bool HasRow(i32 c) const { return rows[c].contains(c) && rows[c].at(c) != 0; }

  template <class Solver>
  void Fill(Solver& solver) const {
    solver.mDims = dims;
    solver.mOwner = &solver;
    solver.Prepare();
    for (i32 c = 0; c < static_cast<i32>(rows.size()); ++c) {
      for (const auto& [column, value] : rows[c]) solver.GetMatrix().AddToElement(c, column, value);
      solver.GetRhs()[c] = rhs[c];
    }
  }

  /// Largest |b - A x| over the rows.
  template <class Vector>
  double Residual(const Vector& x) const {
    double top = 0;
    for (std::size_t c = 0; c < rows.size(); ++c) {
      if (!HasRow(static_cast<i32>(c))) continue;
      double r = rhs[c];
      for (const auto& [column, value] : rows[c]) r -= value * x[column];
      top = std::max(top, std::fabs(r));
    }
    return top;
  }
};

/// The modified incomplete Cholesky factor of level 0 of a general sparse matrix, column by column.
struct ReferenceFactor {
  std::vector<double> invDiag;
  std::vector<std::map<i32, double>> columns;  ///< strictly lower triangle

  ReferenceFactor(const System& a, double modification, double minRatio) {
    const i32 n = static_cast<i32>(a.rows.size());
    invDiag.assign(n, 0.0);
    columns.resize(n);
    std::vector<double> own(n, 0.0);
    for (i32 i = 0; i < n; ++i)
      for (const auto& [j, value] : a.rows[i]) {
        if (j > i) columns[i][j] = value;
        if (j == i) invDiag[i] = own[i] = value;
      }
    for (i32 k = 0; k < n; ++k) {
      if (own[k] == 0) continue;
      const double d = invDiag[k] < minRatio * own[k] ? own[k] : invDiag[k];
      invDiag[k] = 1 / std::sqrt(d);
      for (auto& [row, value] : columns[k]) value *= invDiag[k];
      for (const auto& [j, v] : columns[k]) {
        double missing = 0;
        for (const auto& [row, value] : columns[k]) {
          if (row < j && !a.rows[j].contains(row)) missing += value;
          if (row == j) invDiag[j] -= v * value;
          if (row > j) {
            const auto place = columns[j].find(row);
            if (place == columns[j].end())
              missing += value;
            else
              place->second -= v * value;
          }
        }
        invDiag[j] -= modification * v * missing;
      }
    }
    for (i32 k = 0; k < n; ++k)
      if (own[k] == 0) invDiag[k] = 0;
  }

  std::vector<double> Apply(std::vector<double> z) const {
    const i32 n = static_cast<i32>(z.size());
    for (i32 i = 0; i < n; ++i) {
      z[i] *= invDiag[i];
      for (const auto& [row, value] : columns[i]) z[row] -= value * z[i];
    }
    for (i32 i = n - 1; i >= 0; --i) {
      for (const auto& [row, value] : columns[i]) z[i] -= z[row] * value;
      z[i] *= invDiag[i];
    }
    return z;
  }
};

}  // namespace lattice
