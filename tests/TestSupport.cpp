#include "TestSupport.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace ostrel_test {

namespace {

// The fixed paths are the host's own outside the sandbox: refuse to run there.
class SandboxGuard : public ::testing::Environment {
  public:
    void SetUp() override {
        const char* marker = getenv("OSTREL_SANDBOX");
        if (marker == nullptr || std::string(marker) != "1") {
            fprintf(stderr, "these tests write the device paths: run them through "
                            "scripts/devsandbox (ctest does)\n");
            exit(2);
        }
    }
};

const auto* const kGuard = ::testing::AddGlobalTestEnvironment(new SandboxGuard);

}  // namespace

// Plain reads: a /proc file of a process that exits meanwhile fails with ESRCH,
// which reads as the end of the file (a file stream would throw).
std::string readFile(const std::string& path) {
    std::string text;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return text;
    char buf[65536];
    ssize_t n;
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

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string sourcePath(const std::string& relative) {
    const char* dir = getenv("OSTREL_SOURCE_DIR");
    return std::string(dir ? dir : ".") + "/" + relative;
}

}  // namespace ostrel_test
