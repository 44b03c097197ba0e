// The command line of `sulva`.
#pragma once

namespace MELDO_GLOBAL::app {

/// Parses the arguments, runs the command and answers its exit code. Messages for the user go to
/// standard error.
int Main(int argc, char** argv);

}  // namespace MELDO_GLOBAL::app
