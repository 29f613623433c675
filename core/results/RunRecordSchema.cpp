// Signal names and UTC times of the run record, for its writer and its reader.
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core::runrecord {

namespace {

// Linux's numbering of the standard signals (x86, ARM and most others).
const char* const kStandardSignals[] = {
        nullptr,   "SIGHUP",  "SIGINT",    "SIGQUIT", "SIGILL",    "SIGTRAP", "SIGABRT",
        "SIGBUS",  "SIGFPE",  "SIGKILL",   "SIGUSR1", "SIGSEGV",   "SIGUSR2", "SIGPIPE",
        "SIGALRM", "SIGTERM", "SIGSTKFLT", "SIGCHLD", "SIGCONT",   "SIGSTOP", "SIGTSTP",
        "SIGTTIN", "SIGTTOU", "SIGURG",    "SIGXCPU", "SIGXFSZ",   "SIGVTALRM", "SIGPROF",
        "SIGWINCH", "SIGIO",  "SIGPWR",    "SIGSYS",
};
constexpr int kLastRealTimeSignal = 64;

}  // namespace

std::string signalName(int number) {
    if (number >= 1 && number < kFirstRealTimeSignal) return kStandardSignals[number];
    if (number == kFirstRealTimeSignal) return "SIGRTMIN";
    if (number > kFirstRealTimeSignal && number <= kLastRealTimeSignal) {
        return "SIGRTMIN+" + std::to_string(number - kFirstRealTimeSignal);
    }
    return "signal " + std::to_string(number);
}

std::string utcText(time_t when) {
    struct tm tm;
    char text[32] = "";
    if (when != static_cast<time_t>(-1) && gmtime_r(&when, &tm) != nullptr) {
        strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &tm);
    }
    return text;
}

int64_t utcSeconds(const std::string& text) {
    struct tm tm = {};
    const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm);
    if (end == nullptr || *end != '\0') return -1;
    return static_cast<int64_t>(timegm(&tm));
}

}  // namespace vendor::brevane::hardware::ostrel::core::runrecord
