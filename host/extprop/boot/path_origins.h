#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace extprop {

// Where the device's files have what a path leads to at the moment: links are followed, and the
// bind mounts made since are undone. Two paths of one file come to the same.
class PathOrigins {
 public:
  // The path itself where it leads nowhere. A link at its very end is not followed, as the library
  // follows none there.
  std::string Find(const std::string& path);

  // To be told of each bind mount that was made.
  void AddMount(const std::string& source, const std::string& target);

 private:
  // Both end with a slash; empty where the directory leads nowhere.
  const std::string& RealDirectory(const std::string& directory);

  std::map<std::string, std::string> directories_;           // found before
  std::vector<std::pair<std::string, std::string>> mounts_;  // target and source, the latest first
};

}  // namespace extprop
