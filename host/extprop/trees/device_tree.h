#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/trees/device_paths.h"
#include "host/sandbox/private_root.h"

namespace extprop {

// A partition that stands in the tree as its image or lies elsewhere.
struct Partition {
  std::string place;   // on the device
  std::string origin;  // the directory or image, as the user knows it
  std::string source;  // the directory that has its files: the origin, or the unpacked image
};

// A device's files as people have them: a directory, what is mounted in it, and partitions that are
// images or lie elsewhere. It is looked at once, for any number of boots.
struct DeviceTree {
  std::string directory;  // as the user gave it
  std::vector<Partition> partitions;
  // How a private root shows it.
  sandbox::PrivateRootOptions root;
};

// Opens a tree; images are unpacked into the user's cache. `partitions` are the values NAME=DIR|IMG
// of --partition. Each of the partitions that has properties and is no directory with content in
// `directory` is taken from NAME.img there, or else from super.img there.
//
// Every error is the user's. It is one if there is none of the partitions, and the error says then
// which directory was probably meant.
android::base::Result<DeviceTree> OpenTree(const std::string& directory,
                                           const std::vector<std::string>& partitions);

// Returns the links on the way to the partitions and in them that lead out of the tree, so that on
// the device nothing is where they lead, or something else. Reads all their directories.
std::vector<OutgoingLink> LinksOut(const DeviceTree& tree);

// Returns a path on the device as the user knows it: the file in the directory that was given, or
// "IMAGE:/PATH" where it is in an image.
std::string AsGiven(const DeviceTree& tree, const std::string& path);

}  // namespace extprop
