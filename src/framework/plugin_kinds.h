// Kinds of nodes that shared libraries bring.
#pragma once
#include <filesystem>
#include <map>
#include <string>

#include "framework/node_kind.h"
#include "framework/plugin_error.h"
#include "plugin/sulva_plugin.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace plugin_api = ::sulva::plugin;

/// A kind of a library that was loaded.
struct PluginKind {
  const plugin_api::Kind* kind = nullptr;
  std::string identity;  ///< of the library: its name, its release and a checksum of its file
};

/// What a node of such a kind is set to, by the names of its parameters.
class PluginSettings : public plugin_api::Settings {
 public:
  double Number(const char* name) const override;
  plugin_api::Vector Of(const char* name) const override;
  const char* Text(const char* name) const override;
  void Take(const std::string& name, const host::Value& value) { mValues[name] = value; }

 private:
  std::map<std::string, host::Value, std::less<>> mValues;
};

/// An object whose rows go to a plug-in.
struct PluginUser {
  virtual ~PluginUser() = default;
  PluginSettings mSettings;
};

/// Loads a library for as long as the program runs. Throws PluginError where there is no such file,
/// where it is no plug-in, or one of another version of the interface.
const plugin_api::Library& OpenPlugin(const std::filesystem::path& path);
/// The rows of a kind's own parameters, from 1000 on. Throws PluginError where one has no name, or
/// two have the same.
host::ParameterTable PluginRows(const plugin_api::Kind& kind);
/// Keeps a kind for the nodes of its id.
void KeepPluginKind(const plugin_api::Kind& kind, const std::string& identity);
/// The kind of a library that a node's type names, or null.
const PluginKind* FindPluginKind(i32 id);

plugin_api::Vector PluginVector(const Vec3d& v);
Vec3d VectorOf(const plugin_api::Vector& v);
/// The step of a node's scene, as plug-ins are told it.
plugin_api::Step PluginStep(const iBase& object);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
