// ostrelctl report, the run record: QAV<stamp>.run.json beside the archive tells
// how the run ended, which the plan's counters alone cannot. Read as untrusted
// input (bounded, regular files only), with the record's own format (its keys,
// end causes and signal names) from the core.
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
#include "ResultLayout.h"

namespace ostrel_report {

namespace key = core::runrecord;

namespace {

// A record sums long lists up (the service keeps at most a few hundred entries
// of each); 4 MiB is far beyond what one holds.
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

// How an executor ended: "exit N" or a signal's name ("" when no end was
// seen), and its signal number (0 for none). The number judges; a record that
// has only the name (an older build) is judged by the name.
struct ExecutorEnd {
    std::string name;
    int signal = 0;
};

ExecutorEnd endOf(const rapidjson::Value& executor) {
    const rapidjson::Value* end = member(executor, key::kEnd);
    if (end == nullptr || !end->IsObject()) return {};
    const rapidjson::Value* number = member(*end, key::kSignalNumber);
    if (number && number->IsInt() && number->GetInt() > 0) {
        return {key::signalName(number->GetInt()), number->GetInt()};
    }
    std::string signal = str(*end, key::kSignal);
    if (!signal.empty()) return {signal, -1};
    const rapidjson::Value* code = member(*end, key::kExit);
    return {code && code->IsInt() ? "exit " + std::to_string(code->GetInt()) : ""};
}

// Why |end| is an error of the run ("" when it is none): any signal the service
// did not send (it ends a run with SIGTERM, then SIGKILL) and any status not 0.
std::string errorOf(const ExecutorEnd& end, bool serviceEnded) {
    if (end.name.empty() || end.name == "exit 0") return "";
    if (end.signal == 0) return "exited with status " + end.name.substr(5);
    if (serviceEnded && (end.name == "SIGTERM" || end.name == "SIGKILL")) return "";
    std::string number = end.signal > 0 ? " (signal " + std::to_string(end.signal) + ")" : "";
    return "was killed by " + end.name + number + ", a signal the service did not send";
}

bool readRecordText(const std::string& path, std::string* text, std::string* error) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (fd < 0) {
        if (errno == ENOENT) return true;
        *error = errno == ELOOP ? "the run record " + cleanText(path) + " is a symbolic link, which is not followed"
                                : "cannot read the run record " + cleanText(path) + ": " + strerror(errno);
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

// The names of what a configuration list selects, in its order: "name" for a
// feature, "group/name" for a member of a group; cut once at kShownBytes.
std::string selectedNames(const rapidjson::Value& list) {
    const rapidjson::Value* entries = member(list, "config");
    if (entries == nullptr || !entries->IsArray()) return "";
    std::string names;
    size_t total = 0;
    auto add = [&](const std::string& name) {
        std::string item = (total ? ", " : "") + name;
        total += item.size();
        if (names.size() <= kShownBytes) names += item;
    };
    auto selected = [](const rapidjson::Value& e) {
        const rapidjson::Value* select = member(e, "select");
        return select && select->IsTrue();
    };
    for (const auto& entry : entries->GetArray()) {
        const rapidjson::Value* content = member(entry, "content");
        if (content && content->IsArray()) {
            for (const auto& m : content->GetArray()) {
                if (selected(m)) add(str(entry, "name") + "/" + str(m, "name"));
            }
        } else if (selected(entry)) {
            add(str(entry, "name"));
        }
    }
    return total == 0 ? "nothing selected" : cutText(names, total);
}

}  // namespace

std::string configurationText(const RunFacts& run) {
    if (run.configurationNames.empty()) return run.configuration;
    return run.configurationNames + " [" + run.configuration + "]";
}

bool readRunRecord(const std::string& archivePath, RunFacts* facts, std::string* error) {
    std::string path = besideArchive(archivePath, ::vendor::brevane::hardware::ostrel::core::kRecordSuffix);
    facts->recordPath = cleanText(path);
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
    run.runId = str(doc, key::kRunId);
    const rapidjson::Value* start = member(doc, key::kStart);
    const rapidjson::Value* end = member(doc, key::kEnd);
    run.start = start ? str(*start, key::kTime) : "";
    run.planDigest = start ? str(*start, key::kPlanSha256) : "";
    run.end = end ? str(*end, key::kTime) : "";
    run.endCause = end ? str(*end, key::kCause) : "";
    int64_t from = key::utcSeconds(run.start), to = key::utcSeconds(run.end);
    run.startSeconds = from;
    run.duration = from >= 0 && to >= from ? to - from : -1;
    if (const rapidjson::Value* config = member(doc, key::kConfiguration); config && config->IsObject()) {
        size_t configurationBytes = 0;
        if (const rapidjson::Value* words = member(*config, key::kWords); words && words->IsArray()) {
            // The words joined, kept up to what is shown (the rest counted by shownText).
            size_t total = 0;
            for (const auto& w : words->GetArray()) {
                if (!w.IsString()) continue;
                std::string word = (total ? " " : "") + std::string(w.GetString(), w.GetStringLength());
                total += word.size();
                if (run.configuration.size() <= kShownBytes) run.configuration += word;
            }
            configurationBytes = total;
        }
        if (const rapidjson::Value* list = member(*config, key::kList); list && (list->IsObject() || list->IsNull())) {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
            list->Accept(writer);
            run.configurationList.assign(buffer.GetString(), buffer.GetSize());
            run.configurationNames = list->IsNull() ? "cleared" : selectedNames(*list);
        }
        const rapidjson::Value* status = member(*config, key::kExitStatus);
        // Cut once, here: a record's words can be megabytes.
        run.configuration = cutText(run.configuration, configurationBytes) + " (exit " +
                            std::to_string(status && status->IsInt() ? status->GetInt() : -1) + ")";
    }
    if (const rapidjson::Value* device = member(doc, key::kDevice); device && device->IsObject()) {
        for (const auto& m : device->GetObject()) {
            if (m.value.IsString() && run.device.size() < kShownLines) {
                run.device.emplace_back(shownText(m.name.GetString()), shownText(m.value.GetString()));
            }
        }
    }
    bool serviceEnded = run.endCause == kCauseRunAbort || run.endCause == kCauseRunFinished;
    int64_t lastIndex = -1;
    if (const rapidjson::Value* list = member(doc, key::kExecutors); list && list->IsArray()) {
        for (const auto& e : list->GetArray()) {
            ExecutorEnd how = endOf(e);
            if (run.executorEnds.size() < kShownLines) {
                run.executorEnds.push_back(how.name);
                const rapidjson::Value* end = member(e, key::kEnd);
                int64_t from = key::utcSeconds(str(e, key::kTime)), to = end ? key::utcSeconds(str(*end, key::kTime)) : -1;
                run.executorSeconds.push_back(from >= 0 && to >= from ? to - from : -1);
            }
            run.executorStarts++;
            // The last start is the one of the highest number (a summed-up list
            // keeps the ends that stand out after the first entries).
            const rapidjson::Value* index = member(e, key::kIndex);
            int64_t at = index && index->IsInt64() ? index->GetInt64() : static_cast<int64_t>(run.executorStarts);
            if (at >= lastIndex) {
                lastIndex = at;
                run.lastEnd = how.name;
            }
            std::string error = errorOf(how, serviceEnded);
            if (!error.empty() && run.error.empty()) {
                run.error = how.name;
                run.errorText = error;
            }
        }
    }
    if (const rapidjson::Value* boots = member(doc, key::kBoots); boots && boots->IsArray()) {
        for (const auto& b : boots->GetArray()) {
            if (run.boots.size() < kShownLines) run.boots.push_back(str(b, key::kTime));
            run.bootCount++;
            // A boot of an older record, without the mark, counts as planned.
            const rapidjson::Value* planned = member(b, key::kPlanned);
            if (planned && planned->IsFalse() && run.unplannedBoots++ == 0) {
                run.firstUnplannedBoot = str(b, key::kTime);
            }
        }
    }
    // The counts of a summed-up record cover what its lists leave out.
    auto count = [&doc](const char* name, uint64_t* n) {
        const rapidjson::Value* v = member(doc, name);
        if (v && v->IsUint64() && v->GetUint64() >= *n) *n = v->GetUint64();
    };
    count(key::kExecutorCount, &run.executorStarts);
    count(key::kBootCount, &run.bootCount);
    count(key::kUnplannedBoots, &run.unplannedBoots);
    if (const rapidjson::Value* steps = member(doc, key::kUnconfirmed); steps && steps->IsArray()) {
        for (const auto& step : steps->GetArray()) {
            if (run.unconfirmed.size() < kShownLines) run.unconfirmed.push_back(str(step, key::kStep));
        }
    }
    return true;
}

}  // namespace ostrel_report
