#include "host/extprop/explain/property_search.h"

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/pack.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

constexpr auto FieldsOf(const FoundLine*) {
  return std::make_tuple(std::pair("name", &FoundLine::name), std::pair("value", &FoundLine::value),
                         std::pair("file", &FoundLine::file), std::pair("line", &FoundLine::line),
                         std::pair("root", &FoundLine::root),
                         std::pair("image", &FoundLine::image));
}

constexpr auto FieldsOf(const FoundLines*) {
  return std::make_tuple(std::pair("lines", &FoundLines::lines),
                         std::pair("whole", &FoundLines::whole));
}

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
    FoundLine found;
    found.name = line.name;
    found.value = line.value;
    found.line = static_cast<unsigned>(line.number);
    lines_.push_back(std::move(found));
  }

 private:
  std::vector<FoundLine> lines_;
};

// Works in the private root.
class Search {
 public:
  Search(const LibraryFunctions& library, const std::string& name)
      : library_(library), name_(name), literal_(LiteralPart(name)) {
    android::base::SetLogger([](auto...) {});  // what it says of these files, a boot says
    library.KSSI_OBSERVE_PropertyFiles(&listener_);
  }

  FoundLines Run(const Properties& properties) {
    for (const std::string& root : *library_.ExtensionPartitionRoots) LookBelow(root, false);
    for (const char* root : {"/my_company", "/my_carrier"}) LookBelow(root, false);
    for (const std::string& root : ImageRoots(properties)) LookBelow(root, true);
    if (name_.find_first_of("*?[") != std::string::npos) return std::move(found_);
    for (const auto* files : {&kStateFiles, &kInfoFiles}) {
      for (const std::string& file : *files) LookInto(AT_FDCWD, file.c_str(), file, false);
    }
    return std::move(found_);
  }

 private:
  std::vector<std::string> ImageRoots(const Properties& properties) {
    std::vector<std::string> roots;
    const auto root = properties.find(kImageRoot);
    if (root != properties.end()) roots.push_back(root->second);
    for (const std::string& path : kInfoFiles) {
      for (const FoundLine& entry : Parse(path)) {
        if (entry.name == kImageRoot || entry.name == "mount_point") roots.push_back(entry.value);
      }
    }
    return roots;
  }

  void LookBelow(const std::string& path, bool image) {
    std::string root;
    if (!StartsWith(path, "/") || !android::base::Realpath(path, &root) || root == "/") return;
    for (const std::string& known : roots_) {
      if (root == known || StartsWith(root, known + "/")) return;
    }
    roots_.push_back(root);
    Walk(unique_fd(open(root.c_str(), kDirectory)), root, image);
  }

  // Links are not followed: the library reads none, and files they lead to are found by themselves.
  void Walk(unique_fd descriptor, const std::string& directory, bool image) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(
        android::base::Fdopendir(std::move(descriptor)), closedir);
    if (stream == nullptr) return;
    const int here = dirfd(stream.get());
    while (const dirent* entry = readdir(stream.get())) {
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (++entries_ > kMaxEntries) {
        found_.whole = false;
        return;
      }
      const std::string path = directory + "/" + entry->d_name;
      if (TypeOf(here, *entry) == DT_DIR)
        Walk(unique_fd(openat(here, entry->d_name, kDirectory)), path, image);
      if (EndsWith(name, ".prop") && KindOfMap(path) != ReadMap::Kind::kMapping)
        LookInto(here, entry->d_name, path, image);
    }
  }

  static unsigned char TypeOf(int directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type;
    struct stat about;
    const bool known = fstatat(directory, entry.d_name, &about, AT_SYMLINK_NOFOLLOW) == 0;
    return known && S_ISDIR(about.st_mode) ? DT_DIR : DT_REG;
  }

  // Most files do not have the name at all, and reading is cheaper than parsing.
  void LookInto(int directory, const char* name, const std::string& path, bool image) {
    if (!literal_.empty()) {
      const unique_fd file(openat(directory, name, kFile));
      if (file < 0 || !ReadInto(file)) return;
      if (std::string_view(content_.data(), size_).find(literal_) == std::string_view::npos) return;
    }
    for (FoundLine& found : Parse(path)) {
      if (found.name != name_ && fnmatch(name_.c_str(), found.name.c_str(), 0) != 0) continue;
      found.file = path;
      if (!roots_.empty() && StartsWith(path, roots_.back() + "/")) found.root = roots_.back();
      found.image = image;
      found_.lines.push_back(std::move(found));
    }
  }

  bool ReadInto(const unique_fd& file) {
    for (size_ = 0;;) {
      if (content_.size() - size_ < 4096) content_.resize(content_.size() * 2);
      const size_t room = content_.size() - size_;
      const ssize_t count = read(file, content_.data() + size_, room);
      if (count < 0 || size_ > kMaxFileSize) return false;
      size_ += static_cast<size_t>(count);
      if (static_cast<size_t>(count) < room) return true;
    }
  }

  // Imports are not followed: what they name is a file of its own.
  std::vector<FoundLine> Parse(const std::string& path) {
    android::init::PropertyMap ignored;
    struct stat about;
    if (lstat(path.c_str(), &about) != 0 || !S_ISREG(about.st_mode)) return {};
    library_.load_properties_from_file_without_se(path.c_str(), "*", &ignored);
    return listener_.Take();
  }

  const LibraryFunctions& library_;
  const std::string name_;
  const std::string literal_;
  Listener listener_;
  std::vector<std::string> roots_;
  size_t entries_ = 0;
  std::string content_ = std::string(1 << 16, '\0');
  size_t size_ = 0;  // of what is in `content_`
  FoundLines found_;
};

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

Result<FoundLines> FindPropertyLines(const BootPlan& plan, const std::string& name) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  if (library.load_properties_from_file_without_se == nullptr ||
      library.KSSI_OBSERVE_PropertyFiles == nullptr || library.ExtensionPartitionRoots == nullptr) {
    return Error() << "this library does not offer its parser";
  }
  Result<std::string> bytes =
      RunInTree(plan.tree, [&] { return Pack(Search(library, name).Run(plan.properties)); });
  if (!bytes.ok()) return bytes.error();
  return Unpack<FoundLines>(*bytes);
}

}  // namespace extprop
