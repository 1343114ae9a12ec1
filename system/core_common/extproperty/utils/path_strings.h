#pragma once

#include <string>

namespace android {
namespace init {

// Returns `path` with a "/" put in front where it has none, and then without its last byte where
// that is a "/" ("a/" gives "/a", "/" and the empty string give the empty string).
std::string trimPath(std::string path);

// Returns the directory part of `path`, which gets a "/" in front where it has none: "/a/b" gives
// "/a", "/a" and "a" give "/". A trailing "/" counts as an empty last component ("/a/b/" gives
// "/a/b").
std::string getPathName(std::string path);

}  // namespace init
}  // namespace android
