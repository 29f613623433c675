// The commands that talk to the service: one IOstrel call each (and, for a
// change, the calls that confirm it; see Confirm.cpp).
#include <rapidjson/document.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "Client.h"
#include "JsonText.h"
#include "Report.h"

namespace ostrelctl {

using ::android::hardware::hidl_array;

namespace {

constexpr size_t kTesterSize = 65536;

// The name of FILE for messages: "-" for standard input.
std::string sourceName(const std::vector<std::string>& args) {
    return args.size() < 2 ? "-" : args[1];
}

}  // namespace

bool readInput(const std::vector<std::string>& args, std::string* text) {
    bool standardInput = args.size() < 2 || args[1] == "-";
    std::ifstream file;
    if (!standardInput) {
        file.open(args[1], std::ios::binary);
        if (!file) {
            std::cerr << "ostrelctl: cannot read " << ostrel_report::cleanText(args[1]) << ": " << strerror(errno)
                      << "\n";
            return false;
        }
    }
    // One byte past the bound tells a text that is too long, without reading all of it.
    std::istream& in = standardInput ? std::cin : file;
    text->resize(kInputBytes + 1);
    in.read(&(*text)[0], static_cast<std::streamsize>(text->size()));
    text->resize(static_cast<size_t>(in.gcount()));
    if (text->size() > kInputBytes) {
        std::cerr << "ostrelctl: " << ostrel_report::cleanText(standardInput ? "-" : args[1])
                  << ": more than 16 MiB, which no plan or list is\n";
        return false;
    }
    return true;
}

ExitStatus getConfigCommand(const sp<IOstrel>& service, const std::vector<std::string>&,
                            const Options& options) {
    return textAnswer("getConfig", "config", [&](auto cb) { return service->getConfig(cb); }, options);
}

// The list must be a JSON object: anything else is the user's input at fault
// (exit 2), not a refusal of the service.
ExitStatus setConfigCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                            const Options& options) {
    bool force = options.force;
    std::string text;
    if (!readInput(args, &text)) return kUsage;
    rapidjson::Document doc;
    const char* wrong = nullptr;
    if (force) {
        // sent as it is: the service answers for itself
    } else if (!vendor::brevane::hardware::ostrel::core::parseJsonText(doc, text.data(), text.size())) {
        wrong = "not JSON (or nested deeper than 256 levels)";
    } else if (!doc.IsObject()) {
        wrong = "JSON, but not an object";
    }
    if (wrong != nullptr) {
        std::cerr << "ostrelctl: set-config: " << sourceName(args) << " is " << wrong
                  << "; get-config prints the list to edit (--force sends it as it is)\n";
        return kUsage;
    }
    hidl_string in(text);
    return callbackBool("setConfig", [&](auto cb) { return service->setConfig(in, cb); }, options);
}

ExitStatus clearConfigCommand(const sp<IOstrel>& service, const std::vector<std::string>&,
                              const Options& options) {
    return callbackBool("clearConfig", [&](auto cb) { return service->clearConfig(cb); }, options);
}

ExitStatus stateCommand(const sp<IOstrel>& service, const std::vector<std::string>&,
                        const Options& options) {
    auto ret = service->getState();
    if (!ret.isOk()) return transportFailure("getState", ret.description());
    return stateAnswer(ret, options);
}

ExitStatus runStartCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                           const Options& options) {
    return confirmedValue(service, args[0], "runStart", [&] { return service->runStart(); }, options);
}

ExitStatus runAbortCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                           const Options& options) {
    return confirmedValue(service, args[0], "runAbort", [&] { return service->runAbort(); }, options);
}

ExitStatus runFinishedCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                              const Options& options) {
    return confirmedValue(service, args[0], "runFinished", [&] { return service->runFinished(); },
                          options);
}

ExitStatus bootCompletedCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                                const Options& options) {
    return confirmedValue(service, args[0], "bootCompleted", [&] { return service->bootCompleted(); },
                          options);
}

ExitStatus installTestersCommand(const sp<IOstrel>& service, const std::vector<std::string>& args,
                                 const Options& options) {
    std::ifstream in(args[1], std::ios::binary);
    if (!in) {
        std::cerr << "ostrelctl: cannot read " << ostrel_report::cleanText(args[1]) << ": " << strerror(errno) << "\n";
        return kUsage;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() > kTesterSize) {
        std::cerr << "ostrelctl: " << ostrel_report::cleanText(args[1]) << " holds " << bytes.size()
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

ExitStatus getTestCommand(const sp<IOstrel>& service, const std::vector<std::string>&,
                          const Options& options) {
    return textAnswer("getTest", "test", [&](auto cb) { return service->getTest(cb); }, options);
}

ExitStatus getResultCommand(const sp<IOstrel>& service, const std::vector<std::string>&,
                            const Options& options) {
    std::string answer, log;
    auto ret = service->getResult([&](const hidl_string& a, const hidl_string& l) {
        answer.assign(a.c_str(), a.size());
        log.assign(l.c_str(), l.size());
    });
    if (!ret.isOk()) return transportFailure("getResult", ret.description());
    return resultAnswer(answer, log, options);
}

}  // namespace ostrelctl
