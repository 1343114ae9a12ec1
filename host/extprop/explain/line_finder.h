#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "extproperty/init_extension_property.h"
#include "host/extprop/boot/boot_record.h"

namespace extprop {

// A file that the library opened for reading, with what it read of it.
struct FileRead {
  std::string path;
  int fd = -1;  // what it was open as; may be in use again
  std::string content;
};

// Finds the lines of files that set properties by giving them to the library one at a time: what a
// line means and where an import leads is the library's own answer. Writes nothing into the tree.
class LineFinder {
 public:
  // Throws std::system_error where the kernel has no room for the file that shows a line.
  explicit LineFinder(android::init::IInitExtensionProperty* service);

  // Returns the lines of `reads`, the files in the order in which they were opened, in the order in
  // which they took effect: an import's lines stand for its own line. To be called while the system
  // properties are still those that the library saw.
  std::vector<PropertyLine> Find(std::vector<FileRead> reads);

  // Whether this thread is giving a line to the library just now: what it does is no event then.
  static bool IsTrying();
  // To be told of every file that is opened meanwhile.
  static void OnOpen(const std::string& path);

 private:
  // What came of one line.
  struct Trial {
    android::init::PropertyMap properties;
    std::vector<std::string> opened;
  };

  Trial Try(const std::string& line);
  void FindInNextFile(const Trial* import, std::vector<PropertyLine>* lines);
  bool Followed(const Trial& trial, const Trial* import) const;

  android::init::IInitExtensionProperty* const service_;
  std::mutex lock_;  // held by one Find at a time
  std::string directory_;
  android::base::unique_fd directory_fd_;
  android::base::unique_fd file_;
  std::vector<FileRead> reads_;
  size_t next_ = 0;
  std::vector<std::string> inside_;  // the files whose lines are being tried, the outermost first
};

}  // namespace extprop
