// Scripts of a scene file: where their text stands, and what is wrong with it.
#include <fmt/format.h>

#include <algorithm>

#include "host/atomic_file.h"
#include "host/script_state.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// A script as the scene has it, with the places of its lines.
struct ScriptText {
  std::string text;
  TextOrigin origin;
  std::vector<SourceLocation> places;  ///< one for each line; none for a file of its own
};

void AddLines(ScriptText& script, const std::string& lines, const SourceLocation& where) {
  if (!script.places.empty()) script.text += '\n';
  script.text += lines;
  const auto count = 1 + std::count(lines.begin(), lines.end(), '\n');
  for (auto i = count; i > 0; --i) {
    script.places.push_back(where);
    script.origin.lines.push_back(where.line);
  }
}

}  // namespace

void ValueReader::ReadScript(const ParameterRow& row, const JsonValue& value, BaseNode& node,
                             const Subject& subject) {
  constexpr std::string_view kExpected = "text, a list of lines or {\"file\": name}";
  const std::string what = fmt::format("'{}'", row.name);
  ScriptText script;
  script.origin.file = mContext.Where(value).file;
  if (const std::string* text = value.Text()) {
    AddLines(script, *text, mContext.Where(value));
  } else if (const JsonValue::Array* items = value.Items()) {
    for (const JsonValue& item : *items) {
      const auto line = mContext.ReadText(item, subject, what);
      if (!line) return;
      AddLines(script, *line, mContext.Where(item));
    }
  } else if (value.Members()) {
    if (!mContext.CheckKeys(value, {"file"}, subject + what + ": ")) return;
    const JsonValue* name = value.Find("file");
    if (!name) return mContext.Error(value, subject, fmt::format("{}: 'file' is missing", what));
    const auto file = mContext.ReadText(*name, subject, what + ": 'file'");
    if (!file) return;
    const std::filesystem::path path = mContext.Resolve(*file);
    script.origin.file = path.string();
    try {
      script.text = ReadFile(path);
      // What editors and shells put in front of a text is no part of it.
      if (script.text.starts_with("\xEF\xBB\xBF")) script.text.erase(0, 3);
      if (script.text.starts_with('#')) script.text.insert(0, "--");
    } catch (const FileError& error) {
      return mContext.Error(*name, subject, fmt::format("{}: {}", what, error.what()));
    }
  } else {
    return mContext.Error(value, subject,
                          fmt::format("{}: expected {}, got {}", what, kExpected, KindOf(value)));
  }

  const ScriptError error = ScriptState(host::ScriptText(script.text), *row.script).Error();
  if (error) {
    SourceLocation where = mContext.Where(value);
    std::string text = error.text;
    if (script.origin.IsWholeFile())
      where = {script.origin.file, std::max(error.line, 1u), 1};
    else if (error.line > 0 && error.line <= script.places.size())
      where = script.places[error.line - 1];
    if (value.Text() && script.places.size() > 1 && error.line > 0)
      text = fmt::format("in its line {}: {}", error.line, error.text);
    mContext.Error(where, fmt::format("{}{}: {}", subject, what, text));
  }
  node.SetOrigin(row.id, std::move(script.origin));
  node.Set(row.id, std::move(script.text));
}

}  // namespace MELDO_GLOBAL::app
