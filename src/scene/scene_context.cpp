#include "scene/scene_context.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace MELDO_GLOBAL::app {

using namespace host;

SourceLocation SceneContext::Where(u32 line, u32 column) const {
  if (!mOption.empty()) return {mOption, 0, 0};
  return {mFile, line, column};
}

void SceneContext::Error(const JsonValue& at, const Subject& subject, const std::string& text) {
  mDiagnostics.Error(Where(at), subject + text);
}

void SceneContext::Error(const JsonMember& at, const Subject& subject, const std::string& text) {
  mDiagnostics.Error(Where(at.line, at.column), subject + text);
}

void SceneContext::Warning(const JsonValue& at, const Subject& subject, const std::string& text) {
  mDiagnostics.Warning(Where(at), subject + text);
}

void SceneContext::Note(const JsonMember& at, const Subject& subject, const std::string& text) {
  mDiagnostics.Note(Where(at.line, at.column), subject + text);
}

std::string SceneContext::Suggest(std::string_view word,
                                  const std::vector<std::string_view>& candidates) {
  if (!MaySuggest()) return {};
  ++mSuggestions;
  return Suggestion(word, candidates);
}

std::string SceneContext::SuggestOrList(std::string_view word,
                                        const std::vector<std::string_view>& candidates) {
  if (!MaySuggest()) return {};
  const std::string nearest = Suggest(word, candidates);
  if (!nearest.empty() || candidates.empty() || candidates.size() > kMostListed) return nearest;
  return fmt::format("; expected {}", AnyOf({candidates.begin(), candidates.end()}));
}

std::filesystem::path SceneContext::Resolve(const std::string& path) const {
  return mFolder / std::filesystem::path(path);
}

bool SceneContext::CheckKeys(const JsonValue& object, const std::vector<std::string_view>& allowed,
                             const Subject& subject, const ParameterTable* parameters) {
  const auto isParameter = [&](const std::string& key) {
    return parameters && std::any_of(parameters->begin(), parameters->end(),
                                     [&](const ParameterRow& row) { return row.name == key; });
  };
  bool allKnown = true;
  for (const JsonMember& member : *object.Members()) {
    if (std::find(allowed.begin(), allowed.end(), member.key) != allowed.end()) continue;
    Error(member, subject,
          fmt::format("unknown key '{}'{}", Shown(member.key),
                      isParameter(member.key) ? "; it belongs under \"parameters\""
                                              : SuggestOrList(member.key, allowed)));
    allKnown = false;
  }
  return allKnown;
}

namespace {
std::string Unexpected(const std::string& what, std::string_view expected, const JsonValue& value) {
  return fmt::format("{}: expected {}, got {}", what, expected, KindOf(value));
}
}  // namespace

std::optional<double> SceneContext::ReadNumber(const JsonValue& value, const Subject& subject,
                                               const std::string& what) {
  if (const double* number = value.Number()) return *number;
  Error(value, subject, Unexpected(what, "a number", value));
  return {};
}

