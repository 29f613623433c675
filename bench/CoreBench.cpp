// In-process benches of the core, run inside the device sandbox:
//   ostrel_bench_core tick COUNT:TICKS...   CPU time and bytes written per TICK for
//                                           plans of COUNT time-based test cases
//   ostrel_bench_core logs DIR FILES MB     writes FILES files of MB megabytes of
//                                           device-log text into DIR
//   ostrel_bench_core scan MB SCANS CYCLES  the crash-history monitor's last-line scan
//                                           of MB MiB without a newline and of 1 MiB
//                                           of device-log lines against a one-line
//                                           file, and runStart/runAbort during scans
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "BenchSupport.h"
#include "LastLine.h"
#include "OstrelFSM.h"

using namespace ostrel_bench;
using vendor::brevane::hardware::ostrel::core::OstrelFSM;
using vendor::brevane::hardware::ostrel::core::TICK;
namespace core = vendor::brevane::hardware::ostrel::core;

namespace {

// A plan in RUNNING with |count| selected time-based test cases far from their
// targets, so that every TICK advances and stores all of them.
std::string runningPlan(int count) {
    std::string plan =
            "{\"not_set\":false,\"current_state\":2,\"run_start\":true,\"run_finished\":false,"
            "\"testcases\":[";
    for (int i = 0; i < count; i++) {
        if (i) plan += ",";
        plan += "{\"name\":\"soak " + std::to_string(i) +
                "\",\"select\":true,\"command\":\"stress 60\",\"testcase_value\":1000,"
                "\"isRound\":false,\"isBootTest\":false,\"testcase_current_time\":0,"
                "\"testcase_target_time\":3600000,\"testcase_current_round\":0,"
                "\"testcase_target_round\":0}";
    }
    return plan + "]}";
}

int tickBench(int argc, char** argv) {
    double cpuPerTick[2] = {0, 0};  // at 100 and at 1,000 test cases
    for (int a = 0; a < argc; a++) {
        int count = 0, ticks = 0;
        if (sscanf(argv[a], "%d:%d", &count, &ticks) != 2 || count < 1 || ticks < 1) {
            fprintf(stderr, "ostrel_bench_core: bad COUNT:TICKS '%s'\n", argv[a]);
            return 2;
        }
        std::unique_ptr<OstrelFSM> fsm(new OstrelFSM(nullptr));
        if (!fsm->planStore().putJSON(runningPlan(count).c_str()) ||
            !fsm->planStore().writeFSMData()) {
            fprintf(stderr, "ostrel_bench_core: the plan of %d test cases was refused\n", count);
            return 1;
        }
        sync();
        double cpu0 = selfCpuSeconds(), wall0 = nowSeconds();
        long long disk0 = selfIoField("write_bytes"), wchar0 = selfIoField("wchar");
        for (int t = 0; t < ticks; t++) fsm->sendEvent(TICK, nullptr, nullptr, 10, 0);
        double cpu = selfCpuSeconds() - cpu0, wall = nowSeconds() - wall0;
        long long disk = selfIoField("write_bytes") - disk0, wchar = selfIoField("wchar") - wchar0;
        // The ticks must have counted: otherwise the figures measure nothing.
        int last = fsm->planStore().getTestcaseCurrentTime(count - 1);
        if (last != ticks * 10) {
            fprintf(stderr, "ostrel_bench_core: after %d ticks test case %d counts %d s\n", ticks,
                    count - 1, last);
            return 1;
        }
        struct stat st = {};
        stat("/data/vendor/qav/data/ostreldata.txt", &st);
        double perTick = double(wchar) / ticks;
        if (count == 100) cpuPerTick[0] = cpu / ticks;
        if (count == 1000) cpuPerTick[1] = cpu / ticks;
        row("TICK, " + std::to_string(count) + " time-based test case" + (count > 1 ? "s" : "") +
                    " (" + std::to_string(ticks) + " ticks)",
            fmt("%.3f ms CPU", cpu / ticks * 1e3) + ", " + fmt("%.3f ms wall", wall / ticks * 1e3) +
                    ", " + fmt("%.1f KiB written", perTick / 1024) + " (" +
                    fmt("%.1f KiB to disk", disk / 1024.0 / ticks) + ")",
            "plan " + fmt("%.1f KiB", st.st_size / 1024.0),
            fmt("x%.2f of the plan a tick", perTick / st.st_size));
    }
    if (cpuPerTick[0] > 0 && cpuPerTick[1] > 0) {
        row("TICK CPU, 1,000 against 100 test cases", fmt("%.3f ms", cpuPerTick[1] * 1e3),
            fmt("%.3f ms", cpuPerTick[0] * 1e3), fmt("x%.1f", cpuPerTick[1] / cpuPerTick[0]));
    }
    return 0;
}

// xorshift64*: a fixed sequence, so every run packs the same text.
struct Random {
    uint64_t s = 0x9E3779B97F4A7C15ull;
    uint64_t next() {
        s ^= s >> 12;
        s ^= s << 25;
        s ^= s >> 27;
        return s * 2685821657736338717ull;
    }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
};

const char* const kTags[] = {"ActivityManager", "kelbrun",       "thermal-engine", "healthd",
                             "CpuHotplug",      "vendor.qav",    "kernel",         "StressLoad",
                             "PowerHAL",        "InputDispatcher"};
const char* const kLevels = "VDIWE";

// One line in the threadtime form of the device log.
int logLine(Random& r, char* out, size_t size, int fileNo, long lineNo) {
    int sec = static_cast<int>(lineNo / 40);
    int pid = 400 + r.below(6000), tid = pid + r.below(40);
    const char* tag = kTags[r.below(10)];
    char level = kLevels[r.below(5)];
    int n = snprintf(out, size, "11-%02d %02d:%02d:%02d.%03d %5d %5d %c %-15s: ", 1 + fileNo % 28,
                     (sec / 3600) % 24, (sec / 60) % 60, sec % 60, r.below(1000), pid, tid, level,
                     tag);
    switch (r.below(6)) {
        case 0:
            n += snprintf(out + n, size - n, "stress round %d of %d: cpu%d %u bogo ops in %d.%02d s",
                          r.below(500), 500, r.below(8), static_cast<unsigned>(r.next() % 900000),
                          r.below(60), r.below(100));
            break;
        case 1:
            n += snprintf(out + n, size - n, "tsens_tz_sensor%d temp %d mC, mitigation level %d",
                          r.below(16), 30000 + r.below(60000), r.below(8));
            break;
        case 2:
            n += snprintf(out + n, size - n,
                          "  #%02d pc %016llx  /vendor/lib64/libqav_%d.so (offset 0x%x)",
                          r.below(40), static_cast<unsigned long long>(r.next() >> 16), r.below(12),
                          r.below(1 << 20));
            break;
        case 3:
            n += snprintf(out + n, size - n, "cpu%d offline -> online after %d ms (hotplug %d)",
                          r.below(8), r.below(3000), r.below(100000));
            break;
        case 4:
            n += snprintf(out + n, size - n, "battery l=%d v=%d t=%d.%d h=2 st=%d chg=u",
                          r.below(101), 3500 + r.below(900), 20 + r.below(30), r.below(10),
                          1 + r.below(5));
            break;
        default:
            n += snprintf(out + n, size - n, "Start proc %d:com.brevane.qav.tester%d/u0a%d for "
                          "service {com.brevane.qav/.Runner}", pid, r.below(30), 100 + r.below(200));
            break;
    }
    out[n++] = '\n';
    return n;
}

int logsBench(const char* dir, int files, int megabytes) {
    Random r;
    char line[512];
    for (int f = 0; f < files; f++) {
        std::string path = std::string(dir) + "/device_log_" + std::to_string(f) + ".txt";
        FILE* out = fopen(path.c_str(), "w");
        if (out == nullptr) {
            fprintf(stderr, "ostrel_bench_core: cannot write %s: %s\n", path.c_str(),
                    strerror(errno));
            return 1;
        }
        long long size = static_cast<long long>(megabytes) << 20, written = 0;
        for (long n = 0; written < size; n++) {
            int len = logLine(r, line, sizeof(line), f, n);
            if (written + len > size) len = static_cast<int>(size - written);
            fwrite(line, 1, len, out);
            written += len;
        }
        if (fclose(out) != 0) return 1;
    }
    return 0;
}

// A crash-history file of |mib| MiB without a newline: a hole, then 1 MiB of text.
bool writeLinelessFile(const char* path, int mib) {
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::string tail(1 << 20, 'x');
    off_t size = static_cast<off_t>(mib) << 20;
    bool ok = fd >= 0 && ftruncate(fd, size) == 0 &&
              pwrite(fd, tail.data(), tail.size(), size - static_cast<off_t>(tail.size())) ==
                      static_cast<ssize_t>(tail.size());
    if (fd >= 0) close(fd);
    return ok;
}

struct Scans {
    double seconds;  // a scan
    double bytes;    // read a scan
    long peakKiB;    // growth of the peak resident size
};

Scans timeScans(OstrelFSM& fsm, const char* path, int scans) {
    long peak = procStatusField("self", "VmHWM");
    long long read0 = selfIoField("rchar");
    double t0 = nowSeconds();
    size_t length = 0;
    for (int i = 0; i < scans; i++) length += fsm.getLastLine(path).size();
    double t = nowSeconds() - t0;
    if (length == 0) fprintf(stderr, "ostrel_bench_core: %s has no last line\n", path);
    return {t / scans, double(selfIoField("rchar") - read0) / scans,
            procStatusField("self", "VmHWM") - peak};
}

// runStart and runAbort of |cycles| runs, with a writer changing |path| every 2 ms
// (the monitor scans it at each change) or not at all. The history copy's lines
// count the scans.
struct Calls {
    std::vector<double> start, abort;
    long scans = 0;
};

Calls timeRuns(OstrelFSM& fsm, const char* path, int cycles, bool scanning) {
    Calls calls;
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        int fd = open(path, O_WRONLY);
        struct stat st = {};
        fstat(fd, &st);
        while (scanning && !stop.load()) {
            if (pwrite(fd, "x", 1, st.st_size - 1) != 1) break;
            usleep(2000);
        }
        close(fd);
    });
    for (int i = 0; i < cycles; i++) {
        double t0 = nowSeconds();
        fsm.sendEvent(core::RUN_START, nullptr, nullptr, 0, 0);
        double t1 = nowSeconds();
        usleep(50 * 1000);  // the monitor scans meanwhile
        double t2 = nowSeconds();
        fsm.sendEvent(core::RUN_ABORT, nullptr, nullptr, 0, 0);
        calls.start.push_back(t1 - t0);
        calls.abort.push_back(nowSeconds() - t2);
        struct stat st = {};
        if (stat(core::kHistoryCopy, &st) == 0) {
            calls.scans += st.st_size / static_cast<off_t>(core::kLastLineBound + 1);
        }
        fsm.sendEvent(core::GET_RESULT, nullptr, nullptr, 0, 0);
    }
    stop = true;
    writer.join();
    return calls;
}

