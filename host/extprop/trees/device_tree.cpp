#include "host/extprop/trees/device_tree.h"

#include <android-base/file.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include "host/extprop/trees/images.h"
#include "host/extprop/trees/mounts_below.h"
#include "host/extprop/trees/partition_roots.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::Error;
using android::base::Result;

// What the library writes to or deletes from.
const std::vector<std::string> kWritable = {"/data/cota", "/data/system/customize", "/mnt/cota",
                                            "/mnt/vendor/vemrareserve"};

bool IsDirectory(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool HasContent(const std::string& path) {
  std::error_code ignored;
  return IsDirectory(path) && !fs::is_empty(path, ignored);
}

DevicePaths PathsOf(const DeviceTree& tree) {
  std::vector<sandbox::Layer> layers = {{"/", tree.directory}};
  for (const Partition& partition : tree.partitions) {
    layers.push_back({partition.place, partition.source});
  }
  return DevicePaths(layers);
}

class Opening {
 public:
  explicit Opening(const std::string& directory) { tree_.directory = directory; }

  Result<DeviceTree> Open(const std::vector<std::string>& partitions) {
    if (!IsDirectory(tree_.directory)) {
      return Error() << tree_.directory
                     << ": not a directory; images are given by --partition NAME=IMAGE";
    }
    Result<void> shown = ShowWithMounts("/", tree_.directory, &tree_.root);
    if (!shown.ok()) return shown.error();
    for (const std::string& argument : partitions) {
      if (Result<void> added = AddNamed(argument); !added.ok()) {
        return Error() << "--partition " << argument << ": " << added.error();
      }
    }
    if (Result<void> added = AddImages(); !added.ok()) return added.error();
    if (tree_.partitions.empty() && !HoldsDevice(tree_.directory)) return NoRoots();
    tree_.root.writable = kWritable;
    return std::move(tree_);
  }

 private:
  Result<void> Add(const PartitionRoot& root, const std::string& origin,
                   const std::string& source) {
    tree_.partitions.push_back({root.place, origin, source});
    // The tree may have a link there, to where the partition is mounted then.
    return ShowWithMounts(DevicePaths({{"/", tree_.directory}}).WithoutLinks(root.place), source,
                          &tree_.root);
  }

  bool IsAdded(const PartitionRoot& root) const {
    return std::any_of(tree_.partitions.begin(), tree_.partitions.end(),
                       [&](const Partition& partition) { return partition.place == root.place; });
  }

  // One --partition.
  Result<void> AddNamed(const std::string& argument) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos) return Error() << "NAME=DIR or NAME=IMAGE is needed";
    const PartitionRoot* root = FindPartitionRoot(argument.substr(0, equals));
    if (root == nullptr) {
      std::string names;
      for (const PartitionRoot& known : kPartitionRoots) names += std::string(" ") + known.name;
      return Error() << "no such partition; there are" << names;
    }
    if (IsAdded(*root)) return Error() << root->name << " is given twice";
    const std::string origin = argument.substr(equals + 1);
    if (IsDirectory(origin)) return Add(*root, origin, origin);
    auto unpacked = UnpackImage(origin);
    if (!unpacked.ok()) return unpacked.error();
    for (const std::string& name : {std::string(kWholeImage), std::string(root->name)}) {
      const std::string source = *unpacked + "/" + name;
      if (IsDirectory(source)) return Add(*root, origin, source);
    }
    return Error() << origin << " holds no partition " << root->name;
  }

  // What stands in the directory as an image. A directory with content comes first: who has
  // unpacked an image may have changed something in it.
  Result<void> AddImages() {
    const DevicePaths paths = PathsOf(tree_);
    const std::string super = tree_.directory + "/super.img";
    std::error_code ignored;
    for (const PartitionRoot& root : kPartitionRoots) {
      if (IsAdded(root) || HasContent(paths.OnWorkstation(root.place))) continue;
      std::string image = tree_.directory + "/" + root.name + ".img";
      std::string name = kWholeImage;
      if (!fs::exists(image, ignored)) {
        image = super;
        name = root.name;
      }
      if (!fs::exists(image, ignored)) continue;
      auto unpacked = UnpackImage(image);
      if (!unpacked.ok()) return unpacked.error();
      const std::string source = *unpacked + "/" + name;
      if (!IsDirectory(source)) continue;
      if (Result<void> added = Add(root, image, source); !added.ok()) return added;
    }
    return {};
  }

  Result<DeviceTree> NoRoots() const {
    std::string meant = WhatWasProbablyMeant(tree_.directory);
    if (!meant.empty()) meant = "; probably meant: " + meant;
    return Error() << tree_.directory
                   << ": no device's files: neither odm nor mnt/vendor/my_* is in it" << meant;
  }

  DeviceTree tree_;
};

}  // namespace

Result<DeviceTree> OpenTree(const std::string& directory,
                            const std::vector<std::string>& partitions) {
  return Opening(directory).Open(partitions);
}

std::vector<OutgoingLink> LinksOut(const DeviceTree& tree) {
  std::vector<std::string> places;
  places.reserve(kPartitionRoots.size());
  for (const PartitionRoot& root : kPartitionRoots) places.emplace_back(root.place);
  return PathsOf(tree).LinksOut(places);
}

std::string AsGiven(const DeviceTree& tree, const std::string& path) {
  for (const Partition& partition : tree.partitions) {
    if ((path + "/").rfind(partition.place + "/", 0) != 0) continue;
    const char* colon = partition.source == partition.origin ? "" : ":";
    return partition.origin + colon + path.substr(partition.place.size());
  }
  const bool slash = !tree.directory.empty() && tree.directory.back() == '/';
  return tree.directory.substr(0, tree.directory.size() - (slash ? 1 : 0)) + path;
}

}  // namespace extprop
