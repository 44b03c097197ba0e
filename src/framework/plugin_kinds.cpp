#include "framework/plugin_kinds.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <deque>
#include <set>

#include "framework/ibase.h"
#include "grids/grid_layout.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr i32 kFirstRow = 1000;

std::map<i32, PluginKind>& Kept() {
  static std::map<i32, PluginKind> kinds;
  return kinds;
}

ParameterRow RowOf(const plugin_api::Parameter& parameter, i32 id) {
  const std::string_view name = parameter.name, help = parameter.help, unit = parameter.unit;
  switch (parameter.type) {
    case plugin_api::ParameterType::kReal: return RealRow(id, name, parameter.number, unit, help);
    case plugin_api::ParameterType::kWhole:
      return LongRow(id, name, static_cast<i32>(parameter.number), unit, help);
    case plugin_api::ParameterType::kBool: return BoolRow(id, name, parameter.number != 0, help);
    case plugin_api::ParameterType::kVector:
      return VectorRow(id, name, VectorOf(parameter.vector), unit, help);
    case plugin_api::ParameterType::kText: return StringRow(id, name, parameter.text, help);
  }
  throw PluginError(fmt::format("parameter '{}' has no type that is known", name));
}

}  // namespace

double PluginSettings::Number(const char* name) const {
  const auto found = mValues.find(std::string_view(name));
  return found == mValues.end() ? 0.0 : RealOf(found->second, 0);
}

plugin_api::Vector PluginSettings::Of(const char* name) const {
  const auto found = mValues.find(std::string_view(name));
  const Vec3d* value = found == mValues.end() ? nullptr : std::get_if<Vec3d>(&found->second);
  return value ? PluginVector(*value) : plugin_api::Vector{};
}

const char* PluginSettings::Text(const char* name) const {
  const auto found = mValues.find(std::string_view(name));
  const auto* value = found == mValues.end() ? nullptr : std::get_if<std::string>(&found->second);
  return value ? value->c_str() : "";
}

const plugin_api::Library& OpenPlugin(const std::filesystem::path& path) {
  std::error_code failed;
  if (!std::filesystem::exists(path, failed))
    throw PluginError(fmt::format("plug-in {}: no such file", path.string()));
  // An absolute path, or the system would look in its own folders.
  void* handle = dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* why = dlerror();
    throw PluginError(fmt::format("plug-in {}: it can't be loaded: {}", path.string(),
                                  why ? why : "no reason given"));
  }
  using Entry = const plugin_api::Library* (*)();
  const auto entry = reinterpret_cast<Entry>(dlsym(handle, "SulvaPlugin"));
  const plugin_api::Library* library = entry ? entry() : nullptr;
  if (!library)
    throw PluginError(fmt::format(
        "plug-in {}: it is none: it has no function 'SulvaPlugin' that answers", path.string()));
  if (library->interfaceVersion != plugin_api::kInterfaceVersion)
    throw PluginError(
        fmt::format("plug-in {}: it is made for version {} of the interface, and this is version "
                    "{}; compile it "
                    "anew with this sulva's plugin/sulva_plugin.h",
                    path.string(), library->interfaceVersion, plugin_api::kInterfaceVersion));
  return *library;
}

ParameterTable PluginRows(const plugin_api::Kind& kind) {
  ParameterTable table;
  std::set<std::string> names;
  for (i32 i = 0; i < kind.parameterCount; ++i) {
    const plugin_api::Parameter& parameter = kind.parameters[i];
    const std::string name = parameter.name ? parameter.name : "";
    if (name.empty())
      throw PluginError(fmt::format("parameter {} of its kind '{}' has no name", i + 1, kind.type));
    if (!names.insert(name).second)
      throw PluginError(fmt::format("its kind '{}' has two parameters '{}'", kind.type, name));
    ParameterRow row = RowOf(parameter, kFirstRow + i).Range(parameter.lowest, parameter.highest);
    row.fill = [name](ParameterHolder& holder, const Value& value) {
      if (auto* user = dynamic_cast<PluginUser*>(&holder)) user->mSettings.Take(name, value);
    };
    table.push_back(std::move(row));
  }
  return table;
}

void KeepPluginKind(const plugin_api::Kind& kind, const std::string& identity) {
  Kept()[kind.id] = {&kind, identity};
}

const PluginKind* FindPluginKind(i32 id) {
  const auto found = Kept().find(id);
  return found == Kept().end() ? nullptr : &found->second;
}

plugin_api::Vector PluginVector(const Vec3d& v) { return {v.x, v.y, v.z}; }
Vec3d VectorOf(const plugin_api::Vector& v) { return {v.x, v.y, v.z}; }

plugin_api::Step PluginStep(const iBase& object) {
  plugin_api::Step step;
  step.time = object.mTime->elapsed;
  step.duration = object.mTime->stepDuration;
  step.frame = object.mTime->frameIndex;
  const GridLayout& domain = object.GetDomain();
  step.cellSize = domain.cellSize;
  step.hostToMetres = PluginVector(domain.worldToSim);
  Matrix placement;
  object.mInterface.GetMatrix(placement);
  step.offset = PluginVector(placement.offset);
  const Vec3d axes[] = {placement.v1, placement.v2, placement.v3};
  for (i32 a = 0; a < 3; ++a) step.axes[a] = PluginVector(axes[a]);
  return step;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