std::optional<i32> SceneContext::ReadWhole(const JsonValue& value, const Subject& subject,
                                           const std::string& what) {
  const double* number = value.Number();
  if (!number) {
    Error(value, subject, Unexpected(what, "a whole number", value));
  } else if (*number != std::floor(*number)) {
    Error(value, subject, fmt::format("{}: expected a whole number, got {}", what, *number));
  } else if (*number < std::numeric_limits<i32>::min() ||
             *number > std::numeric_limits<i32>::max()) {
    Error(value, subject,
          fmt::format("{}: {} is out of range; expected {} to {}", what, *number,
                      std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
  } else {
    return static_cast<i32>(*number);
  }
  return {};
}

std::optional<bool> SceneContext::ReadBool(const JsonValue& value, const Subject& subject,
                                           const std::string& what) {
  if (const bool* b = value.Bool()) return *b;
  if (const double* number = value.Number(); number && (*number == 0 || *number == 1))
    return *number == 1;
  Error(value, subject,
        value.Number() ? fmt::format("{}: expected true or false, got {}", what, *value.Number())
                       : Unexpected(what, "true or false", value));
  return {};
}

std::optional<std::string> SceneContext::ReadText(const JsonValue& value, const Subject& subject,
                                                  const std::string& what) {
  if (const std::string* text = value.Text()) return *text;
  Error(value, subject, Unexpected(what, "text", value));
  return {};
}

std::optional<std::vector<double>> SceneContext::ReadNumbers(const JsonValue& value,
                                                             std::size_t count,
                                                             const Subject& subject,
                                                             const std::string& what) {
  const JsonValue::Array* items = value.Items();
  const std::string expected = fmt::format("a list of {} numbers", count);
  if (!items) {
    Error(value, subject, Unexpected(what, expected, value));
    return {};
  }
  if (items->size() != count) {
    Error(value, subject, fmt::format("{}: expected {}, got {}", what, expected, items->size()));
    return {};
  }
  std::vector<double> numbers;
  for (const JsonValue& item : *items) {
    const auto number = ReadNumber(item, subject, what);
    if (!number) return {};
    numbers.push_back(*number);
  }
  return numbers;
}

std::optional<Vec3d> SceneContext::ReadVector(const JsonValue& value, const Subject& subject,
                                              const std::string& what) {
  const auto n = ReadNumbers(value, 3, subject, what);
  if (!n) return {};
  return Vec3d{(*n)[0], (*n)[1], (*n)[2]};
}

std::optional<std::vector<Vec3d>> SceneContext::ReadPoints(const JsonValue& value,
                                                           std::size_t atLeast,
                                                           const Subject& subject,
                                                           const std::string& what) {
  const JsonValue::Array* items = value.Items();
  if (!items) {
    Error(value, subject, Unexpected(what, "a list of points", value));
    return {};
  }
  if (items->size() < atLeast) {
    Error(value, subject,
          fmt::format("{}: expected at least {} points, got {}", what, atLeast, items->size()));
    return {};
  }
  std::vector<Vec3d> points;
  for (const JsonValue& item : *items) {
    const auto point = ReadVector(item, subject, what);
    if (!point) return {};
    points.push_back(*point);
  }
  return points;
}

// ---- names ------------------------------------------------------------------------------------

namespace {

/// Compares a path backwards, one name at a time: names may hold a slash themselves.
bool PathEndsAt(const BaseNode& node, std::string_view path, bool& isWhole) {
  for (const BaseNode* n = &node; n; n = n->Parent()) {
    const std::string_view name = n->Name();
    if (path == name) {
      isWhole = !n->Parent();
      return true;
    }
    if (path.size() <= name.size() || !path.ends_with(name)) return false;
    path.remove_suffix(name.size());
    if (path.back() != '/') return false;
    path.remove_suffix(1);
    if (path.empty()) return isWhole = !n->Parent();
  }
  return false;
}

}  // namespace

std::vector<NameTable::Candidate> NameTable::Find(std::string_view reference) const {
  constexpr std::size_t kLongestReference = 4096;
  std::vector<Candidate> ends;
  if (reference.size() > kLongestReference) return ends;
  for (std::size_t start = 0; start != std::string_view::npos;) {
    const auto found = mByName.find(std::string(reference.substr(start)));
    if (found != mByName.end()) {
      for (BaseNode* node : found->second) {
        bool isWhole = false;
        if (PathEndsAt(*node, reference, isWhole)) ends.push_back({node, isWhole});
      }
    }
    const auto slash = reference.find('/', start);
    start = slash == std::string_view::npos ? slash : slash + 1;
  }
  return ends;
}

std::vector<std::string_view> NameTable::Names(
    const std::function<bool(const BaseNode&)>& fits) const {
  std::vector<std::string_view> names;
  for (const auto& [name, nodes] : mByName)
    if (!fits || std::any_of(nodes.begin(), nodes.end(), [&](auto* node) { return fits(*node); }))
      names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::string SiblingNames::MakeUnique(const std::string& base) {
  if (Reserve(base)) return base;
  int& next = mNext.try_emplace(base, 2).first->second;
  for (;;) {
    std::string name = fmt::format("{} {}", base, next++);
    if (Reserve(name)) return name;
  }
}

}  // namespace MELDO_GLOBAL::app
