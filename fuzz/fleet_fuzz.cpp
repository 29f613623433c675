// Fuzz target: a folder of results as a lab could gather them, through the
// summary of many runs in every format. The input is up to four parts, each two
// bytes (little-endian) of record length, the record, three bytes of archive
// length and the archive's bytes; each becomes QAV<n>.zip and the record beside
// it. Beyond crashes it checks what the formats promise: JSON that parses, and
// no control character but a line end in any format.
#include <fcntl.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "Fleet.h"
#include "FuzzSupport.h"

using ostrel_fuzz::checkClean;
using ostrel_fuzz::writeFile;

namespace {

// Takes |n| bytes of the input as a little-endian length, 0 when it has no more.
size_t lengthAt(const uint8_t*& bytes, size_t& size, int n) {
    size_t length = 0;
    for (int i = 0; i < n && size > 0; i++, bytes++, size--) length |= static_cast<size_t>(*bytes) << (8 * i);
    return length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string dir = [] {
        char path[] = "/tmp/fleet_fuzz.XXXXXX";
        if (mkdtemp(path) == nullptr) abort();
        return std::string(path);
    }();
    for (int part = 0; part < 4; part++) {
        std::string stem = dir + "/QAV20261124_00000" + std::to_string(part);
        unlink((stem + ".zip").c_str());
        unlink((stem + ".run.json").c_str());
        if (size == 0) continue;
        size_t record = std::min(lengthAt(bytes, size, 2), size);
        if (record > 0) writeFile(stem + ".run.json", bytes, record);
        bytes += record;
        size -= record;
        size_t archive = std::min(lengthAt(bytes, size, 3), size);
        writeFile(stem + ".zip", bytes, archive);
        bytes += archive;
        size -= archive;
    }
    std::vector<std::string> archives;
    ostrel_report::FleetSummary fleet;
    std::string error;
    if (!ostrel_report::findArchives({dir}, &archives, &fleet.bad, &error)) return 0;
    ostrel_report::orderByStart(&archives);
    for (const std::string& archive : archives) {
        ostrel_report::RunReport report;
        if (!ostrel_report::readRunReport(archive, &report, &error)) {
            fleet.bad.push_back({archive, error});
            continue;
        }
        ostrel_report::addRun(&fleet, report);
    }
    std::ostringstream text, json, html;
    ostrel_report::fleetText(fleet, text);
    ostrel_report::fleetJson(fleet, json);
    ostrel_report::fleetHtml(fleet, html);
    rapidjson::Document doc;
    if (doc.Parse(json.str().c_str()).HasParseError() || !doc.IsObject()) abort();
    for (const std::string& out : {text.str(), json.str(), html.str()}) checkClean(out);
    return 0;
}
