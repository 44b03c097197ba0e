// Whether the help of a parameter says something that its name doesn't.
#pragma once
#include <cctype>
#include <set>
#include <string>
#include <string_view>

#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Words of a text without those that say nothing and without endings.
inline std::set<std::string> ContentWords(std::string_view text) {
  static const std::set<std::string> empty = {"a",  "an", "the", "of", "in",  "on",   "for", "to",
                                              "is", "it", "its", "or", "and", "that", "by",  "at"};
  std::set<std::string> words;
  std::string word;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    const char c = i < text.size() ? static_cast<char>(std::tolower(text[i])) : ' ';
    if (c >= 'a' && c <= 'z') {
      word += c;
      continue;
    }
    if (word.size() > 3 && word.back() == 's') word.pop_back();
    if (!word.empty() && !empty.contains(word)) words.insert(word);
    word.clear();
  }
  return words;
}

/// Help must say something that the parameter's name doesn't.
inline bool SaysMoreThanItsName(const host::ParameterRow& row) {
  const std::set<std::string> name = ContentWords(row.name);
  std::set<std::string> help = ContentWords(row.help);
  std::erase_if(help, [&](const std::string& word) { return name.contains(word); });
  return help.size() >= 3;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
