// The crash-history copy: last lines, appends, and the monitor thread of a real
// run watching real files with inotify.

#include "TestSupport.h"

namespace {

constexpr std::chrono::milliseconds kRetry{100};

// Rewrites the first bytes of |path| with what they already are: a change
// without a new line.
void rewriteInPlace(const std::string& path) {
    std::string text = readFile(path);
    int fd = open(path.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
}

bool copyBecomes(const std::string& expected, double seconds = 5) {
    return waitFor([&] { return readFile(kHistoryCopy) == expected; }, seconds);
}

// A run that keeps going (its executor sleeps) with the monitor watching; a
// missing file is looked for every 100 ms.
OstrelFSM& startRun() {
    writeFile(kPlanFile, planJson(PREPARING, false, false, {rounds("sleep 120", 1)}));
    OstrelFSM& m = newMachine();
    m.setRunTimings(std::chrono::seconds(kTickSeconds), kRetry);
    EXPECT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    return m;
}

// A kB field ("VmRSS", "VmHWM") of this process's status.
long statusKiB(const std::string& key) {
    return numberAfter(readFile("/proc/self/status"), "\n" + key + ":");
}

}  // namespace

// The crash line is the file's last line, read from its end; each append adds it
// to the copy with a newline (an empty last line adds nothing). A last line of up
// to 65,534 bytes is copied whole; a longer one as its last 65,534 bytes, with one
// diagnostic line.
TEST(OstrelFSMHistory, LastLineIsAppendedToTheCopy) {
    OstrelFSM& m = newMachine();
    const std::string f = kShortHistoryPath;
    const std::string big(3 * 1024 * 1024, 'x');
    const std::string atBound = letters(65534), over = letters(65535), window = letters(65536);
    const std::string longer = letters(200000);
    auto end = [](const std::string& line) { return line.substr(line.size() - 65534); };
    struct Case {
        std::string file, line;
        bool cut;
    };
    const std::vector<Case> cases = {
            {"one\ntwo\n", "two", false},
            {"one\ntwo", "two", false},
            {"only", "only", false},
            {"", "", false},
            {"one\n\n", "", false},
            {"\n", "", false},
            {big + "\nlast\n", "last", false},
            {"head\n" + atBound + "\n", atBound, false},
            {atBound, atBound, false},
            {atBound + "\n", atBound, false},
            {"head\n" + over + "\n", end(over), true},
            {over, end(over), true},
            {"x\n" + over, end(over), true},
            {"x\n" + window + "\n", end(window), true},
            {longer + "\n", end(longer), true},
            {big + longer, end(longer), true},
    };
    const std::string cutLine = diagnostic("ostrel: last line of " + f +
                                           " is longer than 65534 bytes, cut to its last 65534 bytes\n");
    std::string copy;
    for (size_t i = 0; i < cases.size(); i++) {
        const Case& c = cases[i];
        writeFile(f, c.file);
        StderrCapture diag;
        EXPECT_TRUE(m.appendLastLine(f));
        diag.restore();
        if (!c.line.empty()) copy += c.line + "\n";
        EXPECT_TRUE(readFile(kHistoryCopy) == copy) << "case " << i << ": " << c.file.size() << " bytes";
        EXPECT_EQ(occurrences(diag.text(), cutLine), c.cut ? 1 : 0) << "case " << i;
    }
    EXPECT_TRUE(m.appendLastLine("/data/fyr_exp/none"));
    EXPECT_TRUE(readFile(kHistoryCopy) == copy);
}

// The monitor of a run: a file present at the start is copied only when it
// changes (a change without a new line copies the last line again), a file that
// appears is watched within a retry, a file deleted during the run is forgotten.
TEST(OstrelFSMHistory, MonitorFollowsChangesAppearancesAndDeletions) {
    writeFile(kShortHistoryPath, "old short\n");
    startRun();
    usleep(300 * 1000);  // three retries
    EXPECT_EQ(readFile(kHistoryCopy), "");
    appendFile(kShortHistoryPath, "short 1\n");
    EXPECT_TRUE(copyBecomes("short 1\n")) << readFile(kHistoryCopy);
    rewriteInPlace(kShortHistoryPath);
    EXPECT_TRUE(copyBecomes("short 1\nshort 1\n")) << readFile(kHistoryCopy);
    writeFile(kLongHistoryPath, "first\nlong 1");
    EXPECT_TRUE(copyBecomes("short 1\nshort 1\nlong 1\n", 4)) << readFile(kHistoryCopy);
    appendFile(kLongHistoryPath, "\nlong 2\n");
    const std::string copy = "short 1\nshort 1\nlong 1\nlong 2\n";
    EXPECT_TRUE(copyBecomes(copy)) << readFile(kHistoryCopy);

    ASSERT_EQ(unlink(kShortHistoryPath), 0);
    usleep(300 * 1000);
    writeFile(kShortHistoryPath, "anew\n");
    usleep(300 * 1000);
    appendFile(kShortHistoryPath, "after\n");
    usleep(300 * 1000);
    EXPECT_EQ(readFile(kHistoryCopy), copy);
}

// A crash-history file of 256 MiB without a newline, scanned by the monitor as
// runs end and start: runAbort and runStart answer as ever, the copy gets the
// last 65,534 bytes, and the scans cost the service a few MiB at most, not the
// file's size. (Read whole under the history lock, it held up the next runStart
// for most of a minute and took twice the file's size.)
TEST(OstrelFSMHistory, A256MiBCrashHistoryWithoutNewlineHoldsUpNoCallAndTakesLittleMemory) {
    const std::string tail = letters(1 << 20);
    writeSparseFile(kShortHistoryPath, off_t(256) << 20, tail);
    const std::string line = tail.substr(tail.size() - 65534) + "\n";
    OstrelFSM& m = startRun();
    const long rss = statusKiB("VmRSS"), peak = statusKiB("VmHWM");
    ASSERT_GT(rss, 0);
    StderrCapture diag;
    for (int run = 1; run <= 2; run++) {
        // A change that adds no byte: the monitor scans the file again.
        int fd = open(kShortHistoryPath, O_WRONLY);
        ASSERT_EQ(pwrite(fd, &tail.back(), 1, (off_t(256) << 20) - 1), 1);
        close(fd);
        ASSERT_TRUE(m.sendEvent(RUN_ABORT, nullptr, nullptr, 0, 0)) << "run " << run;
        std::string names = answer(m, GET_RESULT);
        ASSERT_TRUE(contains(names, ", ")) << names;
        EXPECT_TRUE(readFile(names.substr(names.find(", ") + 2)) == line) << "run " << run;
        if (run == 1) ASSERT_TRUE(m.sendEvent(RUN_START, nullptr, nullptr, 0, 0));
    }
    diag.restore();
    // A few MiB (more under a sanitizer's allocator); a scan that held the file
    // would take hundreds.
    EXPECT_LE(statusKiB("VmRSS") - rss, 16 * 1024);
    EXPECT_LE(statusKiB("VmHWM") - peak, 16 * 1024);
    EXPECT_EQ(occurrences(diag.text(), "is longer than 65534 bytes, cut to its last 65534 bytes"), 2)
            << diag.text();
}
