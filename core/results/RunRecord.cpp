// The run record: kept in memory as a JSON document, written with a temporary
// file, fsync and rename, so that a kill leaves the old or the new record.
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
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace key = runrecord;

namespace {

constexpr const char* kRecordTemp = "/data/vendor/qav/run/record.json.new";
constexpr const char* kConfigFile = "/data/vendor/qav/run/configuration.json";
constexpr const char* kConfigTemp = "/data/vendor/qav/run/configuration.json.new";
constexpr const char* kSideFilePrefix = "executor.";
constexpr const char* kSideFileSuffix = ".end";

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
// packed of the run.
std::string randomRunId() {
    unsigned char bytes[16] = {};
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) return "";
    return hexOf(bytes, sizeof(bytes));
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

}  // namespace

RunRecord::RunRecord() {
    std::string text = readSmallFile(kRunRecordFile);
    if (!parseJsonText(doc, text.c_str(), text.size()) || !doc.IsObject()) doc.SetNull();
    foldSideFiles();
}

void RunRecord::error(const char* fmt, const char* what, int err) {
    formatDiagnostic("ostrel.core.fsm", __FILE__, fmt, what, err, strerror(err));
}

void RunRecord::runStarted(const std::string& planDefinitions) {
    // The folder exists before any supervisor of the run writes its side file.
    mkdir(kRunRecordDir, 0770);
    auto& a = doc.GetAllocator();
    doc.SetObject();
    doc.AddMember(rapidjson::StringRef(key::kRecord), key::kVersion, a);
    doc.AddMember(rapidjson::StringRef(key::kRunId), rapidjson::Value(randomRunId().c_str(), a), a);
    rapidjson::Value service(rapidjson::kObjectType);
    service.AddMember(rapidjson::StringRef(key::kName), "vendor.brevane.hardware.ostrel@2.0-service", a);
    service.AddMember(rapidjson::StringRef(key::kVersionKey), rapidjson::StringRef(kServiceVersion), a);
    doc.AddMember(rapidjson::StringRef(key::kService), service, a);
    rapidjson::Value device(rapidjson::kObjectType);
    describeDevice(&device, a);
    doc.AddMember(rapidjson::StringRef(key::kDevice), device, a);
    rapidjson::Value start(rapidjson::kObjectType);
    start.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    start.AddMember(rapidjson::StringRef(key::kBootId), rapidjson::Value(bootId().c_str(), a), a);
    start.AddMember(rapidjson::StringRef(key::kPlanSha256), rapidjson::Value(sha256Hex(planDefinitions).c_str(), a), a);
    doc.AddMember(rapidjson::StringRef(key::kStart), start, a);
    rapidjson::Document config(&a);
    std::string configText = readSmallFile(kConfigFile);
    bool haveConfig = !configText.empty() && parseJsonText(config, configText.c_str(), configText.size()) &&
                      config.IsObject();
    doc.AddMember(rapidjson::StringRef(key::kConfiguration), haveConfig ? rapidjson::Value(config, a) : rapidjson::Value(), a);
    doc.AddMember(rapidjson::StringRef(key::kExecutors), rapidjson::Value(rapidjson::kArrayType), a);
    doc.AddMember(rapidjson::StringRef(key::kBoots), rapidjson::Value(rapidjson::kArrayType), a);
    doc.AddMember(rapidjson::StringRef(key::kEnd), rapidjson::Value(), a);
    changed = true;
}

void RunRecord::executorStarted(pid_t supervisor, const std::vector<std::string>& words) {
    if (!doc.IsObject() || !doc.HasMember(key::kExecutors) || !doc[key::kExecutors].IsArray()) return;
    auto& a = doc.GetAllocator();
    rapidjson::Value entry(rapidjson::kObjectType);
    entry.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    entry.AddMember(rapidjson::StringRef(key::kBootId), rapidjson::Value(bootId().c_str(), a), a);
    entry.AddMember(rapidjson::StringRef(key::kSupervisor), static_cast<int>(supervisor), a);
    rapidjson::Value list(rapidjson::kArrayType);
    for (const std::string& w : words) list.PushBack(rapidjson::Value(w.c_str(), a), a);
    entry.AddMember(rapidjson::StringRef(key::kWords), list, a);
    entry.AddMember(rapidjson::StringRef(key::kEnd), rapidjson::Value(), a);
    doc[key::kExecutors].PushBack(entry, a);
    changed = true;
}

rapidjson::Value* RunRecord::executorOf(pid_t supervisor) {
    if (!doc.IsObject() || !doc.HasMember(key::kExecutors) || !doc[key::kExecutors].IsArray()) return nullptr;
    rapidjson::Value& list = doc[key::kExecutors];
    for (rapidjson::SizeType i = list.Size(); i-- > 0;) {
        rapidjson::Value& e = list[i];
        if (e.IsObject() && e.HasMember(key::kSupervisor) && e[key::kSupervisor].IsInt() &&
            e[key::kSupervisor].GetInt() == supervisor && e.HasMember(key::kEnd) && e[key::kEnd].IsNull()) {
            return &e;
        }
    }
    return nullptr;
}

