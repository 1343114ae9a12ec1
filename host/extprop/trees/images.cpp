#include "host/extprop/trees/images.h"

#include <android-base/file.h>
#include <android-base/scopeguard.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string_view>
#include <vector>

#include "host/extprop/trees/device_tree.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::StartsWith;
using android::base::StringPrintf;
using android::base::unique_fd;

std::string OnOneLine(const std::string& messages) {
  return std::regex_replace(android::base::Trim(messages), std::regex("\\s*\n\\s*"), "; ");
}

// Runs a program of the workstation in `directory` and returns what it wrote on its standard error
// stream; its standard output is dropped. A program that does not end with 0 is an error, which
// quotes it, or names the Debian package where it is missing.
Result<std::string> RunProgram(const std::vector<std::string>& command, const std::string& package,
                               const std::string& directory) {
  // An ordinary user's PATH lacks where Debian puts the file systems' tools.
  std::string line = "cd " + ShellWord(directory) + " && PATH=$PATH:/usr/sbin:/sbin LC_ALL=C";
  for (const std::string& word : command) line += " " + ShellWord(word);
  FILE* errors = popen((line + " 2>&1 >/dev/null </dev/null").c_str(), "re");
  if (errors == nullptr) return ErrnoError() << "cannot start " << command[0];
  std::string text;
  android::base::ReadFdToString(fileno(errors), &text);
  const int status = pclose(errors);
  if (status == 0) return text;
  constexpr int kNotFound = 127;  // as the shell says it
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) {
    return Error() << command[0] << " is needed; install the package " << package;
  }
  return Error() << command[0] << ": " << (text.empty() ? "failed" : OnOneLine(text));
}

// Unpacks the image of the partition `name`, or a super image. Leaves each partition as a directory
// of its name in the directory `to`, and something else there on an error.
Result<void> Unpack(const std::string& image, const std::string& name, const std::string& to);

// Unpacks the images that a sparse or super image holds, and then them. Without `name`, each has
// its own.
Result<void> UnpackContainer(const std::string& type, const std::string& image,
                             const std::string& name, const std::string& to) {
  std::string inner = to + "/inner-XXXXXX";
  if (mkdtemp(inner.data()) == nullptr) return ErrnoError() << inner;
  std::vector<std::string> command = {"7zz", "x", "-y", "-t" + type, "-o" + inner, "--", image};
  if (name.empty()) command.insert(command.end(), {"odm*", "my_*"});
  Result<std::string> run = RunProgram(command, "7zip", to);
  if (!run.ok()) return run.error();
  for (const auto& entry : fs::directory_iterator(inner)) {
    // The other slot's partitions are there, but empty.
    if (fs::file_size(entry.path()) == 0) continue;
    const std::string file = entry.path().stem();
    const std::string own_name = std::regex_replace(file, std::regex("_[ab]$"), "");
    if (name.empty() && PlaceOf(own_name).empty()) continue;
    if (name.empty() && fs::exists(fs::path(to) / own_name)) {
      return Error() << "both slots hold " << own_name << ", and nothing tells which one boots";
    }
    Result<void> unpacked = Unpack(entry.path(), name.empty() ? own_name : name, to);
    if (!unpacked.ok()) return Error() << file << ": " << unpacked.error();
  }
  fs::remove_all(inner);
  return {};
}

Result<void> UnpackErofs(const std::string& image, const std::string& name, const std::string& to) {
  Result<std::string> run =
      RunProgram({"fsck.erofs", "--extract=" + to + "/" + name, image}, "erofs-utils", to);
  if (!run.ok()) return run.error();
  // It ends with 0 where it finds no file system in the image.
  if (fs::is_directory(to + "/" + name)) return {};
  return Error() << "fsck.erofs: " << OnOneLine(*run);
}

// Not by 7zz, which changes where absolute links lead and leaves out others. debugfs ends with 0
// whatever happens, and tells of every owner that an ordinary user cannot keep.
Result<void> UnpackExt4(const std::string& image, const std::string& name, const std::string& to) {
  const std::string directory = to + "/" + name;
  if (mkdir(directory.c_str(), 0755) != 0) return ErrnoError() << directory;
  Result<std::string> run =
      RunProgram({"debugfs", "-R", "rdump / .", image}, "e2fsprogs", directory);
  if (!run.ok()) return run.error();
  for (const std::string& line : android::base::Split(*run, "\n")) {
    const bool harmless = line.empty() || StartsWith(line, "debugfs 1.") ||
                          line.find("while changing ownership of") != std::string::npos;
    if (!harmless) return Error() << "debugfs: " << line;
  }
  return {};
}

