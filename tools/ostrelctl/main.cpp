// ostrelctl: the command-line client of the Ostrel HAL service. It talks to the
// service only through IOstrel::getService("default"), so the same source
// builds for Android (HIDL) and for a Linux host (D-Bus).
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"

namespace {

using ostrelctl::kUsage;

// A number of seconds within [low, high] (low itself allowed when |lowOk|).
bool seconds(const char* text, double low, bool lowOk, double high, double* out) {
    char* end = nullptr;
    *out = strtod(text, &end);
    return *end == '\0' && (*out > low || (lowOk && *out == low)) && *out <= high;
}

}  // namespace

int main(int argc, char** argv) {
    ostrelctl::Options options;
    std::vector<std::string> args;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (!args.empty()) {
            args.push_back(arg);
        } else if (arg == "-h" || arg == "--help" || arg == "help") {
            ostrelctl::printHelp(std::cout);
            return ostrelctl::kOk;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--log") {
            options.showLog = true;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--reconnect" && i + 1 < argc) {
            if (!seconds(argv[++i], 0, true, 86400, &options.reconnect)) {
                std::cerr << "ostrelctl: --reconnect wants seconds from 0 to 86400\n";
                return kUsage;
            }
        } else if (arg == "--interval" && i + 1 < argc) {
            if (!seconds(argv[++i], 0, false, 3600, &options.interval)) {
                std::cerr << "ostrelctl: --interval wants seconds above 0 and at most 3600\n";
                return kUsage;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::cerr << "ostrelctl: unknown option " << arg << " (see ostrelctl --help)\n";
            return kUsage;
        } else {
            args.push_back(arg);
        }
    }
    if (args.empty()) {
        std::cerr << "ostrelctl: no command given (see ostrelctl --help)\n";
        return kUsage;
    }
    const ostrelctl::Command* command = ostrelctl::findCommand(args[0]);
    if (command == nullptr) {
        std::cerr << "ostrelctl: unknown command \"" << args[0] << "\" (see ostrelctl --help)\n";
        return kUsage;
    }
    for (size_t i = 1; i < args.size(); i++) {
        if (args[i] == "--help" || args[i] == "-h") {
            ostrelctl::printCommandHelp(*command, std::cout);
            return ostrelctl::kOk;
        }
    }
    size_t given = args.size() - 1;
    if (given < command->minArgs || given > command->maxArgs) {
        if (command->maxArgs == 0) {
            std::cerr << "ostrelctl: " << command->name << " takes no arguments\n";
        } else {
            std::cerr << "ostrelctl: usage: ostrelctl " << command->name << " " << command->synopsis << "\n";
        }
        return kUsage;
    }
    if (command->group != ostrelctl::Command::kService) return command->run(nullptr, args, options);
    auto service = ostrelctl::IOstrel::getService("default");
    if (service == nullptr) {
        std::cerr << "ostrelctl: the Ostrel service (IOstrel/default) is not running or cannot "
                     "be reached\n";
        return ostrelctl::kTransport;
    }
    return command->run(service, args, options);
}
