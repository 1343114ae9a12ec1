#pragma once

#include <stddef.h>

#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

// Whole-file reads and writes. Every descriptor is close-on-exec and closed on every path; open,
// read and write are retried on EINTR. An error's text ends with the errno text of the call that
// failed.
namespace android {
namespace init {

// ReadFile takes no more than this: an endless file fails, instead of using up init's memory. It is
// more than a thousand times the size of a real property file.
constexpr size_t kMaxFileSize = size_t{64} << 20;

// Returns the whole content of the file at `path`. Does not follow a symbolic link in the last
// component. Fails with "open() failed" or "Unable to read file contents", the latter also (EFBIG)
// for more than kMaxFileSize bytes.
android::base::Result<std::string> ReadFile(const std::string& path);

// Returns the first `limit` bytes of the file at `path`, or all of a shorter one, without reading
// further. Otherwise as ReadFile.
android::base::Result<std::string> ReadFirstBytes(const std::string& path, size_t limit);

// Returns exactly `nbytes` bytes of the file at `path`, starting at byte `offset`; what lies beyond
// the end of the file reads as zero bytes. Follows symbolic links. `nbytes` must be within 0 and
// 1024: the process is ended otherwise. Fails as ReadFile does.
android::base::Result<std::string> ReadFileWithOffset(const std::string& path, int offset,
                                                      int nbytes);

// Replaces `*content` with `nbytes` bytes (0 to 1024, or the process is ended) of `fd` from byte
// `offset`, padded with zero bytes. Returns false where seeking (`*content` is then empty) or
// reading failed. Does not close `fd`.
bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int nbytes);

// Creates or truncates the file at `path` (mode 0600 when created, no symbolic link followed) and
// writes `content`. Fails with "open() failed" or "Unable to write file contents"; what was written
// by then stays.
android::base::Result<void> WriteFile(const std::string& path, const std::string& content);

// Creates or truncates the file at `path` (mode 0666 less the umask when created) and writes
// `content`. Returns false with errno set on failure; a file that could not be written whole is
// removed.
bool WriteStringToFile(const std::string& content, const std::string& path, bool follow_symlinks);

// Writes all of `content` to `fd`, which stays open and the caller's. Returns false with errno set
// on failure.
bool WriteStringToFd(const std::string& content, android::base::borrowed_fd fd);

}  // namespace init
}  // namespace android
