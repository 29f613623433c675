// The crash-history copy: last lines, appends, and the monitor thread of a real
// run watching real files with inotify.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "TestSupport.h"

using namespace vendor::brevane::hardware::ostrel::core;
using namespace ostrel_test;

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
    EXPECT_EQ(m.getState(), RUNNING);
    EXPECT_EQ(readFile(kHistoryCopy), "");
    return m;
}

}  // namespace

// The crash line is the file's last line, read from its end; each append adds it
// to the copy with a newline (an empty last line adds nothing).
TEST(OstrelFSMHistory, LastLineIsAppendedToTheCopy) {
    OstrelFSM& m = newMachine();
    const std::string f = "/data/fyr_exp/db_history";
    const std::string big(3 * 1024 * 1024, 'x');
    const std::vector<std::pair<std::string, std::string>> cases = {
            {"one\ntwo\n", "two"}, {"one\ntwo", "two"}, {"only", "only"}, {"", ""},
            {"one\n\n", ""},       {"\n", ""},         {big + "\nlast\n", "last"},
    };
    std::string copy;
    for (const auto& c : cases) {
        writeFile(f, c.first);
        EXPECT_EQ(m.getLastLine(f), c.second) << "file: " << c.first.substr(0, 20);
        EXPECT_TRUE(m.appendLastLine(f));
        if (!c.second.empty()) copy += c.second + "\n";
    }
    EXPECT_EQ(readFile(kHistoryCopy), copy);
    EXPECT_TRUE(m.appendLastLine("/data/fyr_exp/none"));
    EXPECT_EQ(readFile(kHistoryCopy), copy);
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
