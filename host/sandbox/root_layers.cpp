#include "host/sandbox/root_layers.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "host/sandbox/tree_copy.h"

namespace sandbox {
namespace {

using android::base::Dirname;
using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::ResultError;
using android::base::unique_fd;

// Where the root is put together, on a tmpfs that only the new mount namespace sees: nothing of it
// can be left on disk.
const std::string kStage = "/tmp";
const std::string kRoot = kStage + "/root";

constexpr char kAdvice[] =
    "; run as root, or allow user namespaces (kernel.unprivileged_userns_clone=1, "
    "user.max_user_namespaces above 0, kernel.apparmor_restrict_unprivileged_userns=0)";

// One layer, held open: the stage may hide its path.
struct Source {
  Layer layer;
  unique_fd fd;            // the directory, or the one that the file is in
  std::string file;        // empty for a directory
  struct stat about = {};  // of the directory
};

std::string PathOf(const unique_fd& fd) {
  return "/proc/self/fd/" + std::to_string(fd.get());
}

std::string LastName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool MountTmpfs(const std::string& target) {
  return mount("tmpfs", target.c_str(), "tmpfs", 0, "mode=0755") == 0;
}

// Opened in the new namespace, as the kernel takes no layer from another one.
Result<Source> OpenSource(const Layer& layer) {
  Source source;
  source.layer = layer;
  source.fd.reset(open(layer.source.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (source.fd < 0 || fstat(source.fd, &source.about) != 0) {
    return ErrnoError() << "cannot open " << layer.source;
  }
  if (S_ISDIR(source.about.st_mode)) return source;
  source.file = LastName(layer.source);
  source.fd.reset(open(Dirname(layer.source).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (source.fd < 0) return ErrnoError() << "cannot open the directory of " << layer.source;
  return source;
}

Result<std::vector<Source>> OpenSources(const PrivateRootOptions& options) {
  std::vector<Source> sources;
  if (!options.tree.empty()) {
    Source tree = {{"/", options.tree}, {}, "", {}};
    tree.fd.reset(open(options.tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (tree.fd < 0) return ErrnoError() << "cannot open the tree " << options.tree;
    tree.about.st_mode = 0755;
    sources.push_back(std::move(tree));
  }
  for (const Layer& layer : options.layers) {
    Result<Source> source = OpenSource(layer);
    if (!source.ok()) return source.error();
    sources.push_back(std::move(*source));
  }
  return sources;
}

// Opens a place below `root`, with what is mounted there, and makes the directories that it lacks.
unique_fd OpenPlace(const unique_fd& root, const std::string& place) {
  unique_fd reached(dup(root));
  for (const std::string& name : android::base::Split(place, "/")) {
    if (name.empty() || reached < 0) continue;
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    if (mkdirat(reached, name.c_str(), 0755) != 0 && errno != EEXIST) return unique_fd();
    reached.reset(openat(reached, name.c_str(), kFlags));
  }
  return reached;
}

// The root directory of a mount takes its attributes from the upper layer. An owner that the user
// namespace does not know, and times, are left as they are.
bool KeepAttributes(const struct stat& about, const std::string& directory) {
  if (chown(directory.c_str(), about.st_uid, about.st_gid) != 0 && errno != EPERM &&
      errno != EINVAL) {
    return false;
  }
  return chmod(directory.c_str(), about.st_mode & ~static_cast<mode_t>(S_IFMT)) == 0;
}

// Returns `path` relative to `directory` if it is there or below, else null.
const char* Below(const std::string& directory, const std::string& path) {
  const size_t length = directory == "/" ? 0 : directory.size();
  if (path.compare(0, length, directory, 0, length) != 0) return nullptr;
  if (path.size() == length) return "";
  return path[length] == '/' ? path.c_str() + length + 1 : nullptr;
}

class Builder {
 public:
  Builder(const PrivateRootOptions& options, bool user_namespace)
      : options_(options), user_namespace_(user_namespace) {}

  Result<void> Build(const std::vector<Source>& sources) {
    if (!MountTmpfs(kStage) || mkdir(kRoot.c_str(), 0755) != 0) return Refused("mount a tmpfs");
    const bool has_tree = !options_.tree.empty();
    if (has_tree) {
      if (Result<void> shown = ShowDirectory(sources[0], kRoot); !shown.ok()) return shown;
    } else if (!MountTmpfs(kRoot)) {
      return Refused("mount a tmpfs");
    }
    const unique_fd root(open(kRoot.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (size_t i = has_tree ? 1 : 0; i < sources.size(); ++i) {
      Result<void> shown = Show(sources[i], root);
      if (!shown.ok()) {
        return Error() << "show " << sources[i].layer.source << " at " << sources[i].layer.place
                       << ": " << shown.error();
      }
    }
    return {};
  }

 private:
  Result<void> Show(const Source& source, const unique_fd& root) {
    const std::string& place = source.layer.place;
    const unique_fd at = OpenPlace(root, source.file.empty() ? place : Dirname(place));
    if (at < 0) return ErrnoError() << "cannot make the directory";
    if (source.file.empty()) {
      std::string target;
      if (!android::base::Readlink(PathOf(at), &target)) return ErrnoError() << "cannot find it";
      return ShowDirectory(source, target);
    }
    unlinkat(at, source.file.c_str(), 0);
    return CopyFile(source.fd, at, source.file);
  }

  Result<void> ShowDirectory(const Source& source, const std::string& target) {
    if (!options_.copy) {
      Result<bool> mounted = MountOverlay(source, target);
      if (!mounted.ok()) return mounted.error();
      if (*mounted) return {};
    }
    if (!MountTmpfs(target)) return Refused("mount a tmpfs");
    const unique_fd to(open(target.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!KeepAttributes(source.about, target)) return Refused("set the attributes of a mount");
    std::vector<std::string> unreadable;
    Result<void> copied = CopyTree(source.fd, to, {}, &unreadable);
    if (!copied.ok()) return Error() << "copy " << source.layer.source << ": " << copied.error();
    return {};
  }

  // Returns whether the kernel took it.
  Result<bool> MountOverlay(const Source& source, const std::string& target) {
    const std::string own = kStage + "/" + std::to_string(++overlays_);
    const std::string upper = own + "/upper";
    const std::string work = own + "/work";
    if (mkdir(own.c_str(), 0700) != 0 || mkdir(upper.c_str(), 0700) != 0 ||
        mkdir(work.c_str(), 0700) != 0) {
      return Refused("make an upper layer");
    }
    if (Result<void> filled = FillUpper(source, upper); !filled.ok()) return filled.error();
    if (!KeepAttributes(source.about, upper)) return Refused("set an upper layer's attributes");
    // By descriptor, because the path may hold the characters that separate the options.
    std::string options =
        "lowerdir=" + PathOf(source.fd) + ",upperdir=" + upper + ",workdir=" + work;
    if (user_namespace_) options += ",userxattr";
    return mount("overlay", target.c_str(), "overlay", 0, options.c_str()) == 0;
  }

  // In a user namespace the overlay cannot change what belongs to a user that is not mapped, but it
  // can what stands in the upper layer already.
  Result<void> FillUpper(const Source& source, const std::string& upper) {
    if (!user_namespace_) return {};
    const unique_fd to(open(upper.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& place : options_.writable) {
      const char* inside = Below(source.layer.place, place);
      if (inside == nullptr && Below(place, source.layer.place) != nullptr) inside = "";
      if (inside == nullptr) continue;
      Result<void> copied = CopyPlace(source.fd, to, inside);
      if (!copied.ok()) return Error() << "copy " << place << ": " << copied.error();
    }
    return {};
  }

  const PrivateRootOptions& options_;
  const bool user_namespace_;
  int overlays_ = 0;
};

}  // namespace

ResultError Refused(const std::string& step) {
  const int error = errno;
  std::string text = "private root: " + step + ": " + strerror(error);
  if (error == EPERM || error == EACCES || error == ENOSPC) text += kAdvice;
  return ResultError(text, error);
}

Result<std::string> BuildRoot(const PrivateRootOptions& options, bool user_namespace) {
  Result<std::vector<Source>> sources = OpenSources(options);
  if (!sources.ok()) return sources.error();
  // The modes of what is made here are meant as they stand.
  const mode_t old_mask = umask(0);
  Result<void> built = Builder(options, user_namespace).Build(*sources);
  umask(old_mask);
  if (!built.ok()) return built.error();
  return kRoot;
}

}  // namespace sandbox
