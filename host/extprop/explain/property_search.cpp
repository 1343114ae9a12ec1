#include "host/extprop/explain/property_search.h"

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <utility>

#include "host/extprop/boot/library.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::Error;
using android::base::Result;
using android::base::StartsWith;
using android::base::unique_fd;

constexpr size_t kMaxEntries = 200000;
constexpr size_t kMaxFileSize = 16 << 20;
constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFile = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr const char* kImageRoot = "sys.cota.load.properties";

// The longest part of a glob that names have to hold as it stands.
std::string LiteralPart(const std::string& glob) {
  if (glob.find_first_of("[\\") != std::string::npos) return "";
  std::string longest;
  for (const std::string& part : android::base::Split(glob, "*?")) {
    if (part.size() > longest.size()) longest = part;
  }
  return longest;
}

// Hears the library parse one file.
class Listener : public android::init::PropertyFileObserver {
 public:
  std::vector<FoundLine> Take() { return std::exchange(lines_, {}); }

  void EnterFile(std::string_view, std::string_view, const android::init::PropertyMap*) override {}
  void LeaveFile(std::string_view) override {}
  void ReadLine(const android::init::PropertyLine& line) override {
    const bool sets = line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
                      line.outcome == LineOutcome::kSameAgain;
    // The filter that keeps the parser from following imports makes names of some.
    if (!sets || StartsWith(line.name, "import ")) return;
    lines_.push_back(
        {{}, static_cast<unsigned>(line.number), std::string(line.name), std::string(line.value)});
  }

 private:
  std::vector<FoundLine> lines_;
};

bool IsGlob(const std::string& name) {
  return name.find_first_of("*?[") != std::string::npos;
}

// Where the plan's device has its files.
std::vector<sandbox::Layer> LayersOf(const BootPlan& plan) {
  std::vector<sandbox::Layer> layers = {{"/", plan.device.root.tree}};
  const auto& above = plan.device.root.layers;
  layers.insert(layers.end(), above.begin(), above.end());
  return layers;
}

}  // namespace

const std::vector<std::string> kInfoFiles = {"/data/cota/cota_mount_info.prop",
                                             "/data/cota/cota_module_info.prop"};
const std::vector<std::string> kStateFiles = {
    "/data/system/customize/data_common_prop_file.prop",
    "/data/system/customize/empty_appchannel_prop_file.prop",
    "/data/system/customize/sim_switch/sim_switch_first_file",
    "/data/system/customize/sim_switch/sim_switch_current_file",
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_action_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file",
    "/mnt/vendor/vemrareserve/system/flag/flashback.cfg"};

// Most files do not have the name at all, and reading and comparing is cheaper than parsing.
class PropertySearch::Walk {
 public:
  Walk(const DevicePaths& paths, const std::string& name)
      : paths_(paths), text_(LiteralPart(name)) {}

  void LookBelow(const std::string& path, bool image) {
    if (!StartsWith(path, "/")) return;
    const std::string root = paths_.WithoutLinks(path), source = paths_.OnWorkstation(root);
    for (const std::string& known : roots_) {
      if (root == known || StartsWith(root, known + "/")) return;
    }
    if (root == "/" || source.empty()) return;
    roots_.push_back(root);
    LookIntoDirectory(unique_fd(open(source.c_str(), kDirectory)), {root, source, root, image});
  }

  void LookInto(const std::string& path) {
    const std::string root = paths_.WithoutLinks(path);
    LookIntoFile(AT_FDCWD, {root, paths_.OnWorkstation(root), "", false});
  }

  Files Take() { return std::move(found_); }