Result<void> Unpack(const std::string& image, const std::string& name, const std::string& to) {
  const unique_fd fd(open(image.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd < 0) return ErrnoError() << "cannot open it";
  std::string head(4100, '\0');
  android::base::ReadFully(fd, head.data(), head.size());
  const auto has = [&](size_t offset, std::string_view magic) {
    return head.compare(offset, magic.size(), magic) == 0;
  };
  if (has(0, "\x3a\xff\x26\xed")) return UnpackContainer("sparse", image, name, to);
  if (has(4096, "gDla")) return UnpackContainer("lp", image, "", to);
  if (has(1024, "\xe2\xe1\xf5\xe0")) return UnpackErofs(image, name, to);
  if (has(1080, "\x53\xef")) return UnpackExt4(image, name, to);
  return Error() << "neither ext4 nor erofs, nor a sparse or super image";
}

constexpr char kUnfinished[] = "unfinished-";

Result<std::string> CacheDirectory() {
  const char* cache = getenv("XDG_CACHE_HOME");
  const char* home = getenv("HOME");
  fs::path directory = cache == nullptr ? "" : cache;
  if (!directory.is_absolute()) directory = fs::path(home == nullptr ? "" : home) / ".cache";
  if (!directory.is_absolute()) return Error() << "neither XDG_CACHE_HOME nor HOME is set";
  directory /= "extprop/images";
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) return Error() << directory.string() << ": " << error.message();
  return directory.string();
}

// A directory that an image left without permissions can be removed by its owner nevertheless.
void Remove(const fs::path& path) {
  std::error_code ignored;
  for (fs::recursive_directory_iterator entry(path, ignored), end; !ignored && entry != end;
       entry.increment(ignored)) {
    if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
      fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(path, ignored);
}

// Returns the directory in the cache with what the image holds. Only one that was filled to the end
// gets there. Processes that want the same wait for each other.
Result<std::string> FromCache(const std::string& image, const struct stat& about) {
  Result<std::string> cache = CacheDirectory();
  if (!cache.ok()) return cache;
  const std::string inode = StringPrintf("%lx-%lx-", about.st_dev, about.st_ino);
  const std::string entry =
      *cache + "/" + inode +
      StringPrintf("%lx-%lx.%09ld", about.st_size, about.st_ctim.tv_sec, about.st_ctim.tv_nsec);
  if (access(entry.c_str(), F_OK) == 0) return entry;

  const unique_fd lock(open((*cache + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (lock < 0 || TEMP_FAILURE_RETRY(flock(lock, LOCK_EX)) != 0) {
    return ErrnoError() << "cannot lock " << *cache;
  }
  if (access(entry.c_str(), F_OK) == 0) return entry;
  // With the lock held, whatever is unfinished was left behind.
  for (const auto& old : fs::directory_iterator(*cache)) {
    const std::string name = old.path().filename();
    if (StartsWith(name, inode) || StartsWith(name, kUnfinished)) Remove(old);
  }
  const std::string unfinished = *cache + "/" + kUnfinished + std::to_string(getpid());
  if (mkdir(unfinished.c_str(), 0755) != 0) return ErrnoError() << unfinished;
  const auto remove = android::base::make_scope_guard([&] { Remove(unfinished); });
  Result<void> unpacked = Unpack(image, kWholeImage, unfinished);
  if (!unpacked.ok()) return unpacked.error();
  // A power cut must not leave the name without the contents.
  const unique_fd directory(open(unfinished.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory < 0 || syncfs(directory) != 0 || rename(unfinished.c_str(), entry.c_str()) != 0) {
    return ErrnoError() << entry;
  }
  return entry;
}

}  // namespace

Result<std::string> UnpackImage(const std::string& image) {
  struct stat about;
  if (stat(image.c_str(), &about) != 0) return ErrnoError() << image;
  if (!S_ISREG(about.st_mode)) return Error() << image << ": no image: not a regular file";
  Result<std::string> unpacked = FromCache(fs::absolute(image), about);
  if (!unpacked.ok()) return Error() << "cannot unpack " << image << ": " << unpacked.error();
  return unpacked;
}

}  // namespace extprop
