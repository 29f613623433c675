// The last line of a file read from a bounded window at its end: what a scan
// reads, and where a line too long to copy whole is cut.

#include "LastLine.h"
#include "TestSupport.h"

namespace {

constexpr const char* kFile = "/data/fyr_exp/db_history";

// Bytes and read calls of this process so far. The read of /proc/self/io that
// takes the figures counts in the next figures: |own| holds its bytes.
struct Reads {
    long long bytes = -1, calls = -1, own = 0;
};
Reads readsSoFar() {
    Reads r;
    char buf[1024];
    int fd = open("/proc/self/io", O_RDONLY | O_CLOEXEC);
    ssize_t n = fd >= 0 ? read(fd, buf, sizeof(buf) - 1) : -1;
    if (fd >= 0) close(fd);
    if (n <= 0) return r;
    buf[n] = '\0';
    r.own = n;
    sscanf(buf, "rchar: %lld wchar: %*d syscr: %lld", &r.bytes, &r.calls);
    return r;
}

LastLine lastLineOf(const std::string& path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0) << path;
    LastLine last = readLastLine(fd);
    close(fd);
    return last;
}

}  // namespace

// 256 MiB without a newline: one read of 64 KiB + 2 bytes, and the line's last
// 65,534 bytes.
TEST(LastLine, AHugeFileCostsOneReadOfTheWindow) {
    const std::string tail = letters(1 << 20);
    writeSparseFile(kFile, off_t(256) << 20, tail);
    int fd = open(kFile, O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    Reads before = readsSoFar();
    LastLine last = readLastLine(fd);
    Reads after = readsSoFar();
    close(fd);
    ASSERT_GE(before.bytes, 0) << "no /proc/self/io";
    EXPECT_EQ(after.bytes - before.bytes - before.own, 65538);
    EXPECT_LE(after.calls - before.calls - 1, 2);
    EXPECT_TRUE(last.cut);
    EXPECT_TRUE(last.text == tail.substr(tail.size() - 65534));
}

// A cut never starts inside a character: the continuation bytes that the last
// 65,534 bytes begin with are left out.
TEST(LastLine, ACutStartsOnAUtf8Character) {
    for (const std::string ch : {"\u00e9", "\u20ac", "\U0001F600"}) {
        std::string line;
        while (line.size() < 70000) line += ch;
        writeFile(kFile, "first\n" + line + "\n");
        LastLine last = lastLineOf(kFile);
        size_t whole = 65534 / ch.size() * ch.size();
        EXPECT_TRUE(last.cut);
        EXPECT_EQ(last.text.size(), whole) << ch;
        EXPECT_TRUE(last.text == line.substr(line.size() - whole)) << ch;
    }
    // Bytes that are not UTF-8 lose at most three.
    std::string line(70000, '\x80');
    writeFile(kFile, line);
    EXPECT_EQ(lastLineOf(kFile).text.size(), 65531u);
}
