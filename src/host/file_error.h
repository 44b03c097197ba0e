// What went wrong with a file.
#pragma once
#include <stdexcept>

namespace MELDO_GLOBAL::host {

/// A file that can't be read or written; `what()` names it and says why.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace MELDO_GLOBAL::host
