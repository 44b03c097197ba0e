#include "fluids/advection/even_rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kChunk = 128;

/// One where the cells and their neighbours below and above both take part, and the face between
/// is open.
struct OpenPairs {
  Potential below[kChunk], above[kChunk];
};

SULVA_WIDE_KERNEL void FindOpenPairs(const u8* moves, i32 axis, i32 step, i32 n, OpenPairs& open) {
  Potential* __restrict below = open.below, * __restrict above = open.above;
  const i32 closed = axis + 1;
  for (i32 i = 0; i < n; ++i) {
    const i32 low = moves[i - step], own = moves[i], high = moves[i + step];
    below[i] = static_cast<Potential>(low & own & ~own >> closed & 1);
    above[i] = static_cast<Potential>(own & high & ~high >> closed & 1);
  }
}

SULVA_WIDE_KERNEL void AddDifferences(const Potential* p, const OpenPairs& open, i32 step, i32 n,
                                      Potential* __restrict sum) {
  const Potential *below = open.below, *above = open.above;
  for (i32 i = 0; i < n; ++i)
    sum[i] += (p[i - step] - p[i]) * below[i] + (p[i + step] - p[i]) * above[i];
}

SULVA_WIDE_KERNEL void Relax(const Potential* p, const u8* moves, const double* volume,
                             const Potential* __restrict sum, Potential weight, i32 n,
                             Potential* __restrict to) {
  for (i32 i = 0; i < n; ++i) {
    const Potential excess =
        static_cast<Potential>(volume[i] - 1) * static_cast<Potential>(moves[i] & 1);
    to[i] = p[i] + weight * (excess + sum[i]);
  }
}

SULVA_WIDE_KERNEL void AddOutflow(const Potential* p, const OpenPairs& open, i32 step, i32 n,
                                  double* __restrict out) {
  const Potential *below = open.below, *above = open.above;
  for (i32 i = 0; i < n; ++i) {
    const Potential a = (p[i] - p[i - step]) * below[i], b = (p[i] - p[i + step]) * above[i];
    out[i] += static_cast<double>(a > 0 ? a : 0) + static_cast<double>(b > 0 ? b : 0);
  }
}

SULVA_WIDE_KERNEL void FindShares(const double* volume, const double* content, i32 n,
                                  double* __restrict share, double* __restrict strength) {
  for (i32 i = 0; i < n; ++i) {
    const double v = volume[i] > 0 ? volume[i] : 0.0, out = share[i];
    share[i] = out > v ? v / out : 1.0;
    strength[i] = v > 0 ? share[i] * content[i] / v : 0.0;
  }
}

/// What passes through the faces below and above.
SULVA_WIDE_KERNEL void PassAlong(const Potential* p, const OpenPairs& open, const double* share,
                                 const double* strength, i32 step, i32 n, double* __restrict volume,
                                 double* __restrict content) {
  const Potential *below = open.below, *above = open.above;
  for (i32 i = 0; i < n; ++i) {
    const double a = (p[i - step] - p[i]) * below[i], b = (p[i + step] - p[i]) * above[i];
    // All are read whichever counts: a read under a condition keeps the loop scalar.
    const double sBelow = share[i - step], s = share[i], sAbove = share[i + step];
    const double cBelow = strength[i - step], c = strength[i], cAbove = strength[i + step];
    const double va = a > 0 ? sBelow : s, vb = b > 0 ? sAbove : s;
    const double ca = a > 0 ? cBelow : c, cb = b > 0 ? cAbove : c;
    volume[i] += a * va + b * vb;
    content[i] += a * ca + b * cb;
  }
}

template <class F>
void ForEachChunk(const EvenLine& line, F&& f) {
  for (i32 first = 0; first < line.cells; first += kChunk)
    f(first, std::min(kChunk, line.cells - first));
}

}  // namespace

SULVA_WIDE_KERNEL void StartRow(const double* volume, const u8* moves, Potential weight, i32 n,
                                Potential* __restrict to) {
  for (i32 i = 0; i < n; ++i) {
    const Potential takesPart = static_cast<Potential>(moves[i] & 1);
    to[i] = weight * (static_cast<Potential>(volume[i] - 1) * takesPart);
  }
}

