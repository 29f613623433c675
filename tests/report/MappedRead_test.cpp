// A mapped file cut short under a read raises SIGBUS; the guard turns it into a
// failed read and leaves the process, and its next reads, as they were.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "MappedRead.h"

namespace ostrel_report {
namespace {

TEST(MappedRead, AFileCutShortUnderAMappingFailsTheReadNotTheProcess) {
    char path[] = "/tmp/mapped-read-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const size_t size = 1 << 20;
    ASSERT_EQ(ftruncate(fd, size), 0);
    auto* bytes = static_cast<volatile char*>(mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0));
    ASSERT_NE(bytes, MAP_FAILED);
    // The file is cut to one page, as a copy still being written can be.
    ASSERT_EQ(ftruncate(fd, 4096), 0);
    bool cutShort = false;
    int sum = 0;
    EXPECT_FALSE(guardMappedRead([&] {
        for (size_t i = 0; i < size; i += 4096) sum += bytes[i];
        return true;
    }, &cutShort));
    EXPECT_TRUE(cutShort);
    // A read within the file's end goes on as before, guarded or not.
    EXPECT_TRUE(guardMappedRead([&] { return bytes[0] == 0; }, &cutShort));
    EXPECT_FALSE(cutShort);
    munmap(const_cast<char*>(bytes), size);
    close(fd);
    unlink(path);
}

}  // namespace
}  // namespace ostrel_report
