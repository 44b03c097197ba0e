// How the benchmarks take their times.
#pragma once
#include <algorithm>
#include <chrono>

/// The shortest wall time of a few runs of f(), seconds: the one that others disturbed least.
template <class F>
double Best(F&& f, int runs = 5) {
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    f();
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    best = std::min(best, wall.count());
  }
  return best;
}
