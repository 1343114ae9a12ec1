#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/sandbox/private_root.h"

namespace extprop {

// A link whose target is not where it says.
struct OutgoingLink {
  std::string path;    // on the device
  std::string target;  // as it stands in the link
};

// Tells where on the workstation lies what the device has at a path. A later layer hides what the
// earlier ones have at its place.
class DevicePaths {
 public:
  explicit DevicePaths(std::vector<sandbox::Layer> layers) : layers_(std::move(layers)) {}

  // Returns the path on the device that `path` leads to, whether or not something is there. Links
  // are followed as on the device, where "/" is the tree.
  std::string WithoutLinks(const std::string& path) const;

  // Returns where that lies, or "" where nothing is there or a directory cannot be read.
  std::string OnWorkstation(const std::string& path) const;

  // Returns the links among `places`, on the way to them and below them that lead out of the tree:
  // absolute ones whose target the workstation has and the tree has not, and relative ones that
  // climb above the tree. In the order of their paths, which have no links on the way.
  std::vector<OutgoingLink> LinksOut(const std::vector<std::string>& places) const;

 private:
  // Where a path without links lies.
  std::string Source(const std::string& path) const;
  bool LeadsOut(const std::string& path, const std::string& target) const;

  std::vector<sandbox::Layer> layers_;
};

}  // namespace extprop
