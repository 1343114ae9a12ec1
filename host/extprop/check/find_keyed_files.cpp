#include <unistd.h>

#include <filesystem>

#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

bool IsPropertyFile(const fs::directory_entry& entry) {
  std::error_code ignored;
  return android::base::EndsWith(entry.path().native(), ".prop") &&
         (entry.is_symlink(ignored) || entry.is_regular_file(ignored));
}

class KeyedFilesFinder {
 public:
  explicit KeyedFilesFinder(CheckContext* context) : context_(*context) {}

  std::map<std::string, FileKind> Find() {
    for (const std::string& root : context_.roots) {
      FindInEtc(root + "/etc");
      for (const fs::directory_entry& keyed : List(root + "/properties")) {
        if (IsDirectory(keyed)) FindOfKey(keyed.path());
      }
      FindOthers(root);
    }
    return std::move(files_);
  }

 private:
  static bool IsDirectory(const fs::directory_entry& entry) {
    std::error_code ignored;
    return entry.is_directory(ignored);
  }

  // What a directory has; links to directories are followed, as the library does.
  std::vector<fs::directory_entry> List(const fs::path& directory) {
    std::error_code error;
    fs::directory_iterator entry(directory, error);
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
      context_.Report("unreadable-file", {context_.PathOf(directory)},
                      "the directory cannot be read: " + error.message());
    }
    std::vector<fs::directory_entry> entries;
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      entries.push_back(*entry);
    }
    return entries;
  }

  void FindInEtc(const fs::path& etc) {
    for (const fs::directory_entry& entry : List(etc)) {
      const std::string name = entry.path().filename();
      if (name == kNvMapping || name == kFirstMapping) Add(entry, FileKind::kMapping);
      if (After(name, "build.") && name != "build.prop") Add(entry, FileKind::kKeyedFile);
    }
  }

  void FindOfKey(const fs::path& keyed) {
    for (const fs::directory_entry& kind : List(keyed)) {
      if (!IsDirectory(kind)) continue;
      const std::string name = kind.path().filename();
      if (name != kFirstTime && name != kCurrentTime && name != kChannel) {
        context_.Report("unreachable-directory", {context_.PathOf(kind.path())},
                        "it is never looked into for the key " + Quoted(keyed.filename()));
        continue;
      }
      for (const fs::directory_entry& entry : List(kind.path())) {
        Add(entry, FileKind::kKeyedInOrder);
      }
    }
  }

  void FindOthers(const fs::path& directory) {
    for (const fs::directory_entry& entry : List(directory)) {
      std::error_code ignored;
      if (entry.is_symlink(ignored)) continue;
      if (IsDirectory(entry)) {
        FindOthers(entry.path());
      } else {
        Add(entry, FileKind::kOther);
      }
    }
  }

  void Add(const fs::directory_entry& entry, FileKind kind) {
    if (IsPropertyFile(entry)) files_.emplace(context_.PathOf(entry.path()), kind);
  }

  CheckContext& context_;
  std::map<std::string, FileKind> files_;
};

}  // namespace

std::map<std::string, FileKind> FindKeyedFiles(CheckContext* context) {
  return KeyedFilesFinder(context).Find();
}

}  // namespace extprop
