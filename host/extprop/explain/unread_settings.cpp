#include "host/extprop/explain/unread_settings.h"

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <tuple>
#include <utility>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/pack.h"
#include "host/extprop/explain/carrier_key_origin.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::EndsWith;
using android::base::Error;
using android::base::Result;
using android::base::StartsWith;

constexpr size_t kMaxEntries = 200000;
constexpr std::uintmax_t kMaxFileSize = 16 << 20;

constexpr const char* kInfoFiles[] = {"/data/cota/cota_mount_info.prop",
                                      "/data/cota/cota_module_info.prop"};
constexpr const char* kStateFiles[] = {"/data/system/customize/data_common_prop_file.prop",
                                       "/data/system/customize/empty_appchannel_prop_file.prop",
                                       "/data/system/customize/sim_switch/sim_switch_first_file",
                                       "/data/system/customize/sim_switch/sim_switch_current_file",
                                       "/mnt/vendor/vemrareserve/system/flag/flashback.cfg"};

struct Found {
  std::string name;
  std::string value;
  std::string file;
  unsigned line = 0;
  std::string why;
};

constexpr auto FieldsOf(const Found*) {
  return std::make_tuple(std::pair("name", &Found::name), std::pair("value", &Found::value),
                         std::pair("file", &Found::file), std::pair("line", &Found::line),
                         std::pair("why", &Found::why));
}

struct Outcome {
  std::vector<Found> found;
  std::vector<std::string> names;
  bool whole = true;
};

constexpr auto FieldsOf(const Outcome*) {
  return std::make_tuple(std::pair("found", &Outcome::found), std::pair("names", &Outcome::names),
                         std::pair("whole", &Outcome::whole));
}

// The longest part of a glob that names have to hold as it stands.
std::string LiteralPart(const std::string& glob) {
  std::string longest;
  for (const std::string& part : android::base::Split(glob, "*?[]\\")) {
    if (part.size() > longest.size()) longest = part;
  }
  return glob.find_first_of("[\\") == std::string::npos ? longest : "";
}

// Hears the library parse one file.
class Lines : public android::init::PropertyFileObserver {
 public:
  std::vector<Found> Take() { return std::exchange(found_, {}); }

  void EnterFile(std::string_view, std::string_view, const android::init::PropertyMap*) override {}
  void LeaveFile(std::string_view) override {}
  void ReadLine(const android::init::PropertyLine& line) override {
    const bool sets = line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
                      line.outcome == LineOutcome::kSameAgain;
    // The filter that keeps the parser from following imports makes names of some.
    if (!sets || line.name.substr(0, 7) == "import ") return;
    found_.push_back({std::string(line.name), std::string(line.value), "",
                      static_cast<unsigned>(line.number), ""});
  }

 private:
  std::vector<Found> found_;
};

// What a boot read, and by which keys.
class WhatWasRead {
 public:
  explicit WhatWasRead(const BootRecord& record) {
    for (const PropertyFile& file : record.property_files) files_.insert(file.device_path);
    for (const Step& step : record.steps) {
      for (const Event& event : step.events) {
        if (const auto* file = std::get_if<FileEvent>(&event.what)) Take(*file);
      }
    }
    const auto verified = record.properties.find("sys.cotaimg.verify");
    if (verified != record.properties.end()) verified_ = verified->second;
  }

  bool Has(const std::string& path) const { return files_.count(path) != 0; }

  // Why a file of the partition or image `root` was not read.
  std::string WhyNot(const std::string& root, const std::string& path, bool image) const {
    const auto below = files_.lower_bound(root + "/");
    if (image && (below == files_.end() || !StartsWith(*below, root + "/"))) {
      return "not read: no step of this boot loads the COTA image " + root +
             (verified_ == "1" ? "" : "; sys.cotaimg.verify is [" + verified_ + "]");
    }
    const auto [kind, key] = ParseKeyedPath(path);
    if (!kind.empty()) return WhyNotKeyed(kind, key);
    if (path == root + "/build.prop") return "not read: no step of this boot loads it";
    if (StartsWith(path, root + "/properties/")) return "not read: no key reaches this directory";
    return "not read: no file imports it";
  }

 private:
  // The library looks for the keyed files and directories of every key that it has.
  void Take(const FileEvent& file) {
    if (file.op == FileOp::kAccess) TakePath(file.path);
    if (file.op == FileOp::kList) TakePath(file.path + "/.prop");
  }

  void TakePath(const std::string& path) {
    const auto [kind, key] = ParseKeyedPath(path);
    if (!kind.empty()) keys_[kind].insert(key);
  }

  std::string WhyNotKeyed(const std::string& kind, const std::string& key) const {
    const auto tried = keys_.find(kind);
    const std::string what = kind == "file" ? "nv, ssv or operator" : kind;
    if (tried == keys_.end())
      return "not read: for " + what + " key " + key + ", this boot has none";
    if (tried->second.count(key) != 0) return "not read: no step of this boot loads it";
    return "not read: for " + what + " key " + key + ", this boot has " +
           android::base::Join(tried->second, ", ");
  }

  std::set<std::string> files_;
  std::map<std::string, std::set<std::string>> keys_;  // by kind of path
  std::string verified_;
};

