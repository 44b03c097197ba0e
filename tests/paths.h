// Where the checkout and its binary are: in one source, so that all others compile alike everywhere.
#pragma once
#include <string>

/// The folder of the checkout, followed by `below`.
std::string SourcePath(const std::string& below = "");
/// The command under test.
const char* BinaryPath();