void RunRecord::executorReaped(pid_t supervisor) {
    char path[256];
    sideFilePath(path, supervisor, kSideFileSuffix);
    std::string text = readSmallFile(path);
    if (text.empty()) return;
    unlink(path);
    rapidjson::Value* entry = executorOf(supervisor);
    if (entry == nullptr) return;
    int status = atoi(text.c_str());
    auto& a = doc.GetAllocator();
    rapidjson::Value end(rapidjson::kObjectType);
    end.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    end.AddMember(rapidjson::StringRef(key::kWaitStatus), status, a);
    if (WIFSIGNALED(status)) {
        end.AddMember(rapidjson::StringRef(key::kSignal),
                      rapidjson::Value(key::signalName(WTERMSIG(status)).c_str(), a), a);
        end.AddMember(rapidjson::StringRef(key::kSignalNumber), WTERMSIG(status), a);
    } else if (WIFEXITED(status)) {
        end.AddMember(rapidjson::StringRef(key::kExit), WEXITSTATUS(status), a);
    }
    (*entry)[key::kEnd] = end;
    changed = true;
}

// Ends written by supervisors while no service reaped them (a restart came first).
void RunRecord::foldSideFiles() {
    DIR* d = opendir(kRunRecordDir);
    while (struct dirent* e = d ? readdir(d) : nullptr) {
        const char* name = e->d_name;
        size_t len = strlen(name), pre = strlen(kSideFilePrefix), suf = strlen(kSideFileSuffix);
        if (len <= pre + suf || strncmp(name, kSideFilePrefix, pre) != 0 ||
            strcmp(name + len - suf, kSideFileSuffix) != 0) {
            continue;
        }
        executorReaped(static_cast<pid_t>(atol(name + pre)));
    }
    if (d) closedir(d);
}

void RunRecord::bootCounted(bool planned) {
    if (!doc.IsObject() || !doc.HasMember(key::kBoots) || !doc[key::kBoots].IsArray()) return;
    auto& a = doc.GetAllocator();
    rapidjson::Value boot(rapidjson::kObjectType);
    boot.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    boot.AddMember(rapidjson::StringRef(key::kBootId), rapidjson::Value(bootId().c_str(), a), a);
    boot.AddMember(rapidjson::StringRef(key::kPlanned), planned, a);
    doc[key::kBoots].PushBack(boot, a);
    changed = true;
}

void RunRecord::runEnded(const char* cause) {
    if (!doc.IsObject() || !doc.HasMember(key::kEnd) || !doc[key::kEnd].IsNull()) return;
    auto& a = doc.GetAllocator();
    rapidjson::Value end(rapidjson::kObjectType);
    end.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    end.AddMember(rapidjson::StringRef(key::kCause), rapidjson::Value(cause, a), a);
    doc[key::kEnd] = end;
    changed = true;
}

bool RunRecord::replaceFile(const char* temp, const char* path, const std::string& text) {
    mkdir(kRunRecordDir, 0770);
    if (replaceFileAtomically(temp, path, text, 0660)) return true;
    error("ostrel: run record %s (errno:%d, %s)\n", path, errno);
    return false;
}

std::string RunRecord::textOf(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

void RunRecord::commit() {
    if (!changed || !doc.IsObject()) return;
    changed = false;
    replaceFile(kRecordTemp, kRunRecordFile, textOf(doc));
}

void RunRecord::configurationApplied(const char* clientList, const std::vector<std::string>& words,
                                     int exitStatus) {
    rapidjson::Document config;
    auto& a = config.GetAllocator();
    config.SetObject();
    config.AddMember(rapidjson::StringRef(key::kTime), rapidjson::Value(utcNow().c_str(), a), a);
    // The client's list as given: JSON when it parses, its text otherwise.
    rapidjson::Document list(&a);
    if (clientList == nullptr) {
        config.AddMember(rapidjson::StringRef(key::kList), rapidjson::Value(), a);
    } else if (parseJsonText(list, clientList, strlen(clientList))) {
        config.AddMember(rapidjson::StringRef(key::kList), rapidjson::Value(list, a), a);
    } else {
        config.AddMember(rapidjson::StringRef(key::kList), rapidjson::Value(clientList, a), a);
    }
    rapidjson::Value tool(rapidjson::kArrayType);
    for (const std::string& w : words) tool.PushBack(rapidjson::Value(w.c_str(), a), a);
    config.AddMember(rapidjson::StringRef(key::kWords), tool, a);
    config.AddMember(rapidjson::StringRef(key::kExitStatus), exitStatus, a);
    replaceFile(kConfigTemp, kConfigFile, textOf(config));
}

bool RunRecord::moveBeside(const std::string& zipName) {
    commit();
    const std::string suffix = ".zip";
    if (zipName.size() <= suffix.size() || access(kRunRecordFile, F_OK) != 0) return false;
    std::string target = zipName.substr(0, zipName.size() - suffix.size()) + ".run.json";
    if (rename(kRunRecordFile, target.c_str()) != 0) {
        error("ostrel: run record to %s (errno:%d, %s)\n", target.c_str(), errno);
        return false;
    }
    chmod(target.c_str(), 0664);
    doc.SetNull();
    return true;
}

void RunRecord::persistExecutorEnd(int waitStatus) {
    char temp[256], path[256];
    pid_t self = getpid();
    sideFilePath(temp, self, ".tmp");
    sideFilePath(path, self, kSideFileSuffix);
    char text[24];
    char* end = appendText(appendDigits(text, static_cast<unsigned>(waitStatus)), "\n");
    ssize_t n = end - text;
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
    if (fd < 0) return;
    bool ok = write(fd, text, n) == n && fsync(fd) == 0;
    close(fd);
    if (ok) rename(temp, path);
}

}  // namespace vendor::brevane::hardware::ostrel::core
