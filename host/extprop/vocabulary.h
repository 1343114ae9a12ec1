#pragma once

#include <algorithm>
#include <iterator>
#include <string>

#include <android-base/result.h>
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

// What all rooms of the tool speak in.
namespace extprop {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using nlohmann::json;

// Returns what a map has under the key, something empty where it has nothing. Good as long as the
// map.
template <typename Map>
const typename Map::mapped_type& ValueIn(const Map& map, const typename Map::key_type& key) {
  static const typename Map::mapped_type empty = {};
  const auto found = map.find(key);
  return found == map.end() ? empty : found->second;
}

// Returns whether the list has the text.
template <typename List>
bool Has(const List& list, const std::string& text) {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

// Returns `word` as a shell takes it, quoted where it has to be.
inline std::string ShellWord(const std::string& word) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,+@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  return "'" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
}

// Returns `value` as text, on one line where `indent` is -1; bytes that are not UTF-8 become
// U+FFFD.
inline std::string JsonText(const json& value, int indent = 2) {
  return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace extprop
