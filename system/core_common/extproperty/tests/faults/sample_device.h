#pragma once

#include <map>
#include <string>

#include "tests/device_test.h"

// The device of the fault and the power-cut checks, in a private root.

struct Device : DeviceTest {
  using DeviceTest::Exists, DeviceTest::MakeDirectories, DeviceTest::ModeAndOwner, DeviceTest::Read,
      DeviceTest::Remove, DeviceTest::Set, DeviceTest::Write;
};

// Enters a private root and silences the log; ends the program where that is refused.
void EnterTestRoot();

// Returns the number of entries of a directory.
long Entries(const char* directory);

// Writes files, "PATH,LINE,LINE" each, separated by blanks. A single line without a "=" is a key,
// and stays without its line feed. All other files get a property more, whose value is the file's
// path: it tells in a hand-over that the file was read.
void WriteFiles(const std::string& files);

// Writes the partitions, a COTA image and a COTA module, with files for the keys westtel (first),
// northcell (current), shop (channel), nvtarget (NV) and ab-cd (SSV). What leads to the NV and the
// first key is there twice, so that one copy that cannot be read does not change anything.
void WritePartitions();

// Forgets all properties and sets those of the first boot after an emergency shutdown and an update
// of the company partition, and then `properties`.
void SetBootProperties(const std::string& properties);

// Returns what is in the directories that the library writes to: the content by "PATH", mode and
// owner by "PATH's owner".
std::map<std::string, std::string> StateFiles();
