#pragma once

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

// A directory for one test, removed with the object. Its name holds the characters that mount
// options are separated by.
class TempTree {
 public:
  TempTree() {
    char name[] = "/tmp/tree,a:b-XXXXXX";
    if (mkdtemp(name) != nullptr) path_ = name;
  }
  ~TempTree() { std::filesystem::remove_all(path_); }
  TempTree& operator=(TempTree&&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file and makes the directories it is in.
  void Write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = *this / name;
    std::filesystem::create_directories(file.parent_path());
    android::base::WriteStringToFile(content, file);
  }

 private:
  std::string path_;
};

// Tells every entry below `root` by mode, owner, modification time (in ns) and content.
inline std::map<std::string, std::string> Describe(const std::string& root) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> entries;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    struct stat about = {};
    lstat(entry.path().c_str(), &about);
    std::string content;
    if (entry.is_symlink()) content = fs::read_symlink(entry.path());
    if (S_ISREG(about.st_mode)) android::base::ReadFileToString(entry.path(), &content);
    entries[entry.path().lexically_relative(root)] =
        android::base::StringPrintf("%o %u:%u %lu %ld.%09ld ", about.st_mode, about.st_uid,
                                    about.st_gid, about.st_rdev, about.st_mtim.tv_sec,
                                    about.st_mtim.tv_nsec) +
        content;
  }
  return entries;
}
