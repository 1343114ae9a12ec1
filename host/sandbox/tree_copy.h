#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace sandbox {

// Copies what the directory `from` holds into the empty directory `to`, leaving out the names in
// `excluded` at the top level. Both are only used through their descriptors, so that each may be on
// its own side of a change of the root; `from` may be opened with O_PATH.
//
// Contents, symbolic links, modes and modification times are kept; owners too and special files are
// made, both as far as the caller is allowed to. Hard links become separate files. Unless
// `with_mounted`, what is mounted below `from` is not entered: a mount point is an empty directory
// in the copy, and a file that something is mounted on is left out. `to` itself keeps its mode and
// owner.
//
// Nothing that exists is ever written over. The error names the path, relative to `from`, and
// leaves the copy as it is by then. What the caller may not read is such an error only if
// `unreadable` is null; else its path is added to it, a file is left out and a directory is empty.
android::base::Result<void> CopyTree(android::base::borrowed_fd from, android::base::borrowed_fd to,
                                     const std::vector<std::string>& excluded = {},
                                     std::vector<std::string>* unreadable = nullptr,
                                     bool with_mounted = false);

// Copies, of what `from` holds, only the directories that lead to `place`, a path relative to it,
// and whatever is below `place`. As far as they do not exist, or are mount points or links, there
// is nothing to copy; nor is there where the caller may not read. Directories on the way may be in
// `to` already.
android::base::Result<void> CopyPlace(android::base::borrowed_fd from,
                                      android::base::borrowed_fd to, const std::string& place);

// Copies the file, link or special file `name` from one directory to the other, a mount point too.
// What the caller may not read is left out.
android::base::Result<void> CopyFile(android::base::borrowed_fd from, android::base::borrowed_fd to,
                                     const std::string& name);

}  // namespace sandbox
