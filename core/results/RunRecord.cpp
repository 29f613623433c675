// The run record: each step a line appended to the run's journal and flushed
// at once (one write, one fsync, the size of the line), folded into the record
// handed out at getResult.
#include "RunRecord.h"

#include <dirent.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "AtomicFile.h"
#include "DeviceIdentity.h"
#include "JsonText.h"
#include "OstrelLog.h"
#include "ResultLayout.h"
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace key = runrecord;

namespace {

// What a write of |path| is called until it is renamed over it.
std::string tempOf(const char* path) {
    return std::string(path) + kTempSuffix;
}

using Value = rapidjson::Value;

std::string readSmallFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string bootId() {
    std::string id = readSmallFile("/proc/sys/kernel/random/boot_id");
    while (!id.empty() && (id.back() == '\n' || id.back() == ' ')) id.pop_back();
    return id;
}

std::string hexOf(const unsigned char* bytes, size_t size) {
    static const char* kHex = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; i++) {
        hex.push_back(kHex[bytes[i] >> 4]);
        hex.push_back(kHex[bytes[i] & 15]);
    }
    return hex;
}

std::string sha256Hex(const std::string& bytes) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
    return hexOf(digest, sizeof(digest));
}

std::string utcNow() {
    return key::utcText(time(nullptr));
}

// 16 random bytes as 32 hex digits: the run's id, the same in every record
// handed out of the run.
std::string randomRunId() {
    unsigned char bytes[16] = {};
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) return "";
    return hexOf(bytes, sizeof(bytes));
}

