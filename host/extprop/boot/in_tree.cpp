#include "host/extprop/boot/in_tree.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>

#include "host/sandbox/private_root.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;
using nlohmann::json;

json Outcome(const std::function<Result<json>()>& work) {
  try {
    Result<json> result = work();
    if (result.ok()) return {{"result", *result}, {"error", ""}};
    return {{"error", result.error().message()}};
  } catch (const std::exception& error) {
    return {{"error", error.what()}};
  }
}

int RunChild(const std::function<Result<json>()>& work, int outcome_fd) {
  const std::vector<std::uint8_t> bytes = json::to_cbor(Outcome(work));
  return android::base::WriteFully(outcome_fd, bytes.data(), bytes.size()) ? 0 : 1;
}

}  // namespace

Result<json> RunInTree(const std::string& tree, const std::function<Result<json>()>& work) {
  unique_fd outcome_fd(memfd_create("outcome", MFD_CLOEXEC));
  if (outcome_fd < 0) return ErrnoError() << "cannot make room for the outcome";
  Result<int> status =
      sandbox::RunInPrivateRoot({tree}, [&] { return RunChild(work, outcome_fd.get()); });
  if (!status.ok()) return status.error();

  std::string bytes;
  lseek(outcome_fd, 0, SEEK_SET);
  if (*status != 0 || !android::base::ReadFdToString(outcome_fd, &bytes)) {
    return Error() << "the child process left no outcome";
  }
  const json outcome = json::from_cbor(bytes);
  const auto error = outcome.at("error").get<std::string>();
  if (!error.empty()) return Error() << error;
  return outcome.at("result");
}

}  // namespace extprop
