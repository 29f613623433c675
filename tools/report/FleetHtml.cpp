// The summary of many runs as one self-contained page: the verdict matrix, crash
// signatures as bars, the runs on a time line, and each run's details once. The
// page's frame, style and script come from FleetPage.html (embedded at build
// time); the content security policy allows that style and that script alone, by
// hash, so nothing a device wrote can load or run anything. Everything is written
// through Html, which escapes every value it is given.
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <map>

#include "Fleet.h"
#include "FleetPage.h"
#include "Html.h"

namespace ostrel_report {

namespace {

// 'sha256-<base64>' of the text between |open| and |close| in the page.
std::string sourceHash(std::string_view page, std::string_view open, std::string_view close) {
    size_t from = page.find(open), to = page.find(close);
    if (from == std::string::npos || to == std::string::npos || to < from) return "'none'";
    from += open.size();
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(page.data() + from), to - from, digest);
    unsigned char encoded[4 * ((SHA256_DIGEST_LENGTH + 2) / 3) + 1];
    EVP_EncodeBlock(encoded, digest, SHA256_DIGEST_LENGTH);
    return "'sha256-" + std::string(reinterpret_cast<char*>(encoded)) + "'";
}

// Anchors of a run's details and of the parts that cells refer to.
std::string runAnchor(size_t run) {
    return "run-" + std::to_string(run + 1);
}
std::string partAnchor(size_t run, const std::string& part) {
    return runAnchor(run) + "-" + part;
}

void link(Html& h, const std::string& anchor, const std::string& text) {
    h.raw("<a").attr("href", "#" + anchor).raw(">").text(text).raw("</a>");
}

void badge(Html& h, Verdict v) {
    h.raw("<span").classes("badge", pageClassOf(v)).raw(">").text(verdictName(v)).raw("</span>");
}

// A verdict's cell: its letter, coloured by its verdict. One that did not pass
// links to its details, held in the run's own section.
void verdictCell(Html& h, Verdict v, const std::string& anchor) {
    h.raw("<td").classes("v", pageClassOf(v)).raw(">");
    if (v == Verdict::Pass || anchor.empty()) {
        h.text(verdictLetter(v));
    } else {
        link(h, anchor, verdictLetter(v));
    }
    h.raw("</td>");
}

std::string endOf(const FleetRun& run) {
    return run.error.empty() ? run.endCause : "error: " + run.error;
}

std::string durationOf(const FleetRun& run) {
    return run.duration >= 0 ? std::to_string(run.duration) + " s" : "unknown";
}

// The matrix's columns: at most kMatrixColumns test cases, those that failed in
// any run first, so that the page grows with the runs and test cases, never with
// their product. The others are counted in each run's last cells and listed in
// its details.
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

void matrixRow(Html& h, const FleetSummary& fleet, size_t i, const std::map<size_t, size_t>& columnOf,
               bool more) {
    const FleetRun& run = fleet.runs[i];
    h.raw("<tr").attr("data-run", std::to_string(i + 1)).attr("data-fails", failsRun(run.verdict) ? "yes" : "no")
            .attr("data-verdict", verdictName(run.verdict)).raw("><th class=\"dev\">");
    link(h, runAnchor(i), run.device.empty() ? "run " + std::to_string(i + 1) : run.device);
    h.raw("</th><td>").text(resultName(run.stamp)).raw("</td><td>");
    badge(h, run.verdict);
    h.raw("</td>");
    std::vector<size_t> shown(columnOf.size(), SIZE_MAX);
    uint64_t others[kVerdictCount] = {};
    for (size_t k = 0; k < run.cases.size(); k++) {
        auto at = columnOf.find(run.cases[k].caseIndex);
        if (at != columnOf.end()) {
            shown[at->second] = k;
        } else {
            others[static_cast<int>(run.cases[k].verdict)]++;
        }
    }
    // A cell only where the run has the test case.
    for (size_t k : shown) {
        if (k == SIZE_MAX) {
            h.raw("<td></td>");
        } else {
            verdictCell(h, run.cases[k].verdict, partAnchor(i, std::to_string(k + 1)));
        }
    }
    if (more) {
        std::string counts;
        for (Verdict v : kVerdictOrder) {
            uint64_t n = others[static_cast<int>(v)];
            if (n > 0) counts += (counts.empty() ? "" : " ") + std::to_string(n) + " " + verdictLetter(v);
        }
        h.raw("<td>");
        if (!counts.empty()) link(h, partAnchor(i, "more"), counts);
        h.raw("</td>");
    }
    verdictCell(h, run.history, partAnchor(i, "crash"));
    h.raw("</tr>\n");
}

void matrix(Html& h, const FleetSummary& fleet) {
    h.raw("<h2 id=\"runs\">Runs and verdicts</h2>\n<div class=\"controls\">"
          "<label>Filter runs <input id=\"filter\" type=\"search\"></label>"
          "<label><input id=\"failing\" type=\"checkbox\"> failed runs only</label>"
          "<span id=\"shown\" aria-live=\"polite\"></span></div>\n"
          "<p class=\"legend\"><span>P pass</span> <span>F fail</span> <span>E error</span> "
          "<span>A aborted</span> <span>? unknown (not proven)</span> <span>empty: not in that run</span></p>\n"
          "<p class=\"hint\">A letter that did not pass opens its details, a device its run's.</p>\n"
          "<div class=\"scroll\"><table id=\"matrix\">\n<thead><tr><th class=\"dev\">Device</th><th>Run</th>"
          "<th>Verdict</th>");
    std::vector<size_t> columns = matrixColumns(fleet);
    std::map<size_t, size_t> columnOf;
    for (size_t k = 0; k < columns.size(); k++) {
        columnOf[columns[k]] = k;
        h.raw("<th>").text(fleet.cases[columns[k]].id).raw("</th>");
    }
    bool more = columns.size() < fleet.cases.size();
    if (more) h.raw("<th>other test cases</th>");
    h.raw("<th>crash history</th></tr></thead>\n<tbody>\n");
    for (size_t i = 0; i < fleet.runs.size(); i++) matrixRow(h, fleet, i, columnOf, more);
    h.raw("</tbody></table></div>\n");
}

void signatures(Html& h, const FleetSummary& fleet) {
    h.raw("<h2 id=\"signatures\">Crash signatures</h2>\n");
    auto sorted = signaturesByCount(fleet);
    if (sorted.empty()) h.raw("<p>No crash-history line in any run.</p>\n");
    uint64_t most = sorted.empty() ? 1 : sorted.front()->count;
    for (const CrashSignature* s : sorted) {
        std::string devices, configurations;
        for (const auto& d : s->devices) devices += (devices.empty() ? "" : ", ") + d;
        for (const auto& c : s->configurations) configurations += (configurations.empty() ? "" : ", ") + c;
        if (s->linesElsewhere > 0) devices += " and " + std::to_string(s->linesElsewhere) + " line(s) on others";
        h.raw("<div class=\"sig\"><svg class=\"bar\" viewBox=\"0 0 100 4\" preserveAspectRatio=\"none\" role=\"img\"")
                .attr("aria-label", std::to_string(s->count) + " lines")
                .raw("><rect").classes("", PageClass::Fail)
                .raw(" width=\"").decimal(100.0 * static_cast<double>(s->count) / static_cast<double>(most))
                .raw("\" height=\"4\"/></svg><b>").number(static_cast<int64_t>(s->count)).raw("&#215;</b> <code>")
                .text(s->signature)
                .raw("</code><details><summary>devices, configurations, an example</summary><dl><dt>Devices</dt><dd>")
                .text(devices).raw("</dd><dt>Configurations</dt><dd>").text(configurations)
                .raw("</dd><dt>Example</dt><dd><code>").text(s->example).raw("</code></dd></dl></details></div>\n");
    }
    if (fleet.otherCrashLines > 0) {
        h.raw("<p>").number(static_cast<int64_t>(fleet.otherCrashLines))
                .raw(" line(s) of further signatures, counted together.</p>\n");
    }
}

// Each run as a bar from its start to its end on a common time axis, coloured by
// its verdict, beside its duration and end cause in words.
void timeline(Html& h, const FleetSummary& fleet) {
    h.raw("<h2 id=\"timeline\">Durations and end causes</h2>\n");
    int64_t first = -1, last = -1;
    for (const FleetRun& run : fleet.runs) {
        int64_t s = run.startSeconds;
        if (s < 0) continue;
        first = first < 0 ? s : std::min(first, s);
        last = std::max(last, s + std::max<int64_t>(run.duration, 0));
    }
    if (first < 0) {
        h.raw("<p>No run record tells a start time.</p>\n");
        return;
    }
    double span = std::max<double>(static_cast<double>(last - first), 1.0);
    h.raw("<p class=\"legend\">Coloured by the run's verdict: <span>green: pass</span> <span>red: fail</span> "
          "<span>purple: error</span> <span>orange: aborted</span> <span>grey: unknown</span></p>\n"
          "<div class=\"scroll\"><table class=\"timeline\"><thead><tr><th>Run</th><th>Duration</th>"
          "<th>End</th><th>From the first start to the last end</th></tr></thead><tbody>\n");
    for (size_t i = 0; i < fleet.runs.size(); i++) {
        const FleetRun& run = fleet.runs[i];
        h.raw("<tr><th>");
        link(h, runAnchor(i), resultName(run.stamp));
        h.raw("</th><td>").text(durationOf(run)).raw("</td><td>").text(endOf(run)).raw("</td><td class=\"axis\">");
        if (run.startSeconds >= 0) {
            double x = 1000.0 * static_cast<double>(run.startSeconds - first) / span;
            double w = std::max(4.0, 1000.0 * static_cast<double>(std::max<int64_t>(run.duration, 0)) / span);
            h.raw("<svg class=\"bar\" viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" aria-hidden=\"true\"><rect")
                    .classes("", pageClassOf(run.verdict)).raw(" x=\"").decimal(x).raw("\" width=\"").decimal(w)
                    .raw("\" height=\"10\"/></svg>");
        }
        h.raw("</td></tr>\n");
    }
    h.raw("</tbody></table></div>\n");
}

void inputList(Html& h, Markup heading, const std::vector<BadArchive>& list) {
    if (list.empty()) return;
    h.raw(heading).raw("\n<ul>\n");
    for (const BadArchive& b : list) h.raw("<li>").text(b.archive + ": " + b.reason).raw("</li>\n");
    h.raw("</ul>\n");
}

void lines(Html& h, const std::vector<std::string>& list) {
    if (list.empty()) return;
    h.raw("<pre>");
    for (const std::string& line : list) h.text(line).raw("\n");
    h.raw("</pre>\n");
}

// The test cases of a run that are not in the matrix: those that did not pass
// by verdict and reason (one line for each pair, the names joined), the passing
// ones as one line, so that a run of many test cases costs about its names.
void otherCases(Html& h, const FleetSummary& fleet, size_t i, const std::vector<bool>& inMatrix) {
    const FleetRun& run = fleet.runs[i];
    std::vector<std::pair<std::pair<Verdict, std::string>, std::string>> groups;
    std::map<std::pair<Verdict, std::string>, size_t> groupOf;
    std::string passed;
    size_t passes = 0;
    for (const FleetCaseResult& r : run.cases) {
        if (inMatrix[r.caseIndex]) continue;
        const std::string& name = fleet.cases[r.caseIndex].id;
        if (r.detail == FleetCaseResult::kNoDetail) {
            passed += (passes++ == 0 ? "" : ", ") + name;
            continue;
        }
        auto key = std::make_pair(r.verdict, run.details[r.detail].reason);
        auto [at, added] = groupOf.emplace(key, groups.size());
        if (added) groups.emplace_back(key, "");
        std::string& names = groups[at->second].second;
        names += (names.empty() ? "" : ", ") + name;
    }
    if (groups.empty() && passes == 0) return;
    h.raw("<div").attr("id", partAnchor(i, "more")).raw(" class=\"part\"><h4>Test cases beside the matrix</h4><ul>\n");
    for (const auto& [key, names] : groups) {
        h.raw("<li>");
        badge(h, key.first);
        h.raw(" ").text(key.second).raw(": ").text(names).raw("</li>\n");
    }
    if (passes > 0) {
        h.raw("<li>");
        badge(h, Verdict::Pass);
        h.raw(" ").number(static_cast<int64_t>(passes)).raw(": ").text(passed).raw("</li>\n");
    }
    h.raw("</ul></div>\n");
}

// A run's details, once: its facts, each test case of the matrix that did not
// pass (what the matrix's cells open), the others, its crash lines and the end
// of the executor's log.
void runDetails(Html& h, const FleetSummary& fleet, size_t i, const std::vector<bool>& inMatrix) {
    const FleetRun& run = fleet.runs[i];
    h.raw("<details").attr("id", runAnchor(i)).raw(" class=\"run\"><summary>Run ").number(static_cast<int64_t>(i + 1))
            .raw(": ").text(resultName(run.stamp) + (run.device.empty() ? "" : ", " + run.device)).raw(" ");
    badge(h, run.verdict);
    h.raw(" ").text(run.reason).raw("</summary>\n<dl><dt>Archive</dt><dd>").text(run.archive)
            .raw("</dd><dt>Device</dt><dd>").text(run.device).raw("</dd><dt>Build</dt><dd>").text(run.build)
            .raw("</dd><dt>Configuration</dt><dd>").text(run.configuration).raw("</dd><dt>Start</dt><dd>")
            .text(run.start).raw("</dd><dt>Duration</dt><dd>").text(durationOf(run)).raw("</dd><dt>End</dt><dd>")
            .text(endOf(run)).raw("</dd><dt>Executor's end</dt><dd>")
            .text(run.executorEnd.empty() ? "none seen" : run.executorEnd).raw("</dd></dl>\n");
    bool table = false;
    for (size_t k = 0; k < run.cases.size(); k++) {
        const FleetCaseResult& r = run.cases[k];
        if (r.detail == FleetCaseResult::kNoDetail || !inMatrix[r.caseIndex]) continue;
        if (!table) {
            h.raw("<div class=\"scroll\"><table class=\"cases\"><thead><tr><th>Test case</th><th>Verdict</th>"
                  "<th>Reached</th><th>Why</th><th>Command</th></tr></thead><tbody>\n");
            table = true;
        }
        const FleetCaseDetail& d = run.details[r.detail];
        h.raw("<tr").attr("id", partAnchor(i, std::to_string(k + 1))).raw("><td>").text(fleet.cases[r.caseIndex].id)
                .raw("</td>");
        verdictCell(h, r.verdict, "");
        h.raw("<td>").text(d.amount).raw("</td><td>").text(d.reason).raw("</td><td><code>").text(d.command)
                .raw("</code></td></tr>\n");
    }
    if (table) h.raw("</tbody></table></div>\n");
    otherCases(h, fleet, i, inMatrix);
    h.raw("<div").attr("id", partAnchor(i, "crash")).raw(" class=\"part\"><p>Crash history: ");
    badge(h, run.history);
    h.raw(" ").text(run.historyReason).raw("; ").number(static_cast<int64_t>(run.crashLines))
            .raw(" line(s)").raw(run.crashExamples.empty() ? Markup(".") : Markup(", the first ones:")).raw("</p>\n");
    lines(h, run.crashExamples);
    h.raw("</div>\n<div").attr("id", partAnchor(i, "log")).raw(" class=\"part\"><p>");
    if (run.logPresent) {
        h.raw("The executor's log: ").number(static_cast<int64_t>(run.logSize)).raw(" bytes, the last ")
                .number(static_cast<int64_t>(run.logTail.size())).raw(" line(s):</p>\n");
        lines(h, run.logTail);
    } else {
        h.raw("No executor's log in the archive.</p>\n");
    }
    h.raw("</div>\n<p><a href=\"#runs\">Back to the runs</a></p>\n</details>\n");
}

}  // namespace

