// The order in which the objects of a stage run.
#pragma once
#include <stdexcept>
#include <vector>

#include "framework/ibase.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Objects of a stage that wait for each other; `what` names them.
class OrderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Moves objects back behind those that they wait for, and leaves the order as it is elsewhere.
///
/// An object waits for every object of the stage that it links to, but for one that it writes:
/// there priority decides, since it may change what that one begins with or what it has become.
/// Whoever only reads something, such as a field or a mesh, waits for all that write it.
/// Links of settings count as those of the object that names them. Throws OrderError when objects
/// wait in a circle.
std::vector<iBase*> OrderByLinks(const std::vector<iBase*>& objects, const Scene& scene);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
