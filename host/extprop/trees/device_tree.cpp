#include "host/extprop/trees/device_tree.h"

#include <android-base/strings.h>
#include <limits.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>

#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;  // as the kernel

// Where a path without links lies.
std::string Source(const DeviceTree& tree, const std::string& path) {
  const Partition* partition = PartitionWith(tree, path);
  if (partition == nullptr) return tree.directory + path;
  return partition->source + path.substr(partition->place.size());
}

fs::path FollowLinks(const DeviceTree& tree, const fs::path& path, int* links) {
  fs::path reached = "/";
  for (const fs::path& name : path.relative_path()) {
    if (name == "..") {
      reached = reached.parent_path();
    } else if (!name.empty() && name != ".") {
      reached /= name;
    }
    std::error_code error;
    const fs::path target = fs::read_symlink(Source(tree, reached), error);
    if (error || ++*links > kMostLinks) continue;
    // An absolute target takes the place of the whole path.
    reached = FollowLinks(tree, reached.parent_path() / target, links);
  }
  return reached;
}

bool LeadsOut(const DeviceTree& tree, const fs::path& link, const fs::path& target) {
  std::error_code ignored;
  if (target.is_absolute()) {
    return OnWorkstation(tree, target).empty() && fs::exists(target, ignored);
  }
  const fs::path reached = (link.parent_path().relative_path() / target).lexically_normal();
  return !reached.empty() && *reached.begin() == "..";
}

}  // namespace

std::string PlaceOf(const std::string& partition) {
  if (!Has(kPartitions, partition)) return "";
  return partition == "odm" ? "/odm" : "/mnt/vendor/" + partition;
}

const Partition* PartitionWith(const DeviceTree& tree, const std::string& path) {
  for (const Partition& partition : tree.partitions) {
    if ((path + "/").rfind(partition.place + "/", 0) == 0) return &partition;
  }
  return nullptr;
}

std::string WithoutLinks(const DeviceTree& tree, const std::string& path) {
  int links = 0;
  // Of a path that no kernel takes nothing is there.
  return path.size() >= PATH_MAX ? path : FollowLinks(tree, path, &links).string();
}

std::string OnWorkstation(const DeviceTree& tree, const std::string& path) {
  const std::string source = Source(tree, WithoutLinks(tree, path));
  std::error_code ignored;
  const fs::file_status about = fs::symlink_status(source, ignored);
  return fs::exists(about) && !fs::is_symlink(about) ? source : "";
}

std::vector<OutgoingLink> LinksOut(const DeviceTree& tree) {
  std::map<std::string, std::string> found;
  const auto look = [&](const fs::path& path) {
    std::error_code no_link;
    const fs::path target = fs::read_symlink(Source(tree, path), no_link);
    if (!no_link && LeadsOut(tree, path, target)) found[path] = target;
  };
  std::vector<std::string> places(std::begin(kWritable), std::end(kWritable));
  places.insert(places.end(), std::begin(kTopPlaces), std::end(kTopPlaces));
  for (const std::string& partition : kPartitions) places.push_back(PlaceOf(partition));
  std::set<fs::path> roots;
  for (const std::string& place : places) {
    fs::path way;
    for (const fs::path& name : fs::path(place).relative_path()) {
      way = WithoutLinks(tree, way) / name;
      look(way);
    }
    roots.insert(WithoutLinks(tree, way));
  }
  for (const fs::path& root : roots) {
    const fs::path source = Source(tree, root);
    std::error_code error;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(source, kOptions, error), end;
         !error && entry != end; entry.increment(error)) {
      if (entry->is_symlink(error)) look(root / entry->path().lexically_relative(source));
    }
  }
  std::vector<OutgoingLink> links;
  links.reserve(found.size());
  for (const auto& [path, target] : found) links.push_back({path, target});
  return links;
}

std::string AsGiven(const DeviceTree& tree, const std::string& path) {
  const std::string real = WithoutLinks(tree, path);
  if (const Partition* partition = PartitionWith(tree, real)) {
    const std::string inside = real.substr(partition->place.size());
    if (partition->source == partition->origin) return partition->origin + inside;
    // A super image holds several.
    const std::string name = fs::path(partition->source).filename();
    return partition->origin + ":" + (name == kWholeImage ? "" : name) + inside;
  }
  std::string_view directory = tree.directory;
  android::base::ConsumeSuffix(&directory, "/");
  return std::string(directory) + path;
}

}  // namespace extprop
