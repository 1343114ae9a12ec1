#include "host/extprop/trees/partition_roots.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <vector>

#include "host/extprop/trees/device_paths.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

// Further places that some loaders read.
constexpr const char* kFurtherPlaces[] = {"/my_company", "/my_carrier"};

bool IsDirectory(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool IsWithin(const std::string& path, const std::string& directory) {
  return (path + "/").rfind(directory + "/", 0) == 0;
}

bool HoldsRoot(const std::string& directory) {
  const DevicePaths paths({{"/", directory}});
  return std::any_of(
      kPartitionRoots.begin(), kPartitionRoots.end(),
      [&](const PartitionRoot& root) { return IsDirectory(paths.OnWorkstation(root.place)); });
}

// Returns the directory with a partition that `directory` is a part of, or is on the way to.
std::string TreeAbove(const std::string& directory) {
  std::error_code ignored;
  const fs::path whole = fs::canonical(directory, ignored);
  // At most from DIR/mnt/vendor/my_product/etc up to DIR.
  fs::path above = whole;
  for (int level = 0; level < 4; ++level) {
    above = above.parent_path();
    if (above == above.root_path()) break;
    for (const PartitionRoot& root : kPartitionRoots) {
      const std::string place = above.string() + root.place;
      if ((IsWithin(place, whole) || IsWithin(whole, place)) && IsDirectory(place)) return above;
    }
  }
  return "";
}

// Sorted, so that the same tree always gets the same advice.
std::vector<std::string> DirectoriesIn(const std::string& directory) {
  std::vector<std::string> found;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; entry != end; entry.increment(error)) {
    if (IsDirectory(entry->path())) found.push_back(entry->path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

// The links at the places themselves are what people make to show a partition that lies elsewhere.
std::string PartitionElsewhere(const std::string& directory) {
  for (const PartitionRoot& root : kPartitionRoots) {
    for (const std::string& path :
         {directory + root.place, directory + "/" + std::string(root.name)}) {
      if (IsDirectory(path)) return std::string("--partition ") + root.name + "=" + path;
    }
  }
  return "";
}

}  // namespace

const PartitionRoot* FindPartitionRoot(const std::string& name) {
  const auto* found = std::find_if(kPartitionRoots.begin(), kPartitionRoots.end(),
                                   [&](const PartitionRoot& root) { return name == root.name; });
  return found == kPartitionRoots.end() ? nullptr : found;
}

bool HoldsDevice(const std::string& directory) {
  if (HoldsRoot(directory)) return true;
  const DevicePaths paths({{"/", directory}});
  const bool further =
      std::any_of(std::begin(kFurtherPlaces), std::end(kFurtherPlaces),
                  [&](const char* place) { return IsDirectory(paths.OnWorkstation(place)); });
  return further && TreeAbove(directory).empty();
}

std::string WhatWasProbablyMeant(const std::string& directory) {
  if (std::string above = TreeAbove(directory); !above.empty()) return above;
  for (const std::string& below : DirectoriesIn(directory)) {
    if (HoldsDevice(below)) return below;
  }
  return PartitionElsewhere(directory);
}

}  // namespace extprop
