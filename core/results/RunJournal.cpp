// Reading the run's journal and folding it into the record handed out. The fold
// streams the journal a line at a time and keeps bounded lists, so a run of
// 100,000 boots folds in bounded memory into a record that a report can read.
#include "RunJournal.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <fstream>
#include <map>
#include <vector>

#include "JsonText.h"
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace key = runrecord;

namespace {

using Value = rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

bool isString(const Value& v, const char* name, const char* text) {
    auto it = v.FindMember(name);
    return it != v.MemberEnd() && it->value.IsString() && strcmp(it->value.GetString(), text) == 0;
}

int intOf(const Value& v, const char* name) {
    auto it = v.FindMember(name);
    return it != v.MemberEnd() && it->value.IsInt() ? it->value.GetInt() : 0;
}

// An executor's end that stands out: one seen that is not "exit 0".
bool standsOut(const Value& end) {
    return end.IsObject() && !(end.HasMember(key::kExit) && end[key::kExit].IsInt() && end[key::kExit].GetInt() == 0);
}

// The fold's state: the record being made and the lists kept within bounds.
class Fold {
  public:
    Fold() : a(record.GetAllocator()) {
        record.SetObject();
        listedExecutors.reserve(kListed);  // |open| points into it
    }

    void add(const Value& line) {
        if (isString(line, journal::kEvent, journal::kStart)) return start(line);
        if (!started) return;
        if (isString(line, journal::kEvent, journal::kExecutor)) return executor(line);
        if (isString(line, journal::kEvent, journal::kExecutorEnd)) return executorEnd(line);
        if (isString(line, journal::kEvent, journal::kBoot)) return boot(line);
        if (isString(line, journal::kEvent, journal::kEnd)) return ended(line);
        if (isString(line, journal::kEvent, journal::kUnconfirmed)) return unconfirmed(line);
    }

    std::string text() {
        if (!started) return "";
        Value executors(rapidjson::kArrayType), boots(rapidjson::kArrayType);
        for (Value& e : listedExecutors) executors.PushBack(e, a);
        for (Value& e : notableExecutors) executors.PushBack(e, a);
        if (lastExecutor.IsObject() && executorCount > kListed && !lastIsNotable) executors.PushBack(lastExecutor, a);
        for (Value& b : listedBoots) boots.PushBack(b, a);
        for (Value& b : notableBoots) boots.PushBack(b, a);
        record.AddMember(rapidjson::StringRef(key::kExecutors), executors, a);
        record.AddMember(rapidjson::StringRef(key::kExecutorCount), executorCount, a);
        record.AddMember(rapidjson::StringRef(key::kBoots), boots, a);
        record.AddMember(rapidjson::StringRef(key::kBootCount), bootCount, a);
        record.AddMember(rapidjson::StringRef(key::kUnplannedBoots), unplannedCount, a);
        record.AddMember(rapidjson::StringRef(key::kEnd), end, a);
        record.AddMember(rapidjson::StringRef(key::kUnconfirmed), unconfirmedSteps, a);
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        record.Accept(writer);
        return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
    }

