#include <filesystem>

#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

// Each directory is listed once, and its path has no links in it.
class KeyedFilesFinder {
 public:
  explicit KeyedFilesFinder(CheckContext* context) : context_(*context) {}

  std::map<std::string, FileKind> Find(const std::vector<std::string>& roots) {
    for (const std::string& root : roots) {
      for (const fs::directory_entry& entry : List(root)) {
        const std::string name = entry.path().filename();
        if (name == "etc") {
          FindInEtc(entry);
        } else if (name == "properties") {
          FindInProperties(entry);
        } else {
          FindOthers(entry);
        }
      }
    }
    return std::move(files_);
  }

 private:
  static bool IsDirectory(const fs::directory_entry& entry) {
    std::error_code ignored;
    return entry.is_directory(ignored);
  }

  // What a directory has, none if it is no directory; a link to one is followed, as the library
  // does.
  std::vector<fs::directory_entry> List(const fs::directory_entry& directory) {
    std::error_code ignored;
    if (!directory.is_symlink(ignored)) return List(directory.path().native());
    return List(fs::canonical(directory.path(), ignored).native());
  }

  std::vector<fs::directory_entry> List(const std::string& directory) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    fs::directory_iterator entry(directory, error);
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
      context_.Report("unreadable-file", {directory},
                      "the directory cannot be read: " + error.message());
    }
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      entries.push_back(*entry);
    }
    return entries;
  }

  void FindInEtc(const fs::directory_entry& etc) {
    for (const fs::directory_entry& entry : List(etc)) {
      const std::string name = entry.path().filename();
      if (name == kNvMapping || name == kFirstMapping) {
        Add(entry, FileKind::kMapping);
      } else if (After(name, "build.") != nullptr && name != "build.prop" && !IsDirectory(entry)) {
        context_.carrier_paths.insert("etc/" + name);
        Add(entry, FileKind::kKeyedFile);
      } else {
        FindOthers(entry);
      }
    }
  }

  void FindInProperties(const fs::directory_entry& properties) {
    for (const fs::directory_entry& keyed : List(properties)) {
      if (!IsDirectory(keyed)) {
        Add(keyed, FileKind::kOther);
        continue;
      }
      context_.carrier_paths.insert("properties/" + keyed.path().filename().native());
      for (const fs::directory_entry& kind : List(keyed)) FindOfKind(keyed, kind);
    }
  }

  void FindOfKind(const fs::directory_entry& keyed, const fs::directory_entry& kind) {
    if (!IsDirectory(kind)) return Add(kind, FileKind::kOther);
    const std::string name = kind.path().filename();
    if (name != kFirstTime && name != kCurrentTime && name != kChannel) {
      context_.Report("unreachable-directory", {kind.path()},
                      "it is never looked into for the key " + Quoted(keyed.path().filename()));
      return FindOthers(kind);
    }
    for (const fs::directory_entry& entry : List(kind)) Add(entry, FileKind::kKeyedInOrder);
  }

  void FindOthers(const fs::directory_entry& place) {
    std::error_code ignored;
    if (place.is_symlink(ignored) || !IsDirectory(place)) return Add(place, FileKind::kOther);
    for (const fs::directory_entry& entry : List(place)) FindOthers(entry);
  }

  void Add(const fs::directory_entry& entry, FileKind kind) {
    std::error_code ignored;
    const bool is_file =
        android::base::EndsWith(entry.path().native(), ".prop") &&
        (entry.is_symlink(ignored) ? kind != FileKind::kOther : entry.is_regular_file(ignored));
    if (is_file) files_.emplace(entry.path(), kind);
  }

  CheckContext& context_;
  std::map<std::string, FileKind> files_;
};

}  // namespace

std::map<std::string, FileKind> FindKeyedFiles(const std::vector<std::string>& roots,
                                               CheckContext* context) {
  return KeyedFilesFinder(context).Find(roots);
}

}  // namespace extprop
