// ostrelctl report, the run record: QAV<stamp>.run.json beside the archive tells
// how the run ended, which the plan's counters alone cannot. Read as untrusted
// input (bounded, regular files only); the verdicts are judged again with it.
#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "JsonText.h"
#include "Report.h"

namespace ostrel_report {

namespace {

// A record holds a line per executor start and boot: 4 MiB is some 30,000 boots.
constexpr size_t kMaxRecordBytes = 4u << 20;

std::string str(const rapidjson::Value& v, const char* key) {
    if (!v.IsObject()) return "";
    auto it = v.FindMember(key);
    return it != v.MemberEnd() && it->value.IsString()
                   ? shownText(std::string(it->value.GetString(), it->value.GetStringLength()))
                   : "";
}

const rapidjson::Value* member(const rapidjson::Value& v, const char* key) {
    if (!v.IsObject()) return nullptr;
    auto it = v.FindMember(key);
    return it != v.MemberEnd() ? &it->value : nullptr;
}

// 2026-11-24T05:31:00Z as seconds since the epoch, -1 for anything else.
int64_t utcSeconds(const std::string& text) {
    struct tm tm = {};
    const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm);
    if (end == nullptr || *end != '\0') return -1;
    return static_cast<int64_t>(timegm(&tm));
}

// "exit N", a signal's name, or "" when no end was seen.
std::string endOf(const rapidjson::Value& executor) {
    const rapidjson::Value* end = member(executor, "end");
    if (end == nullptr || !end->IsObject()) return "";
    std::string signal = str(*end, "signal");
    if (!signal.empty()) return signal;
    const rapidjson::Value* code = member(*end, "exit");
    return code && code->IsInt() ? "exit " + std::to_string(code->GetInt()) : "";
}

bool readRecordText(const std::string& path, std::string* text, std::string* error) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ENOENT) return true;
        *error = "cannot read the run record " + cleanText(path) + ": " + strerror(errno);
        return false;
    }
    struct stat st;
    bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
              static_cast<uint64_t>(st.st_size) <= kMaxRecordBytes;
    if (ok) {
        text->resize(static_cast<size_t>(st.st_size));
        size_t done = 0;
        while (ok && done < text->size()) {
            ssize_t n = read(fd, &(*text)[done], text->size() - done);
            if (n < 0 && errno == EINTR) continue;
            ok = n > 0;
            if (ok) done += static_cast<size_t>(n);
        }
    }
    close(fd);
    if (!ok) *error = "the run record " + cleanText(path) + " is not a regular file of at most 4 MiB";
    return ok;
}

}  // namespace

void judgeWithRecord(const RunFacts& run, CaseReport* c) {
    bool byItself = run.endCause == "executor";
    bool lastExitedZero = byItself && run.executorStarts > 0 && run.lastEnd == "exit 0";
    if (c->target == 0) {
        c->verdict = Verdict::Fail;
        c->reason = "no target: a size of 0 is never reached";
    } else if (c->counted && c->reached >= c->target) {
        return;
    } else if (!run.error.empty()) {
        c->verdict = Verdict::Error;
        c->reason = "the executor ended with " + run.error + "; " + c->reason;
    } else if (!c->counted && lastExitedZero) {
        c->verdict = Verdict::Pass;
        c->reason = std::to_string(c->asked) + " rounds asked; the executor ran them and exited 0";
    } else if (run.endCause == "runAbort") {
        c->reason += " (the run was aborted)";
    }
}

bool readRunRecord(const std::string& archivePath, RunFacts* facts, std::string* error) {
    std::string path = archivePath;
    if (path.size() > 4 && path.compare(path.size() - 4, 4, ".zip") == 0) path.resize(path.size() - 4);
    path += ".run.json";
    std::string text;
    if (!readRecordText(path, &text, error)) return false;
    if (text.empty()) return true;
    rapidjson::Document doc;
    using vendor::brevane::hardware::ostrel::core::parseJsonText;
    if (!parseJsonText(doc, text.data(), text.size()) || !doc.IsObject()) {
        *error = "the run record " + cleanText(path) + " is not a JSON object";
        return false;
    }
    RunFacts& run = *facts;
    run.present = true;
    const rapidjson::Value* start = member(doc, "start");
    const rapidjson::Value* end = member(doc, "end");
    run.start = start ? str(*start, "time") : "";
    run.planDigest = start ? str(*start, "plan_sha256") : "";
    run.end = end ? str(*end, "time") : "";
    run.endCause = end ? str(*end, "cause") : "";
    int64_t from = utcSeconds(run.start), to = utcSeconds(run.end);
    run.startSeconds = from;
    run.duration = from >= 0 && to >= from ? to - from : -1;
    if (const rapidjson::Value* config = member(doc, "configuration"); config && config->IsObject()) {
        if (const rapidjson::Value* words = member(*config, "words"); words && words->IsArray()) {
            for (const auto& w : words->GetArray()) {
                if (w.IsString()) run.configuration += (run.configuration.empty() ? "" : " ") + std::string(w.GetString());
            }
        }
        if (const rapidjson::Value* list = member(*config, "list"); list && (list->IsObject() || list->IsNull())) {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
            list->Accept(writer);
            run.configurationList.assign(buffer.GetString(), buffer.GetSize());
        }
        const rapidjson::Value* status = member(*config, "exit_status");
        run.configuration += " (exit " + std::to_string(status && status->IsInt() ? status->GetInt() : -1) + ")";
    }
    if (const rapidjson::Value* device = member(doc, "device"); device && device->IsObject()) {
        for (const auto& m : device->GetObject()) {
            if (m.value.IsString() && run.device.size() < kShownLines) {
                run.device.emplace_back(shownText(m.name.GetString()), shownText(m.value.GetString()));
            }
        }
    }
    bool serviceEnded = run.endCause == "runAbort" || run.endCause == "runFinished";
    if (const rapidjson::Value* list = member(doc, "executors"); list && list->IsArray()) {
        for (const auto& e : list->GetArray()) {
            std::string how = endOf(e);
            if (run.executorEnds.size() < kShownLines) run.executorEnds.push_back(how);
            run.executorStarts++;
            run.lastEnd = how;
            bool byService = serviceEnded && (how == "SIGTERM" || how == "SIGKILL");
            bool inError = !how.empty() && how != "exit 0" && !byService;
            if (inError && run.error.empty()) run.error = how;
        }
    }
    if (const rapidjson::Value* boots = member(doc, "boots"); boots && boots->IsArray()) {
        for (const auto& b : boots->GetArray()) {
            if (run.boots.size() < kShownLines) run.boots.push_back(str(b, "time"));
            run.bootCount++;
        }
    }
    return true;
}

}  // namespace ostrel_report
