// Ostrel, the implementation of IOstrel: every method logs itself to the reply
// log, turns the call into one planner event, and hands the client the answer
// together with the reply log. The core appends to the reply log through
// ReplyLogSink.
#pragma once

#include <vendor/brevane/hardware/ostrel/2.0/IOstrel.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "OstrelFSM.h"
#include "OstrelLog.h"
#include "ReplyLogSink.h"

namespace vendor::brevane::hardware::ostrel::V2_0::implementation {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;

constexpr const char* kImplLogTag = "vendor.brevane.hardware.ostrel@2.0-impl";

struct Ostrel : public IOstrel, public core::ReplyLogSink {
    Ostrel();
    ~Ostrel();

    // IOstrel, in the interface's declaration order.
    Return<void> getConfig(getConfig_cb _hidl_cb) override;
    Return<void> setConfig(const hidl_string& config, setConfig_cb _hidl_cb) override;
    Return<void> clearConfig(clearConfig_cb _hidl_cb) override;
    Return<OstrelState> getState() override;
    Return<bool> runStart() override;
    Return<bool> runAbort() override;
    Return<bool> runFinished() override;
    Return<bool> bootCompleted() override;
    Return<void> installTesters(const hidl_string& file, const hidl_array<uint8_t, 65536>& data,
                                uint32_t len, installTesters_cb _hidl_cb) override;
    Return<void> getTest(getTest_cb _hidl_cb) override;
    Return<void> setTest(const hidl_string& test, setTest_cb _hidl_cb) override;
    Return<void> getResult(getResult_cb _hidl_cb) override;

    // Appends one formatted line to the reply log. A format that yields nothing
    // appends nothing at all; there is no length limit.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-security"
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    template <typename... Args>
    bool addLog(const char* fmt, Args... args) {
        if (fmt == nullptr) return true;
        int n = snprintf(nullptr, 0, fmt, args...);
        if (n < 1) return true;
        std::vector<char> buf(static_cast<size_t>(n) + 1, '\0');
        if (snprintf(buf.data(), buf.size(), fmt, args...) >= 1) log.append(buf.data());
        log.append("\n");
        return true;
    }
#pragma clang diagnostic pop
    bool addLog(const char* text) override { return addLog("%s", text); }

    template <typename... Args>
    void error(const char* fmt, Args... args) {
        core::formatDiagnostic(kImplLogTag, __FILE__, fmt, args...);
    }

    // The reply log as it stands (for tests).
    const std::string& replyLog() const { return log; }
    core::OstrelFSM& machine() { return *fsm; }

  private:
    // Runs a text-answer event into a memory stream and hands the text and the
    // reply log to |deliver|, which must not keep either.
    template <typename Callback>
    void answerText(core::PlannerEvent event, const char* method, const char* answerFormat,
                    int line, const char* signature, Callback deliver);
    // Hands |ok| and the reply log to a (bool, log) callback and empties the log.
    template <typename Callback>
    void answerBool(bool ok, Callback& cb);

    core::OstrelFSM* fsm;
    std::string log;
};

}  // namespace vendor::brevane::hardware::ostrel::V2_0::implementation
