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
  OrderError(const std::string& what, const host::BaseNode* node)
      : std::runtime_error(what), mNode(node) {}
  /// One of them.
  const host::BaseNode* Node() const { return mNode; }

 private:
  const host::BaseNode* mNode;
};

/// Sorts the objects of a stage, which stand in the order of their lists and the file, by
/// priority, then by list. Of one priority and list, those of which the order counts come first, in
/// the order of the file; those that only add follow, by the paths of their names, so that sums are
/// alike to the last bit in any order of the file.
std::vector<iBase*> OrderByPlace(std::vector<iBase*> objects);

/// Moves objects back behind those that they wait for, and leaves the order as it is elsewhere.
///
/// An object waits for those of a higher priority before which it may not come (`ComesBefore`), and
/// for every object of the stage that it links to, but for one that it writes: there priority
/// decides, since it may change what that one begins with or what it has become.
/// Whoever only reads something, such as a field or a mesh, waits for all that write it.
/// Links of settings count as those of the object that names them. Throws OrderError when objects
/// wait in a circle.
std::vector<iBase*> OrderByLinks(const std::vector<iBase*>& objects, const Scene& scene);

/// Two objects of a stage that change the same thing, and whose order only the file tells, or the
/// names of those that mostly add.
struct OrderTie {
  const iBase* first = nullptr;
  const iBase* second = nullptr;
  const iBase* target = nullptr;
  i32 stage = 0;
};

/// The ties among the objects of a stage, which stand in their order: of one list, of equal
/// priority, not waiting for each other, and not commuting with each other.
std::vector<OrderTie> FindTies(const std::vector<iBase*>& objects, const Scene& scene);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
