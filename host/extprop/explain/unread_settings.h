#pragma once

#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/explain/history.h"

namespace extprop {

// What sets a property on the device, but was not read by a boot.
struct UnreadSettings {
  std::vector<Setting> settings;  // by file; `why` tells why it was not read
  std::set<std::string> names;    // of all properties in those files, where nothing matched
  bool whole = true;              // false where there were too many files to look into all
};

// Looks into the property files of `plan`'s device that are not in `record`: those below the
// partitions, below the COTA images and modules that the info files name, and, for a name that is
// no glob, the info and state files. The library parses them, each by itself. `name` is a
// property's name or a glob. Fails where the private root is refused or the library has no parser.
android::base::Result<UnreadSettings> FindUnreadSettings(const BootPlan& plan,
                                                         const BootRecord& record,
                                                         const std::string& name);

}  // namespace extprop
