#pragma once

#include <string>
#include <vector>

#include "host/sandbox/private_root.h"

namespace extprop {

// The partitions whose properties are loaded. NAME.img is a partition's image.
inline const std::vector<std::string> kPartitions = {
    "odm",        "my_preload", "my_tavlen",  "my_stock",       "my_product", "my_region",
    "my_carrier", "my_bigball", "my_company", "my_engineering", "my_manifest"};

// What the library writes to or deletes from.
constexpr const char* kWritable[] = {"/data/cota", "/data/system/customize", "/mnt/cota",
                                     "/mnt/vendor/vemrareserve"};

// Where two of the partitions are looked for as well, most often by a link.
constexpr const char* kTopPlaces[] = {"/my_company", "/my_carrier"};

// Returns where on the device init has mounted a partition when it loads the properties, or "" if
// there is none of that name.
std::string PlaceOf(const std::string& partition);

// What an image that is no super image holds has this name where it is unpacked.
constexpr const char* kWholeImage = "image";

// A partition that stands in the tree as its image or lies elsewhere.
struct Partition {
  std::string place;   // on the device, without links
  std::string origin;  // the directory or image, as the user knows it
  std::string source;  // the directory that has its files: the origin, or the unpacked image
};

// A device's files as people have them: a directory, what is mounted in it, and partitions that are
// images or lie elsewhere.
struct DeviceTree {
  std::string directory;  // as the user gave it
  std::vector<Partition> partitions = {};
  // How a private root shows it.
  sandbox::PrivateRootOptions root = {};
};

// A link whose target is not where it says.
struct OutgoingLink {
  std::string path;    // on the device
  std::string target;  // as it stands in the link
};

// Returns the one of `tree.partitions` that has a path of the device, which has no links, or null
// where it is the directory that has it.
const Partition* PartitionWith(const DeviceTree& tree, const std::string& path);

// Returns the path on the device that `path` leads to, whether or not something is there. Links
// are followed as on the device, where "/" is the tree.
std::string WithoutLinks(const DeviceTree& tree, const std::string& path);

// Returns where that lies on the workstation, or "" where nothing is there or a directory cannot be
// read.
std::string OnWorkstation(const DeviceTree& tree, const std::string& path);

// Returns the links on the way to the partitions, /my_company, /my_carrier and what the library
// writes to (kWritable), and in them, that lead out of the tree, so that on the device
// nothing is where they lead, or something else: absolute ones whose target the workstation has and
// the tree has not, and relative ones that climb above the tree. In the order of their paths, which
// have no links on the way. Reads all directories of these places.
std::vector<OutgoingLink> LinksOut(const DeviceTree& tree);

// Returns a path on the device as the user knows it: the file in the directory that was given, or
// "IMAGE:/PATH" where it is in an image.
std::string AsGiven(const DeviceTree& tree, const std::string& path);

}  // namespace extprop