  private:
    // A journal holds one run: it is made anew with its start line.
    void start(const Value& line) {
        if (started) return;
        started = true;
        for (const char* name : {key::kRecord, key::kRunId, key::kService, key::kDevice}) {
            if (line.HasMember(name)) record.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
        Value start(rapidjson::kObjectType);
        for (const char* name : {key::kTime, key::kBootId, key::kPlanSha256}) {
            if (line.HasMember(name)) start.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
        record.AddMember(rapidjson::StringRef(key::kStart), start, a);
        record.AddMember(rapidjson::StringRef(key::kConfiguration),
                         line.HasMember(key::kConfiguration) ? Value(line[key::kConfiguration], a) : Value(), a);
    }

    void executor(const Value& line) {
        Value entry(rapidjson::kObjectType);
        for (const char* name : {key::kTime, key::kBootId, key::kSupervisor, key::kWords}) {
            if (line.HasMember(name)) entry.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
        entry.AddMember(rapidjson::StringRef(key::kIndex), ++executorCount, a);
        entry.AddMember(rapidjson::StringRef(key::kEnd), Value(), a);
        int supervisor = intOf(line, key::kSupervisor);
        lastExecutor.CopyFrom(entry, a);
        lastSupervisor = supervisor;
        lastIsNotable = false;
        if (listedExecutors.size() < kListed) {
            listedExecutors.push_back(std::move(entry));
            open[supervisor] = &listedExecutors.back();
        } else {
            pending[supervisor].CopyFrom(entry, a);
            open[supervisor] = &pending[supervisor];
        }
    }

    // Matched to the start of its supervisor still open; a second fold of one
    // side file (a kill before it was removed) finds that start ended and is dropped.
    void executorEnd(const Value& line) {
        int supervisor = intOf(line, key::kSupervisor);
        auto it = open.find(supervisor);
        if (it == open.end() || !(*it->second)[key::kEnd].IsNull()) return;
        Value end(rapidjson::kObjectType);
        for (const char* name : {key::kTime, key::kWaitStatus, key::kExit, key::kSignal, key::kSignalNumber}) {
            if (line.HasMember(name)) end.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
        Value& entry = *it->second;
        entry[key::kEnd].CopyFrom(end, a);
        bool listed = listedExecutors.size() <= kListed && &entry >= &listedExecutors.front() &&
                      &entry <= &listedExecutors.back();
        if (supervisor == lastSupervisor && lastExecutor[key::kEnd].IsNull()) lastExecutor[key::kEnd].CopyFrom(end, a);
        if (!listed && standsOut(end) && notableExecutors.size() < kListed) {
            lastIsNotable = lastIsNotable || supervisor == lastSupervisor;
            notableExecutors.emplace_back(entry, a);
        }
        if (!listed) pending.erase(supervisor);
        open.erase(it);
    }

    void boot(const Value& line) {
        bool planned = !(line.HasMember(key::kPlanned) && line[key::kPlanned].IsFalse());
        Value entry(rapidjson::kObjectType);
        for (const char* name : {key::kTime, key::kBootId, key::kPlanned}) {
            if (line.HasMember(name)) entry.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
        bootCount++;
        unplannedCount += planned ? 0 : 1;
        lastBootPlanned = planned;
        if (listedBoots.size() < kListed) {
            listedBoots.push_back(std::move(entry));
        } else if (!planned && notableBoots.size() < kListed) {
            notableBoots.push_back(std::move(entry));
        }
        // Executors of the boot before are ended by it: their ends no longer come.
        for (const auto& [supervisor, entry] : pending) open.erase(supervisor);
        pending.clear();
    }

    void ended(const Value& line) {
        end.SetObject();
        for (const char* name : {key::kTime, key::kCause}) {
            if (line.HasMember(name)) end.AddMember(rapidjson::StringRef(name), Value(line[name], a), a);
        }
    }

    // A step the plan did not confirm stays in the record, named, and is not
    // taken for done: an end no longer ends the run, a boot is not counted.
    void unconfirmed(const Value& line) {
        Value step(line, a);
        step.RemoveMember(journal::kEvent);
        if (isString(line, journal::kStep, journal::kEnd) && end.IsObject()) {
            step.AddMember("was", Value(end, a), a);
            end.SetNull();
        } else if (isString(line, journal::kStep, journal::kBoot) && bootCount > 0) {
            bootCount--;
            unplannedCount -= lastBootPlanned ? 0 : 1;
        }
        unconfirmedSteps.PushBack(step, a);
    }

    rapidjson::Document record;
    Allocator& a;
    bool started = false;
    std::vector<Value> listedExecutors, notableExecutors, listedBoots, notableBoots;
    std::map<int, Value> pending;  // executors beyond the listed ones, started since the last boot
    std::map<int, Value*> open;    // starts without an end yet, by supervisor
    Value lastExecutor;
    int lastSupervisor = 0;
    bool lastIsNotable = false;
    bool lastBootPlanned = true;
    uint64_t executorCount = 0, bootCount = 0, unplannedCount = 0;
    Value end;
    Value unconfirmedSteps{rapidjson::kArrayType};
};

}  // namespace

bool readJournal(const std::string& path, const std::function<void(const std::string&)>& each) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        if (in.eof()) break;  // no line end: torn by a cut in the middle of an append
        each(line);
    }
    return true;
}

std::string foldJournal(const std::string& path) {
    Fold fold;
    readJournal(path, [&](const std::string& text) {
        rapidjson::Document line;
        if (parseJsonText(line, text.data(), text.size()) && line.IsObject()) fold.add(line);
    });
    return fold.text();
}

}  // namespace vendor::brevane::hardware::ostrel::core
