// Benches of the running service over the bus, inside the device sandbox (the
// service's pid is the first argument after the phase):
//   ostrel_bench_bus latency PID CALLS CYCLES  p50/p99 of the control calls against a
//                                              bare Peer.Ping and a durable write floor
//   ostrel_bench_bus history PID LINES PAUSE_MS  crash-line latency during a run, and
//                                              the service's memory meanwhile
//   ostrel_bench_bus memory PID CALLS TOOL CYCLES  resident size after CALLS calls of
//                                              each method, TOOL of those that start
//                                              the config tool, CYCLES of
//                                              runStart+runAbort+getResult
//   ostrel_bench_bus complete                  stores the bench plan, starts and aborts
//                                              a run: the service waits in COMPLETING
//   ostrel_bench_bus result                    times one getResult
//   ostrel_bench_bus firstcrash PID TRIES      runs whose executor writes a crash line
//                                              at once: how many lines are collected
//   ostrel_bench_bus runend PID CYCLES         time from the executor's end to
//                                              COMPLETING, first and after CYCLES
//                                              aborted runs, and zombie children
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>
#include <sdbus-c++/sdbus-c++.h>

#include <dirent.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"

using namespace ostrel_bench;
using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::vendor::brevane::hardware::ostrel::V2_0::IOstrel;
using ::vendor::brevane::hardware::ostrel::V2_0::OstrelState;

namespace {

constexpr const char* kBusName = "vendor.brevane.hardware.ostrel.V2_0.IOstrel.default";
constexpr const char* kObjectPath = "/vendor/brevane/hardware/ostrel/V2_0/IOstrel/default";
constexpr const char* kPlanFile = "/data/vendor/qav/data/ostreldata.txt";
constexpr const char* kShortHistory = "/data/fyr_exp/db_history";
constexpr const char* kHistoryCopy = "/data/vendor/qav/data/db_history";

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "ostrel_bench_bus: %s\n", what.c_str());
    exit(1);
}

// Ten test cases as a test application stores them; the executor's first one
// waits, so a started run lasts until it is aborted.
std::string benchPlan() {
    std::string plan =
            "{\"not_set\":false,\"current_state\":1,\"run_start\":false,\"run_finished\":false,"
            "\"testcases\":[";
    for (int i = 0; i < 10; i++) {
        bool round = i % 2 == 0;
        plan += std::string(i ? "," : "") + "{\"name\":\"bench case " + std::to_string(i) +
                "\",\"select\":true,\"command\":\"" + (i == 0 ? "sleep 600" : "say case") +
                "\",\"testcase_value\":" + std::to_string(1 + i) +
                ",\"isRound\":" + (round ? "true" : "false") +
                ",\"isBootTest\":false,\"testcase_current_time\":0,\"testcase_target_time\":0,"
                "\"testcase_current_round\":0,\"testcase_target_round\":0}";
    }
    return plan + "]}";
}

struct Bench {
    sp<IOstrel> service;
    std::string pid;

    explicit Bench(const std::string& servicePid) : pid(servicePid) {
        service = IOstrel::getService("default");
        if (service == nullptr) fail("the service is not on the bus");
    }

    int state() {
        auto r = service->getState();
        if (!r.isOk()) fail("getState: " + r.description());
        return static_cast<int>(static_cast<OstrelState>(r));
    }
    void check(bool ok, const char* what) {
        if (!ok) fail(std::string(what) + " failed or was refused (state " +
                      std::to_string(state()) + ")");
    }
    bool setTest(const std::string& plan) {
        bool ok = false;
        auto r = service->setTest(plan, [&](bool v, const hidl_string&) { ok = v; });
        return r.isOk() && ok;
    }
    bool getTest() {
        bool ok = false;
        auto r = service->getTest([&](const hidl_string& t, const hidl_string&) { ok = !t.empty(); });
        return r.isOk() && ok;
    }
    bool getResult(std::string* archive = nullptr) {
        bool ok = false;
        auto r = service->getResult([&](const hidl_string& t, const hidl_string&) {
            ok = !t.empty();
            if (archive) *archive = t;
        });
        return r.isOk() && ok;
    }
    bool runStart() { return service->runStart().withDefault(false); }
    bool runAbort() { return service->runAbort().withDefault(false); }
    bool cycle() { return runStart() && runAbort() && getResult(); }

