// Small helpers shared by the bench programs: a monotonic clock, percentiles,
// and figures read from /proc.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ostrel_bench {

inline double nowSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
}

// The |p|-th percentile (0..100) of |samples| by the nearest-rank rule.
inline double percentile(std::vector<double> samples, double p) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    size_t rank = static_cast<size_t>(p / 100.0 * samples.size() + 0.999999);
    rank = std::clamp<size_t>(rank, 1, samples.size());
    return samples[rank - 1];
}

// A "Key:  value kB" field of /proc/<pid>/status (or of /proc/self), or -1.
inline long procStatusField(const std::string& pid, const std::string& key) {
    std::ifstream in("/proc/" + pid + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, key.size() + 1, key + ":") == 0) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    return -1;
}

// A "key: value" field of /proc/self/io (bytes), or -1.
inline long long selfIoField(const std::string& key) {
    std::ifstream in("/proc/self/io");
    std::string name;
    long long value;
    while (in >> name >> value) {
        if (name == key + ":") return value;
    }
    return -1;
}

// CPU time (user + system) of this process so far, in seconds.
inline double selfCpuSeconds() {
    struct rusage u = {};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec +
           (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// One row of the bench table: | what | figure | baseline | ratio |.
inline void row(const std::string& what, const std::string& figure,
                const std::string& baseline = "", const std::string& ratio = "") {
    printf("| %s | %s | %s | %s |\n", what.c_str(), figure.c_str(), baseline.c_str(),
           ratio.c_str());
    fflush(stdout);
}

inline std::string fmt(const char* format, double value) {
    char buf[64];
    snprintf(buf, sizeof(buf), format, value);
    return buf;
}

}  // namespace ostrel_bench
