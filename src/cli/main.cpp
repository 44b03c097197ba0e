#include "cli/command_line.h"

int main(int argc, char** argv) { return MELDO_GLOBAL::app::Main(argc, argv); }
