// The result archive as Debian's unzip reads it.
#include <dirent.h>

#include "TestSupport.h"

namespace {

const std::string kZip = std::string(FSM_RESULT_DIR) + "/QAV20240131_235959.zip";

std::string pack(OstrelFSM& m, std::string name, bool* ok = nullptr) {
    std::vector<char> buf(name.begin(), name.end());
    buf.resize(4097, '\0');
    bool result = m.packResults(buf.data());
    if (ok) *ok = result;
    return buf.data();
}

// The entries that a directory walk in readdir order gives for |dir|, each
// subdirectory before and again after its contents.
void walk(const std::string& dir, std::vector<std::string>* names) {
    const std::string name = dir.substr(strlen("/data/vendor/"));
    names->push_back(name + "/");
    DIR* d = opendir(dir.c_str());
    while (struct dirent* e = readdir(d)) {
        std::string entry = e->d_name;
        if (entry == "." || entry == "..") continue;
        if (e->d_type == DT_DIR) {
            walk(dir + "/" + entry, names);
            names->push_back(name + "/" + entry + "/");
        } else {
            names->push_back(name + "/" + entry);
        }
    }
    closedir(d);
}

}  // namespace

// Entries in readdir order, each directory before and again after its contents,
// every entry deflated, file bytes as they are (an unreadable file empty).
TEST(OstrelFSMArchive, EntriesInWalkOrderWithTheirBytes) {
    OstrelFSM& m = newMachine();
    std::string big;
    for (int i = 0; big.size() < 200 * 1024; i++) big += std::to_string(i * 7919) + ",";
    writeFile(kHistoryCopy, "crash 1\ncrash 2\n");
    writeFile("/data/vendor/qav/kelbrun/big.bin", big);
    ASSERT_EQ(mkdir("/data/vendor/qav/kelbrun/out", 0755), 0);
    ASSERT_EQ(mkdir("/data/vendor/qav/kelbrun/out/deep", 0755), 0);
    writeFile("/data/vendor/qav/kelbrun/out/deep/x.txt", "x\n");
    writeFile("/data/vendor/qav/kelbrun/out/empty", "");
    ASSERT_EQ(symlink("/nowhere", "/data/vendor/qav/kelbrun/dangling"), 0);
    writeFile(kZip, "old");  // replaced

    StderrCapture err;
    bool ok = false;
    EXPECT_EQ(pack(m, kZip, &ok), kZip);
    err.restore();
    EXPECT_TRUE(ok);
    // Only the platform log hears of it (on a host liblog prints it to stderr).
    EXPECT_FALSE(contains(err.text(), "Log at"));
    EXPECT_TRUE(contains(err.text(), " ostrel: pack " + kZip + " completed\n"));
    std::vector<std::string> expected;
    walk(kPlanDataDir, &expected);
    walk(kExecutorDir, &expected);
    EXPECT_EQ(zipEntries(kZip), expected);
    EXPECT_EQ(zipContent(kZip, "qav/data/db_history"), "crash 1\ncrash 2\n");
    EXPECT_EQ(zipContent(kZip, "qav/data/ostreldata.txt"), readFile(kPlanFile));
    EXPECT_EQ(zipContent(kZip, "qav/kelbrun/big.bin"), big);
    EXPECT_EQ(zipContent(kZip, "qav/kelbrun/out/deep/x.txt"), "x\n");
    EXPECT_EQ(zipContent(kZip, "qav/kelbrun/dangling"), "");
    EXPECT_FALSE(contains(runTool("zipinfo " + kZip), " stor "));
    struct stat st;
    ASSERT_EQ(stat(kZip.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);
}

TEST(OstrelFSMArchive, MissingDirectoriesAreReportedAndLeftOut) {
    OstrelFSM& m = newMachine();
    ASSERT_EQ(rmdir(kExecutorDir), 0);
    StderrCapture err;
    EXPECT_EQ(pack(m, kZip), kZip);
    EXPECT_EQ(zipEntries(kZip), (std::vector<std::string>{"qav/data/", "qav/data/ostreldata.txt"}));
    // Without the result directory nothing is written and the name is emptied.
    ASSERT_EQ(unlink(kZip.c_str()), 0);
    ASSERT_EQ(rmdir(FSM_RESULT_DIR), 0);
    bool ok = true;
    EXPECT_EQ(pack(m, std::string(FSM_RESULT_DIR) + "/QAV1A2B3C4D.zip", &ok), "");
    err.restore();
    EXPECT_FALSE(ok);
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: can't read directory /data/vendor/qav/kelbrun\n")));
    EXPECT_TRUE(contains(err.text(), diagnostic("ostrel: open file /data/vendor/qav/results/QAV1A2B3C4D"
                                                ".zip (errno:2, No such file or directory)\n")));
}
