// The summary of many runs as one self-contained page: the verdict matrix, crash
// signatures as bars, the runs on a time line, and a section per run. The page's
// frame, style and script come from FleetPage.html (embedded at build time); the
// content security policy allows that style and that script alone, by hash, so
// nothing a device wrote can load or run anything.
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "Fleet.h"
#include "FleetPage.h"

namespace ostrel_report {

namespace {

std::string esc(const std::string& text) {
    return xmlEscape(text, true);
}

// 'sha256-<base64>' of the text between |open| and |close| in the page.
std::string sourceHash(const std::string& page, const std::string& open, const std::string& close) {
    size_t from = page.find(open), to = page.find(close);
    if (from == std::string::npos || to == std::string::npos || to < from) return "'none'";
    from += open.size();
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(page.data() + from), to - from, digest);
    unsigned char encoded[4 * ((SHA256_DIGEST_LENGTH + 2) / 3) + 1];
    EVP_EncodeBlock(encoded, digest, SHA256_DIGEST_LENGTH);
    return "'sha256-" + std::string(reinterpret_cast<char*>(encoded)) + "'";
}

// A verdict's cell: its letter, coloured by a class from the verdict model's
// fixed names. The reason is written once, in the run's own section.
std::string verdictCell(Verdict v) {
    return "<td class=\"v v-" + std::string(verdictName(v)) + "\">" + verdictLetter(v) + "</td>";
}

// The matrix's columns: at most kMatrixColumns test cases, those that failed in
// any run first, so that the page grows with the runs and test cases, never with
// their product. The others are counted in each run's last cell.
constexpr size_t kMatrixColumns = 40;

std::vector<size_t> matrixColumns(const FleetSummary& fleet) {
    std::vector<size_t> columns;
    for (bool failed : {true, false}) {
        for (size_t c = 0; c < fleet.cases.size() && columns.size() < kMatrixColumns; c++) {
            if (fleet.cases[c].failedRuns.empty() != failed) columns.push_back(c);
        }
    }
    return columns;
}

std::string badge(Verdict v) {
    return "<span class=\"badge v-" + std::string(verdictName(v)) + "\">" + verdictName(v) + "</span>";
}

std::string matrix(const FleetSummary& fleet) {
    std::string out = "<h2 id=\"runs\">Runs and verdicts</h2>\n<div class=\"controls\">"
                      "<label>Filter runs <input id=\"filter\" type=\"search\"></label>"
                      "<label><input id=\"failing\" type=\"checkbox\"> failed runs only</label>"
                      "<span id=\"shown\" aria-live=\"polite\"></span></div>\n"
                      "<p class=\"legend\"><span>P pass</span> <span>F fail</span> <span>E error</span> "
                      "<span>A aborted</span> <span>? unknown (not proven)</span> <span>- not in that run</span></p>\n"
                      "<div class=\"scroll\"><table id=\"matrix\">\n<thead><tr><th>Run</th><th>Verdict</th>"
                      "<th>Device</th>";
    std::vector<size_t> columns = matrixColumns(fleet);
    std::map<size_t, size_t> columnOf;
    for (size_t k = 0; k < columns.size(); k++) {
        columnOf[columns[k]] = k;
        out += "<th>" + esc(fleet.cases[columns[k]].id) + "</th>";
    }
    bool more = columns.size() < fleet.cases.size();
    out += std::string(more ? "<th>other test cases</th>" : "") + "<th>crash history</th></tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < fleet.runs.size(); i++) {
        const FleetRun& run = fleet.runs[i];
        out += "<tr data-run=\"" + std::to_string(i + 1) + "\" data-fails=\"" + (failsRun(run.verdict) ? "yes" : "no") +
               "\" data-verdict=\"" + verdictName(run.verdict) +
               "\"><th><a href=\"#run-" + std::to_string(i + 1) + "\">" + esc("QAV" + run.stamp) +
               "</a></th><td>" + badge(run.verdict) + "</td><td>" + esc(run.device) + "</td>";
        std::vector<const FleetCaseResult*> shown(columns.size(), nullptr);
        uint64_t others[kVerdictCount] = {};
        for (const FleetCaseResult& r : run.cases) {
            auto at = columnOf.find(r.caseIndex);
            if (at != columnOf.end()) {
                shown[at->second] = &r;
            } else {
                others[static_cast<int>(r.verdict)]++;
            }
        }
        for (const FleetCaseResult* r : shown) out += r ? verdictCell(r->verdict) : "<td class=\"v none\">-</td>";
        if (more) {
            std::string counts;
            for (Verdict v : kVerdictOrder) {
                uint64_t n = others[static_cast<int>(v)];
                if (n > 0) counts += (counts.empty() ? "" : " ") + std::to_string(n) + " " + verdictLetter(v);
            }
            out += "<td>" + (counts.empty() ? std::string("-") : esc(counts)) + "</td>";
        }
        out += verdictCell(run.history) + "</tr>\n";
    }
    return out + "</tbody></table></div>\n";
}

