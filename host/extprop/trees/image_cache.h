#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

#include <android-base/result.h>

namespace extprop {

// Fills the empty directory `result`; what is put into `scratch` is dropped.
using Unpack = std::function<android::base::Result<void>(const std::string& result,
                                                         const std::string& scratch)>;

// Returns the directory in the user's cache ($XDG_CACHE_HOME or ~/.cache) that `unpack` has filled
// from the image with these attributes, by a call of it if there was none. Only a directory that
// was filled to the end gets there; the image's earlier contents are removed. Processes that want
// the same wait for each other.
//
// The key has the inode's time of change: unlike the time of modification, nobody can set it back.
android::base::Result<std::string> FromCache(const struct stat& image, const Unpack& unpack);

}  // namespace extprop
