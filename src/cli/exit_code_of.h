// What ends the work of a command.
#pragma once
#include <new>

#include "host/exit_codes.h"
#include "host/file_error.h"
#include "host/geometry.h"
#include "run/progress.h"

namespace MELDO_GLOBAL::app {

/// Runs `work`, which answers an exit code. What it throws becomes one, and is told as an error;
/// `cure` says what helps where memory is short.
template <class Work>
int ExitCodeOf(Progress& progress, const char* cure, Work&& work) {
  const auto end = [&](int code, const char* text) {
    progress.Error(text);
    return code;
  };
  try {
    return work();
  } catch (const CommandError& error) {
    return end(error.code, error.what());
  } catch (const host::MeshFileError& error) {
    return end(kExitFile, error.what());
  } catch (const host::FileError& error) {
    return end(kExitFile, error.what());
  } catch (const std::bad_alloc&) {
    return end(kExitMemory, cure);
  }
}

}  // namespace MELDO_GLOBAL::app