    // Into PREPARING with the bench plan stored, from wherever an earlier phase left it.
    void prepare() {
        if (state() == 0) check(service->bootCompleted().withDefault(false), "bootCompleted");
        if (state() == 2) check(runAbort(), "runAbort");
        if (state() == 3) check(getResult(), "getResult");
        check(setTest(benchPlan()), "setTest");
    }
    long rss() { return procStatusField(pid, "VmRSS"); }
    long threads() { return procStatusField(pid, "Threads"); }
};

// Seconds per call of |call| over |n| calls; a refused call ends the bench.
std::vector<double> timeCalls(int n, const char* what, const std::function<bool()>& call) {
    std::vector<double> t;
    t.reserve(n);
    for (int i = 0; i < n; i++) {
        double t0 = nowSeconds();
        bool ok = call();
        t.push_back(nowSeconds() - t0);
        if (!ok) fail(std::string(what) + " failed at call " + std::to_string(i + 1));
    }
    return t;
}

std::string us(double seconds) { return fmt("%.0f us", seconds * 1e6); }

void latencyRow(const std::string& what, const std::vector<double>& t,
                const std::vector<double>& base, const char* baseName) {
    double p50 = percentile(t, 50), p99 = percentile(t, 99);
    double b50 = percentile(base, 50), b99 = percentile(base, 99);
    row(what + " (" + std::to_string(t.size()) + " calls)",
        "p50 " + us(p50) + ", p99 " + us(p99),
        std::string(baseName) + ": p50 " + us(b50) + ", p99 " + us(b99),
        fmt("x%.1f", p50 / b50) + " / " + fmt("x%.1f", p99 / b99));
}

// The floor of a durable plan write: the same bytes to a temporary file in the
// same directory, flushed to disk, renamed over the target.
bool durableWrite(const std::string& bytes) {
    const char* tmp = "/data/vendor/qav/data/bench-floor.tmp";
    int fd = open(tmp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
              fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    return ok && rename(tmp, "/data/vendor/qav/data/bench-floor.txt") == 0;
}

// Bytes the service passed to write() on files and pipes (wchar of
// /proc/<pid>/io; bus messages go through sendmsg and are not counted).
long long serviceWchar(const std::string& pid) {
    std::ifstream in("/proc/" + pid + "/io");
    std::string name;
    long long value;
    while (in >> name >> value) {
        if (name == "wchar:") return value;
    }
    fail("cannot read /proc/" + pid + "/io");
}

// Counts the plan file's atomic replaces (a rename onto it) from construction
// until count() is called, as the kernel reports them.
class PlanWrites {
  public:
    PlanWrites() {
        fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        // Both halves of each rename: the kernel merges identical consecutive
        // events, and the temporary file's IN_MOVED_FROM keeps them apart.
        if (fd_ < 0 ||
            inotify_add_watch(fd_, "/data/vendor/qav/data", IN_MOVED_FROM | IN_MOVED_TO) < 0) {
            fail("cannot watch the plan directory");
        }
    }
    ~PlanWrites() { close(fd_); }
    long count() {
        char buf[65536] __attribute__((aligned(__alignof__(struct inotify_event))));
        ssize_t n;
        while ((n = read(fd_, buf, sizeof(buf))) > 0) {
            for (ssize_t off = 0; off < n;) {
                auto* e = reinterpret_cast<struct inotify_event*>(buf + off);
                if ((e->mask & IN_MOVED_TO) && e->len > 0 && strcmp(e->name, "ostreldata.txt") == 0) {
                    count_++;
                }
                off += sizeof(struct inotify_event) + e->len;
            }
        }
        return count_;
    }

  private:
    int fd_;
    long count_ = 0;
};

// Times |calls| calls of |call| interleaved with as many of |base|, so that both
// see the same load on the machine.
void timePairs(int calls, const char* what, const std::function<bool()>& call,
               const std::function<bool()>& base, std::vector<double>* t,
               std::vector<double>* b) {
    for (int i = 0; i < calls; i++) {
        std::vector<double> x = timeCalls(1, "baseline", base);
        b->push_back(x[0]);
        x = timeCalls(1, what, call);
        t->push_back(x[0]);
    }
}

int latency(Bench& b, int calls, int cycles) {
    b.prepare();
    auto peer = sdbus::createProxy(kBusName, kObjectPath);
    auto ping = [&] {
        peer->callMethod("Ping").onInterface("org.freedesktop.DBus.Peer");
        return true;
    };
    timeCalls(200, "Ping", ping);  // warm-up of both connections
    timeCalls(200, "getState", [&] { return b.state() == 1; });
    auto measure = [&](const std::string& what, int n, const std::function<bool()>& call) {
        std::vector<double> t, base;
        long long w0 = serviceWchar(b.pid);
        timePairs(n, what.c_str(), call, ping, &t, &base);
        long long w = (serviceWchar(b.pid) - w0) / n;
        latencyRow(what + ", " + std::to_string(w) + " B written a call", t, base, "Ping");
        return t;
    };
    measure("getState", calls, [&] { return b.state() == 1; });
    measure("getTest", calls, [&] { return b.getTest(); });
    // Two plans of one size in turn, so that every store changes the file.
    std::string plan = benchPlan(), stored, other = plan;
    other[other.find("bench case 0")] = 'B';
    int turn = 0;
    auto store = [&] { return b.setTest(++turn % 2 ? other : plan); };
    measure("setTest", calls, store);
    {
        FILE* in = fopen(kPlanFile, "r");
        if (in == nullptr) fail("no plan file after setTest");
        char buf[65536];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), in)) > 0) stored.append(buf, n);
        fclose(in);
    }
    // The service's written bytes in units of the plan's size: how many plan
    // writes a call makes (the reply log goes to the bus, not to a file).
    auto planWrites = [&](long long bytes, int n) { return double(bytes) / stored.size() / n; };
    std::vector<double> set, floor;
    long long w0 = serviceWchar(b.pid);
    timePairs(calls, "setTest", store, [&] { return durableWrite(stored) && ping(); }, &set,
              &floor);
    double setWrites = planWrites(serviceWchar(b.pid) - w0, calls);
    unlink("/data/vendor/qav/data/bench-floor.txt");
    latencyRow("setTest vs. its write floor (" + fmt("%.1f", setWrites) +
                       " plans' bytes written a call)",
               set, floor,
               ("temp+fsync+rename of the same " + std::to_string(stored.size()) + " B, plus a Ping")
                       .c_str());
    PlanWrites writes;
    std::vector<double> cyc = measure("runStart+runAbort+getResult cycle", cycles,
                                      [&] { return b.cycle(); });
    row("plan file writes per runStart+runAbort+getResult cycle (" + std::to_string(cycles) +
                " cycles, renames seen by inotify)",
        fmt("%.1f", double(writes.count()) / cycles), "", "");
    return 0;
}

