#pragma once

#include <string>
#include <vector>

#include "host/extprop/trees/device_tree.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Opens a tree, for any number of boots; images are unpacked into the user's cache. `partitions`
// are the values NAME=DIR|IMG of --partition. Each of the partitions that has properties and is no
// directory with content in `directory` is taken from NAME.img there, or else from super.img there.
//
// Every error is the user's. It is one if there is none of the partitions, and the error says then
// which directory was probably meant.
Result<DeviceTree> OpenTree(const std::string& directory,
                            const std::vector<std::string>& partitions);

}  // namespace extprop
