// The JSON schema of scene files, made from the catalogue.
#pragma once
#include <string>

namespace MELDO_GLOBAL::app {

/// The schema as JSON text: editors complete and check scene files with it.
std::string SceneSchema();

}  // namespace MELDO_GLOBAL::app
