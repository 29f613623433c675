// Helpers for the tests of runs: stderr capture (the diagnostic lines, also those
// of child processes), polling, process-group inspection, external tools, and
// machines that live until the process ends (their threads are never joined).
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "OstrelFSM.h"
#include "TestSupport.h"

namespace ostrel_test {

using vendor::brevane::hardware::ostrel::core::OstrelFSM;

// Sends standard error (or another descriptor) of this process and of every
// child started meanwhile to a file for as long as the object lives; the file
// stays readable afterwards.
class StderrCapture {
  public:
    explicit StderrCapture(int target = STDERR_FILENO) : target_(target) {
        char name[] = "/tmp/stderr-XXXXXX";
        int fd = mkstemp(name);
        path_ = name;
        fflush(nullptr);
        saved_ = dup(target_);
        int flags = fcntl(fd, F_GETFL);
        fcntl(fd, F_SETFL, flags | O_APPEND);
        dup2(fd, target_);
        close(fd);
    }
    ~StderrCapture() { restore(); }
    void restore() {
        if (saved_ < 0) return;
        fflush(nullptr);
        dup2(saved_, target_);
        close(saved_);
        saved_ = -1;
    }
    std::string text() const { return readFile(path_); }

  private:
    int target_;
    std::string path_;
    int saved_ = -1;
};

// Appends |text| to |path| in one write, creating it when missing.
inline void appendFile(const std::string& path, const std::string& text) {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
}

// Polls |done| every 20 ms for up to |seconds|.
inline bool waitFor(const std::function<bool()>& done, double seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// Process state letter from /proc/<pid>/stat, or 0 when there is no such process.
inline char processState(pid_t pid, pid_t* pgid = nullptr) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    size_t paren = stat.rfind(')');
    if (paren == std::string::npos) return 0;
    char state = 0;
    int ppid = 0, group = 0;
    if (sscanf(stat.c_str() + paren + 1, " %c %d %d", &state, &ppid, &group) != 3) return 0;
    if (pgid) *pgid = group;
    return state;
}

// A process that exists and is not a zombie.
inline bool isLive(pid_t pid) {
    char s = processState(pid);
    return s != 0 && s != 'Z' && s != 'X';
}

// The live (not zombie) processes of process group |pgid|.
inline std::vector<pid_t> liveGroupMembers(pid_t pgid) {
    std::vector<pid_t> members;
    DIR* d = opendir("/proc");
    if (d == nullptr) return members;
    while (struct dirent* e = readdir(d)) {
        pid_t pid = atoi(e->d_name);
        pid_t group = 0;
        if (pid > 0 && isLive(pid) && processState(pid, &group) && group == pgid) {
            members.push_back(pid);
        }
    }
    closedir(d);
    return members;
}

// Runs a tool and returns its standard output. The status is not used: the
// machine's tick thread may reap any child of this process.
inline std::string runTool(const std::vector<std::string>& args) {
    int fds[2];
    if (pipe(fds) != 0) return "";
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    waitpid(pid, nullptr, 0);
    return out;
}

// Entry names of a zip, in archive order, as Debian's unzip lists them.
inline std::vector<std::string> zipEntries(const std::string& zip) {
    std::vector<std::string> names;
    std::string out = runTool({"unzip", "-Z1", zip});
    size_t start = 0;
    for (size_t nl; (nl = out.find('\n', start)) != std::string::npos; start = nl + 1) {
        names.push_back(out.substr(start, nl - start));
    }
    return names;
}

// One entry's contents, extracted by unzip.
inline std::string zipContent(const std::string& zip, const std::string& entry) {
    return runTool({"unzip", "-p", zip, entry});
}

// The integer that follows |prefix| in |text| (its first occurrence), or -1.
inline int numberAfter(const std::string& text, const std::string& prefix) {
    size_t at = text.find(prefix);
    if (at == std::string::npos) return -1;
    return atoi(text.c_str() + at + prefix.size());
}

// A machine that lives until the process ends: its threads may outlive the test.
inline OstrelFSM& newMachine() {
    static std::vector<OstrelFSM*>* machines = new std::vector<OstrelFSM*>;
    machines->push_back(new OstrelFSM(nullptr));
    return *machines->back();
}

// One test case of a plan document; |command| is JSON text (a string, a number,
// ...), or empty for no "command" key at all.
struct Testcase {
    std::string command;
    bool isRound = true;
    int value = 1;
    bool isBootTest = false;
    bool select = true;
    int currentTime = 0, targetTime = 0, currentRound = 0, targetRound = 0;
};

inline std::string testcaseJson(const Testcase& t) {
    auto flag = [](bool b) { return std::string(b ? "true" : "false"); };
    std::string json = "{\"name\":\"t\",\"select\":" + flag(t.select);
    if (!t.command.empty()) json += ",\"command\":" + t.command;
    return json + ",\"testcase_value\":" + std::to_string(t.value) +
           ",\"isRound\":" + flag(t.isRound) + ",\"isBootTest\":" + flag(t.isBootTest) +
           ",\"testcase_current_time\":" + std::to_string(t.currentTime) +
           ",\"testcase_target_time\":" + std::to_string(t.targetTime) +
           ",\"testcase_current_round\":" + std::to_string(t.currentRound) +
           ",\"testcase_target_round\":" + std::to_string(t.targetRound) + "}";
}

// A plan document in |state| with the given run flags and test cases.
inline std::string planJson(int state, bool runStart, bool runFinished,
                            const std::vector<Testcase>& testcases) {
    std::string json = "{\"not_set\":false,\"current_state\":" + std::to_string(state) +
                       ",\"run_start\":" + (runStart ? "true" : "false") +
                       ",\"run_finished\":" + (runFinished ? "true" : "false") +
                       ",\"testcases\":[";
    for (size_t i = 0; i < testcases.size(); i++) {
        json += (i ? "," : "") + testcaseJson(testcases[i]);
    }
    return json + "]}";
}

// Writes the plan file that the next machine loads.
inline void writePlan(const std::string& json) {
    writeFile(vendor::brevane::hardware::ostrel::core::kPlanFile, json);
}

// The text that a text-answering event writes to its stream.
inline std::string answer(OstrelFSM& m, vendor::brevane::hardware::ostrel::core::PlannerEvent e) {
    char* text = nullptr;
    size_t size = 0;
    FILE* fp = open_memstream(&text, &size);
    m.sendEvent(e, nullptr, nullptr, 0, reinterpret_cast<long>(fp));
    fclose(fp);
    std::string result(text, size);
    free(text);
    return result;
}

inline std::string executorLog() {
    return readFile(vendor::brevane::hardware::ostrel::core::kExecutorLogFile);
}

// The executor's own process id, from the stand-in's first log line.
inline pid_t waitForExecutor(double seconds = 10) {
    pid_t pid = -1;
    waitFor([&] { return (pid = numberAfter(executorLog(), "kelbrun: pid ")) > 0; }, seconds);
    return pid;
}

}  // namespace ostrel_test
