#include "host/extprop/trees/open_tree.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/extprop/trees/images.h"
#include "host/extprop/trees/mounts_below.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::StringPrintf;

bool IsDirectory(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool HasContent(const std::string& path) {
  std::error_code ignored;
  return IsDirectory(path) && !fs::is_empty(path, ignored);
}

Result<void> AddPartition(const std::string& name, const std::string& origin,
                          const std::string& source, DeviceTree* tree) {
  // The tree may have a link there, to where the partition is mounted then.
  const std::string place = WithoutLinks(*tree, PlaceOf(name));
  tree->partitions.push_back({place, origin, source});
  return ShowWithMounts(place, source, &tree->root);
}

// Adds what one --partition names.
Result<void> AddNamed(const std::string& argument, DeviceTree* tree) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) return Error() << "NAME=DIR or NAME=IMAGE is needed";
  const std::string name = argument.substr(0, equals);
  if (PlaceOf(name).empty()) {
    return Error() << "no such partition; there are " << android::base::Join(kPartitions, ' ');
  }
  if (PartitionWith(*tree, WithoutLinks(*tree, PlaceOf(name))) != nullptr) {
    return Error() << name << " is given twice";
  }
  const std::string origin = argument.substr(equals + 1);
  if (IsDirectory(origin)) return AddPartition(name, origin, origin, tree);
  Result<std::string> unpacked = UnpackImage(origin);
  if (!unpacked.ok()) return unpacked.error();
  for (const std::string& held : {std::string(kWholeImage), name}) {
    const std::string source = *unpacked + "/" + held;
    if (IsDirectory(source)) return AddPartition(name, origin, source, tree);
  }
  return Error() << origin << " holds no partition " << name;
}

// Adds a partition that stands in the directory as its image, if it does. A directory with content
// comes first: who has unpacked an image may have changed something in it.
Result<void> AddFromImage(const std::string& name, DeviceTree* tree) {
  const std::string place = PlaceOf(name);
  if (PartitionWith(*tree, WithoutLinks(*tree, place)) != nullptr) return {};
  if (HasContent(OnWorkstation(*tree, place))) return {};
  std::error_code ignored;
  std::string image = tree->directory + "/" + name + ".img";
  const bool own = fs::exists(image, ignored);
  if (!own) image = tree->directory + "/super.img";
  if (!fs::exists(image, ignored)) return {};
  Result<std::string> unpacked = UnpackImage(image);
  if (!unpacked.ok()) return unpacked.error();
  const std::string source = *unpacked + "/" + (own ? kWholeImage : name);
  if (IsDirectory(source)) return AddPartition(name, image, source, tree);
  // A super image need not hold each of them.
  return own ? Error() << image << " holds no directory" : Result<void>();
}

// Returns whether `directory`, taken as the device's "/", has anything where properties are loaded
// from. Links are followed as on the device.
bool HoldsDevice(const std::string& directory) {
  const DeviceTree tree = {directory};
  return std::any_of(kPartitions.begin(), kPartitions.end(), [&](const std::string& partition) {
    return HasContent(OnWorkstation(tree, PlaceOf(partition)));
  });
}

// Returns the nearest directory above `directory` that holds a device, or "".
std::string TreeAbove(const std::string& directory) {
  std::error_code ignored;
  fs::path above = fs::canonical(directory, ignored).parent_path();
  // At most from DIR/mnt/vendor/my_product/etc up to DIR.
  for (int level = 0; level < 4; ++level) {
    if (HoldsDevice(above)) return above;
    above = above.parent_path();
  }
  return "";
}

// Tells what is probably meant by a directory that does not hold a device: one that it lies in, or
// one in it, or --partition. Empty if nothing is known.
std::string WhatWasProbablyMeant(const std::string& directory) {
  if (std::string above = TreeAbove(directory); !above.empty()) return above;
  std::error_code ignored;
  // Sorted, so that the same tree always gets the same advice.
  const std::set<fs::path> below(fs::directory_iterator(directory, ignored), {});
  const auto device = std::find_if(below.begin(), below.end(), HoldsDevice);
  if (device != below.end()) return *device;
  for (const std::string& partition : kPartitions) {
    // A link at the place itself is what people make to show a partition that lies elsewhere.
    for (const std::string& place : {PlaceOf(partition), "/" + partition}) {
      const std::string path = directory + place;
      if (HasContent(path)) {
        return StringPrintf("--partition %s=%s", partition.c_str(), path.c_str());
      }
    }
  }
  return "";
}

// Warns of partitions that lie beside each other, as a dump leaves them, and not where the device
// has them. Two have such a place of their own.
void WarnOfFlatPartitions(const DeviceTree& tree) {
  for (const std::string& name : kPartitions) {
    const std::string flat = tree.directory + "/" + name;
    const bool has_place = PlaceOf(name) == "/" + name || Has(kTopPlaces, "/" + name);
    if (has_place || !HasContent(flat) || fs::is_symlink(flat)) continue;
    if (HasContent(OnWorkstation(tree, PlaceOf(name)))) continue;
    if (PartitionWith(tree, WithoutLinks(tree, PlaceOf(name))) != nullptr) continue;
    fprintf(stderr, "extprop: warning: %s is not where the device has it; --partition %s=%s\n",
            flat.c_str(), name.c_str(), flat.c_str());
  }
}

}  // namespace

Result<DeviceTree> OpenTree(const std::string& directory,
                            const std::vector<std::string>& partitions) {
  std::error_code error;
  if (!fs::is_directory(directory, error)) {
    if (error == std::errc::permission_denied)
      return Error() << directory << ": " << error.message();
    return Error() << directory << ": not a directory; images are given by --partition NAME=IMAGE";
  }
  DeviceTree tree = {directory};
  Result<void> added = ShowWithMounts("/", directory, &tree.root);
  if (!added.ok()) return added.error();
  for (const std::string& argument : partitions) {
    added = AddNamed(argument, &tree);
    if (!added.ok()) return Error() << "--partition " << argument << ": " << added.error();
  }
  for (const std::string& name : kPartitions) {
    added = AddFromImage(name, &tree);
    if (!added.ok()) return added.error();
  }
  for (const char* place : kWritable) tree.root.writable.push_back(WithoutLinks(tree, place));
  if (!tree.partitions.empty() || HoldsDevice(directory)) {
    WarnOfFlatPartitions(tree);
    return tree;
  }
  if (euidaccess(directory.c_str(), R_OK | X_OK) != 0) return ErrnoError() << directory;
  std::string meant = WhatWasProbablyMeant(directory);
  if (!meant.empty()) meant = "; probably meant: " + meant;
  return Error() << directory << ": no device's files: nothing is in odm or mnt/vendor/my_*"
                 << meant;
}

}  // namespace extprop
