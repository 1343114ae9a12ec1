#include "host/extprop/boot/nearest_names.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <map>
#include <utility>

namespace extprop {

namespace {

bool SameLetter(char a, char b) {
  return tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
}

// How many letters have to be put in, left out or exchanged, whatever their case.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i);
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t exchanged = diagonal + (SameLetter(a[i - 1], b[j - 1]) ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, exchanged}));
    }
  }
  return row.back();
}

}  // namespace

std::vector<std::string> NearestNames(const std::string& name, const std::set<std::string>& names) {
  const size_t farthest = std::max<size_t>(1, name.size() / 3);
  std::multimap<size_t, std::string> by_distance;
  for (const std::string& other : names) {
    const size_t longer = std::max(name.size(), other.size());
    if (longer - std::min(name.size(), other.size()) > farthest) continue;
    const size_t distance = Distance(name, other);
    if (distance <= farthest) by_distance.emplace(distance, other);
  }
  std::vector<std::string> nearest;
  for (const auto& [distance, other] : by_distance) {
    if (nearest.size() < 3) nearest.push_back(other);
  }
  return nearest;
}

}  // namespace extprop
