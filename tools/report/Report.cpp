// ostrelctl report, the reading half: the result archive is opened with
// libziparchive, every entry name is checked, the plan is extracted within a
// size cap, and the crash history and the executor log are streamed (the first
// lines of one, the last of the other). Every entry read is checked against its
// CRC (this libziparchive does not check) and its method. Nothing is written to
// disk, and the library's own warnings are silenced: the report says what is
// wrong, in one line.
#include <fcntl.h>
#include <rapidjson/document.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ziparchive/zip_archive.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <memory>

#ifndef __ANDROID__
#include <android/log.h>
// In this liblog but in no header of it: the least priority that is written.
extern "C" int32_t __android_log_set_minimum_priority(int32_t priority);
#endif

#include "JsonText.h"
#include "MappedRead.h"
#include "Report.h"
#include "ResultLayout.h"

namespace ostrel_report {

namespace {

namespace layout = ::vendor::brevane::hardware::ostrel::core;
constexpr const char* kPlanEntry = layout::kPlanEntry;
constexpr const char* kHistoryEntry = layout::kHistoryEntry;
constexpr const char* kLogEntry = layout::kExecutorLogEntry;
constexpr uint32_t kMaxPlanBytes = 16u << 20;
constexpr uint64_t kMaxHistoryBytes = 16u << 20;
constexpr size_t kLogTailBytes = 64u << 10;
constexpr size_t kLogTailLines = 10;

struct ArchiveCloser {
    void operator()(ZipArchive* handle) const { CloseArchive(handle); }
};
using Archive = std::unique_ptr<ZipArchive, ArchiveCloser>;

struct FdCloser {
    explicit FdCloser(int f) : fd(f) {}
    ~FdCloser() {
        if (fd >= 0) close(fd);
    }
    int fd;
};

std::string baseName(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

std::string resultName(const std::string& stamp) {
    return layout::kResultStem + stamp;
}

std::string besideArchive(const std::string& archive, const char* suffix) {
    const std::string zip = layout::kArchiveSuffix;
    return (endsWith(archive, zip) ? archive.substr(0, archive.size() - zip.size()) : archive) + suffix;
}

namespace {

// QAV<stamp>.zip gives <stamp>; another name gives itself without ".zip".
std::string stampOf(const std::string& path) {
    std::string name = baseName(path);
    const std::string stem = layout::kResultStem, suffix = layout::kArchiveSuffix;
    if (endsWith(name, suffix)) name.resize(name.size() - suffix.size());
    if (name.size() > stem.size() && name.compare(0, stem.size(), stem) == 0) name.erase(0, stem.size());
    return name;
}

// True when |name| is absolute or has a ".." component (either separator).
bool leavesArchive(const std::string& name) {
    if (name.empty()) return false;
    if (name[0] == '/' || name[0] == '\\') return true;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find_first_of("/\\", start);
        if (end == std::string::npos) end = name.size();
        if (name.compare(start, end - start, "..") == 0 && end - start == 2) return true;
        start = end + 1;
    }
    return false;
}

bool checkEntryNames(ZipArchiveHandle handle, std::string* error) {
    void* cookie = nullptr;
    int32_t status = StartIteration(handle, &cookie);
    if (status != 0) {
        *error = std::string("cannot list the entries: ") + ErrorCodeString(status);
        return false;
    }
    ZipEntry entry;
    std::string name;
    while ((status = Next(cookie, &entry, &name)) == 0) {
        if (leavesArchive(name)) {
            EndIteration(cookie);
            *error = "entry \"" + cleanText(name) +
                     "\" points outside the archive's folder (a damaged or hostile archive)";
            return false;
        }
    }
    EndIteration(cookie);
    if (status != -1) {
        *error = std::string("cannot list the entries: ") + ErrorCodeString(status);
        return false;
    }
    return true;
}

// An entry this reader can read: stored or deflated, at most |cap| bytes.
bool readableEntry(const ZipEntry& entry, const char* name, uint64_t cap, std::string* error) {
    if (entry.method != kCompressStored && entry.method != kCompressDeflated) {
        *error = std::string(name) + " is compressed with method " + std::to_string(entry.method) +
                 ", which this reader does not support (only stored and deflated)";
        return false;
    }
    if (entry.uncompressed_length > cap) {
        *error = std::string(name) + " is " + std::to_string(entry.uncompressed_length) +
                 " bytes, more than the " + std::to_string(cap >> 20) + " MiB read from an archive";
        return false;
    }
    return true;
}

// The whole of entry |name|, refused above |cap| bytes. |found| tells a
// missing entry from one that cannot be read.
bool extractEntry(ZipArchiveHandle handle, const char* name, uint64_t cap, std::string* text,
                  bool* found, std::string* error) {
    ZipEntry entry;
    *found = FindEntry(handle, name, &entry) == 0;
    if (!*found || !readableEntry(entry, name, cap, error)) return false;
    text->assign(entry.uncompressed_length, '\0');
    if (entry.uncompressed_length == 0) return true;
    int32_t status = ExtractToMemory(handle, &entry, reinterpret_cast<uint8_t*>(&(*text)[0]),
                                     entry.uncompressed_length);
    if (status != 0) {
        *error = std::string("cannot extract ") + name + ": " + ErrorCodeString(status);
        return false;
    }
    if (crc32(0, reinterpret_cast<const Bytef*>(text->data()), static_cast<uInt>(text->size())) !=
        entry.crc32) {
        *error = std::string(name) + " is damaged (its CRC does not match)";
        return false;
    }
    return true;
}

// The plan entry's text; an archive without one is not a result.
bool extractPlan(ZipArchiveHandle handle, std::string* text, std::string* error) {
    bool found = false;
    if (extractEntry(handle, kPlanEntry, kMaxPlanBytes, text, &found, error)) return true;
    if (!found) *error = std::string("no plan in it (no ") + kPlanEntry + "): not a result of Ostrel";
    return false;
}

bool readPlan(ZipArchiveHandle handle, RunReport* report, std::string* error) {
    std::string text;
    return extractPlan(handle, &text, error) && readPlanText(text, kPlanEntry, report, error);
}

// Lines as they stream in: the first kShownLines kept (each cut to kShownBytes),
// every one counted. A last line without its '\n' counts too.
struct LineCollector {
    LineCollector(std::vector<std::string>* s, uint64_t* c) : shown(s), count(c) {}
    std::vector<std::string>* shown;
    uint64_t* count;
    std::string line;
    uint64_t lineBytes = 0;  // of the current line, kept or not

    void add(const char* bytes, size_t size) {
        const char* end = bytes + size;
        while (bytes < end) {
            const char* newline = static_cast<const char*>(memchr(bytes, '\n', end - bytes));
            const char* stop = newline ? newline : end;
            size_t length = static_cast<size_t>(stop - bytes);
            if (shown->size() < kShownLines && line.size() <= kShownBytes) {
                line.append(bytes, std::min(length, kShownBytes + 1 - line.size()));
            }
            lineBytes += length;
            bytes = stop;
            if (newline) {
                finish();
                bytes++;
            }
        }
    }
    void finish() {
        if (shown->size() < kShownLines) shown->push_back(lineBytes > kShownBytes ? cutLine() : line);
        (*count)++;
        line.clear();
        lineBytes = 0;
    }
    void end() {
        if (lineBytes > 0) finish();
    }
    // The kept head of a line longer than kShownBytes, with how much was left out.
    std::string cutLine() const {
        size_t cut = std::min(line.size(), kShownBytes);
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) cut--;
        return line.substr(0, cut) + " ... (" + std::to_string(lineBytes - cut) + " more bytes)";
    }
};

bool collectLines(const uint8_t* buf, size_t size, void* cookie) {
    auto* stream = static_cast<std::pair<LineCollector*, uLong*>*>(cookie);
    *stream->second = crc32(*stream->second, buf, static_cast<uInt>(size));
    stream->first->add(reinterpret_cast<const char*>(buf), size);
    return true;
}

// The history copy beside the archive when there is one, else the archive's own.
bool readHistory(ZipArchiveHandle handle, const std::string& archivePath, RunReport* report,
                 std::string* error) {
    std::string beside = besideArchive(archivePath, layout::kHistorySuffix);
    LineCollector lines(&report->crashLines, &report->crashLineCount);
    // O_NONBLOCK: a FIFO in its place must not hang the report.
    // O_NOFOLLOW: a link in its place would show another file's lines as the run's.
    FdCloser file(open(beside.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (file.fd >= 0) {
        struct stat st;
        if (fstat(file.fd, &st) != 0 || !S_ISREG(st.st_mode)) {
            *error = "the history copy " + cleanText(beside) + " is not a regular file";
            return false;
        }
        if (static_cast<uint64_t>(st.st_size) > kMaxHistoryBytes) {
            *error = "the history copy " + cleanText(beside) + " is more than 16 MiB";
            return false;
        }
        char buffer[64 << 10];
        for (;;) {
            ssize_t n = read(file.fd, buffer, sizeof(buffer));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                *error = "cannot read the history copy " + cleanText(beside) + ": " + strerror(errno);
                return false;
            }
            if (n == 0) break;
            lines.add(buffer, static_cast<size_t>(n));
        }
        report->historySource = beside;
    } else if (errno == ELOOP) {
        *error = "the history copy " + cleanText(beside) + " is a symbolic link, which is not followed";
        return false;
    } else if (errno != ENOENT) {
        *error = "cannot read the history copy " + cleanText(beside) + ": " + strerror(errno);
        return false;
    } else {
        ZipEntry entry;
        if (FindEntry(handle, kHistoryEntry, &entry) != 0) return true;
        if (!readableEntry(entry, kHistoryEntry, kMaxHistoryBytes, error)) return false;
        uLong crc = crc32(0, nullptr, 0);
        std::pair<LineCollector*, uLong*> stream(&lines, &crc);
        int32_t status = ProcessZipEntryContents(handle, &entry, collectLines, &stream);
        if (status != 0) {
            *error = std::string("cannot read ") + kHistoryEntry + ": " + ErrorCodeString(status);
            return false;
        }
        if (crc != entry.crc32) {
            *error = std::string(kHistoryEntry) + " is damaged (its CRC does not match)";
            return false;
        }
        report->historySource = kHistoryEntry;
    }
    lines.end();
    return true;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

struct LogStream {
    std::string tail;
    uLong crc = crc32(0, nullptr, 0);
};

// Keeps the last kLogTailBytes (at most twice that in memory) of a stream.
bool keepTail(const uint8_t* buf, size_t size, void* cookie) {
    auto* stream = static_cast<LogStream*>(cookie);
    stream->crc = crc32(stream->crc, buf, static_cast<uInt>(size));
    std::string& tail = stream->tail;
    tail.append(reinterpret_cast<const char*>(buf), size);
    if (tail.size() > 2 * kLogTailBytes) tail.erase(0, tail.size() - kLogTailBytes);
    return true;
}

bool readLog(ZipArchiveHandle handle, RunReport* report, std::string* error) {
    ZipEntry entry;
    if (FindEntry(handle, kLogEntry, &entry) != 0) return true;
    report->logPresent = true;
    report->logSize = entry.uncompressed_length;
    if (!readableEntry(entry, kLogEntry, UINT32_MAX, error)) return false;
    LogStream stream;
    int32_t status = ProcessZipEntryContents(handle, &entry, keepTail, &stream);
    if (status != 0) {
        *error = std::string("cannot read ") + kLogEntry + ": " + ErrorCodeString(status);
        return false;
    }
    if (stream.crc != entry.crc32) {
        *error = std::string(kLogEntry) + " is damaged (its CRC does not match)";
        return false;
    }
    std::string& tail = stream.tail;
    bool cut = tail.size() > kLogTailBytes;
    if (cut) tail.erase(0, tail.size() - kLogTailBytes);
    std::vector<std::string> lines = splitLines(tail);
    // A line cut by the window is left out.
    if (tail.size() < report->logSize && !lines.empty()) lines.erase(lines.begin());
    size_t from = lines.size() > kLogTailLines ? lines.size() - kLogTailLines : 0;
    report->logTail.assign(lines.begin() + static_cast<std::ptrdiff_t>(from), lines.end());
    return true;
}

// Opens |archivePath| (a regular file, never waited on) and checks its entry names.
bool openArchive(const std::string& archivePath, Archive* archive, std::string* error) {
#ifndef __ANDROID__
    // On a host, libziparchive's warnings would go to standard error.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
#endif
    int fd = open(archivePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *error = std::string("cannot read: ") + strerror(errno);
        return false;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        *error = "not a regular file";
        return false;
    }
    ZipArchiveHandle raw = nullptr;
    int32_t status = OpenArchiveFd(fd, archivePath.c_str(), &raw, true);
    archive->reset(raw);
    if (status != 0) {
        *error = std::string("not a zip archive, or a damaged one (") + ErrorCodeString(status) + ")";
        return false;
    }
    return checkEntryNames(raw, error);
}

}  // namespace

bool readRunReport(const std::string& archivePath, RunReport* report, std::string* error) {
    report->archive = archivePath;
    report->stamp = stampOf(archivePath);
    Archive archive;
    bool cutShort = false;
    // The record first: each test case is judged with it as the plan streams by.
    bool read = guardMappedRead([&] {
        return openArchive(archivePath, &archive, error) && readRunRecord(archivePath, &report->run, error) &&
               readPlan(archive.get(), report, error) && readHistory(archive.get(), archivePath, report, error) &&
               readLog(archive.get(), report, error);
    }, &cutShort);
    if (cutShort) *error = "the archive was cut short while it was read; read it again once it is whole";
    if (read) report->findings = runFindings(report->run, !report->cases.empty() || leftOutCount(*report) > 0);
    return read;
}

std::string deviceMember(const RunFacts& run, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        for (const auto& [k, v] : run.device) {
            if (k == key && !v.empty()) return v;
        }
    }
    return "";
}

std::string deviceOf(const RunReport& report) {
    if (!report.deviceLabel.empty()) return report.deviceLabel;
    namespace key = core::runrecord;
    return deviceMember(report.run, {key::kHostName, key::kModel, key::kDeviceId});
}

bool readArchivedPlan(const std::string& archivePath, std::string* text, std::string* error) {
    Archive archive;
    return openArchive(archivePath, &archive, error) && extractPlan(archive.get(), text, error);
}

}  // namespace ostrel_report