std::string signatures(const FleetSummary& fleet) {
    std::string out = "<h2 id=\"signatures\">Crash signatures</h2>\n";
    auto sorted = signaturesByCount(fleet);
    if (sorted.empty()) out += "<p>No crash-history line in any run.</p>\n";
    uint64_t most = sorted.empty() ? 1 : sorted.front()->count;
    for (const CrashSignature* s : sorted) {
        std::string devices, configurations;
        for (const auto& d : s->devices) devices += (devices.empty() ? "" : ", ") + d;
        for (const auto& c : s->configurations) configurations += (configurations.empty() ? "" : ", ") + c;
        if (s->linesElsewhere > 0) devices += " and " + std::to_string(s->linesElsewhere) + " line(s) on others";
        char width[32];
        snprintf(width, sizeof(width), "%.1f", 100.0 * static_cast<double>(s->count) / static_cast<double>(most));
        out += "<div class=\"sig\"><svg class=\"bar\" viewBox=\"0 0 100 4\" preserveAspectRatio=\"none\" "
               "role=\"img\" aria-label=\"" + std::to_string(s->count) + " lines\"><rect width=\"" + width +
               "\" height=\"4\"/></svg><b>" + std::to_string(s->count) + "&#215;</b> <code>" +
               esc(s->signature) + "</code><details><summary>devices, configurations, an example</summary>"
               "<dl><dt>Devices</dt><dd>" + esc(devices) + "</dd><dt>Configurations</dt><dd>" +
               esc(configurations) + "</dd><dt>Example</dt><dd><code>" + esc(s->example) +
               "</code></dd></dl></details></div>\n";
    }
    if (fleet.otherCrashLines > 0) {
        out += "<p>" + std::to_string(fleet.otherCrashLines) + " line(s) of further signatures, counted together.</p>\n";
    }
    return out;
}

// Each run as a bar from its start to its end on a common time axis, coloured by
// how it ended, beside its duration and end cause in words.
std::string timeline(const FleetSummary& fleet) {
    std::string out = "<h2 id=\"timeline\">Durations and end causes</h2>\n";
    int64_t first = -1, last = -1;
    for (const FleetRun& run : fleet.runs) {
        int64_t s = run.startSeconds;
        if (s < 0) continue;
        first = first < 0 ? s : std::min(first, s);
        last = std::max(last, s + std::max<int64_t>(run.duration, 0));
    }
    if (first < 0) return out + "<p>No run record tells a start time.</p>\n";
    double span = std::max<double>(static_cast<double>(last - first), 1.0);
    out += "<p class=\"legend\">Coloured by the run's verdict: <span>green: pass</span> <span>red: fail</span> "
           "<span>purple: error</span> <span>orange: aborted</span> <span>grey: unknown</span></p>\n"
           "<div class=\"scroll\"><table class=\"timeline\"><thead><tr><th>Run</th><th>Duration</th>"
           "<th>End</th><th>From the first start to the last end</th></tr></thead><tbody>\n";
    for (size_t i = 0; i < fleet.runs.size(); i++) {
        const FleetRun& run = fleet.runs[i];
        int64_t s = run.startSeconds;
        std::string bar;
        if (s >= 0) {
            char geometry[64];
            double x = 1000.0 * static_cast<double>(s - first) / span;
            double w = std::max(4.0, 1000.0 * static_cast<double>(std::max<int64_t>(run.duration, 0)) / span);
            snprintf(geometry, sizeof(geometry), "x=\"%.1f\" width=\"%.1f\"", x, w);
            bar = "<svg class=\"bar\" viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" aria-hidden=\"true\">"
                  "<rect class=\"v-" + std::string(verdictName(run.verdict)) + "\" " + geometry + " height=\"10\"/></svg>";
        }
        out += "<tr><th><a href=\"#run-" + std::to_string(i + 1) + "\">" + esc("QAV" + run.stamp) + "</a></th><td>" +
               (run.duration >= 0 ? std::to_string(run.duration) + " s" : "unknown") + "</td><td>" +
               esc(run.error.empty() ? run.endCause : "error: " + run.error) + "</td><td class=\"axis\">" + bar +
               "</td></tr>\n";
    }
    return out + "</tbody></table></div>\n";
}

