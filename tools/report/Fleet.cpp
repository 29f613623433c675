// Many runs, one view: finding the archives and folding each run's report into
// the summary (a row per run, per test case, per crash signature).
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "Fleet.h"
#include "ResultLayout.h"

namespace ostrel_report {

namespace {

namespace layout = ::vendor::brevane::hardware::ostrel::core;

bool isResultName(const std::string& name) {
    const std::string stem = layout::kResultStem, suffix = layout::kArchiveSuffix;
    return name.size() > stem.size() + suffix.size() && name.compare(0, stem.size(), stem) == 0 &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void unreadable(std::vector<BadArchive>* bad, const std::string& path, const char* what) {
    bad->push_back(BadArchive{path, std::string(what) + ": " + strerror(errno)});
}

// QAV*.zip under |dir|, in name order, folders included (links are not followed).
void searchFolder(const std::string& dir, std::vector<std::string>* archives, std::vector<BadArchive>* bad) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return unreadable(bad, dir, "cannot read the folder");
    std::vector<std::string> names;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        std::string path = dir + "/" + name;
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) {
            unreadable(bad, path, "cannot read the path");
            continue;
        }
        if (S_ISDIR(st.st_mode)) {
            searchFolder(path, archives, bad);
        } else if (S_ISREG(st.st_mode) && isResultName(name)) {
            archives->push_back(path);
        } else if (isResultName(name)) {
            // Inside a folder no link is followed and nothing that is not a file is read.
            bad->push_back(BadArchive{path, S_ISLNK(st.st_mode) ? "a symbolic link, not followed inside a folder"
                                                                  : "not a regular file, left out"});
        }
    }
}

}  // namespace

bool findArchives(const std::vector<std::string>& args, std::vector<std::string>* archives,
                  std::vector<BadArchive>* bad, std::string* error) {
    for (const std::string& arg : args) {
        struct stat st;
        if (stat(arg.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            searchFolder(arg, archives, bad);
        } else {
            // A file is taken as it is: reading it says what is wrong with it.
            archives->push_back(arg);
        }
    }
    if (archives->empty() && bad->empty()) {
        *error = "no QAV*.zip in " + cleanText(args.empty() ? "" : args[0]);
        return false;
    }
    return true;
}

std::string crashSignature(const std::string& line) {
    std::string out;
    size_t i = 0;
    while (i < line.size()) {
        if (!isalnum(static_cast<unsigned char>(line[i]))) {
            out += line[i++];
            continue;
        }
        size_t end = i;
        while (end < line.size() && isalnum(static_cast<unsigned char>(line[end]))) end++;
        std::string word = line.substr(i, end - i);
        bool hex = word.size() >= 8 && std::all_of(word.begin(), word.end(), [](char c) {
            return isxdigit(static_cast<unsigned char>(c));
        });
        if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
            out += "0x#";
        } else if (hex) {
            out += "#";
        } else {
            // Every run of digits inside a word: driver12 -> driver#.
            for (size_t k = 0; k < word.size(); k++) {
                bool digit = isdigit(static_cast<unsigned char>(word[k]));
                if (!digit) out += word[k];
                else if (k == 0 || !isdigit(static_cast<unsigned char>(word[k - 1]))) out += '#';
            }
        }
        i = end;
    }
    return out;
}

