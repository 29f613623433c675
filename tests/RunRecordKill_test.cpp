// A kill at every durable write of a run, one after another: a run (its start,
// ticks, a reboot, the executor's end, runAbort or runFinished, and each step of
// getResult) is made in a child process that is killed (SIGKILL) just after its
// N-th fsync, rename or unlink, for N = 1, 2, ... until the run gets through. After each
// kill the files left must agree (the record is never behind the plan), and a
// restarted machine must carry the run to one result per run, with its record.
#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "TestSupport.h"

namespace {

// The write counter of the child that makes the run: armed, it kills its own
// process just after write number |killAt|, and logs each write's path.
std::atomic<bool> armed{false};
std::atomic<int> writes{0};
int killAt = 0;
pid_t armedIn = 0;  // the child making the run; its supervisors never count
constexpr const char* kWriteLog = "/tmp/writes.log";

bool counting() {
    return armed.load() && getpid() == armedIn;
}

void counted(const std::string& path) {
    int n = ++writes;
    appendFile(kWriteLog, std::to_string(n) + " " + path + "\n");
    if (n == killAt) kill(getpid(), SIGKILL);
}

}  // namespace

// The durable writes of the code under test end in one of these (and files go
// with unlink): they are the C library's, counted on the way out. A supervisor (a forked child) does not
// count: only the machine's own process is killed.
// Looked up before any fork: a forked supervisor calls them between fork and exec.
int (*const realFsync)(int) = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
int (*const realRename)(const char*, const char*) =
        reinterpret_cast<int (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "rename"));
int (*const realUnlink)(const char*) = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "unlink"));

extern "C" int fsync(int fd) {
    int result = realFsync(fd);
    if (!counting()) return result;
    char path[512] = "";
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = readlink(link.c_str(), path, sizeof(path) - 1);
    if (n > 0) path[n] = '\0';
    counted(std::string("fsync ") + path);
    return result;
}

extern "C" int rename(const char* from, const char* to) {
    int result = realRename(from, to);
    if (!counting()) return result;
    counted(std::string("rename ") + to);
    return result;
}

// A file removed is a step too: a side file must outlive the write that holds it.
extern "C" int unlink(const char* path) {
    int result = realUnlink(path);
    if (!counting() || result != 0) return result;
    counted(std::string("unlink ") + path);
    return result;
}

namespace {

constexpr std::chrono::milliseconds kTick{30};

enum class Ending { ExecutorCrash, Abort, Finished };

constexpr const char* kCauses[] = {"executor", "runAbort", "runFinished"};
const char* causeOf(Ending ending) { return kCauses[static_cast<int>(ending)]; }

std::vector<rapidjson::Document> journalLines() {
    std::vector<rapidjson::Document> lines;
    readJournal(kRunJournalFile, [&](const std::string& text) {
        lines.emplace_back();
        lines.back().Parse(text.c_str());
        EXPECT_TRUE(lines.back().IsObject()) << "a torn line in the journal: " << text;
    });
    return lines;
}

std::vector<std::string> zipsIn(const char* dir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
        if (e.path().extension() == ".zip") names.push_back(e.path());
    }
    return names;
}

// As a reboot does: every process group a run's supervisors made ends.
void endExecutorGroups() {
    for (const auto& line : journalLines()) {
        if (line.IsObject() && line.HasMember("supervisor") && line["supervisor"].IsInt()) {
            kill(-line["supervisor"].GetInt(), SIGKILL);
        }
    }
}

// The run, in the child: started, a few ticks, a reboot (the machine goes, its
// groups end, a new one counts the boot), the ending, the result.
[[noreturn]] void makeRun(Ending ending) {
    auto m = timedMachine(kTick);
    m->sendEvent(RUN_START, nullptr, nullptr, 0, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pid_t supervisor = m->executorPid();
    m.reset();
    kill(-supervisor, SIGKILL);
    m = timedMachine(kTick);
    m->sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    if (ending == Ending::ExecutorCrash) {
        // The executor alone: its supervisor sees it end and writes how.
        kill(static_cast<pid_t>(atoi(runTool("pgrep -o -P " + std::to_string(m->executorPid())).c_str())), SIGSEGV);
        waitFor([&] { return m->getState() == COMPLETING; }, 5);
    } else {
        m->sendEvent(ending == Ending::Abort ? RUN_ABORT : RUN_FINISHED, nullptr, nullptr, 0, 0);
    }
    answer(*m, GET_RESULT);
    _exit(0);
}

// What the files a kill left say, before any restart: the record is never behind
// the plan. Returns the plan's flags.
std::pair<bool, bool> checkAgreement(Ending ending, const std::string& where) {
    rapidjson::Document plan;
    plan.Parse(readFile(kPlanFile).c_str());
    EXPECT_TRUE(plan.IsObject()) << where;
    bool started = plan["run_start"].GetBool(), finished = plan["run_finished"].GetBool();
    int planRounds = plan["testcases"][0]["testcase_current_round"].GetInt();
    int starts = 0, bootRounds = 0, ends = 0;
    std::string cause;
    for (const auto& line : journalLines()) {
        std::string event = line["event"].GetString();
        starts += event == "start";
        if (event == "boot") bootRounds = line["boot_rounds"].GetInt();
        if (event == "end") cause = line["cause"].GetString();
        ends += event == "executor_end";
    }
    if (started) {
        EXPECT_EQ(starts, 1) << where << ": a run the plan shows started has its start in the record";
        EXPECT_GE(bootRounds, planRounds) << where << ": the record counts every boot the plan counts";
    }
    if (started && finished) {
        EXPECT_EQ(cause, causeOf(ending)) << where << ": a run the plan shows ended has its end cause";
        if (ending == Ending::ExecutorCrash) {
            EXPECT_GE(ends, 1) << where << ": the executor that ended has its end in the record";
        }
    }
    return {started, finished};
}

}  // namespace

