#pragma once

#include <string>

namespace android {
namespace init {

// Creates the directory `path` and its missing ancestors, each with mode 0755, owner and group
// root, relabelled recursively. Returns 0 on success, also where changing the owner or the label
// failed (logged); non-zero where a directory could not be made. A top-level directory that is
// missing cannot be made: its parent is the empty string, which no file system knows. Of a path of
// PATH_MAX bytes or more nothing is made.
int createCotaDirectory(std::string path);

}  // namespace init
}  // namespace android
