// The process groups of a run's executors. A supervisor leads the group of its
// executor, so its process id names the group: terminate() ends a whole group,
// and a supervisor whose run ended (or that a second start replaced) is kept
// until it is reaped, without blocking, so that no child of an ended run is
// ever taken for a later run's end.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "OstrelLog.h"

namespace vendor::brevane::hardware::ostrel::core {

class ExecutorGroup {
  public:
    explicit ExecutorGroup(Diagnostics log) : log(log) {}

    // SIGTERM to group |pgid|, and SIGKILL when it is still there about 200
    // microseconds later; nothing when there is no such group.
    void terminate(int32_t pgid);
    // |supervisor| no longer leads the current run; it is reaped once it ended.
    void retire(pid_t supervisor);
    // Reaps the retired supervisors that have ended; |reaped| is told each.
    void reapRetired(const std::function<void(pid_t)>& reaped);
    // |pid| was reaped elsewhere.
    void forget(pid_t pid);

  private:
    Diagnostics log;
    std::vector<pid_t> unreaped;
};

}  // namespace vendor::brevane::hardware::ostrel::core
