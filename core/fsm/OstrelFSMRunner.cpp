// The test-case runner: one executor command line from all selected test cases,
// each followed by what is left of it, then the executor and the run's threads.
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "OstrelFSM.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

// Hours left of a time-based test case, rounded up: r / 3600 truncated toward
// zero, plus one when r is no exact multiple. A negative r follows the same rule.
int hoursLeft(int targetTime, int currentTime) {
    int r = static_cast<int>(static_cast<uint32_t>(targetTime) - static_cast<uint32_t>(currentTime));
    return r / 3600 + (r % 3600 != 0 ? 1 : 0);
}

// Words at white space; runs of white space are one separator, no quoting.
std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    for (char c : line) {
        if (isspace(static_cast<unsigned char>(c))) {
            if (!word.empty()) words.push_back(std::move(word));
            word.clear();
        } else {
            word.push_back(c);
        }
    }
    if (!word.empty()) words.push_back(std::move(word));
    return words;
}

}  // namespace

std::string OstrelFSM::executorCommandLine() {
    std::ostringstream cmd;
    cmd << kExecutorPath;
    int count = data.getTestcasesLength();
    for (int i = 0; i < count; i++) {
        OstrelFSMData::TestcaseRecord tc = data.getTestcase(i);
        if (!tc.isSelect) continue;
        cmd << " ";
        if (tc.command == nullptr) {
            // Kept in the line all the same: a blank, a second blank and the count.
            error("ostrel: error executor command: %s\n", cmd.str().c_str());
        }
        cmd << (tc.command ? tc.command : "") << " ";
        if (tc.isRound) {
            cmd << static_cast<int>(static_cast<uint32_t>(tc.targetRound) -
                                    static_cast<uint32_t>(tc.currentRound));
        } else {
            cmd << hoursLeft(tc.targetTime, tc.currentTime);
        }
    }
    return cmd.str();
}

bool OstrelFSM::runTestcases() {
    std::string line = executorCommandLine();
    error("ostrel: run executor command: %s\n", line.c_str());

    std::vector<std::string> words = splitWords(line);
    char** argv = new char*[words.size() + 1];
    for (size_t w = 0; w < words.size(); w++) argv[w] = &words[w][0];
    argv[words.size()] = nullptr;
    // A second start in the same run replaces the threads, so ticks are never
    // counted twice; the earlier supervisor is reaped when it ends, without
    // ending the run.
    threads.stop();
    int32_t previous = executorProcessId.load();
    if (previous >= 1) executors.retire(previous);
    // The crash-history files are watched before the executor can write them,
    // and the plan is on disk before the executor runs.
    HistoryMonitor::Watch watch = history.watch();
    data.commitWrites();
    // Without an executor the run ends only by runFinished or runAbort.
    if (forkAndExec(argv)) record.executorStarted(executorProcessId.load(), words);
    delete[] argv;

    threads.start([this](uint32_t run) { tickThread(run); },
                  [this, watch](uint32_t run, int wakeFd) {
                      HistoryMonitor::Watch own = watch;
                      own.wakeFd = wakeFd;
                      monitorDBHistoryThread(own, run);
                  });
    return true;
}

}  // namespace vendor::brevane::hardware::ostrel::core
