// Who asks for memory, for the message when there is none.
#pragma once
#include <string>

namespace MELDO_GLOBAL {

/// While it lives, what its thread allocates is asked for by an object; an empty name is nobody's.
class MemoryOwner {
 public:
  explicit MemoryOwner(const std::string& name);
  ~MemoryOwner();
  MemoryOwner(const MemoryOwner&) = delete;
  MemoryOwner& operator=(const MemoryOwner&) = delete;

  /// The name that stands for this thread, also behind the end of its scope through an exception.
  static const std::string& Last();

 private:
  const int mExceptions;
};

/// The owner of the grid that `RefusedGrid` tells of.
std::string RefusedOwner();

}  // namespace MELDO_GLOBAL
