// ostrelctl's command line, parsed by getopt_long from the option table: any
// option may stand before or after the command's name; the command's arguments
// keep their order, and each --device its place among them.
#include <getopt.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "Client.h"
#include "Report.h"

namespace ostrelctl {

namespace {

// getopt_long's value for each option: past every character it returns itself.
constexpr int kFirstValue = 256;

// A number of seconds within [low, high] (low itself allowed when |lowOk|).
bool seconds(const char* text, double low, bool lowOk, double high, double* out) {
    char* end = nullptr;
    *out = strtod(text, &end);
    return end != text && *end == '\0' && (*out > low || (lowOk && *out == low)) && *out <= high;
}

// Takes one option into |options|; false, with a line, for a value out of range.
bool takeFlag(Flag::Id id, const char* value, size_t argsBefore, Options* options) {
    switch (id) {
        case Flag::kJson: options->json = true; break;
        case Flag::kLog: options->showLog = true; break;
        case Flag::kVerbose: options->verbose = true; break;
        case Flag::kInterval:
            if (!seconds(value, 0, false, 3600, &options->interval)) {
                std::cerr << "ostrelctl: --interval wants seconds above 0 and at most 3600\n";
                return false;
            }
            break;
        case Flag::kReconnect:
            if (!seconds(value, 0, true, 86400, &options->reconnect)) {
                std::cerr << "ostrelctl: --reconnect wants seconds from 0 to 86400\n";
                return false;
            }
            break;
        case Flag::kForce: options->force = true; break;
        case Flag::kFailedOnly: options->failedOnly = true; break;
        case Flag::kPlain: options->plain = true; break;
        case Flag::kExec: options->exec = true; break;
        case Flag::kFormat: options->format = value; break;
        case Flag::kDevice: options->devices.emplace_back(argsBefore, value); break;
        case Flag::kHelp:
        case Flag::kIdCount: break;
    }
    return true;
}

}  // namespace

int parseCommandLine(int argc, char** argv, CommandLine* line) {
    std::vector<option> longOptions;
    for (const Flag* flag = flagsBegin(); flag != flagsEnd(); ++flag) {
        longOptions.push_back({flag->name, flag->value ? required_argument : no_argument, nullptr,
                               kFirstValue + flag->id});
    }
    longOptions.push_back({nullptr, 0, nullptr, 0});
    // "-": arguments come back in their place (as 1); ":": a missing value is told apart.
    opterr = 0;
    optind = 0;
    std::vector<std::string> words;
    unsigned seen = 0;
    int c;
    while ((c = getopt_long(argc, argv, "-:h", longOptions.data(), nullptr)) != -1) {
        if (c == 1) {
            words.push_back(optarg);
            continue;
        }
        if (c == '?' || c == ':') {
            std::string given = optopt != 0 && optopt < kFirstValue ? std::string("-") + static_cast<char>(optopt)
                                                                     : argv[optind - 1];
            std::cerr << "ostrelctl: " << (c == '?' ? "unknown option " : "a value is missing after ")
                      << ostrel_report::cleanText(given) << " (see ostrelctl --help)\n";
            return kUsage;
        }
        auto id = static_cast<Flag::Id>(c == 'h' ? Flag::kHelp : c - kFirstValue);
        seen |= flagBit(id);
        if (!takeFlag(id, optarg, words.empty() ? 0 : words.size() - 1, &line->options)) return kUsage;
    }
    for (; optind < argc; optind++) words.push_back(argv[optind]);  // after "--"

    bool help = seen & flagBit(Flag::kHelp);
    if (!words.empty() && words[0] == "help") {  // "help" and "help COMMAND"
        words.erase(words.begin());
        help = true;
    }
    if (words.empty()) {
        if (help) {
            printHelp(std::cout);
            return kOk;
        }
        std::cerr << "ostrelctl: no command given (see ostrelctl --help)\n";
        return kUsage;
    }
    if (words[0] == "__complete") {  // for the shell's completion: ostrelctl __complete [COMMAND]
        printCompletion(words.size() > 1 ? findCommand(words[1]) : nullptr, std::cout);
        return kOk;
    }
    const Command* command = findCommand(words[0]);
    if (command == nullptr) {
        std::cerr << "ostrelctl: unknown command \"" << ostrel_report::cleanText(words[0])
                  << "\" (see ostrelctl --help)\n";
        return kUsage;
    }
    if (help) {
        printCommandHelp(*command, std::cout);
        return kOk;
    }
    for (const Flag* flag = flagsBegin(); flag != flagsEnd(); ++flag) {
        if (seen & flagBit(flag->id) & ~(kGlobalFlags | command->flags)) {
            std::cerr << "ostrelctl: " << command->name << " takes no --" << flag->name
                      << " (usage: " << usageOf(*command) << ")\n";
            return kUsage;
        }
    }
    size_t given = words.size() - 1;
    if (given < command->minArgs || given > command->maxArgs) {
        if (command->maxArgs == 0 && command->flags == 0) {
            std::cerr << "ostrelctl: " << command->name << " takes no arguments\n";
        } else {
            std::cerr << "ostrelctl: usage: " << usageOf(*command) << "\n";
        }
        return kUsage;
    }
    line->command = command;
    line->args = std::move(words);
    return -1;
}

}  // namespace ostrelctl
