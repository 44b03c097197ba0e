// What a node's parameter can hold.
#pragma once
#include <string>
#include <variant>
#include <vector>

#include "host/types.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::host {

/// Identity of a node: its creation number, unique and increasing within a document; 0 is none.
using NodeId = u64;

/// A link to a node by identity: it never dangles, a node that has gone resolves to null.
struct Link {
  NodeId node = 0;
  friend bool operator==(const Link&, const Link&) = default;
};

/// A path of a file, absolute or relative to the working directory.
struct Filename {
  std::string path;
  friend bool operator==(const Filename&, const Filename&) = default;
};

/// A list of links, each with a word of flags.
struct InExcludeData {
  struct Entry {
    NodeId node = 0;
    u32 flags = 0;
    friend bool operator==(const Entry&, const Entry&) = default;
  };
  std::vector<Entry> entries;
  friend bool operator==(const InExcludeData&, const InExcludeData&) = default;
};

/// A curve y = f(x) through knots sorted by x; linear between knots, constant outside them.
struct SplineData {
  std::vector<Vec2D<double>> knots;

  /// y at `x`; 0 without knots.
  double Evaluate(double x) const;
  /// Inserts a knot at its place and returns its index; an equal x is replaced.
  i32 Insert(double x, double y);
  friend bool operator==(const SplineData&, const SplineData&) = default;
};

/// A ramp of colours over 0..1; linear between knots, constant outside them.
struct Gradient {
  struct Knot {
    double position = 0;
    Vec3d colour;
    friend bool operator==(const Knot&, const Knot&) = default;
  };
  std::vector<Knot> knots;

  /// The colour at `position`; black without knots.
  Vec3d Evaluate(double position) const;
  friend bool operator==(const Gradient&, const Gradient&) = default;
};

/// The value of a parameter; booleans are the longs 0 and 1.
using Value = std::variant<std::monostate, double, i32, std::string, Vec3d, Link, Filename,
                           InExcludeData, SplineData, Gradient>;

}  // namespace MELDO_GLOBAL::host
