// The subcommands: one IOstrel call each, its answer on standard output (plain
// or JSON), the reply log on standard error when asked for.
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "Client.h"
#include "JsonText.h"

namespace ostrelctl {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;

namespace {

constexpr size_t kTesterSize = 65536;

std::string std_string(const hidl_string& s) {
    return std::string(s.c_str(), s.size());
}

// Pretty JSON when |text| parses, otherwise nothing.
bool prettyJson(const std::string& text, std::string* out) {
    rapidjson::Document doc;
    if (!vendor::brevane::hardware::ostrel::core::parseJsonText(doc, text.data(), text.size())) {
        return false;
    }
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    doc.Accept(writer);
    out->assign(buffer.GetString(), buffer.GetSize());
    return true;
}

// The reply log as a JSON array of its lines.
std::string jsonLines(const std::string& log) {
    std::string out = "[";
    std::istringstream lines(log);
    std::string line;
    bool first = true;
    while (std::getline(lines, line)) {
        out += (first ? "" : ",") + jsonString(line);
        first = false;
    }
    return out + "]";
}

void printLog(const std::string& log, const Options& options) {
    if (options.showLog && !options.json) std::cerr << log;
}

// Reads FILE, or standard input for "-" or no FILE.
// getConfig, getTest: the JSON text (pretty), exit 1 when the answer is empty.
int textCommand(const char* method, const char* key,
                const std::function<Return<void>(IOstrel::getTest_cb)>& call,
                const Options& options) {
    std::string answer, log;
    auto ret = call([&](const hidl_string& a, const hidl_string& l) {
        answer = std_string(a);
        log = std_string(l);
    });
    if (!ret.isOk()) return transportFailure(method, ret.description());
    std::string pretty;
    bool isJson = prettyJson(answer, &pretty);
    if (options.json) {
        std::cout << "{\"method\":" << jsonString(method) << ",\"" << key
                  << "\":" << (isJson ? answer : jsonString(answer))
                  << ",\"log\":" << jsonLines(log) << "}\n";
    } else if (!answer.empty()) {
        std::cout << (isJson ? pretty : answer) << "\n";
    }
    printLog(log, options);
    if (answer.empty()) {
        std::cerr << "ostrelctl: " << method << ": the service gave no " << key
                  << " in its current state (see ostrelctl state)\n";
        return kRefused;
    }
    return kOk;
}

int boolAnswer(const char* method, bool ok, const std::string* log, const Options& options) {
    if (options.json) {
        std::cout << "{\"method\":" << jsonString(method) << ",\"ok\":" << (ok ? "true" : "false");
        if (log) std::cout << ",\"log\":" << jsonLines(*log);
        std::cout << "}\n";
    } else {
        std::cout << method << ": " << (ok ? "ok" : "refused") << "\n";
    }
    if (log) printLog(*log, options);
    return ok ? kOk : kRefused;
}

int state(const sp<IOstrel>& service, const Options& options) {
    auto ret = service->getState();
    if (!ret.isOk()) return transportFailure("getState", ret.description());
    OstrelState value = ret;
    if (options.json) {
        std::cout << "{\"method\":\"getState\",\"state\":" << jsonString(stateName(value))
                  << ",\"value\":" << static_cast<int>(value) << "}\n";
    } else {
        std::cout << stateName(value) << "\n";
    }
    return kOk;
}

int result(const sp<IOstrel>& service, const Options& options) {
    std::string answer, log;
    auto ret = service->getResult([&](const hidl_string& a, const hidl_string& l) {
        answer = std_string(a);
        log = std_string(l);
    });
    if (!ret.isOk()) return transportFailure("getResult", ret.description());
    size_t comma = answer.find(", ");
    std::string archive = comma == std::string::npos ? answer : answer.substr(0, comma);
    std::string history = comma == std::string::npos ? "" : answer.substr(comma + 2);
    if (options.json) {
        std::cout << "{\"method\":\"getResult\",\"result\":" << jsonString(answer)
                  << ",\"archive\":" << jsonString(archive)
                  << ",\"history\":" << jsonString(history) << ",\"log\":" << jsonLines(log)
                  << "}\n";
    } else if (!answer.empty()) {
        std::cout << "archive: " << archive << "\nhistory: " << history << "\n";
    }
    printLog(log, options);
    if (answer.empty()) {
        std::cerr << "ostrelctl: getResult: no result (a result is packed only in COMPLETING; "
                     "see ostrelctl state)\n";
        return kRefused;
    }
    return kOk;
}

int installTesters(const sp<IOstrel>& service, const std::vector<std::string>& args,
                   const Options& options) {
    if (args.size() < 2 || args.size() > 3) {
        std::cerr << "ostrelctl: usage: install-testers FILE [NAME]\n";
        return kUsage;
    }
    std::ifstream in(args[1], std::ios::binary);
    if (!in) {
        std::cerr << "ostrelctl: cannot read " << args[1] << ": " << strerror(errno) << "\n";
        return kUsage;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() > kTesterSize) {
        std::cerr << "ostrelctl: " << args[1] << " holds " << bytes.size()
                  << " bytes; installTesters carries at most " << kTesterSize << "\n";
        return kUsage;
    }
    std::string name = args.size() == 3 ? args[2] : args[1].substr(args[1].rfind('/') + 1);
    auto data = std::make_unique<hidl_array<uint8_t, kTesterSize>>();
    memcpy(data->data(), bytes.data(), bytes.size());
    return callbackBool("installTesters", [&](auto cb) {
        return service->installTesters(name, *data, static_cast<uint32_t>(bytes.size()), cb);
    }, options);
}

}  // namespace

int transportFailure(const char* method, const std::string& description) {
    std::cerr << "ostrelctl: " << method << " failed: " << description << "\n";
    return kTransport;
}

// setConfig, setTest, clearConfig, installTesters: (bool ok, string log).
int callbackBool(const char* method,
                 const std::function<Return<void>(IOstrel::setTest_cb)>& call,
                 const Options& options) {
    bool ok = false;
    std::string log;
    auto ret = call([&](bool o, const hidl_string& l) {
        ok = o;
        log = std_string(l);
    });
    if (!ret.isOk()) return transportFailure(method, ret.description());
    return boolAnswer(method, ok, &log, options);
}

// runStart, runAbort, runFinished, bootCompleted: a plain bool; their reply-log
// lines travel with the next callback answer.
int valueBool(const char* method, Return<bool> ret, const Options& options) {
    if (!ret.isOk()) return transportFailure(method, ret.description());
    return boolAnswer(method, ret, nullptr, options);
}

bool readInput(const std::vector<std::string>& args, std::string* text) {
    if (args.size() > 2) {
        std::cerr << "ostrelctl: " << args[0] << " takes one FILE (or - for standard input)\n";
        return false;
    }
    if (args.size() < 2 || args[1] == "-") {
        text->assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(args[1], std::ios::binary);
    if (!in) {
        std::cerr << "ostrelctl: cannot read " << args[1] << ": " << strerror(errno) << "\n";
        return false;
    }
    text->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

std::string jsonString(const std::string& text) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return std::string(buffer.GetString(), buffer.GetSize());
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

int runCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
               const Options& options) {
    const std::string& cmd = args[0];
    auto noArgs = [&]() {
        if (args.size() == 1) return true;
        std::cerr << "ostrelctl: " << cmd << " takes no arguments\n";
        return false;
    };
    std::string text;
    if (cmd == "get-config") {
        if (!noArgs()) return kUsage;
        return textCommand("getConfig", "config",
                           [&](auto cb) { return service->getConfig(cb); }, options);
    }
    if (cmd == "set-config") {
        if (!readInput(args, &text)) return kUsage;
        hidl_string in(text);
        return callbackBool("setConfig", [&](auto cb) { return service->setConfig(in, cb); }, options);
    }
    if (cmd == "set-test") return checkedSetTest(service, args, options);
    if (cmd == "clear-config") {
        if (!noArgs()) return kUsage;
        return callbackBool("clearConfig", [&](auto cb) { return service->clearConfig(cb); },
                            options);
    }
    if (cmd == "state") return noArgs() ? state(service, options) : kUsage;
    struct Change {
        const char* command;
        const char* method;
        std::function<Return<bool>()> call;
    };
    const Change changes[] = {{"run-start", "runStart", [&] { return service->runStart(); }},
                              {"run-abort", "runAbort", [&] { return service->runAbort(); }},
                              {"run-finished", "runFinished", [&] { return service->runFinished(); }},
                              {"boot-completed", "bootCompleted", [&] { return service->bootCompleted(); }}};
    for (const Change& c : changes) {
        if (cmd == c.command) return noArgs() ? confirmedValue(service, cmd, c.method, c.call, options) : kUsage;
    }
    if (cmd == "install-testers") return installTesters(service, args, options);
    if (cmd == "get-test") {
        if (!noArgs()) return kUsage;
        return textCommand("getTest", "test", [&](auto cb) { return service->getTest(cb); },
                           options);
    }
    if (cmd == "get-result") return noArgs() ? result(service, options) : kUsage;
    if (cmd == "watch") return noArgs() ? watchRun(service, options) : kUsage;
    std::cerr << "ostrelctl: unknown command \"" << cmd << "\" (see ostrelctl --help)\n";
    return kUsage;
}

}  // namespace ostrelctl
