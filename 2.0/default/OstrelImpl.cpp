#include "OstrelImpl.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vendor::brevane::hardware::ostrel::V2_0::implementation {

using core::PlannerEvent;

Ostrel::Ostrel() {
    addLog("ostrel: %s", "Ostrel");
    fsm = new core::OstrelFSM(this);
}

Ostrel::~Ostrel() {
    addLog("ostrel: %s", "~Ostrel");
    delete fsm;
}

template <typename Callback>
void Ostrel::answerText(PlannerEvent event, const char* method, const char* answerFormat, int line,
                        const char* signature, Callback deliver) {
    addLog("ostrel: %s", method);
    char* buf = nullptr;
    size_t size = 0;
    FILE* buf_fp = open_memstream(&buf, &size);
    if (buf_fp != nullptr) {
        fsm->sendEvent(event, nullptr, nullptr, 0, reinterpret_cast<long>(buf_fp));
        if (fclose(buf_fp) != 0) {
            error("ostrel: Exp=%s Line:%s Func:%s", "fclose(buf_fp) == 0",
                  core::lineText(line).c_str(), signature);
        }
        addLog(answerFormat, buf);
    } else {
        int err = errno;
        addLog("ostrel: open_memstream (errno:%d, %s)\n", err, strerror(err));
    }
    // Both strings refer to the memory without copying; the callback runs first.
    hidl_string answer;
    answer.setToExternal(buf, buf != nullptr ? size : 0);
    hidl_string replyLog;
    replyLog.setToExternal(log.data(), log.size());
    deliver(answer, replyLog);
    free(buf);
    log.clear();
}

template <typename Callback>
void Ostrel::answerBool(bool ok, Callback& cb) {
    hidl_string replyLog;
    replyLog.setToExternal(log.data(), log.size());
    cb(ok, replyLog);
    log.clear();
}

Return<void> Ostrel::getConfig(getConfig_cb _hidl_cb) {
    answerText(core::GET_CONFIG, "getConfig", "ostrel: config=%s", 45, __PRETTY_FUNCTION__,
               _hidl_cb);
    return Void();
}

Return<void> Ostrel::setConfig(const hidl_string& config, setConfig_cb _hidl_cb) {
    addLog("ostrel: %s", "setConfig");
    addLog("ostrel: config=%s", config.c_str());
    std::string input(config.c_str(), config.size());
    bool ok = fsm->sendEvent(core::SET_CONFIG, input.data(), nullptr, 0, 0);
    answerBool(ok, _hidl_cb);
    return Void();
}

Return<void> Ostrel::clearConfig(clearConfig_cb _hidl_cb) {
    addLog("ostrel: %s", "clearConfig");
    bool ok = fsm->sendEvent(core::CLEAR_CONFIG, nullptr, nullptr, 0, 0);
    answerBool(ok, _hidl_cb);
    return Void();
}

Return<OstrelState> Ostrel::getState() {
    addLog("ostrel: %s", "getState");
    int state = fsm->getState();
    if (state < core::IDLE || state > core::COMPLETING) state = core::IDLE;
    addLog("ostrel: state=%s", core::kStateNames[state]);
    return static_cast<OstrelState>(state);
}

Return<bool> Ostrel::runStart() {
    addLog("ostrel: %s", "runStart");
    return fsm->sendEvent(core::RUN_START, nullptr, nullptr, 0, 0);
}

Return<bool> Ostrel::runAbort() {
    addLog("ostrel: %s", "runAbort");
    return fsm->sendEvent(core::RUN_ABORT, nullptr, nullptr, 0, 0);
}

Return<bool> Ostrel::runFinished() {
    addLog("ostrel: %s", "runFinished");
    return fsm->sendEvent(core::RUN_FINISHED, nullptr, nullptr, 0, 0);
}

Return<bool> Ostrel::bootCompleted() {
    addLog("ostrel: %s", "bootCompleted");
    return fsm->sendEvent(core::BOOT_COMPLETED, nullptr, nullptr, 0, 0);
}

Return<void> Ostrel::installTesters(const hidl_string& file, const hidl_array<uint8_t, 65536>& data,
                                    uint32_t len, installTesters_cb _hidl_cb) {
    addLog("ostrel: %s file=%s len=%d", "installTesters", file.c_str(), len);
    std::string name(file.c_str(), file.size());
    bool ok = fsm->sendEvent(core::INSTALL_TESTERS, name.data(),
                             reinterpret_cast<char*>(const_cast<uint8_t*>(data.data())),
                             static_cast<int>(len), 0);
    answerBool(ok, _hidl_cb);
    return Void();
}

Return<void> Ostrel::getTest(getTest_cb _hidl_cb) {
    answerText(core::GET_TEST, "getTest", "ostrel: test=%s", 162, __PRETTY_FUNCTION__, _hidl_cb);
    return Void();
}

Return<void> Ostrel::setTest(const hidl_string& test, setTest_cb _hidl_cb) {
    addLog("ostrel: %s", "setTest");
    addLog("ostrel: test=%s", test.c_str());
    std::string input(test.c_str(), test.size());
    bool ok = fsm->sendEvent(core::SET_TEST, input.data(), nullptr, 0, 0);
    answerBool(ok, _hidl_cb);
    return Void();
}

Return<void> Ostrel::getResult(getResult_cb _hidl_cb) {
    answerText(core::GET_RESULT, "getResult", "ostrel: result=%s", 260, __PRETTY_FUNCTION__,
               _hidl_cb);
    return Void();
}

}  // namespace vendor::brevane::hardware::ostrel::V2_0::implementation
