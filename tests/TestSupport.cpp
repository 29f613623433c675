#include "TestSupport.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

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

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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
