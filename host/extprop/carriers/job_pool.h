#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <android-base/result.h>

namespace extprop {

using Work = std::function<std::string(size_t number)>;
using Take = std::function<void(size_t number, const std::string& outcome)>;

// Calls `start` once in each of `jobs` processes (0: as many as there are cores), and there `work`
// for each number below `count`; calls `take` in this process with what it returned, in the order
// of the numbers and as soon as that order allows. The calling process must have one thread; its
// end is the end of the others. Fails if a process cannot be started or ends before its work is
// done.
android::base::Result<void> RunJobs(size_t count, unsigned jobs, const Work& work, const Take& take,
                                    const std::function<void()>& start = {});

}  // namespace extprop
