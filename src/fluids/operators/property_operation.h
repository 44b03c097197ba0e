// What becomes of a property when a number is written to it.
#pragma once
#include "host/parameter.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How a number that is there and one that comes make the one that is written; component by
/// component of a vector.
enum class PropertyOperation : i32 {
  Set = 0,
  Add = 1,
  Subtract = 2,
  Multiply = 3,
  Dot = 4,  ///< of vectors, in all three components
  Minimum = 5,
  Maximum = 6,
  Keep = 7,  ///< the one that is there; so do all other numbers
};

/// The words of a row that picks an operation.
inline std::vector<host::Choice> PropertyOperationChoices() {
  return {{0, "set"}, {1, "add"},     {2, "subtract"}, {3, "multiply"},
          {4, "dot"}, {5, "minimum"}, {6, "maximum"},  {7, "keep"}};
}

/// `target` is what is there. A vector takes all of `source`, anything else its first number.
inline Vec3d Combined(PropertyOperation operation, const Vec3d& target, Vec3d source,
                      bool isVector) {
  if (!isVector) source = {source.x, source.x, source.x};
  switch (operation) {
    case PropertyOperation::Set: return source;
    case PropertyOperation::Add: return target + source;
    case PropertyOperation::Subtract: return target - source;
    case PropertyOperation::Multiply: return target * source;
    case PropertyOperation::Dot: {
      const double dot = isVector ? Dot(target, source) : target.x * source.x;
      return {dot, dot, dot};
    }
    case PropertyOperation::Minimum: return Min(target, source);
    case PropertyOperation::Maximum: return Max(target, source);
    case PropertyOperation::Keep: break;
  }
  return target;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
