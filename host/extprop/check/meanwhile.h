#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace extprop {

// Work that a process of its own does meanwhile. A thread would not do: no process that enters a
// private root may have a second one.
class Meanwhile {
 public:
  // Receives the input of Finish. Fails where there will be none.
  using Input = std::function<android::base::Result<std::string>()>;
  // Is given what Finish returns. Only the first call counts.
  using Output = std::function<void(const android::base::Result<std::string>& outcome)>;
  // Gives its outcome, from a process that it forks if it likes, or else returns why there is none.
  using Work = std::function<android::base::Result<void>(const Input& input, const Output& output)>;

  // Starts the work. Fails where there can be no further process.
  static android::base::Result<Meanwhile> Start(const Work& work);
  Meanwhile(Meanwhile&& other) noexcept;
  Meanwhile& operator=(Meanwhile&&) = delete;
  // Ends the work if it goes on.
  ~Meanwhile();

  // Gives the work its input and returns its outcome, without waiting for what it leaves to be
  // taken down, such as a private root. To be called once.
  android::base::Result<std::string> Finish(const std::string& input);

 private:
  Meanwhile() = default;

  pid_t process_ = -1;
  android::base::unique_fd input_;
  android::base::unique_fd output_;
};

}  // namespace extprop
