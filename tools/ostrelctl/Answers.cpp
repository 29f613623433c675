// The answers of the service on standard output, as plain text or as one JSON
// object written by the JSON library's writer; the reply log on standard error.
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <unistd.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Client.h"
#include "JsonText.h"
#include "Report.h"
#include "ResultLayout.h"

namespace ostrelctl {

namespace {

// A reply log longer than this is shown as its head and tail (unless --verbose).
constexpr size_t kLogLines = 40, kLogHead = 20, kLogTail = 10;
constexpr size_t kLogLineBytes = 400;

std::string stdString(const hidl_string& s) {
    return std::string(s.c_str(), s.size());
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

bool parse(const std::string& text, rapidjson::Document* doc) {
    return vendor::brevane::hardware::ostrel::core::parseJsonText(*doc, text.data(), text.size());
}

// One answer as a JSON object: {"method": ..., other members..., "log": [lines]}.
class JsonAnswer {
  public:
    explicit JsonAnswer(const char* method) : writer_(buffer_) {
        writer_.StartObject();
        text("method", method);
    }
    JsonAnswer& text(const char* key, const std::string& value) {
        writer_.Key(key);
        writer_.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
        return *this;
    }
    JsonAnswer& flag(const char* key, bool value) {
        writer_.Key(key);
        writer_.Bool(value);
        return *this;
    }
    JsonAnswer& number(const char* key, int value) {
        writer_.Key(key);
        writer_.Int(value);
        return *this;
    }
    // |value| as the JSON it holds, or as a string when it is none.
    JsonAnswer& json(const char* key, const std::string& value) {
        rapidjson::Document doc;
        if (!parse(value, &doc)) return text(key, value);
        writer_.Key(key);
        doc.Accept(writer_);
        return *this;
    }
    JsonAnswer& log(const std::string& log) {
        writer_.Key("log");
        writer_.StartArray();
        for (const std::string& line : linesOf(log)) {
            writer_.String(line.data(), static_cast<rapidjson::SizeType>(line.size()));
        }
        writer_.EndArray();
        return *this;
    }
    std::string done() {
        writer_.EndObject();
        return std::string(buffer_.GetString(), buffer_.GetSize()) + "\n";
    }

  private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

// |line| cut to kLogLineBytes on a character boundary, with what was left out.
std::string shortLine(const std::string& line) {
    if (line.size() <= kLogLineBytes) return line;
    size_t cut = kLogLineBytes;
    while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) cut--;
    return line.substr(0, cut) + " ... (" + std::to_string(line.size() - cut) + " more bytes)";
}

ExitStatus boolAnswer(const char* method, bool ok, const std::string* log, const Options& options) {
    if (options.json) {
        JsonAnswer answer(method);
        answer.flag("ok", ok);
        if (log) answer.log(*log);
        std::cout << answer.done();
    } else {
        std::cout << method << ": " << (ok ? "ok" : "refused") << "\n";
    }
    if (log) printLog(*log, options);
    return ok ? kOk : kRefused;
}

}  // namespace

void printLog(const std::string& log, const Options& options) {
    if (!options.showLog || options.json) return;
    // The log carries a tool's raw output: cleaned of control characters, as
    // every text printed.
    if (options.verbose) {
        std::cerr << ostrel_report::cleanText(log, true);
        return;
    }
    std::vector<std::string> lines = linesOf(log);
    for (size_t i = 0; i < lines.size(); i++) {
        if (lines.size() > kLogLines && i == kLogHead) {
            size_t left = lines.size() - kLogHead - kLogTail;
            std::cerr << "... " << left << " lines of the reply log left out (--verbose shows them)\n";
            i += left - 1;
            continue;
        }
        std::cerr << shortLine(ostrel_report::cleanText(lines[i])) << "\n";
    }
}

ExitStatus transportFailure(const char* method, const std::string& description) {
    std::cerr << "ostrelctl: " << method << " failed: " << description << "\n";
    return kTransport;
}

ExitStatus callbackBool(const char* method,
                        const std::function<Return<void>(IOstrel::setTest_cb)>& call,
                        const Options& options) {
    bool ok = false;
    std::string log;
    auto ret = call([&](bool o, const hidl_string& l) {
        ok = o;
        log = stdString(l);
    });
    if (!ret.isOk()) return transportFailure(method, ret.description());
    return boolAnswer(method, ok, &log, options);
}

// Their reply-log lines travel with the next callback answer.
ExitStatus answerLine(const char* method, bool ok, const Options& options) {
    return boolAnswer(method, ok, nullptr, options);
}

ExitStatus valueBool(const char* method, Return<bool> ret, const Options& options) {
    if (!ret.isOk()) return transportFailure(method, ret.description());
    return boolAnswer(method, ret, nullptr, options);
}

ExitStatus textAnswer(const char* method, const char* key,
                      const std::function<Return<void>(IOstrel::getTest_cb)>& call,
                      const Options& options) {
    std::string text, log;
    auto ret = call([&](const hidl_string& t, const hidl_string& l) {
        text = stdString(t);
        log = stdString(l);
    });
    if (!ret.isOk()) return transportFailure(method, ret.description());
    if (options.json) {
        std::cout << JsonAnswer(method).json(key, text).log(log).done();
    } else if (!text.empty()) {
        rapidjson::Document doc;
        if (parse(text, &doc)) {
            rapidjson::StringBuffer buffer;
            rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
            writer.SetIndent(' ', 2);
            doc.Accept(writer);
            std::cout << std::string(buffer.GetString(), buffer.GetSize()) << "\n";
        } else {
            std::cout << text << "\n";
        }
    }
    printLog(log, options);
    if (text.empty()) {
        std::cerr << "ostrelctl: " << method << ": the service gave no " << key
                  << " in its current state (see ostrelctl state)\n";
        return kRefused;
    }
    return kOk;
}

ExitStatus stateAnswer(OstrelState state, const Options& options) {
    if (options.json) {
        std::cout << JsonAnswer("getState").text("state", stateName(state))
                             .number("value", static_cast<int>(state)).done();
    } else {
        std::cout << stateName(state) << "\n";
    }
    return kOk;
}

ExitStatus resultAnswer(const std::string& answer, const std::string& log, const Options& options) {
    size_t comma = answer.find(", ");
    std::string archive = comma == std::string::npos ? answer : answer.substr(0, comma);
    std::string history = comma == std::string::npos ? "" : answer.substr(comma + 2);
    // The run record the service moved beside the archive: the third file a lab
    // copies ("" when there is none, from a service without records).
    std::string record = ostrel_report::besideArchive(archive, vendor::brevane::hardware::ostrel::core::kRecordSuffix);
    if (archive.empty() || access(record.c_str(), F_OK) != 0) record.clear();
    if (options.json) {
        std::cout << JsonAnswer("getResult").text("result", answer).text("archive", archive)
                             .text("history", history).text("record", record).log(log).done();
    } else if (!answer.empty()) {
        std::cout << "archive: " << archive << "\nhistory: " << history << "\nrecord: "
                  << (record.empty() ? "none" : record) << "\n";
    }
    printLog(log, options);
    if (answer.empty()) {
        std::cerr << "ostrelctl: getResult: no result (a result is packed only in COMPLETING; "
                     "see ostrelctl state)\n";
        return kRefused;
    }
    return kOk;
}

std::string watchJson(OstrelState state, const std::string& plan) {
    return JsonAnswer("watch").text("state", stateName(state)).json("test", plan).done();
}

std::string stateName(OstrelState state) {
    switch (state) {
        case OstrelState::IDLE: return "IDLE";
        case OstrelState::PREPARING: return "PREPARING";
        case OstrelState::RUNNING: return "RUNNING";
        case OstrelState::COMPLETING: return "COMPLETING";
    }
    return "UNKNOWN(" + std::to_string(static_cast<int>(state)) + ")";
}

}  // namespace ostrelctl
