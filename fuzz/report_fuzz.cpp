// Fuzz target: a result archive and the run record beside it, as a device could
// hand them over, through the report reader and every format. The input is two
// bytes (little-endian) of record length, the record, then the archive's bytes.
// Beyond crashes it checks what the formats promise: JSON that parses, and no
// control character but a line end in any format.
#include <fcntl.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzSupport.h"
#include "Report.h"

using ostrel_fuzz::checkClean;
using ostrel_fuzz::writeFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string dir = [] {
        char path[] = "/tmp/report_fuzz.XXXXXX";
        if (mkdtemp(path) == nullptr) abort();
        return std::string(path);
    }();
    if (size < 2) return 0;
    size_t recordSize = bytes[0] | (bytes[1] << 8);
    if (recordSize > size - 2) recordSize = size - 2;
    const std::string archive = dir + "/QAV20261124_050000.zip";
    const std::string record = dir + "/QAV20261124_050000.run.json";
    unlink(record.c_str());
    if (recordSize > 0) writeFile(record, bytes + 2, recordSize);
    writeFile(archive, bytes + 2 + recordSize, size - 2 - recordSize);

    ostrel_report::RunReport report;
    std::string error;
    if (!ostrel_report::readRunReport(archive, &report, &error)) {
        checkClean(error);
        if (error.find('\n') != std::string::npos) abort();  // one line, whatever the archive
        return 0;
    }
    std::string json = ostrel_report::reportJson(report);
    rapidjson::Document doc;
    if (doc.Parse(json.data(), json.size()).HasParseError() || !doc.IsObject()) abort();
    for (const std::string& out : {json, ostrel_report::reportText(report),
                                   ostrel_report::reportJunit(report), ostrel_report::reportLava(report)}) {
        checkClean(out);
    }
    return 0;
}