int history(Bench& b, int lines, int pauseMs) {
    b.prepare();
    // The watched file exists before the run, as on a device.
    FILE* src = fopen(kShortHistory, "a");
    if (src == nullptr) fail("cannot open the crash-history file");
    b.check(b.runStart(), "runStart");
    long rssPeak = b.rss(), threadsPeak = b.threads();
    usleep(300 * 1000);  // the monitor sets its watches
    std::vector<double> t;
    long long expected = 0;
    struct stat st = {};
    int missed = 0;
    for (int i = 0; i < lines; i++) {
        char line[96];
        int len = snprintf(line, sizeof(line), "bench crash %d kernel-panic at cpu%d\n", i, i % 8);
        expected += len;
        double t0 = nowSeconds();
        fwrite(line, 1, len, src);
        fflush(src);
        // Waits until the copy holds the line (sizes add up line by line).
        while (true) {
            if (stat(kHistoryCopy, &st) == 0 && st.st_size >= expected) break;
            if (nowSeconds() - t0 > 2) {
                missed++;
                expected = st.st_size;
                break;
            }
            usleep(20);
        }
        t.push_back(nowSeconds() - t0);
        rssPeak = std::max(rssPeak, b.rss());
        threadsPeak = std::max(threadsPeak, b.threads());
        usleep(pauseMs * 1000);
    }
    fclose(src);
    row("crash line to history copy (" + std::to_string(lines) + " lines, next one " +
                std::to_string(pauseMs) + " ms after the last arrived)",
        "p50 " + us(percentile(t, 50)) + ", p99 " + us(percentile(t, 99)) +
                (missed ? ", " + std::to_string(missed) + " not copied within 2 s" : ""));
    row("service VmRSS during a run (peak while crash lines flow)",
        std::to_string(rssPeak) + " KiB, threads " + std::to_string(threadsPeak));
    b.check(b.runAbort(), "runAbort");
    b.check(b.getResult(), "getResult");
    return 0;
}