 private:
  // Links are not followed: the library reads none, and files they lead to are found by themselves.
  void LookIntoDirectory(unique_fd descriptor, const DeviceFile& directory) {
    if (descriptor < 0) return;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(
        android::base::Fdopendir(std::move(descriptor)), closedir);
    if (stream == nullptr) return;
    const int here = dirfd(stream.get());
    while (const dirent* entry = readdir(stream.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      found_.whole = found_.whole && ++entries_ <= kMaxEntries;
      if (!found_.whole) return;
      const bool is_directory = IsDirectory(here, *entry);
      if (!is_directory && !EndsWith(name, ".prop")) continue;
      const DeviceFile file = {directory.path + "/" + name, directory.source + "/" + name,
                               directory.root, directory.image};
      if (is_directory) {
        LookIntoDirectory(unique_fd(openat(here, entry->d_name, kDirectory)), file);
      } else if (KindOfMap(file.path) != ReadMap::Kind::kMapping) {
        LookIntoFile(here, file);
      }
    }
  }

  static bool IsDirectory(int directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat about;
    return fstatat(directory, entry.d_name, &about, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(about.st_mode);
  }

  void LookIntoFile(int directory, const DeviceFile& file) {
    if (file.source.empty()) return;
    const char* name = file.source.c_str();
    if (directory != AT_FDCWD) name += file.source.rfind('/') + 1;
    const unique_fd descriptor(openat(directory, name, kFile));
    if (descriptor >= 0 && Holds(descriptor)) found_.files.push_back(file);
  }

  bool Holds(const unique_fd& file) {
    size_t size = 0;
    for (ssize_t count = 1; count > 0; size += static_cast<size_t>(count)) {
      if (size == content_.size()) content_.resize(size * 2);
      count = read(file, content_.data() + size, content_.size() - size);
      if (count < 0 || size > kMaxFileSize) return false;
      const bool at_end = size + static_cast<size_t>(count) < content_.size();
      if (at_end) return Has(size + static_cast<size_t>(count));
    }
    return Has(size);
  }

  bool Has(size_t size) const {
    return text_.empty() || memmem(content_.data(), size, text_.data(), text_.size()) != nullptr;
  }

  const DevicePaths paths_;
  const std::string text_;
  std::vector<std::string> roots_;
  size_t entries_ = 0;
  std::string content_ = std::string(1 << 16, '\0');
  Files found_;
};

Result<PropertySearch> PropertySearch::Begin(const BootPlan& plan, const std::string& name) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  if (library.load_properties_from_file_without_se == nullptr ||
      library.KSSI_OBSERVE_PropertyFiles == nullptr || library.ExtensionPartitionRoots == nullptr) {
    return Error() << "this library does not offer its parser";
  }
  PropertySearch search(library, name);
  const DevicePaths paths(LayersOf(plan));
  const std::vector<std::string> images = search.ImageRoots(paths, plan.properties);
  search.search_ = [=] {
    Walk walk(paths, name);
    for (const std::string& root : *library.ExtensionPartitionRoots) walk.LookBelow(root, false);
    for (const char* root : {"/my_company", "/my_carrier"}) walk.LookBelow(root, false);
    for (const std::string& root : images) walk.LookBelow(root, true);
    if (IsGlob(name)) return walk.Take();
    for (const auto* files : {&kStateFiles, &kInfoFiles}) {
      for (const std::string& file : *files) walk.LookInto(file);
    }
    return walk.Take();
  };
  return search;
}

FoundLines PropertySearch::Finish(const std::set<std::string>& known) {
  const Files files = search_();
  FoundLines found;
  found.whole = files.whole;
  for (const DeviceFile& file : files.files) {
    if (known.count(file.path) != 0) continue;
    for (FoundLine& line : Parse(file)) {
      if (line.name != name_ && fnmatch(name_.c_str(), line.name.c_str(), 0) != 0) continue;
      line.file = file;
      found.lines.push_back(std::move(line));
    }
  }
  return found;
}

std::vector<std::string> PropertySearch::ImageRoots(const DevicePaths& paths,
                                                    const Properties& properties) const {
  std::vector<std::string> roots;
  const auto root = properties.find(kImageRoot);
  if (root != properties.end()) roots.push_back(root->second);
  for (const std::string& path : kInfoFiles) {
    for (const FoundLine& line : Parse({path, paths.OnWorkstation(path), "", false})) {
      if (line.name == kImageRoot || line.name == "mount_point") roots.push_back(line.value);
    }
  }
  return roots;
}

// With a filter the parser follows no imports: what they name is a file of its own.
std::vector<FoundLine> PropertySearch::Parse(const DeviceFile& file) const {
  struct stat about;
  if (lstat(file.source.c_str(), &about) != 0 || !S_ISREG(about.st_mode)) return {};
  // What it says of these files, it says in a boot.
  const android::base::ScopedLogSeverity quiet(android::base::FATAL);
  Listener listener;
  library_.KSSI_OBSERVE_PropertyFiles(&listener);
  android::init::PropertyMap ignored;
  library_.load_properties_from_file_without_se(file.source.c_str(), "*", &ignored);
  library_.KSSI_OBSERVE_PropertyFiles(nullptr);
  return listener.Take();
}

}  // namespace extprop
