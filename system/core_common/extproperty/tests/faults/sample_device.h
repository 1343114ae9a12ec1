#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/device_test.h"

// The device of the fault and the power-cut checks, in a private root.

struct Device : DeviceTest {
  using DeviceTest::MakeDirectories;
  using DeviceTest::ModeAndOwner;
  using DeviceTest::Read;
  using DeviceTest::Write;
};

inline const std::string kReserve = "/mnt/vendor/vemrareserve/system/";
inline const std::string kSsv = kReserve + "ssv/";
inline const std::string kCustomize = "/data/system/customize/";

// Enters a private root and silences the log; ends the program where that is refused.
void EnterTestRoot();

// Writes files. Those that are empty or end in a line feed get a property more, whose value is the
// file's path: it tells in a hand-over that the file was read.
void WriteFiles(const std::map<std::string, std::string>& files);

// Writes the partitions, a COTA image and a COTA module, with files for the keys westtel (first),
// northcell (current), shop (channel), nvtarget (NV) and ab-cd (SSV). What leads to the NV and the
// first key is there twice, so that one copy that cannot be read does not change anything.
void WritePartitions();

// Forgets all properties and sets `properties` and those of the first boot after an emergency
// shutdown and an update of the company partition.
void SetBootProperties(PropertyMap properties);

// Returns "mode owner:group content" of all in the directories that the library writes to, by path.
std::map<std::string, std::string> StateFiles();
