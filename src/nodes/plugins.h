// Plug-ins: shared libraries with kinds of nodes.
#pragma once
#include <filesystem>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Loads a library and adds the kinds that it brings to the catalogue, all or none, before scenes
/// are read. Throws PluginError where the file isn't there or is no plug-in, where it is made for
/// another version of the interface, and where a kind isn't whole or is there already.
void LoadPlugin(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
