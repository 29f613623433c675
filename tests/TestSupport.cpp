#include "TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "ConfigBridge.h"

namespace vendor::brevane::hardware::ostrel::core {
void PrintTo(PlannerFSMState state, std::ostream* os) {
    int value = state;
    *os << (value >= 0 && value < 4 ? kStateNames[value] : "state " + std::to_string(value));
}
}  // namespace vendor::brevane::hardware::ostrel::core

namespace ostrel_test {

namespace core = vendor::brevane::hardware::ostrel::core;

namespace {

// The fixed paths are the host's own outside the sandbox: refuse to run there.
struct SandboxGuard : ::testing::Environment {
    void SetUp() override {
        const char* marker = getenv("OSTREL_SANDBOX");
        if (marker != nullptr && std::string(marker) == "1") return;
        fprintf(stderr, "these tests write the device paths: run them through "
                        "scripts/devsandbox (ctest does)\n");
        exit(2);
    }
};

const auto* const kGuard = ::testing::AddGlobalTestEnvironment(new SandboxGuard);

}  // namespace

std::string readFile(const std::string& path) {
    std::string text;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return text;
    char buf[65536];
    ssize_t n;
    // ESRCH (a /proc file of a process that exited) ends the read like EOF.
    while ((n = read(fd, buf, sizeof(buf))) > 0 || (n < 0 && errno == EINTR)) {
        if (n > 0) text.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return text;
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

void appendFile(const std::string& path, const std::string& text) {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
}

std::string letters(size_t n) {
    std::string text(n, 'a');
    uint64_t s = 1;
    for (char& c : text) {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        c = static_cast<char>('a' + (s >> 33) % 26);
    }
    return text;
}

void writeSparseFile(const std::string& path, off_t size, const std::string& tail) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(ftruncate(fd, size), 0);
    off_t at = size - static_cast<off_t>(tail.size());
    ASSERT_EQ(pwrite(fd, tail.data(), tail.size(), at), static_cast<ssize_t>(tail.size()));
    close(fd);
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

StderrCapture::StderrCapture(int target) : target_(target) {
    char name[] = "/tmp/stderr-XXXXXX";
    int fd = mkstemp(name);
    path_ = name;
    fflush(nullptr);
    saved_ = dup(target_);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_APPEND);
    dup2(fd, target_);
    close(fd);
}

void StderrCapture::restore() {
    if (saved_ < 0) return;
    fflush(nullptr);
    dup2(saved_, target_);
    close(saved_);
    saved_ = -1;
}

int numberAfter(const std::string& text, const std::string& prefix) {
    size_t at = text.find(prefix);
    return at == std::string::npos ? -1 : atoi(text.c_str() + at + prefix.size());
}

int occurrences(const std::string& text, const std::string& part) {
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) n++;
    return n;
}

bool waitFor(const std::function<bool()>& done, double seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

char processState(pid_t pid) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    size_t paren = stat.rfind(')');
    return paren == std::string::npos || paren + 2 >= stat.size() ? 0 : stat[paren + 2];
}

bool isLive(pid_t pid) {
    char s = processState(pid);
    return s != 0 && s != 'Z' && s != 'X';
}

int liveInGroup(pid_t pgid) {
    std::string pids = runTool("pgrep -g " + std::to_string(pgid) + " -r R,S,D,T,t");
    return static_cast<int>(std::count(pids.begin(), pids.end(), '\n'));
}

std::string runTool(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
    // The status is not used: a machine's tick thread may reap any child.
    pclose(p);
    return out;
}

std::vector<std::string> zipEntries(const std::string& zip) {
    std::vector<std::string> names;
    std::istringstream lines(runTool("unzip -Z1 " + zip));
    for (std::string name; std::getline(lines, name);) names.push_back(name);
    return names;
}

std::string zipContent(const std::string& zip, const std::string& entry) {
    return runTool("unzip -p " + zip + " '" + entry + "' 2>/dev/null");
}

Testcase rounds(const std::string& command, int value) {
    Testcase t;
    t.command = "\"" + command + "\"";
    t.value = value;
    return t;
}

Testcase hours(const std::string& command, int value) {
    Testcase t = rounds(command, value);
    t.isRound = false;
    return t;
}

Testcase bootTest(const std::string& command, int value) {
    Testcase t = rounds(command, value);
    t.isBootTest = true;
    return t;
}

std::string planJson(int state, bool runStart, bool runFinished,
                     const std::vector<Testcase>& testcases) {
    auto flag = [](bool b) { return std::string(b ? "true" : "false"); };
    std::string json = "{\"not_set\":false,\"current_state\":" + std::to_string(state) +
                       ",\"run_start\":" + flag(runStart) +
                       ",\"run_finished\":" + flag(runFinished) + ",\"testcases\":[";
    for (size_t i = 0; i < testcases.size(); i++) {
        const Testcase& t = testcases[i];
        json += std::string(i ? "," : "") + "{\"name\":\"t\",\"select\":" + flag(t.select);
        if (!t.command.empty()) json += ",\"command\":" + t.command;
        json += ",\"testcase_value\":" + std::to_string(t.value) +
                ",\"isRound\":" + flag(t.isRound) + ",\"isBootTest\":" + flag(t.isBootTest) +
                ",\"testcase_current_time\":" + std::to_string(t.currentTime) +
                ",\"testcase_target_time\":" + std::to_string(t.targetTime) +
                ",\"testcase_current_round\":" + std::to_string(t.currentRound) +
                ",\"testcase_target_round\":" + std::to_string(t.targetRound) + "}";
    }
    return json + "]}";
}

OstrelFSM& newMachine() {
    static std::vector<OstrelFSM*>* machines = new std::vector<OstrelFSM*>;
    machines->push_back(new OstrelFSM(nullptr));
    return *machines->back();
}

std::unique_ptr<OstrelFSM> timedMachine(std::chrono::milliseconds tick, std::chrono::milliseconds retry) {
    auto m = std::make_unique<OstrelFSM>(nullptr);
    m->setRunTimings(tick, retry);
    return m;
}

std::string answer(OstrelFSM& m, PlannerEvent event, bool* result, std::string input) {
    char* text = nullptr;
    size_t size = 0;
    FILE* fp = open_memstream(&text, &size);
    bool ok = m.sendEvent(event, input.empty() ? nullptr : input.data(), nullptr,
                          event == core::TICK ? 10 : 0, reinterpret_cast<long>(fp));
    fclose(fp);
    std::string written(text, size);
    free(text);
    if (result) *result = ok;
    return written;
}

std::string executorLog() {
    return readFile(core::kExecutorLogFile);
}

std::string useSilletStandIn() {
    const char* source = getenv("OSTREL_SOURCE_DIR");
    std::string bin = std::string(source ? source : ".") + "/fakes/sillet/sillet";
    setenv("SILLET_BIN", bin.c_str(), 1);
    setenv("SILLET_STATE", kSilletState, 1);
    for (const char* name : {"SILLET_HANG", "SILLET_QUIET_HANG", "SILLET_OUTPUT",
                             "SILLET_OUTPUT_FILE", "SILLET_STDERR", "SILLET_EXIT",
                             "SILLET_SIGNAL"}) {
        unsetenv(name);
    }
    remove(kSilletState);
    return bin;
}

const rapidjson::Value* findEntry(const rapidjson::Value& list, const std::string& name) {
    for (auto& entry : list["config"].GetArray()) {
        if (entry.HasMember("content")) {
            for (auto& member : entry["content"].GetArray()) {
                if (name == member["name"].GetString()) return &member;
            }
        } else if (name == entry["name"].GetString()) {
            return &entry;
        }
    }
    return nullptr;
}

int listNumber(const std::string& name, const char* key) {
    const rapidjson::Value* entry = findEntry(core::configList, name);
    return entry != nullptr && entry->HasMember(key) ? (*entry)[key].GetInt() : -100;
}

}  // namespace ostrel_test