std::string textOf(const Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

bool endsWith(const char* name, const char* tail) {
    size_t n = strlen(name), t = strlen(tail);
    return n >= t && strcmp(name + n - t, tail) == 0;
}

// Each entry of |dir| whose name ends with |tail| (and starts with |head|).
template <typename F>
void eachFile(const char* dir, const char* head, const char* tail, F f) {
    DIR* d = opendir(dir);
    while (struct dirent* e = d ? readdir(d) : nullptr) {
        if (strncmp(e->d_name, head, strlen(head)) == 0 && endsWith(e->d_name, tail)) f(e->d_name);
    }
    if (d) closedir(d);
}

// Async-signal-safe text building for the supervisor: |text| or the decimal
// digits of |v| at |p|; returns the end.
char* appendText(char* p, const char* text) {
    while (*text) *p++ = *text++;
    return p;
}

char* appendDigits(char* p, unsigned long v) {
    char digits[24];
    int n = 0;
    do {
        digits[n++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    while (n > 0) *p++ = digits[--n];
    return p;
}

// "/data/vendor/qav/run/executor.<pid>.end" (or ".tmp").
void sideFilePath(char* out, pid_t pid, const char* suffix) {
    char* p = appendText(appendText(out, kRunRecordDir), "/");
    p = appendDigits(appendText(p, kSideFilePrefix), static_cast<unsigned long>(pid));
    *appendText(p, suffix) = '\0';
}

rapidjson::Document lineOf(const char* event) {
    rapidjson::Document line(rapidjson::kObjectType);
    line.AddMember(rapidjson::StringRef(journal::kEvent), rapidjson::StringRef(event), line.GetAllocator());
    return line;
}

void addText(rapidjson::Document& line, const char* name, const std::string& text) {
    auto& a = line.GetAllocator();
    line.AddMember(rapidjson::StringRef(name), Value(text.c_str(), static_cast<rapidjson::SizeType>(text.size()), a), a);
}

}  // namespace

RunRecord::RunRecord() {
    removeLeftovers();
    readState();
    foldSideFiles();
}

void RunRecord::error(const char* fmt, const char* what, int err) {
    formatDiagnostic("ostrel.core.fsm", __FILE__, fmt, what, err, strerror(err));
}

// Temporary files of writes a kill cut short: none is ever read.
void RunRecord::removeLeftovers() {
    eachFile(kRunRecordDir, "", kTempSuffix, [](const char* name) {
        unlink((std::string(kRunRecordDir) + "/" + name).c_str());
    });
    eachFile(kRunRecordDir, kSideFilePrefix, kSideTempSuffix, [](const char* name) {
        unlink((std::string(kRunRecordDir) + "/" + name).c_str());
    });
    eachFile(kResultDir, kResultStem, tempOf(kRecordSuffix).c_str(), [](const char* name) {
        unlink((std::string(kResultDir) + "/" + name).c_str());
    });
}

void RunRecord::readState() {
    readJournal(kRunJournalFile, [this](const std::string& text) {
        rapidjson::Document line;
        if (!parseJsonText(line, text.data(), text.size()) || !line.IsObject() || !line.HasMember(journal::kEvent) ||
            !line[journal::kEvent].IsString()) {
            return;
        }
        std::string event = line[journal::kEvent].GetString();
        auto rounds = line.FindMember(journal::kBootRounds);
        bool hasRounds = rounds != line.MemberEnd() && rounds->value.IsInt();
        if (event == journal::kStart) started = true;
        if (event == journal::kEnd) ended = true;
        if (event == journal::kBoot && hasRounds) bootRounds = rounds->value.GetInt();
        if (event == journal::kUnconfirmed) {
            std::string step = line.HasMember(journal::kStep) && line[journal::kStep].IsString()
                                       ? line[journal::kStep].GetString() : "";
            if (step == journal::kStart) startUnconfirmed = true;
            if (step == journal::kEnd) ended = false;
            if (step == journal::kBoot && hasRounds) bootRounds = rounds->value.GetInt();
        }
    });
    // A cut in the middle of an append leaves a torn last line: it goes, so that
    // the next append starts a line of its own.
    std::string text = readSmallFile(kRunJournalFile);
    if (!text.empty() && text.back() != '\n') {
        if (truncate(kRunJournalFile, static_cast<off_t>(text.rfind('\n') + 1)) != 0) {
            error("ostrel: run record %s (errno:%d, %s)\n", kRunJournalFile, errno);
        }
    }
}

void RunRecord::reconcile(bool planStarted, bool planFinished, int planBootRounds) {
    if (!started) return;
    auto mark = [this, planBootRounds](const char* step) {
        rapidjson::Document line = lineOf(journal::kUnconfirmed);
        line.AddMember(rapidjson::StringRef(journal::kStep), rapidjson::StringRef(step), line.GetAllocator());
        addText(line, key::kTime, utcNow());
        line.AddMember(rapidjson::StringRef(journal::kBootRounds), planBootRounds, line.GetAllocator());
        append(line);
    };
    if (!planStarted) {
        if (ended) {
            // The plan was reset by getResult: the record was handed out.
            unlink(kRunJournalFile);
            started = ended = false;
        } else if (!startUnconfirmed) {
            mark(journal::kStart);
            startUnconfirmed = true;
        }
        return;
    }
    if (ended && !planFinished) {
        mark(journal::kEnd);
        ended = false;
    }
    if (bootRounds > planBootRounds) {
        mark(journal::kBoot);
        bootRounds = planBootRounds;
    }
}

bool RunRecord::append(rapidjson::Document& line) {
    mkdir(kRunRecordDir, 0770);
    if (appendDurably(kRunJournalFile, textOf(line) + "\n", 0660)) return true;
    error("ostrel: run record %s (errno:%d, %s)\n", kRunJournalFile, errno);
    return false;
}

void RunRecord::runStarted(const std::string& planDefinitions) {
    // The folder exists before any supervisor of the run writes its side file.
    mkdir(kRunRecordDir, 0770);
    rapidjson::Document line = lineOf(journal::kStart);
    auto& a = line.GetAllocator();
    line.AddMember(rapidjson::StringRef(key::kRecord), key::kVersion, a);
    addText(line, key::kRunId, randomRunId());
    Value service(rapidjson::kObjectType);
    service.AddMember(rapidjson::StringRef(key::kName), "vendor.brevane.hardware.ostrel@2.0-service", a);
    service.AddMember(rapidjson::StringRef(key::kVersionKey), rapidjson::StringRef(kServiceVersion), a);
    line.AddMember(rapidjson::StringRef(key::kService), service, a);
    Value device(rapidjson::kObjectType);
    describeDevice(&device, a);
    line.AddMember(rapidjson::StringRef(key::kDevice), device, a);
    addText(line, key::kTime, utcNow());
    addText(line, key::kBootId, bootId());
    addText(line, key::kPlanSha256, sha256Hex(planDefinitions));
    rapidjson::Document config(&a);
    std::string configText = readSmallFile(kRunConfigFile);
    bool haveConfig = !configText.empty() && parseJsonText(config, configText.c_str(), configText.size()) &&
                      config.IsObject();
    line.AddMember(rapidjson::StringRef(key::kConfiguration), haveConfig ? Value(config, a) : Value(), a);
    // A new journal holds the start alone: replaced whole, never appended to.
    if (!replaceFileAtomically(tempOf(kRunJournalFile).c_str(), kRunJournalFile, textOf(line) + "\n", 0660)) {
        error("ostrel: run record %s (errno:%d, %s)\n", kRunJournalFile, errno);
    }
    started = true;
    ended = startUnconfirmed = handedOut = false;
    bootRounds = 0;
}

void RunRecord::executorStarted(pid_t supervisor, const std::vector<std::string>& words) {
    if (!started) return;
    rapidjson::Document line = lineOf(journal::kExecutor);
    auto& a = line.GetAllocator();
    addText(line, key::kTime, utcNow());
    addText(line, key::kBootId, bootId());
    line.AddMember(rapidjson::StringRef(key::kSupervisor), static_cast<int>(supervisor), a);
    Value list(rapidjson::kArrayType);
    for (const std::string& w : words) list.PushBack(Value(w.c_str(), a), a);
    line.AddMember(rapidjson::StringRef(key::kWords), list, a);
    append(line);
}

void RunRecord::executorReaped(pid_t supervisor) {
    char path[256];
    sideFilePath(path, supervisor, kSideFileSuffix);
    std::string text = readSmallFile(path);
    if (text.empty()) return;
    // "<wait status> <seconds since the epoch>\n", as the supervisor wrote it.
    int status = 0;
    long long when = -1;
    if (sscanf(text.c_str(), "%d %lld", &status, &when) < 1) return;
    rapidjson::Document line = lineOf(journal::kExecutorEnd);
    auto& a = line.GetAllocator();
    line.AddMember(rapidjson::StringRef(key::kSupervisor), static_cast<int>(supervisor), a);
    addText(line, key::kTime, when >= 0 ? key::utcText(static_cast<time_t>(when)) : utcNow());
    line.AddMember(rapidjson::StringRef(key::kWaitStatus), status, a);
    if (WIFSIGNALED(status)) {
        addText(line, key::kSignal, key::signalName(WTERMSIG(status)));
        line.AddMember(rapidjson::StringRef(key::kSignalNumber), WTERMSIG(status), a);
    } else if (WIFEXITED(status)) {
        line.AddMember(rapidjson::StringRef(key::kExit), WEXITSTATUS(status), a);
    }
    // The side file goes only once the journal holds its end.
    if (append(line)) unlink(path);
}

// Ends written by supervisors while no service reaped them (a restart came first).
void RunRecord::foldSideFiles() {
    eachFile(kRunRecordDir, kSideFilePrefix, kSideFileSuffix, [this](const char* name) {
        executorReaped(static_cast<pid_t>(atol(name + strlen(kSideFilePrefix))));
    });
}

void RunRecord::bootCounted(bool planned, int rounds) {
    if (!started) return;
    rapidjson::Document line = lineOf(journal::kBoot);
    auto& a = line.GetAllocator();
    addText(line, key::kTime, utcNow());
    addText(line, key::kBootId, bootId());
    line.AddMember(rapidjson::StringRef(key::kPlanned), planned, a);
    line.AddMember(rapidjson::StringRef(journal::kBootRounds), rounds, a);
    append(line);
    bootRounds = rounds;
}

void RunRecord::runEnded(const char* cause) {
    if (!started || ended) return;
    rapidjson::Document line = lineOf(journal::kEnd);
    addText(line, key::kTime, utcNow());
    addText(line, key::kCause, cause);
    append(line);
    ended = true;
}

bool RunRecord::writeBeside(const std::string& zipName) {
    const std::string suffix = kArchiveSuffix;
    if (!started || zipName.size() <= suffix.size()) return false;
    std::string text = foldJournal(kRunJournalFile);
    if (text.empty()) return false;
    std::string target = zipName.substr(0, zipName.size() - suffix.size()) + kRecordSuffix;
    std::string temp = tempOf(target.c_str());
    if (!replaceFileAtomically(temp.c_str(), target.c_str(), text, 0664)) {
        error("ostrel: run record to %s (errno:%d, %s)\n", target.c_str(), errno);
        return false;
    }
    chmod(target.c_str(), 0664);
    handedOut = true;
    return true;
}

void RunRecord::commit() {
    if (!handedOut) return;
    handedOut = false;
    unlink(kRunJournalFile);
    started = ended = startUnconfirmed = false;
    bootRounds = 0;
}

void RunRecord::configurationApplied(const char* clientList, const std::vector<std::string>& words,
                                     int exitStatus) {
    rapidjson::Document config(rapidjson::kObjectType);
    auto& a = config.GetAllocator();
    addText(config, key::kTime, utcNow());
    // The client's list as given: JSON when it parses, its text otherwise.
    rapidjson::Document list(&a);
    if (clientList == nullptr) {
        config.AddMember(rapidjson::StringRef(key::kList), Value(), a);
    } else if (parseJsonText(list, clientList, strlen(clientList))) {
        config.AddMember(rapidjson::StringRef(key::kList), Value(list, a), a);
    } else {
        config.AddMember(rapidjson::StringRef(key::kList), Value(clientList, a), a);
    }
    Value tool(rapidjson::kArrayType);
    for (const std::string& w : words) tool.PushBack(Value(w.c_str(), a), a);
    config.AddMember(rapidjson::StringRef(key::kWords), tool, a);
    config.AddMember(rapidjson::StringRef(key::kExitStatus), exitStatus, a);
    mkdir(kRunRecordDir, 0770);
    if (!replaceFileAtomically(tempOf(kRunConfigFile).c_str(), kRunConfigFile, textOf(config), 0660)) {
        error("ostrel: run record %s (errno:%d, %s)\n", kRunConfigFile, errno);
    }
}

void RunRecord::persistExecutorEnd(int waitStatus) {
    char temp[256], path[256];
    pid_t self = getpid();
    sideFilePath(temp, self, kSideTempSuffix);
    sideFilePath(path, self, kSideFileSuffix);
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    char text[48];
    char* p = appendDigits(text, static_cast<unsigned>(waitStatus));
    p = appendDigits(appendText(p, " "), static_cast<unsigned long>(now.tv_sec > 0 ? now.tv_sec : 0));
    char* end = appendText(p, "\n");
    ssize_t n = end - text;
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    bool ok = write(fd, text, n) == n && fsync(fd) == 0;
    close(fd);
    if (ok) rename(temp, path);
}

}  // namespace vendor::brevane::hardware::ostrel::core
