#include "scene/diagnostics.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

#include "host/console.h"

namespace MELDO_GLOBAL::app {

void Diagnostics::Error(SourceLocation where, std::string text) {
  mMessages.push_back({Message::Severity::Error, std::move(where), std::move(text)});
  ++mErrors;
}

void Diagnostics::Warning(SourceLocation where, std::string text) {
  mMessages.push_back({Message::Severity::Warning, std::move(where), std::move(text)});
}

void Diagnostics::Note(SourceLocation where, std::string text) {
  mMessages.push_back({Message::Severity::Note, std::move(where), std::move(text)});
}

bool Diagnostics::HasWarnings() const {
  return std::any_of(mMessages.begin(), mMessages.end(), [](const Message& message) {
    return message.severity == Message::Severity::Warning;
  });
}

namespace {
std::string_view WordOf(Message::Severity severity) {
  switch (severity) {
    case Message::Severity::Error: return "error";
    case Message::Severity::Warning: return "warning";
    case Message::Severity::Note: break;
  }
  return "note";
}

std::string LineOf(const Message& m) {
  const std::string_view word = WordOf(m.severity);
  return m.where.line == 0 ? fmt::format("{}: {}: {}", m.where.file, word, m.text)
                           : fmt::format("{}:{}:{}: {}: {}", m.where.file, m.where.line,
                                         m.where.column, word, m.text);
}
}  // namespace

std::vector<const Message*> Diagnostics::Ordered() const {
  std::vector<const Message*> ordered;
  for (const Message& message : mMessages) ordered.push_back(&message);
  const auto place = [](const Message* m) {
    return std::tuple(m->where.line == 0, m->where.line, m->where.column);
  };
  std::stable_sort(ordered.begin(), ordered.end(),
                   [&](const Message* a, const Message* b) { return place(a) < place(b); });
  return ordered;
}

std::vector<std::string> Diagnostics::Lines() const {
  std::vector<std::string> lines;
  for (const Message* message : Ordered()) lines.push_back(LineOf(*message));
  return lines;
}

void Diagnostics::Print(std::FILE* out) const {
  constexpr std::size_t kMostErrors = 50;
  std::size_t errors = 0;
  const auto print = [&](const std::string& line) {
    const std::string shown = host::Escaped(line);
    std::fwrite(shown.data(), 1, shown.size(), out);
    std::fputc('\n', out);
  };
  for (const Message* message : Ordered())
    if (message->severity != Message::Severity::Error || errors++ < kMostErrors)
      print(LineOf(*message));
  if (errors > kMostErrors)
    print(fmt::format("{}: error: {} more errors aren't shown; mend those above first",
                      mMessages.front().where.file, errors - kMostErrors));
  std::fflush(out);
}

std::string Shown(std::string_view text, std::size_t longest) {
  std::string shown(text.substr(0, longest));
  // A cut must not leave half a character of several bytes.
  if (text.size() > longest) {
    std::size_t end = longest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    shown.resize(end);
    shown += "...";
  }
  for (char& c : shown)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  return shown;
}

std::string AnyOf(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
    text += words[i];
  }
  return text;
}

namespace {

constexpr std::size_t kLongestWord = 64;

std::string Normalised(std::string_view word) {
  std::string out(word);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c == '-' || c == ' ') c = '_';
  }
  return out;
}

/// Letters inserted, left out, changed or swapped with their neighbour on the way from a to b.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> twoAgo, last(b.size() + 1), now(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        now[j] = std::min(now[j], twoAgo[j - 2] + 1);
    }
    twoAgo = last;
    last = now;
  }
  return last[b.size()];
}

/// True if `part` is one or several whole words of `name`, words being joined by _.
bool HasWords(const std::string& name, const std::string& part) {
  const std::string framed = "_" + name + "_";
  return framed.find("_" + part + "_") != std::string::npos;
}

}  // namespace

std::string NearestName(std::string_view word, const std::vector<std::string_view>& candidates) {
  if (word.empty() || word.size() > kLongestWord) return {};
  const std::string wanted = Normalised(word);
  std::string_view nearest, longer;
  std::size_t best = std::max<std::size_t>(1, wanted.size() / 3) + 1;
  for (const std::string_view candidate : candidates) {
    if (candidate.size() > kLongestWord) continue;
    const std::string name = Normalised(candidate);
    const std::size_t distance = EditDistance(wanted, name);
    if (distance < best && distance < std::max(wanted.size(), name.size())) {
      best = distance;
      nearest = candidate;
    }
    const bool holds = wanted.size() > 2 && HasWords(name, wanted);
    if (holds && (longer.empty() || candidate.size() < longer.size())) longer = candidate;
  }
  return std::string(nearest.empty() ? longer : nearest);
}

std::string Suggestion(std::string_view word, const std::vector<std::string_view>& candidates) {
  const std::string name = NearestName(word, candidates);
  return name.empty() ? std::string() : fmt::format("; did you mean '{}'?", Shown(name));
}

}  // namespace MELDO_GLOBAL::app