std::string runSection(const FleetSummary& fleet, size_t i) {
    const FleetRun& run = fleet.runs[i];
    std::string n = std::to_string(i + 1);
    std::string out = "<section id=\"run-" + n + "\">\n<h3>Run " + n + ": " + esc("QAV" + run.stamp) + " " +
                      badge(run.verdict) + "</h3>\n<dl><dt>Archive</dt><dd>" + esc(run.archive) +
                      "</dd><dt>Device</dt><dd>" + esc(run.device) + "</dd><dt>Build</dt><dd>" +
                      esc(run.build) + "</dd><dt>Configuration</dt><dd>" + esc(run.configuration) +
                      "</dd><dt>Start</dt><dd>" + esc(run.start) + "</dd><dt>Duration</dt><dd>" +
                      (run.duration >= 0 ? std::to_string(run.duration) + " s" : "unknown") +
                      "</dd><dt>End</dt><dd>" + esc(run.error.empty() ? run.endCause : "error: " + run.error) +
                      "</dd></dl>\n<div class=\"scroll\"><table><thead><tr><th>Test case</th><th>Verdict</th>"
                      "<th>Reached</th><th>Why</th></tr></thead><tbody>\n";
    for (const FleetCaseResult& r : run.cases) {
        out += "<tr><td>" + esc(fleet.cases[r.caseIndex].id) + "</td>" + verdictCell(r.verdict) +
               "<td>" + esc(r.amount) + "</td><td>" + esc(r.reason) + "</td></tr>\n";
    }
    out += "</tbody></table></div>\n<p>" + std::to_string(run.crashLines) + " crash-history line(s)" +
           (run.crashExamples.empty() ? "." : ", the first " + std::to_string(run.crashExamples.size()) + ":") + "</p>\n";
    if (!run.crashExamples.empty()) {
        out += "<pre>";
        for (const std::string& line : run.crashExamples) out += esc(line) + "\n";
        out += "</pre>\n";
    }
    return out + "<p><a href=\"#runs\">Back to the runs</a></p>\n</section>\n";
}

}  // namespace

void fleetHtml(const FleetSummary& fleet, std::ostream& out) {
    const std::string page = kFleetPage;
    std::string csp = "default-src 'none'; style-src " + sourceHash(page, "<style>", "</style>") +
                      "; script-src " + sourceHash(page, "<script>", "</script>") +
                      "; base-uri 'none'; form-action 'none'";
    std::string body = "<header><h1>Ostrel runs: " + std::to_string(fleet.runs.size()) + " read, " +
                       std::to_string(failedRuns(fleet)) + " failed, " + std::to_string(fleet.bad.size()) +
                       " not readable <span class=\"badge v-" + fleetHeadlineClass(fleet) + "\">" +
                       fleetHeadline(fleet) + "</span>" +
                       "</h1>\n<nav><a href=\"#runs\">Runs</a> &#183; <a href=\"#signatures\">Crash signatures</a>"
                       " &#183; <a href=\"#timeline\">Time line</a> &#183; <a href=\"#details\">Each run</a></nav>"
                       "</header>\n<main>\n" + matrix(fleet) + signatures(fleet) + timeline(fleet);
    if (!fleet.bad.empty()) {
        body += "<h2 id=\"unreadable\">Not readable</h2>\n<ul>\n";
        for (const BadArchive& b : fleet.bad) body += "<li>" + esc(b.archive) + ": " + esc(b.reason) + "</li>\n";
        body += "</ul>\n";
    }
    if (!fleet.duplicates.empty()) {
        body += "<h2 id=\"duplicates\">Runs packed twice, counted once</h2>\n<ul>\n";
        for (const BadArchive& d : fleet.duplicates) body += "<li>" + esc(d.archive) + ": " + esc(d.reason) + "</li>\n";
        body += "</ul>\n";
    }
    body += "<h2 id=\"details\">Each run</h2>\n";
    // The page streams out around the body: the runs' sections, which grow with the
    // input, are written one at a time and never held together.
    std::string head = page.substr(0, page.find("@BODY@"));
    head.replace(head.find("@CSP@"), 5, csp);
    out << head << body;
    for (size_t i = 0; i < fleet.runs.size(); i++) out << runSection(fleet, i);
    out << "</main>" << page.substr(page.find("@BODY@") + 6);
}

}  // namespace ostrel_report
