// Reading a whole file, and looking at it on the way.
#pragma once
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "host/file_error.h"

namespace MELDO_GLOBAL::host {

/// All bytes of a plain file, as `ReadFile`. `look` is called again and again with what is there so
/// far, the last of it still in the processor's caches; the bytes stay where they are until the
/// end.
std::string ReadFileBy(const std::filesystem::path& path,
                       const std::function<void(std::string_view)>& look);

}  // namespace MELDO_GLOBAL::host