int scanBench(int mib, int scans, int cycles) {
    const char* big = core::kShortHistoryPath;
    const char* logs = "/data/bench-scan/device_log_0.txt";
    const char* small = "/data/bench-scan/one_line";
    mkdir("/data/bench-scan", 0755);
    FILE* one = fopen(small, "w");
    if (one) fputs("11-25 10:00:00.000  4242  4242 F libc    : Fatal signal 11 (SIGSEGV)\n", one);
    if (!one || fclose(one) != 0 || !writeLinelessFile(big, mib) ||
        logsBench("/data/bench-scan", 1, 1) != 0) {
        fprintf(stderr, "ostrel_bench_core: cannot write the crash-history files\n");
        return 1;
    }
    std::unique_ptr<OstrelFSM> fsm(new OstrelFSM(nullptr));
    Scans base = timeScans(*fsm, small, scans);
    auto scanRow = [&](const std::string& what, const char* path, int n) {
        Scans s = timeScans(*fsm, path, n);
        row("last-line scan, " + what + " (" + std::to_string(n) + " scans)",
            fmt("%.1f us a scan", s.seconds * 1e6) + ", " + fmt("%.0f bytes read", s.bytes) +
                    ", peak resident " + fmt("+%.0f KiB", s.peakKiB),
            "one-line file " + fmt("%.1f us", base.seconds * 1e6) + ", " +
                    fmt("%.0f bytes", base.bytes),
            fmt("time x%.1f", s.seconds / base.seconds));
    };
    scanRow(std::to_string(mib) + " MiB without a newline", big, scans);
    scanRow("1 MiB of device-log lines", logs, scans);

    // Runs of a plan whose executor waits; the file is watched from each start.
    if (!fsm->planStore().putJSON(
                "{\"not_set\":false,\"current_state\":1,\"run_start\":false,"
                "\"run_finished\":false,\"testcases\":[{\"name\":\"wait\",\"select\":true,"
                "\"command\":\"sleep 600\",\"testcase_value\":1,\"isRound\":true}]}") ||
        !fsm->planStore().writeFSMData()) {
        fprintf(stderr, "ostrel_bench_core: the run plan was refused\n");
        return 1;
    }
    long peak = procStatusField("self", "VmHWM");
    Calls quiet = timeRuns(*fsm, big, cycles, false);
    Calls busy = timeRuns(*fsm, big, cycles, true);
    long grown = procStatusField("self", "VmHWM") - peak;
    for (auto [what, busyCalls, quietCalls] :
         {std::make_tuple("runStart", &busy.start, &quiet.start),
          std::make_tuple("runAbort", &busy.abort, &quiet.abort)}) {
        double b50 = percentile(*busyCalls, 50), q50 = percentile(*quietCalls, 50);
        row(std::string(what) + " while the monitor scans " + std::to_string(mib) +
                    " MiB without a newline (" + std::to_string(cycles) + " runs, " +
                    std::to_string(busy.scans) + " scans)",
            fmt("p50 %.2f ms", b50 * 1e3) +
                    fmt(", max %.2f ms", percentile(*busyCalls, 100) * 1e3) +
                    ", peak resident " + fmt("+%.0f KiB", grown),
            "no scan: " + fmt("p50 %.2f ms", q50 * 1e3) +
                    fmt(", max %.2f ms", percentile(*quietCalls, 100) * 1e3),
            fmt("x%.2f", b50 / q50));
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && strcmp(argv[1], "tick") == 0) return tickBench(argc - 2, argv + 2);
    if (argc == 5 && strcmp(argv[1], "logs") == 0) {
        return logsBench(argv[2], atoi(argv[3]), atoi(argv[4]));
    }
    if (argc == 5 && strcmp(argv[1], "scan") == 0) {
        return scanBench(atoi(argv[2]), atoi(argv[3]), atoi(argv[4]));
    }
    fprintf(stderr,
            "usage: ostrel_bench_core tick COUNT:TICKS...\n"
            "       ostrel_bench_core logs DIR FILES MB\n"
            "       ostrel_bench_core scan MB SCANS CYCLES\n");
    return 2;
}