void RelaxPotential(const EvenLine& line, const double* volume, const Potential* from,
                    Potential weight, Potential* to) {
  Potential sum[kChunk];
  OpenPairs open;
  ForEachChunk(line, [&](i32 first, i32 n) {
    std::fill_n(sum, n, Potential{0});
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 step = line.Step(axis);
      FindOpenPairs(line.moves + first, axis, step, n, open);
      AddDifferences(from + first, open, step, n, sum);
    }
    Relax(from + first, line.moves + first, volume + first, sum, weight, n, to + first);
  });
}

SULVA_WIDE_KERNEL void RelaxFreePotential(const LinesBeside& lines, const double* volume,
                                          const Potential* from, i32 cells, Potential weight,
                                          Potential* __restrict to) {
  const Potential *p = from, *a = from + lines.off[0], *b = from + lines.off[1],
                  *c = from + lines.off[2], *d = from + lines.off[3];
  for (i32 i = 0; i < cells; ++i) {
    const Potential sum = ((p[i - 1] + p[i + 1]) + (a[i] + b[i])) + (c[i] + d[i]);
    to[i] = p[i] + weight * (static_cast<Potential>(volume[i] - 1) + (sum - 6 * p[i]));
  }
}

void LimitFlows(const EvenLine& line, const Potential* potential, const double* volume,
                const double* content, double* share, double* strength) {
  OpenPairs open;
  ForEachChunk(line, [&](i32 first, i32 n) {
    std::fill_n(share + first, n, 0.0);
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 step = line.Step(axis);
      FindOpenPairs(line.moves + first, axis, step, n, open);
      AddOutflow(potential + first, open, step, n, share + first);
    }
    FindShares(volume + first, content + first, n, share + first, strength + first);
  });
}

SULVA_WIDE_KERNEL void LimitFreeFlows(const LinesBeside& lines, const Potential* potential,
                                      const double* volume, const double* content, i32 cells,
                                      double* __restrict share, double* __restrict strength) {
  const Potential *p = potential, *a = p + lines.off[0], *b = p + lines.off[1],
                  *c = p + lines.off[2], *d = p + lines.off[3];
  const auto out = [](Potential own, Potential beside) {
    const Potential flow = own - beside;
    return static_cast<double>(flow > 0 ? flow : 0);
  };
  for (i32 i = 0; i < cells; ++i) {
    const Potential own = p[i];
    const double all =
        ((out(own, p[i - 1]) + out(own, p[i + 1])) + (out(own, a[i]) + out(own, b[i]))) +
        (out(own, c[i]) + out(own, d[i]));
    const double v = volume[i] > 0 ? volume[i] : 0.0;
    const double s = all > v ? v / all : 1.0;
    share[i] = s;
    strength[i] = v > 0 ? s * content[i] / v : 0.0;
  }
}

void PassFlows(const EvenLine& line, const PassedLine& at) {
  double passed[kChunk], carried[kChunk];
  OpenPairs open;
  ForEachChunk(line, [&](i32 first, i32 n) {
    std::fill_n(passed, n, 0.0);
    std::fill_n(carried, n, 0.0);
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 step = line.Step(axis);
      FindOpenPairs(line.moves + first, axis, step, n, open);
      PassAlong(at.potential + first, open, at.share + first, at.strength + first, step, n, passed,
                carried);
    }
    for (i32 i = 0; i < n; ++i) {
      at.volumeOut[first + i] = at.volume[first + i] + passed[i];
      at.contentOut[first + i] = at.content[first + i] + carried[i];
    }
  });
}

