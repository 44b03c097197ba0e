#include "io/export_origin.h"

#include <fmt/format.h>

#include "host/console.h"

namespace MELDO_GLOBAL::app {

std::vector<exchange::Remark> RemarksOf(const ExportOrigin& origin, const std::string& unit) {
  std::vector<exchange::Remark> remarks = {
      {"version", origin.version},
      {"fingerprint", fmt::format("{:016x}", origin.simulation)},
      {"frame", origin.frame}};
  if (origin.seconds) remarks.emplace_back("time", *origin.seconds);
  remarks.emplace_back("fps", origin.fps);
  remarks.emplace_back("unit", unit);
  remarks.emplace_back("length_unit", "m");
  return remarks;
}

FileTexts TextsOf(const ExportOrigin& origin, const std::vector<StoredObject>& fields) {
  FileTexts texts = {{"Software", "Sulva " + origin.version},
                     {"sulva:fields", FieldsText(fields)},
                     {"sulva:fingerprint", fmt::format("{:016x}", origin.simulation)},
                     {"sulva:frame", fmt::format("{}", origin.frame)},
                     {"sulva:fps", fmt::format("{}", origin.fps)}};
  if (origin.seconds) texts.emplace_back("sulva:time", fmt::format("{} s", *origin.seconds));
  return texts;
}

std::string FieldsText(const std::vector<StoredObject>& nodes) {
  std::string text;
  for (const StoredObject& node : nodes)
    if (!node.unit.empty())
      text += fmt::format("{}{} [{}]", text.empty() ? "" : ", ", host::Escaped(node.name),
                          host::Escaped(node.unit));
  return text;
}

}  // namespace MELDO_GLOBAL::app