constexpr const char* kNames[] = {"ExecutorCrash", "RunAbort", "RunFinished"};
class RunRecordKill : public ::testing::TestWithParam<Ending> {};

TEST_P(RunRecordKill, AKillAtEachDurableWriteLeavesTheRecordWithThePlanAndOneResult) {
    Ending ending = GetParam();
    Testcase boots = bootTest("sleep 600 1", 3);
    std::string writesSeen;  // every write's log line, of every attempt
    int n = 1;
    for (;; n++) {
        ASSERT_EQ(system("rm -rf /data/vendor/qav /tmp/writes.log && mkdir -p /data/vendor/qav/data "
                         "/data/vendor/qav/kelbrun /data/vendor/qav/results"), 0);
        writeFile(kPlanFile, planJson(PREPARING, false, false, {boots, hours("sleep 600 1", 1)}));
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            killAt = n;
            armedIn = getpid();
            armed = true;
            makeRun(ending);
        }
        int status = 0;
        waitpid(child, &status, 0);
        std::string log = readFile(kWriteLog);
        writesSeen += log;
        if (WIFEXITED(status)) break;  // the run got through: every write was a kill point
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "write " << n;
        std::string where = std::string(causeOf(ending)) + ", killed after write " + std::to_string(n) + " (" +
                            log.substr(log.rfind('\n', log.size() - 2) + 1) + ")";
        endExecutorGroups();
        auto [started, finished] = checkAgreement(ending, where);
        // An archive, even one cut short, has its record beside it.
        for (const std::string& zip : zipsIn("/data/vendor/qav/results")) {
            EXPECT_TRUE(fileExists(zip.substr(0, zip.size() - 4) + ".run.json")) << where << ": " << zip;
        }
        // A side file goes only once the journal holds the end it tells.
        if (fileExists(kRunJournalFile) && contains(log, "unlink /data/vendor/qav/run/executor.")) {
            EXPECT_TRUE(contains(readFile(kRunJournalFile), "\"event\":\"executor_end\"")) << where;
        }

        // The restart: the run is carried to its result, with the record beside it.
        auto m = timedMachine(kTick);
        m->sendEvent(BOOT_COMPLETED, nullptr, nullptr, 0, 0);
        if (m->getState() == RUNNING) m->sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0);
        if (m->getState() == COMPLETING) answer(*m, GET_RESULT);
        pid_t supervisor = m->executorPid();
        m.reset();
        if (supervisor > 0) kill(-supervisor, SIGKILL);
        endExecutorGroups();
        std::vector<std::string> zips = zipsIn("/data/vendor/qav/results");
        // Killed before the run began, nothing to hand out; the plan reset by the
        // result, the run had ended as made.
        if (!started && zips.empty()) continue;
        finished = finished || !started;
        ASSERT_FALSE(zips.empty()) << where;
        std::set<std::string> runIds;
        for (const std::string& zip : zips) {
            rapidjson::Document record;
            record.Parse(readFile(zip.substr(0, zip.size() - 4) + ".run.json").c_str());
            ASSERT_TRUE(record.IsObject()) << where << ": " << zip << " has its record beside it";
            runIds.insert(record["run_id"].GetString());
            ASSERT_TRUE(record["end"].IsObject()) << where;
            std::string cause = record["end"]["cause"].GetString();
            EXPECT_EQ(cause, finished ? causeOf(ending) : "runAbort") << where;
        }
        EXPECT_EQ(runIds.size(), 1u) << where << ": every archive of the run carries its one run id";
    }
    // Every kind of durable write was a kill point.
    for (const char* part : {"fsync /data/vendor/qav/run/record.journal", "rename /data/vendor/qav/run/record.journal",
                             "rename /data/vendor/qav/data/ostreldata.txt", ".run.json", ".db_history"}) {
        EXPECT_TRUE(contains(writesSeen, part)) << "no kill after a write of " << part;
    }
    EXPECT_GE(n, 10);
    std::printf("%s: %d kill points\n", causeOf(ending), n - 1);
}

INSTANTIATE_TEST_SUITE_P(EveryEnding, RunRecordKill,
                         ::testing::Values(Ending::ExecutorCrash, Ending::Abort, Ending::Finished),
                         [](const auto& info) { return std::string(kNames[static_cast<int>(info.param)]); });