bool addRun(FleetSummary* fleet, const RunReport& report) {
    const RunFacts& facts = report.run;
    if (!facts.runId.empty()) {
        auto [seen, added] = fleet->runIds.emplace(facts.runId, report.archive);
        if (!added) {
            fleet->duplicates.push_back(BadArchive{
                    report.archive, "the run of " + cleanText(seen->second) + " (run id " + facts.runId +
                                            ") packed again, counted once"});
            return false;
        }
    }
    FleetRun run;
    size_t runIndex = fleet->runs.size();
    run.archive = report.archive;
    run.stamp = report.stamp;
    run.runId = facts.runId;
    run.device = deviceOf(report);
    run.build = deviceMember(facts, {"fingerprint", "os"});
    std::string kernel = deviceMember(facts, {"kernel"});
    if (!kernel.empty()) run.build += (run.build.empty() ? "" : ", ") + kernel;
    run.configuration = configurationText(facts);
    run.start = facts.start;
    run.startSeconds = facts.startSeconds;
    run.endCause = facts.endCause;
    run.error = facts.error;
    run.duration = facts.duration;
    run.executorEnd = facts.error.empty() ? facts.lastEnd : "the executor " + facts.errorText;
    run.verdict = runVerdict(report);
    run.reason = runReason(report);
    run.history = historyVerdict(report);
    run.historyReason = historyReason(report);
    for (Verdict v : kVerdictOrder) {
        run.counts[static_cast<int>(v)] = countOf(report, v);
    }
    run.crashLines = report.crashLineCount;
    for (const CaseReport& c : report.cases) {
        auto key = std::make_pair(c.id, static_cast<int>(c.kind));
        auto found = fleet->caseIndex.find(key);
        size_t index = found != fleet->caseIndex.end() ? found->second : fleet->cases.size();
        if (found == fleet->caseIndex.end()) {
            fleet->caseIndex.emplace(key, index);
            fleet->cases.push_back(FleetCase{c.id, c.kind, {}, {}});
        }
        FleetCase& fc = fleet->cases[index];
        fc.counts[static_cast<int>(c.verdict)]++;
        if (failsRun(c.verdict)) fc.failedRuns.push_back(runIndex);
        FleetCaseResult result{index, c.verdict};
        if (c.verdict != Verdict::Pass) {
            result.detail = static_cast<uint32_t>(run.details.size());
            run.details.push_back(FleetCaseDetail{amountText(c), c.reason, c.command});
        }
        run.cases.push_back(result);
    }
    run.logPresent = report.logPresent;
    run.logSize = report.logSize;
    size_t from = report.logTail.size() > kRunViewLines ? report.logTail.size() - kRunViewLines : 0;
    for (size_t k = from; k < report.logTail.size(); k++) run.logTail.push_back(shownText(report.logTail[k]));
    for (const std::string& line : report.crashLines) {
        if (run.crashExamples.size() < kRunViewLines) run.crashExamples.push_back(line);  // cut where it was read
        std::string signature = crashSignature(line);
        auto it = fleet->signatures.find(signature);
        if (it == fleet->signatures.end()) {
            if (fleet->signatures.size() >= kMaxSignatures) {
                fleet->otherCrashLines++;
                continue;
            }
            it = fleet->signatures.emplace(signature, CrashSignature{signature, line, 0, {}, {}}).first;
        }
        CrashSignature& s = it->second;
        s.count++;
        const std::string& device = run.device.empty() ? run.stamp : run.device;
        const std::string& configuration = run.configuration.empty() ? "none" : run.configuration;
        bool named = true;
        for (auto [set, name] : {std::make_pair(&s.devices, &device), std::make_pair(&s.configurations, &configuration)}) {
            if (set->count(*name) == 0 && set->size() >= kNamedPerSignature) {
                named = false;
            } else {
                set->insert(*name);
            }
        }
        if (!named) s.linesElsewhere++;
    }
    fleet->crashLinesLeftOut += report.crashLineCount - report.crashLines.size();
    fleet->runs.push_back(std::move(run));
    return true;
}

std::vector<const CrashSignature*> signaturesByCount(const FleetSummary& fleet) {
    std::vector<const CrashSignature*> out;
    for (const auto& [key, signature] : fleet.signatures) out.push_back(&signature);
    std::stable_sort(out.begin(), out.end(), [](const CrashSignature* a, const CrashSignature* b) {
        return a->count > b->count;
    });
    return out;
}

Verdict fleetVerdict(const FleetSummary& fleet) {
    Verdict v = Verdict::Pass;
    for (const FleetRun& run : fleet.runs) v = worse(v, run.verdict);
    return v;
}

size_t failedRuns(const FleetSummary& fleet) {
    size_t n = 0;
    for (const FleetRun& run : fleet.runs) n += failsRun(run.verdict) ? 1 : 0;
    return n;
}

std::string fleetHeadline(const FleetSummary& fleet) {
    Verdict v = fleetVerdict(fleet);
    if (fleet.bad.empty()) return verdictName(v);
    return incompleteOnly(fleet) ? "incomplete" : std::string(verdictName(v)) + ", incomplete";
}

bool incompleteOnly(const FleetSummary& fleet) {
    return !fleet.bad.empty() && !failsRun(fleetVerdict(fleet));
}

int fleetExitStatus(const FleetSummary& fleet) {
    if (fleet.runs.empty()) return 2;
    Verdict v = fleetVerdict(fleet);
    if (failsRun(v)) return kExitFailed;
    return fleet.bad.empty() ? exitStatusOf(v) : kExitNotProven;
}

void orderByStart(std::vector<std::string>* archives) {
    std::vector<std::pair<int64_t, std::string>> keyed;
    for (std::string& archive : *archives) {
        RunFacts run;
        std::string ignored;
        readRunRecord(archive, &run, &ignored);
        int64_t start = run.startSeconds >= 0 ? run.startSeconds : INT64_MAX;
        keyed.emplace_back(start, std::move(archive));
    }
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    archives->clear();
    for (auto& [start, archive] : keyed) archives->push_back(std::move(archive));
}

}  // namespace ostrel_report
