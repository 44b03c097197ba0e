// The command line of `sulva`.
#pragma once

namespace MELDO_GLOBAL::app {

/// Parses the arguments, runs the command and answers its exit code. Messages for the user go to
/// standard error.
int Main(int argc, char** argv);

/// From here on, memory that runs out where no exception gets through ends the program with a
/// sentence and kExitMemory instead of an abort.
void SettleUncaught();

}  // namespace MELDO_GLOBAL::app
