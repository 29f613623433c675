// The summary of many runs as tables for a person and as one JSON document.
#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/prettywriter.h>

#include <cstdio>

#include "Fleet.h"

namespace ostrel_report {

namespace {

constexpr size_t kFailedRunsShown = 5;

// Bytes of a cell in a table row: a row always fits its buffer, so nothing cuts
// one in the middle of a character.
constexpr size_t kCellBytes = 80;

std::string cell(const std::string& text) {
    std::string clean = cleanText(text);
    if (clean.size() > kCellBytes) {
        size_t cut = kCellBytes;
        while (cut > 0 && (static_cast<unsigned char>(clean[cut]) & 0xC0) == 0x80) cut--;
        clean = clean.substr(0, cut) + "...";
    }
    return clean.empty() ? "-" : clean;
}

std::string durationText(int64_t seconds) {
    if (seconds < 0) return "-";
    char buf[32];
    snprintf(buf, sizeof(buf), "%lldh%02lldm%02llds", static_cast<long long>(seconds / 3600),
             static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
    return buf;
}

std::string endText(const FleetRun& run) {
    if (!run.error.empty()) return "error " + run.error;
    return run.endCause.empty() ? "-" : run.endCause;
}

std::string joined(const std::set<std::string>& items) {
    std::string out;
    for (const std::string& item : items) out += (out.empty() ? "" : ", ") + cleanText(item);
    return out;
}

void writeCounts(rapidjson::PrettyWriter<rapidjson::OStreamWrapper>& w, const uint64_t counts[kVerdictCount]) {
    w.StartObject();
    for (Verdict v : kVerdictOrder) {
        w.Key(verdictName(v));
        w.Uint64(counts[static_cast<int>(v)]);
    }
    w.EndObject();
}

}  // namespace

void fleetText(const FleetSummary& fleet, std::ostream& out) {
    out << "Ostrel runs: " + std::to_string(fleet.runs.size()) + " read, " +
                      std::to_string(failedRuns(fleet)) + " failed, " + std::to_string(fleet.bad.size()) +
                      " not readable: " + fleetHeadline(fleet) + "\n\nRUNS\n";
    char row[512];
    snprintf(row, sizeof(row), "%-4s %-8s %-22s %-10s %-16s %-20s %s\n", "RUN", "VERDICT", "STAMP",
             "DURATION", "END", "DEVICE", "BUILD / CONFIGURATION");
    out << row;
    for (size_t i = 0; i < fleet.runs.size(); i++) {
        const FleetRun& run = fleet.runs[i];
        snprintf(row, sizeof(row), "%-4zu %-8s %-22s %-10s %-16s %-20s ", i + 1, verdictName(run.verdict),
                 cell(run.stamp).c_str(), durationText(run.duration).c_str(), cell(endText(run)).c_str(),
                 cell(run.device).c_str());
        out << row + cell(run.build) + " / " + cell(run.configuration) + "\n";
    }
    out << "\nTEST CASES\n";
    snprintf(row, sizeof(row), "%5s %5s %5s %7s %7s  %-7s %s\n", "PASS", "FAIL", "ERROR", "ABORTED", "UNKNOWN",
             "KIND", "TEST CASE: RUNS THAT FAILED");
    out << row;
    auto caseRow = [&](const uint64_t counts[kVerdictCount], const char* kind, const std::string& name,
                       const std::vector<size_t>& failed) {
        auto n = [counts](Verdict v) { return static_cast<unsigned long long>(counts[static_cast<int>(v)]); };
        snprintf(row, sizeof(row), "%5llu %5llu %5llu %7llu %7llu  %-7s ", n(Verdict::Pass), n(Verdict::Fail),
                 n(Verdict::Error), n(Verdict::Aborted), n(Verdict::Unknown), kind);
        std::string runs;
        for (size_t k = 0; k < failed.size() && k < kFailedRunsShown; k++) {
            runs += (k ? " " : "") + std::to_string(failed[k] + 1);
        }
        if (failed.size() > kFailedRunsShown) {
            runs += " and " + std::to_string(failed.size() - kFailedRunsShown) + " more";
        }
        out << row + name + (runs.empty() ? "" : ": " + runs) + "\n";
    };
    for (const FleetCase& c : fleet.cases) caseRow(c.counts, kindName(c.kind), cell(c.id), c.failedRuns);
    // The crash history of every run, as each run's report judges it.
    uint64_t history[kVerdictCount] = {};
    std::vector<size_t> historyFailed;
    for (size_t i = 0; i < fleet.runs.size(); i++) {
        history[static_cast<int>(fleet.runs[i].history)]++;
        if (failsRun(fleet.runs[i].history)) historyFailed.push_back(i);
    }
    caseRow(history, "lines", "crash history", historyFailed);
    out << "\nCRASH SIGNATURES\n";
    for (const CrashSignature* s : signaturesByCount(fleet)) {
        std::string elsewhere = s->linesElsewhere == 0 ? "" :
                " and " + std::to_string(s->linesElsewhere) + " line(s) on others";
        out << std::to_string(s->count) + "x  " + cleanText(s->signature) + "\n     devices: " +
               joined(s->devices) + "; configurations: " + joined(s->configurations) + elsewhere +
               "\n     e.g. " + cleanText(s->example) + "\n";
    }
    if (fleet.signatures.empty()) out << "none\n";
    if (fleet.otherCrashLines > 0) {
        out << std::to_string(fleet.otherCrashLines) + " line(s) of further signatures, counted together\n";
    }
    if (fleet.crashLinesLeftOut > 0) {
        out << std::to_string(fleet.crashLinesLeftOut) + " line(s) beyond the first 1,000 of their run, not grouped\n";
    }
    if (!fleet.bad.empty()) {
        out << "\nNOT READABLE\n";
        for (const BadArchive& b : fleet.bad) out << cleanText(b.archive) + ": " + cleanText(b.reason) + "\n";
    }
    if (!fleet.duplicates.empty()) {
        out << "\nDUPLICATES\n";
        for (const BadArchive& d : fleet.duplicates) out << cleanText(d.archive) + ": " + cleanText(d.reason) + "\n";
    }
}

void fleetJson(const FleetSummary& fleet, std::ostream& out) {
    // Written as it is made: a summary of many runs is never held as one text.
    rapidjson::OStreamWrapper stream(out);
    rapidjson::PrettyWriter<rapidjson::OStreamWrapper> w(stream);
    w.SetIndent(' ', 2);
    w.StartObject();
    w.Key("verdict"); w.String(verdictName(fleetVerdict(fleet)));
    w.Key("incomplete"); w.Bool(!fleet.bad.empty());
    w.Key("headline"); w.String(fleetHeadline(fleet).c_str());
    w.Key("runs");
    w.StartArray();
    for (const FleetRun& run : fleet.runs) {
        w.StartObject();
        w.Key("archive"); writeClean(w, run.archive);
        w.Key("stamp"); writeClean(w, run.stamp);
        w.Key("run_id"); writeClean(w, run.runId);
        w.Key("device"); writeClean(w, run.device);
        w.Key("build"); writeClean(w, run.build);
        w.Key("configuration"); writeClean(w, run.configuration);
        w.Key("start"); writeClean(w, run.start);
        w.Key("duration"); run.duration >= 0 ? w.Int64(run.duration) : w.Null();
        w.Key("end_cause"); writeClean(w, run.endCause);
        w.Key("error"); writeClean(w, run.error);
        w.Key("verdict"); w.String(verdictName(run.verdict));
        w.Key("reason"); writeClean(w, run.reason);
        w.Key("counts"); writeCounts(w, run.counts);
        w.Key("crash_lines"); w.Uint64(run.crashLines);
        w.EndObject();
    }
    w.EndArray();
    w.Key("testcases");
    w.StartArray();
    for (const FleetCase& c : fleet.cases) {
        w.StartObject();
        w.Key("id"); writeClean(w, c.id);
        w.Key("kind"); w.String(kindName(c.kind));
        w.Key("counts"); writeCounts(w, c.counts);
        w.Key("failed_runs");
        w.StartArray();
        for (size_t r : c.failedRuns) writeClean(w, fleet.runs[r].stamp);
        w.EndArray();
        w.EndObject();
    }
    w.EndArray();
    w.Key("crash_signatures");
    w.StartArray();
    for (const CrashSignature* s : signaturesByCount(fleet)) {
        w.StartObject();
        w.Key("signature"); writeClean(w, s->signature);
        w.Key("count"); w.Uint64(s->count);
        w.Key("devices");
        w.StartArray();
        for (const std::string& d : s->devices) writeClean(w, d);
        w.EndArray();
        w.Key("configurations");
        w.StartArray();
        for (const std::string& c : s->configurations) writeClean(w, c);
        w.EndArray();
        w.Key("lines_elsewhere"); w.Uint64(s->linesElsewhere);
        w.Key("example"); writeClean(w, s->example);
        w.EndObject();
    }
    w.EndArray();
    w.Key("crash_lines_other"); w.Uint64(fleet.otherCrashLines);
    w.Key("crash_lines_left_out"); w.Uint64(fleet.crashLinesLeftOut);
    for (const auto& [name, list] : {std::make_pair("bad_archives", &fleet.bad),
                                     std::make_pair("duplicates", &fleet.duplicates)}) {
        w.Key(name);
        w.StartArray();
        for (const BadArchive& b : *list) {
            w.StartObject();
            w.Key("archive"); writeClean(w, b.archive);
            w.Key("reason"); writeClean(w, b.reason);
            w.EndObject();
        }
        w.EndArray();
    }
    w.EndObject();
    out << "\n";
}

}  // namespace ostrel_report