// Each try stores a plan whose executor appends a crash line as its first act,
// starts the run and waits up to 2 s for the line in the history copy. Half the
// tries start with the crash-history file missing (the crash creates it).
int firstCrash(Bench& b, int tries) {
    b.prepare();
    int collected = 0;
    double waited = 0;
    for (int i = 0; i < tries; i++) {
        std::string text = "first-crash-" + std::to_string(i);
        std::string plan =
                "{\"not_set\":false,\"current_state\":1,\"run_start\":false,"
                "\"run_finished\":false,\"testcases\":[{\"name\":\"crash\",\"select\":true,"
                "\"command\":\"crash short " + text + "\",\"testcase_value\":1,\"isRound\":true,"
                "\"testcase_current_time\":0,\"testcase_target_time\":0,"
                "\"testcase_current_round\":0,\"testcase_target_round\":0},"
                "{\"name\":\"wait\",\"select\":true,\"command\":\"sleep 600\","
                "\"testcase_value\":1,\"isRound\":true,\"testcase_current_time\":0,"
                "\"testcase_target_time\":0,\"testcase_current_round\":0,"
                "\"testcase_target_round\":0}]}";
        if (i % 2 == 0) unlink(kShortHistory);
        b.check(b.setTest(plan), "setTest");
        double t0 = nowSeconds();
        b.check(b.runStart(), "runStart");
        bool found = false;
        while (!found && nowSeconds() - t0 < 2) {
            std::ifstream in(kHistoryCopy);
            std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            found = content.find(text + " 1\n") != std::string::npos;
            if (!found) usleep(500);
        }
        waited += nowSeconds() - t0;
        collected += found;
        b.check(b.runAbort(), "runAbort");
        b.check(b.getResult(), "getResult");
    }
    row("crash line written as the executor starts (" + std::to_string(tries) +
                " runs, half creating the file)",
        std::to_string(collected) + " of " + std::to_string(tries) + " collected",
        fmt("%.0f ms from runStart on average", waited / tries * 1e3), "");
    row("service threads after " + std::to_string(tries) + " start/abort/result cycles",
        std::to_string(b.threads()), "", "");
    return 0;
}

// Children of |pid| that have ended and were not reaped, from /proc.
int zombieChildren(const std::string& pid) {
    int n = 0;
    DIR* d = opendir("/proc");
    while (struct dirent* e = d ? readdir(d) : nullptr) {
        std::ifstream in(std::string("/proc/") + e->d_name + "/stat");
        std::string line;
        if (!std::getline(in, line) || line.rfind(')') == std::string::npos) continue;
        char state = 0;
        long ppid = 0;
        sscanf(line.c_str() + line.rfind(')') + 1, " %c %ld", &state, &ppid);
        n += state == 'Z' && std::to_string(ppid) == pid;
    }
    if (d) closedir(d);
    return n;
}

// A run whose executor ends at once: seconds from its end (its log's last line)
// to COMPLETING, which the next tick (every 10 s) should see.
double executorEndToCompleting(Bench& b) {
    const char* log = "/data/vendor/qav/kelbrun/kelbrun_log.txt";
    b.check(b.setTest("{\"not_set\":false,\"current_state\":1,\"run_start\":false,"
                      "\"run_finished\":false,\"testcases\":[{\"name\":\"quick\",\"select\":true,"
                      "\"command\":\"say quick\",\"testcase_value\":1,\"isRound\":true}]}"),
            "setTest");
    double t0 = nowSeconds(), ended = 0;
    b.check(b.runStart(), "runStart");
    while (b.state() == 2 && nowSeconds() - t0 < 3600) {
        if (ended == 0) {
            std::ifstream in(log);
            std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            if (text.find("kelbrun: done\n") != std::string::npos) ended = nowSeconds();
        }
        usleep(5000);
    }
    double completed = nowSeconds();
    b.check(b.getResult(), "getResult");
    return completed - (ended ? ended : t0);
}

