// What the command answers to the shell, and the errors that end a command.
#pragma once
#include <stdexcept>
#include <string>

namespace MELDO_GLOBAL::app {

enum ExitCode : int {
  kExitDone = 0,
  kExitUsage = 2,         ///< wrong usage of the command
  kExitInvalidScene = 3,  ///< the scene was read and refused
  kExitNonFinite = 4,     ///< the simulation became non-finite
  kExitFile = 5,          ///< a file could not be read or written
  kExitMemory = 6,        ///< out of memory
  kExitInterrupted = 7,   ///< interrupted; the run can be resumed
};

/// Ends a command with an exit code; `what()` is the message for the user.
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitCode exitCode, const std::string& message)
      : std::runtime_error(message), code(exitCode) {}
  const ExitCode code;
};

}  // namespace MELDO_GLOBAL::app
