#include "host/extprop/trees/images.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/extprop/trees/external_program.h"
#include "host/extprop/trees/image_cache.h"
#include "host/extprop/trees/partition_roots.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

enum class Format { kUnknown, kSparse, kSuper, kErofs, kExt4 };

Result<Format> FormatOf(const std::string& image) {
  struct Magic {
    Format format;
    off_t offset;
    std::string bytes;
  };
  static const Magic magics[] = {{Format::kSparse, 0, "\x3a\xff\x26\xed"},
                                 {Format::kSuper, 4096, "gDla"},
                                 {Format::kErofs, 1024, "\xe2\xe1\xf5\xe0"},
                                 {Format::kExt4, 1080, "\x53\xef"}};
  const unique_fd fd(open(image.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd < 0) return ErrnoError() << "cannot open it";
  for (const Magic& magic : magics) {
    std::string found(magic.bytes.size(), '\0');
    if (android::base::ReadFullyAtOffset(fd, found.data(), found.size(), magic.offset) &&
        found == magic.bytes) {
      return magic.format;
    }
  }
  return Format::kUnknown;
}

// One unpacking, which leaves each partition as a directory of its name in `result`.
class Unpacking {
 public:
  Unpacking(std::string result, std::string scratch)
      : result_(std::move(result)), scratch_(std::move(scratch)) {}

  Result<void> Unpack(const std::string& image, const std::string& name) {
    Result<Format> format = FormatOf(image);
    if (!format.ok()) return format.error();
    switch (*format) {
      case Format::kSparse:
        return UnpackContainer("sparse", image, name);
      case Format::kSuper:
        return UnpackContainer("lp", image, "");
      case Format::kErofs:
        return UnpackErofs(image, result_ + "/" + name);
      case Format::kExt4:
        return UnpackExt4(image, result_ + "/" + name);
      case Format::kUnknown:
        break;
    }
    return Error() << "neither ext4 nor erofs, nor a sparse or super image";
  }

 private:
  // Unpacks the images that a sparse or super image holds, and then them. Without `name`, each has
  // its own.
  Result<void> UnpackContainer(const std::string& type, const std::string& image,
                               const std::string& name) {
    const std::string inner = scratch_ + "/" + std::to_string(++containers_);
    std::error_code error;
    if (!fs::create_directory(inner, error)) return Error() << inner << ": " << error.message();
    std::vector<std::string> command = {"7zz", "x", "-y", "-t" + type, "-o" + inner, "--", image};
    if (name.empty()) command.insert(command.end(), {"odm*", "my_*"});
    Result<std::string> run = RunProgram(command, "7zip", scratch_);
    if (!run.ok()) return run.error();
    for (const auto& entry : fs::directory_iterator(inner)) {
      // The other slot's partitions are there, but empty.
      if (fs::file_size(entry.path()) == 0) continue;
      const std::string own_name = name.empty() ? PartitionName(entry.path().stem()) : name;
      if (name.empty() && FindPartitionRoot(own_name) == nullptr) continue;
      Result<void> unpacked = Unpack(entry.path(), own_name);
      if (!unpacked.ok())
        return Error() << entry.path().stem().string() << ": " << unpacked.error();
    }
    fs::remove_all(inner, error);
    return {};
  }

  static std::string PartitionName(const std::string& name) {
    const bool has_slot =
        android::base::EndsWith(name, "_a") || android::base::EndsWith(name, "_b");
    return has_slot ? name.substr(0, name.size() - 2) : name;
  }

  Result<void> UnpackErofs(const std::string& image, const std::string& to) {
    Result<std::string> run =
        RunProgram({"fsck.erofs", "--extract=" + to, image}, "erofs-utils", scratch_);
    if (!run.ok()) return run.error();
    return {};
  }

  // Not by 7zz, which changes where absolute links lead and leaves out others. debugfs ends with 0
  // whatever happens, and tells of every owner that an ordinary user cannot keep.
  Result<void> UnpackExt4(const std::string& image, const std::string& to) {
    if (mkdir(to.c_str(), 0755) != 0) return ErrnoError() << to;
    Result<std::string> run = RunProgram({"debugfs", "-R", "rdump / .", image}, "e2fsprogs", to);
    if (!run.ok()) return run.error();
    for (const std::string& line : android::base::Split(*run, "\n")) {
      const bool harmless = line.empty() || android::base::StartsWith(line, "debugfs 1.") ||
                            line.find("while changing ownership of") != std::string::npos;
      if (!harmless) return Error() << "debugfs: " << line;
    }
    return {};
  }

  const std::string result_;
  const std::string scratch_;
  int containers_ = 0;
};

}  // namespace

Result<std::map<std::string, std::string>> UnpackImage(const std::string& image) {
  struct stat about;
  if (stat(image.c_str(), &about) != 0) return ErrnoError() << image;
  if (!S_ISREG(about.st_mode)) return Error() << image << ": no image: not a regular file";
  const std::string path = fs::absolute(image);
  Result<std::string> kept =
      FromCache(about, [&](const std::string& result, const std::string& scratch) {
        return Unpacking(result, scratch).Unpack(path, kWholeImage);
      });
  if (!kept.ok()) return Error() << "cannot unpack " << image << ": " << kept.error();
  std::map<std::string, std::string> directories;
  for (const auto& entry : fs::directory_iterator(*kept)) {
    directories[entry.path().filename()] = entry.path();
  }
  return directories;
}

}  // namespace extprop