int runEnd(Bench& b, int cycles) {
    b.prepare();
    double first = executorEndToCompleting(b);
    b.check(b.setTest(benchPlan()), "setTest");
    for (int i = 0; i < cycles; i++) b.check(b.cycle(), "runStart+runAbort+getResult");
    int zombies = zombieChildren(b.pid);
    double after = executorEndToCompleting(b);
    row("executor's end to COMPLETING after " + std::to_string(cycles) +
                " aborted runs (zombie children of the service after them: " +
                std::to_string(zombies) + ")",
        fmt("%.2f s", after), fmt("first run %.2f s", first), fmt("x%.2f", after / first));
    return 0;
}

int memory(Bench& b, int calls, int tool, int cycles) {
    b.prepare();
    long idle = b.rss();
    row("service VmRSS idle (PREPARING, plan stored)",
        std::to_string(idle) + " KiB, threads " + std::to_string(b.threads()), "", "");
    auto measure = [&](const std::string& what, int n, const std::function<bool()>& call) {
        double t0 = nowSeconds();
        timeCalls(n, what.c_str(), call);
        long r = b.rss();
        row("service VmRSS after " + std::to_string(n) + " x " + what,
            std::to_string(r) + " KiB, threads " + std::to_string(b.threads()) + " (" +
                    fmt("%.1f s", nowSeconds() - t0) + ")",
            "idle " + std::to_string(idle) + " KiB", fmt("x%.2f", double(r) / idle));
    };
    std::string plan = benchPlan();
    measure("getState", calls, [&] { return b.state() == 1; });
    measure("getTest", calls, [&] { return b.getTest(); });
    measure("setTest", calls, [&] { return b.setTest(plan); });
    measure("bootCompleted", calls, [&] { return b.service->bootCompleted().withDefault(false); });
    // Outside a run these answer false and change nothing; the call is what counts.
    measure("runFinished", calls, [&] { return b.service->runFinished().isOk(); });
    static hidl_array<uint8_t, 65536> testers;
    memset(&testers[0], 'x', 65536);
    measure("installTesters (64 KiB array)", calls, [&] {
        return b.service->installTesters("bench.apk", testers, 16, [](bool, const hidl_string&) {})
                .isOk();
    });
    std::string config;
    measure("getConfig", tool, [&] {
        bool ok = false;
        auto r = b.service->getConfig([&](const hidl_string& c, const hidl_string&) {
            ok = !c.empty();
            config = c;
        });
        return r.isOk() && ok;
    });
    measure("setConfig", tool, [&] {
        bool ok = false;
        auto r = b.service->setConfig(config, [&](bool v, const hidl_string&) { ok = v; });
        return r.isOk() && ok;
    });
    measure("clearConfig", tool, [&] {
        bool ok = false;
        auto r = b.service->clearConfig([&](bool v, const hidl_string&) { ok = v; });
        return r.isOk() && ok;
    });
    measure("runStart+runAbort+getResult", cycles, [&] { return b.cycle(); });
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string phase = argc > 1 ? argv[1] : "";
    try {
        if (phase == "latency" && argc == 5) {
            Bench b(argv[2]);
            return latency(b, atoi(argv[3]), atoi(argv[4]));
        }
        if (phase == "history" && argc == 5) {
            Bench b(argv[2]);
            return history(b, atoi(argv[3]), atoi(argv[4]));
        }
        if (phase == "memory" && argc == 6) {
            Bench b(argv[2]);
            return memory(b, atoi(argv[3]), atoi(argv[4]), atoi(argv[5]));
        }
        if (phase == "firstcrash" && argc == 4) {
            Bench b(argv[2]);
            return firstCrash(b, atoi(argv[3]));
        }
        if (phase == "runend" && argc == 4) {
            Bench b(argv[2]);
            return runEnd(b, atoi(argv[3]));
        }
        if (phase == "complete" && argc == 2) {
            Bench b("self");
            b.prepare();
            b.check(b.runStart(), "runStart");
            b.check(b.runAbort(), "runAbort");
            return 0;
        }
        if (phase == "result" && argc == 2) {
            Bench b("self");
            std::string archive;
            double t0 = nowSeconds();
            b.check(b.getResult(&archive), "getResult");
            printf("%.3f %s\n", nowSeconds() - t0, archive.c_str());
            return 0;
        }
    } catch (const sdbus::Error& e) {
        fail(e.getName() + ": " + e.getMessage());
    }
    fprintf(stderr, "usage: see the comment at the top of bench/BusBench.cpp\n");
    return 2;
}