// Works in the private root.
class Search {
 public:
  Search(const LibraryFunctions& library, const WhatWasRead& read, const std::string& name)
      : library_(library),
        read_(read),
        name_(name),
        literal_(LiteralPart(name)),
        is_glob_(name.find_first_of("*?[") != std::string::npos) {
    android::base::SetLogger([](auto...) {});  // what it says of these files, a boot says
    library.KSSI_OBSERVE_PropertyFiles(&lines_);
  }

  Outcome Run(const std::string& cota_root) {
    for (const std::string& root : *library_.ExtensionPartitionRoots) LookBelow(root, false);
    LookBelow("/my_company", false);
    for (const std::string& root : ImageRoots(cota_root)) LookBelow(root, true);
    if (!is_glob_) {
      for (const char* path : kStateFiles) LookIntoOwn(path, "not read: no step of this boot does");
      for (const char* path : kInfoFiles)
        LookIntoOwn(path, "not handed over: no step of this boot takes it from this file");
    }
    if (outcome_.found.empty()) FindNames();
    return std::move(outcome_);
  }

 private:
  // What the info files that wait in the tree name, and what a property does.
  std::vector<std::string> ImageRoots(const std::string& cota_root) {
    std::vector<std::string> roots = {cota_root};
    for (const char* path : kInfoFiles) {
      for (const Found& entry : Parse(path)) {
        if (entry.name == "sys.cota.load.properties" || entry.name == "mount_point")
          roots.push_back(entry.value);
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
    std::error_code error;
    fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied,
                                           error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
      if (++entries_ > kMaxEntries) {
        outcome_.whole = false;
        return;
      }
      const std::string& file = entry->path().native();
      if (!EndsWith(file, ".prop") || !entry->is_regular_file(error) || entry->is_symlink(error))
        continue;
      if (KindOfMap(file) == ReadMap::Kind::kMapping || read_.Has(file)) continue;
      files_.push_back(file);
      if (Matches(file)) Add(file, read_.WhyNot(root, file, image));
    }
  }

  void LookIntoOwn(const std::string& path, const std::string& why) {
    const bool info = KindOfMap(path) == ReadMap::Kind::kInfoFile;
    if ((info || !read_.Has(path)) && Matches(path)) Add(path, why);
  }

  // Most files do not have the name at all, and reading is cheaper than parsing.
  bool Matches(const std::string& path) const {
    if (literal_.empty()) return true;
    std::error_code error;
    const auto size = fs::file_size(path, error);
    std::string content;
    if (error || size > kMaxFileSize || !android::base::ReadFileToString(path, &content))
      return false;
    return content.find(literal_) != std::string::npos;
  }

  void Add(const std::string& path, const std::string& why) {
    for (Found& found : Parse(path)) {
      const bool asked =
          found.name == name_ || (is_glob_ && fnmatch(name_.c_str(), found.name.c_str(), 0) == 0);
      if (!asked) continue;
      found.file = path;
      found.why = why;
      outcome_.found.push_back(std::move(found));
    }
  }

  // Imports are not followed: what they name is a file of its own.
  std::vector<Found> Parse(const std::string& path) {
    android::init::PropertyMap ignored;
    library_.load_properties_from_file_without_se(path.c_str(), "*", &ignored);
    return lines_.Take();
  }

  void FindNames() {
    std::set<std::string> names;
    for (const std::string& file : files_) {
      for (Found& found : Parse(file)) names.insert(std::move(found.name));
    }
    outcome_.names.assign(names.begin(), names.end());
  }

  const LibraryFunctions& library_;
  const WhatWasRead& read_;
  const std::string name_;
  const std::string literal_;
  const bool is_glob_;
  Lines lines_;
  std::vector<std::string> roots_;
  std::vector<std::string> files_;
  size_t entries_ = 0;
  Outcome outcome_;
};

std::string CotaRoot(const BootRecord& record) {
  const auto root = record.properties.find("sys.cota.load.properties");
  return root == record.properties.end() ? "" : root->second;
}

}  // namespace

Result<UnreadSettings> FindUnreadSettings(const BootPlan& plan, const BootRecord& record,
                                          const std::string& name) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  if (library.load_properties_from_file_without_se == nullptr ||
      library.KSSI_OBSERVE_PropertyFiles == nullptr || library.ExtensionPartitionRoots == nullptr) {
    return Error() << "this library does not offer its parser";
  }
  const WhatWasRead read(record);
  Result<std::string> bytes =
      RunInTree(plan.tree, [&] { return Pack(Search(library, read, name).Run(CotaRoot(record))); });
  if (!bytes.ok()) return bytes.error();
  const auto outcome = Unpack<Outcome>(*bytes);
  UnreadSettings unread;
  unread.whole = outcome.whole;
  unread.names.insert(outcome.names.begin(), outcome.names.end());
  for (const Found& found : outcome.found) {
    Setting setting;
    setting.name = found.name;
    setting.value = found.value;
    setting.file = found.file;
    setting.line = found.line;
    setting.place = found.file + ":" + std::to_string(found.line);
    setting.why = found.why;
    unread.settings.push_back(std::move(setting));
  }
  return unread;
}

}  // namespace extprop
