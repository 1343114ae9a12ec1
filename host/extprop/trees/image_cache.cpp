#include "host/extprop/trees/image_cache.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::StringPrintf;
using android::base::unique_fd;

constexpr char kUnfinished[] = "unfinished-";

Result<std::string> CacheDirectory() {
  const char* cache = getenv("XDG_CACHE_HOME");
  const char* home = getenv("HOME");
  std::string directory;
  if (cache != nullptr && cache[0] == '/') {
    directory = cache;
  } else if (home != nullptr && home[0] == '/') {
    directory = std::string(home) + "/.cache";
  } else {
    return Error() << "neither XDG_CACHE_HOME nor HOME is set";
  }
  directory += "/extprop/images";
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) return Error() << directory << ": " << error.message();
  return directory;
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

// With the lock held, whatever is unfinished was left behind.
void RemoveOld(const std::string& cache, const std::string& inode) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(cache, ignored)) {
    const std::string name = entry.path().filename();
    if (android::base::StartsWith(name, inode) || android::base::StartsWith(name, kUnfinished)) {
      Remove(entry.path());
    }
  }
}

Result<void> Fill(const std::string& unfinished, const std::string& entry, const Unpack& unpack) {
  const std::string result = unfinished + "/result";
  const std::string scratch = unfinished + "/scratch";
  if (mkdir(unfinished.c_str(), 0700) != 0 || mkdir(result.c_str(), 0755) != 0 ||
      mkdir(scratch.c_str(), 0700) != 0) {
    return ErrnoError() << unfinished;
  }
  if (Result<void> unpacked = unpack(result, scratch); !unpacked.ok()) return unpacked;
  // A power cut must not leave the name without the contents.
  const unique_fd directory(open(result.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory < 0 || syncfs(directory) != 0 || rename(result.c_str(), entry.c_str()) != 0) {
    return ErrnoError() << entry;
  }
  return {};
}

}  // namespace

Result<std::string> FromCache(const struct stat& image, const Unpack& unpack) {
  Result<std::string> cache = CacheDirectory();
  if (!cache.ok()) return cache;
  const std::string inode = StringPrintf("%lx-%lx-", image.st_dev, image.st_ino);
  const std::string entry =
      *cache + "/" + inode +
      StringPrintf("%lx-%lx.%09ld", image.st_size, image.st_ctim.tv_sec, image.st_ctim.tv_nsec);
  if (access(entry.c_str(), F_OK) == 0) return entry;

  const unique_fd lock(open((*cache + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (lock < 0 || TEMP_FAILURE_RETRY(flock(lock, LOCK_EX)) != 0) {
    return ErrnoError() << "cannot lock " << *cache;
  }
  if (access(entry.c_str(), F_OK) == 0) return entry;
  RemoveOld(*cache, inode);
  const std::string unfinished = *cache + "/" + kUnfinished + std::to_string(getpid());
  Result<void> filled = Fill(unfinished, entry, unpack);
  Remove(unfinished);
  if (!filled.ok()) return filled.error();
  return entry;
}

}  // namespace extprop
