#pragma once

#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

// Finds the properties that several files of one carrier directory set to different values: which
// of them is read last is up to the directory. Returns, for each, the last line of each file, in
// the order in which this boot read them.
std::vector<std::vector<ReadLine>> FindOrderDependent(const BootRecord& record, const ReadMap& map);

}  // namespace extprop
