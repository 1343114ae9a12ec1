#include "utils/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include <android-base/errno_restorer.h>
#include <android-base/logging.h>

namespace android {
namespace init {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;

namespace {

constexpr size_t kReadChunk = 1024;
// A sparse file may claim any size: what is beyond this is reserved as it is read.
constexpr off_t kMaxReservedSize = off_t{1} << 20;

template <typename SystemCall>
auto RetryOnEintr(SystemCall call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

unique_fd OpenRetrying(const std::string& path, int flags, mode_t mode = 0) {
  return unique_fd(RetryOnEintr([&] { return open(path.c_str(), flags, mode); }));
}

void ReserveFileSize(const struct stat& st, std::string* content) {
  if (st.st_size < 1) return;
  content->reserve(static_cast<size_t>(std::min(st.st_size, kMaxReservedSize)));
}

}  // namespace

Result<std::string> ReadFile(const std::string& path) {
  unique_fd fd = OpenRetrying(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd.get() == -1) return ErrnoError() << "open() failed";

  std::string content;
  struct stat st;
  if (fstat(fd.get(), &st) == 0) ReserveFileSize(st, &content);
  char chunk[kReadChunk];
  ssize_t count;
  while ((count = RetryOnEintr([&] { return read(fd.get(), chunk, sizeof(chunk)); })) > 0) {
    if (content.size() + static_cast<size_t>(count) > kMaxFileSize) {
      errno = EFBIG;
      count = -1;
      break;
    }
    content.append(chunk, static_cast<size_t>(count));
  }
  if (count < 0) return ErrnoError() << "Unable to read file contents";
  return content;
}

Result<std::string> ReadFirstBytes(const std::string& path, size_t limit) {
  unique_fd fd = OpenRetrying(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd.get() == -1) return ErrnoError() << "open() failed";

  std::string content(limit, '\0');
  size_t filled = 0;
  while (filled < limit) {
    const ssize_t count =
        RetryOnEintr([&] { return read(fd.get(), &content[filled], limit - filled); });
    if (count < 0) return ErrnoError() << "Unable to read file contents";
    if (count == 0) break;
    filled += static_cast<size_t>(count);
  }
  content.resize(filled);
  return content;
}

Result<std::string> ReadFileWithOffset(const std::string& path, int offset, int nbytes) {
  unique_fd fd = OpenRetrying(path, O_RDONLY | O_CLOEXEC);
  if (fd.get() == -1) return ErrnoError() << "open() failed";

  std::string content;
  if (!ReadFdToStringWithOffset(fd.get(), &content, offset, nbytes)) {
    return ErrnoError() << "Unable to read file contents";
  }
  return content;
}

bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int nbytes) {
  content->clear();
  struct stat st;
  if (fstat(fd, &st) == 0) ReserveFileSize(st, content);
  if (lseek(fd, offset, SEEK_SET) == -1) {
    LOG(ERROR) << "lseek() failed";
    return false;
  }
  char chunk[kReadChunk] = {};
  // A fortified read ends the process for such a request; not every platform's read is fortified.
  const size_t wanted = static_cast<size_t>(nbytes);
  if (wanted > sizeof(chunk)) abort();
  const ssize_t count = RetryOnEintr([&] { return read(fd, chunk, wanted); });
  android::base::ErrnoRestorer keep_errno_of_read;
  // Always nbytes long, whatever was read: callers rely on the fixed length.
  content->append(chunk, wanted);
  return count >= 0;
}

Result<void> WriteFile(const std::string& path, const std::string& content) {
  unique_fd fd =
      OpenRetrying(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd.get() == -1) return ErrnoError() << "open() failed";
  if (!WriteStringToFd(content, fd)) return ErrnoError() << "Unable to write file contents";
  return {};
}

bool WriteStringToFile(const std::string& content, const std::string& path, bool follow_symlinks) {
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (follow_symlinks ? 0 : O_NOFOLLOW);
  unique_fd fd = OpenRetrying(path, flags, 0666);
  if (fd.get() == -1) return false;
  if (WriteStringToFd(content, fd)) return true;

  android::base::ErrnoRestorer keep_errno_of_write;
  unlink(path.c_str());
  fd.reset();
  return false;
}

bool WriteStringToFd(const std::string& content, android::base::borrowed_fd fd) {
  const char* next = content.data();
  size_t left = content.size();
  while (left > 0) {
    const ssize_t count = RetryOnEintr([&] { return write(fd.get(), next, left); });
    if (count == -1) return false;
    next += count;
    left -= static_cast<size_t>(count);
  }
  return true;
}

}  // namespace init
}  // namespace android
