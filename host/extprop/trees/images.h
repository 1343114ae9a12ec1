#pragma once

#include <string>

#include "host/extprop/vocabulary.h"

namespace extprop {

// Unpacks a partition's image (ext4 or erofs) or a super image, either of them sparse or not, into
// the user's cache ($XDG_CACHE_HOME or ~/.cache). Returns the directory that has a directory for
// each of its partitions, of its name without the slot; of a super image, for those whose
// properties are loaded and that hold something. They are the cache's: only to be read, and good
// until the image is changed and unpacked anew.
//
// An image is the same as long as its place on the disk, size and time of change are (its content
// is not read: it may be of some gigabytes). The inode's time of change, unlike the time of
// modification, nobody can set back. Errors tell what is wrong with the image or which package is
// missing.
Result<std::string> UnpackImage(const std::string& image);

}  // namespace extprop
