#include "nodes/plugins.h"

#include <fmt/format.h>

#include <cctype>

#include "cache/hyper_file.h"
#include "fluids/constraints/plugin_constraint.h"
#include "fluids/forces/plugin_force.h"
#include "framework/plugin_kinds.h"
#include "host/atomic_file.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Ids below are those of kinds that this program has, or may have.
constexpr i32 kFirstId = 10000000, kLastId = 12999999;

bool IsWord(const char* text) {
  if (!text || !*text) return false;
  for (; *text; ++text)
    if (!std::islower(static_cast<unsigned char>(*text)) &&
        !std::isdigit(static_cast<unsigned char>(*text)) && *text != '_')
      return false;
  return true;
}

/// What is amiss with a kind, as a clause; empty where nothing is.
std::string FaultOf(const plugin_api::Kind& kind, const plugin_api::Library& library) {
  if (!IsWord(kind.type))
    return fmt::format("its kind {} has no name of lower-case letters, digits and underscores",
                       kind.id);
  if (!kind.label || !*kind.label) return fmt::format("its kind '{}' has no label", kind.type);
  if (kind.id < kFirstId || kind.id > kLastId)
    return fmt::format("its kind '{}' has the id {}; those of plug-ins are {} to {}", kind.type,
                       kind.id, kFirstId, kLastId);
  if ((kind.makeForce != nullptr) == (kind.makeConstraint != nullptr))
    return fmt::format("its kind '{}' has to make either a force or a constraint", kind.type);
  const auto isTaken = [&](std::string_view type, std::string_view label, i32 id) {
    return type == kind.type || label == kind.label || id == kind.id;
  };
  i32 given = 0;
  for (i32 i = 0; i < library.kindCount; ++i) {
    const plugin_api::Kind& other = library.kinds[i];
    given += other.type && other.label && isTaken(other.type, other.label, other.id);
  }
  for (const NodeKind& other : Catalogue()) given += isTaken(other.type, other.label, other.id);
  return given < 2 ? ""
                   : fmt::format(
                         "its kind '{}' (\"{}\", {}) is given twice: another has this name, "
                         "label or id",
                         kind.type, kind.label, kind.id);
}

}  // namespace

void LoadPlugin(const std::filesystem::path& path) {
  const plugin_api::Library& library = OpenPlugin(path);
  const auto refuse = [&](const std::string& why) {
    throw PluginError(fmt::format("plug-in {}: {}", path.string(), why));
  };
  std::vector<host::ParameterTable> tables;
  for (i32 i = 0; i < library.kindCount; ++i) {
    const plugin_api::Kind& kind = library.kinds[i];
    if (const std::string fault = FaultOf(kind, library); !fault.empty()) refuse(fault);
    try {
      tables.push_back(kind.makeForce ? PluginForce::RowsOf(kind) : PluginConstraint::RowsOf(kind));
    } catch (const PluginError& error) {
      refuse(error.what());
    }
  }
  const std::string identity = fmt::format("{} {} {:016x}", library.name ? library.name : "",
                                           library.release, ChecksumOf(host::ReadFile(path)));
  for (i32 i = 0; i < library.kindCount; ++i) {
    const plugin_api::Kind& kind = library.kinds[i];
    KeepPluginKind(kind, identity);
    AddKind(kind.makeForce ? PluginForce::KindOf(kind) : PluginConstraint::KindOf(kind),
            std::move(tables[i]));
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
