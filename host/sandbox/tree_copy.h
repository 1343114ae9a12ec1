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
// made, both as far as the caller is allowed to. Hard links become separate files. What is mounted
// below `from` is not entered: a mount point is an empty directory in the copy, and a file that
// something is mounted on is left out. `to` itself keeps its mode and owner.
//
// Nothing that exists is ever written over. The error names the path, relative to `from`, and
// leaves the copy as it is by then.
android::base::Result<void> CopyTree(android::base::borrowed_fd from, android::base::borrowed_fd to,
                                     const std::vector<std::string>& excluded = {});

}  // namespace sandbox