void fleetHtml(const FleetSummary& fleet, std::ostream& out) {
    const Markup page(kFleetPage);
    std::string csp = "default-src 'none'; style-src " + sourceHash(page.view(), "<style>", "</style>") +
                      "; script-src " + sourceHash(page.view(), "<script>", "</script>") +
                      "; base-uri 'none'; form-action 'none'";
    size_t csp_at = page.find("@CSP@"), body_at = page.find("@BODY@");
    Html h(out);
    // The frame around the body is the embedded page; the policy goes in as the
    // content attribute of its meta element, where the frame holds @CSP@.
    h.raw(page.part(0, csp_at)).attr("content", csp).raw(page.part(csp_at + 5, body_at));
    h.raw("<header><h1>Ostrel runs: ").number(static_cast<int64_t>(fleet.runs.size())).raw(" read, ")
            .number(static_cast<int64_t>(failedRuns(fleet))).raw(" failed, ")
            .number(static_cast<int64_t>(fleet.bad.size())).raw(" not readable <span");
    h.classes("badge", incompleteOnly(fleet) ? PageClass::Incomplete : pageClassOf(fleetVerdict(fleet)))
            .raw(">").text(fleetHeadline(fleet)).raw("</span></h1>\n");
    h.raw("<nav><a href=\"#runs\">Runs</a> &#183; <a href=\"#signatures\">Crash signatures</a>"
          " &#183; <a href=\"#timeline\">Time line</a> &#183; <a href=\"#details\">Each run</a></nav>"
          "</header>\n<main>\n");
    matrix(h, fleet);
    signatures(h, fleet);
    timeline(h, fleet);
    inputList(h, "<h2 id=\"unreadable\">Not readable</h2>", fleet.bad);
    inputList(h, "<h2 id=\"duplicates\">Runs packed twice, counted once</h2>", fleet.duplicates);
    h.raw("<h2 id=\"details\">Each run</h2>\n");
    std::vector<bool> inMatrix(fleet.cases.size(), false);
    for (size_t c : matrixColumns(fleet)) inMatrix[c] = true;
    // Each run's details are written one at a time, never held together.
    for (size_t i = 0; i < fleet.runs.size(); i++) runDetails(h, fleet, i, inMatrix);
    h.raw("</main>").raw(page.part(body_at + 6));
}

}  // namespace ostrel_report
