#pragma once

#include <array>
#include <optional>
#include <string>

namespace extprop {

// A place of the device that an image of its own is made for.
struct PartitionRoot {
  const char* name;   // of the partition and, with ".img", of its image
  const char* place;  // where init has mounted it when it loads the properties
};

// The partitions whose properties are loaded.
constexpr std::array<PartitionRoot, 11> kPartitionRoots = {{
    {"odm", "/odm"},
    {"my_preload", "/mnt/vendor/my_preload"},
    {"my_tavlen", "/mnt/vendor/my_tavlen"},
    {"my_stock", "/mnt/vendor/my_stock"},
    {"my_product", "/mnt/vendor/my_product"},
    {"my_region", "/mnt/vendor/my_region"},
    {"my_carrier", "/mnt/vendor/my_carrier"},
    {"my_bigball", "/mnt/vendor/my_bigball"},
    {"my_company", "/mnt/vendor/my_company"},
    {"my_engineering", "/mnt/vendor/my_engineering"},
    {"my_manifest", "/mnt/vendor/my_manifest"},
}};

// Returns the one of that name, or null.
const PartitionRoot* FindPartitionRoot(const std::string& name);

// Returns whether `directory`, taken as the device's "/", has a directory where properties are
// loaded from. Links are followed as on the device. /my_company and /my_carrier, which some loaders
// read, count too unless the directory is but a part of another tree, as mnt/vendor is.
bool HoldsDevice(const std::string& directory);

// Tells what is probably meant by a directory that does not hold a device: one that it lies in, or
// one in it, or --partition. Empty if nothing is known.
std::string WhatWasProbablyMeant(const std::string& directory);

}  // namespace extprop