namespace {

/// What passes through two faces that lie opposite each other.
struct Flows {
  double volume, content;
};
inline __attribute__((always_inline)) Flows FlowsBetween(const PassedLine& at, i32 i, i32 low,
                                                         i32 high) {
  const Potential* p = at.potential + i;
  const double *s = at.share + i, *c = at.strength + i;
  const double a = p[low] - p[0], b = p[high] - p[0];
  const double sLow = s[low], sOwn = s[0], sHigh = s[high];
  const double cLow = c[low], cOwn = c[0], cHigh = c[high];
  return {a * (a > 0 ? sLow : sOwn) + b * (b > 0 ? sHigh : sOwn),
          a * (a > 0 ? cLow : cOwn) + b * (b > 0 ? cHigh : cOwn)};
}

SULVA_WIDE_KERNEL void PassFreeRow(const LinesBeside& lines, const PassedLine& at, i32 cells,
                                   double* __restrict volume, double* __restrict content) {
  const PassedLine from = at;
  const LinesBeside l = lines;
  for (i32 i = 0; i < cells; ++i) {
    const Flows x = FlowsBetween(from, i, -1, 1), y = FlowsBetween(from, i, l.off[0], l.off[1]),
                z = FlowsBetween(from, i, l.off[2], l.off[3]);
    volume[i] = from.volume[i] + ((x.volume + y.volume) + z.volume);
    content[i] = from.content[i] + ((x.content + y.content) + z.content);
  }
}

/// The same where all give what is asked for.
inline __attribute__((always_inline)) Flows WholeFlowsBetween(const PassedLine& at, i32 i, i32 low,
                                                              i32 high) {
  const Potential* p = at.potential + i;
  const double* c = at.strength + i;
  const double a = p[low] - p[0], b = p[high] - p[0];
  const double cLow = c[low], cOwn = c[0], cHigh = c[high];
  return {a + b, a * (a > 0 ? cLow : cOwn) + b * (b > 0 ? cHigh : cOwn)};
}

SULVA_WIDE_KERNEL void PassWholeRow(const LinesBeside& lines, const PassedLine& at, i32 cells,
                                    double* __restrict volume, double* __restrict content) {
  const PassedLine from = at;
  const LinesBeside l = lines;
  for (i32 i = 0; i < cells; ++i) {
    const Flows x = WholeFlowsBetween(from, i, -1, 1),
                y = WholeFlowsBetween(from, i, l.off[0], l.off[1]),
                z = WholeFlowsBetween(from, i, l.off[2], l.off[3]);
    volume[i] = from.volume[i] + ((x.volume + y.volume) + z.volume);
    content[i] = from.content[i] + ((x.content + y.content) + z.content);
  }
}

}  // namespace

void PassFreeFlows(const LinesBeside& lines, const PassedLine& at, i32 cells, bool areWhole) {
  (areWhole ? PassWholeRow : PassFreeRow)(lines, at, cells, at.volumeOut, at.contentOut);
}

namespace {

template <class T>
inline __attribute__((always_inline)) ValueRange FindRange(const T* values, i32 n) {
  typedef T Lanes __attribute__((vector_size(sizeof(RunLanes))));
  constexpr i32 kLanes = sizeof(Lanes) / sizeof(T);
  T low = values[0], high = values[0];
  i32 i = 0;
  if (n >= kLanes) {
    Lanes least, most, v;
    std::memcpy(&least, values, sizeof least);
    most = least;
    for (; i + kLanes <= n; i += kLanes) {
      std::memcpy(&v, values + i, sizeof v);
      least = v < least ? v : least;
      most = v > most ? v : most;
    }
    for (int lane = 0; lane < kLanes; ++lane) {
      low = std::min(low, least[lane]);
      high = std::max(high, most[lane]);
    }
  }
  for (; i < n; ++i) {
    low = std::min(low, values[i]);
    high = std::max(high, values[i]);
  }
  return {low, high};
}

}  // namespace

SULVA_WIDE_KERNEL ValueRange RangeOf(const double* values, i32 n) { return FindRange(values, n); }
SULVA_WIDE_KERNEL ValueRange RangeOfPotential(const Potential* values, i32 n) {
  return FindRange(values, n);
}

double MostExcess(const EvenLine& line, const double* volume) {
  double most = 0;
  for (i32 i = 0; i < line.cells; ++i)
    if (line.moves[i] & 1) most = std::max(most, std::abs(volume[i] - 1));
  return most;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
