#pragma once

#include <string>
#include <vector>

#include "host/extprop/trees/device_tree.h"
#include "host/sandbox/private_root.h"

namespace extprop {

// A tree's paths, by the layers that show it; the first is its directory.
class DevicePaths {
 public:
  explicit DevicePaths(const std::vector<sandbox::Layer>& layers) : tree_{layers[0].source} {
    for (size_t i = layers.size() - 1; i > 0; --i) {
      tree_.partitions.push_back({layers[i].place, layers[i].source, layers[i].source});
    }
  }
  std::string WithoutLinks(const std::string& path) const {
    return extprop::WithoutLinks(tree_, path);
  }
  std::string OnWorkstation(const std::string& path) const {
    return extprop::OnWorkstation(tree_, path);
  }

 private:
  DeviceTree tree_;
};

}  // namespace extprop
