// Eigen decomposition of symmetric 3 x 3 matrices.
#pragma once
#include <array>

#include "host/vector.h"

namespace MELDO_GLOBAL {

/// Nine numbers, rows in order.
using Matrix3d = std::array<double, 9>;

/// The eigenvalues of the symmetric matrix `a`, not sorted, and its unit eigenvectors: column k of
/// `vectors` belongs to component k of `values`.
///
/// Householder reduction to tridiagonal form, then QL steps with implicit shifts (Martin, Reinsch,
/// Wilkinson 1968; Dubrulle, Martin, Wilkinson 1968). Off-diagonal elements below 1e-10 count as
/// zero. When a value takes 30 steps a message goes to the error stream and the results stay as
/// they are at that point.
void SlSymetricEigenDecomp(const Matrix3d& a, Vec3d& values, Matrix3d& vectors);

}  // namespace MELDO_GLOBAL
