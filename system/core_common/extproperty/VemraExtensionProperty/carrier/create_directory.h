#pragma once

#include <string>

namespace android {
namespace init {

// Creates, with mode 0771, every missing directory that a prefix of `path` ending in "/" or "\"
// names. A last component without a separator behind it is not created: "/a/b/" makes both, "/a/b"
// only "/a". Returns 0 on success, -1 with errno set where one could not be made; those made before
// it stay.
int createDirectory(std::string path);

}  // namespace init
}  // namespace android
