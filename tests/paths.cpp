#include "paths.h"

std::string SourcePath(const std::string& below) { return SULVA_SOURCE_DIR + below; }
const char* BinaryPath() { return SULVA_BINARY; }
