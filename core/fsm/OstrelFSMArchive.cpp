// The result archive: the planner's data directory and the executor's work
// directory packed into one zip, entry names relative to /data/vendor/, every
// subdirectory listed before and again after its contents; and the clearing of
// a directory tree.
#include <android/log.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "OstrelFSM.h"
#include "RegularFile.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

constexpr size_t kCopyChunk = 65536;

// |path| with its first kArchiveRoot removed.
std::string entryName(std::string path) {
    const std::string root = kArchiveRoot;
    size_t at = path.find(root);
    if (at != std::string::npos) path.erase(at, root.size());
    return path;
}

bool isDotOrDotDot(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

}  // namespace

bool OstrelFSM::packResults(char* zipfilename) {
    FILE* fp = fopen(zipfilename, "wb");
    if (fp == nullptr) {
        int err = errno;
        error("ostrel: open file %s (errno:%d, %s)\n", zipfilename, err, strerror(err));
        zipfilename[0] = '\0';
        return false;
    }
    fchmod(fileno(fp), 0664);
    ZipWriter writer(fp);
    collect_files(writer, kPlanDataDir);
    collect_files(writer, kExecutorDir);
    writer.Finish();
    OSTREL_CHECK(fclose(fp) == 0, "fclose(fp) == 0", 898);
    __android_log_print(ANDROID_LOG_INFO, kFsmLogTag, "ostrel: pack %s completed\n", zipfilename);
    return true;
}

int OstrelFSM::collect_files(ZipWriter& writer, const char* dir) {
    if (dir == nullptr) return 0;
    DIR* d = opendir(dir);
    if (d == nullptr) {
        error("ostrel: can't read directory %s\n", dir);
        return -1;
    }
    int32_t status = writer.StartEntry(entryName(dir) + "/", ZipWriter::kCompress);
    if (status != 0) {
        error("ostrel: ZipWriter StartEntry: %s\n", ZipWriter::ErrorCodeString(status));
    } else if ((status = writer.FinishEntry()) != 0) {
        error("ostrel: ZipWriter FinishEntry: %s\n", ZipWriter::ErrorCodeString(status));
    }
    while (status == 0) {
        struct dirent* entry = readdir(d);
        if (entry == nullptr) break;
        std::string path = std::string(dir) + "/" + entry->d_name;
        bool isDir = entry->d_type == DT_DIR;
        if (isDir) {
            if (isDotOrDotDot(entry->d_name)) continue;
            // The subtree first; the directory's own name follows it once more.
            collect_files(writer, path.c_str());
            path += "/";
        }
        status = writer.StartEntry(entryName(path), ZipWriter::kCompress);
        if (status != 0) {
            error("ostrel: ZipWriter StartEntry: %s\n", ZipWriter::ErrorCodeString(status));
            break;
        }
        if (!isDir) {
            // A file that cannot be opened, or is no regular file (a FIFO
            // would block the walk), stays an empty entry.
            std::vector<char> buf(kCopyChunk, 0);
            int fd = openRegular(path.c_str());
            if (fd >= 0) {
                while (true) {
                    ssize_t n = read(fd, buf.data(), buf.size());
                    if (n == 0) break;
                    if (n < 0) {
                        int err = errno;
                        error("ostrel: read(%s) (errno:%d, %s)\n", path.c_str(), err,
                              strerror(err));
                        break;
                    }
                    int32_t written = writer.WriteBytes(buf.data(), static_cast<size_t>(n));
                    if (written != 0) {
                        error("ostrel: ZipWriter WriteBytes: %s\n",
                              ZipWriter::ErrorCodeString(written));
                        break;
                    }
                }
                close(fd);
            }
        }
        status = writer.FinishEntry();
        if (status != 0) {
            error("ostrel: ZipWriter FinishEntry: %s\n", ZipWriter::ErrorCodeString(status));
        }
    }
    if (closedir(d) < 0) error("ostrel: can't close directory %s\n", dir);
    return status;
}

int OstrelFSM::remove_files(const char* dir) {
    DIR* d = opendir(dir);
    if (d == nullptr) {
        error("ostrel: can't read directory %s\n", dir);
        return -1;
    }
    while (struct dirent* entry = readdir(d)) {
        std::string path = std::string(dir) + "/" + entry->d_name;
        if (entry->d_type == DT_DIR) {
            if (isDotOrDotDot(entry->d_name)) continue;
            remove_files(path.c_str());
        }
        if (remove(path.c_str()) != 0) {
            int err = errno;
            // The rest of this directory is left in place.
            error("ostrel: remove %s (errno:%d, %s)\n", path.c_str(), err, strerror(err));
            break;
        }
    }
    if (closedir(d) < 0) {
        error("ostrel: can't close directory %s\n", dir);
        return -1;
    }
    return 0;
}

}  // namespace vendor::brevane::hardware::ostrel::core
