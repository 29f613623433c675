// The run record's format, shared by the service that writes it and the report
// that reads it: the keys, the end causes, how a signal is named and how a time
// is written. Neither side spells any of these itself, so they cannot drift.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace vendor::brevane::hardware::ostrel::core::runrecord {

constexpr int kVersion = 1;

// Root keys.
constexpr const char* kRecord = "record";
constexpr const char* kRunId = "run_id";
constexpr const char* kService = "service";
constexpr const char* kDevice = "device";
constexpr const char* kStart = "start";
constexpr const char* kConfiguration = "configuration";
constexpr const char* kExecutors = "executors";
constexpr const char* kBoots = "boots";
constexpr const char* kEnd = "end";

// Keys inside them.
constexpr const char* kName = "name";
constexpr const char* kVersionKey = "version";
constexpr const char* kTime = "time";
constexpr const char* kBootId = "boot_id";
constexpr const char* kPlanSha256 = "plan_sha256";
constexpr const char* kList = "list";
constexpr const char* kWords = "words";
constexpr const char* kExitStatus = "exit_status";
constexpr const char* kSupervisor = "supervisor";
constexpr const char* kWaitStatus = "wait_status";
constexpr const char* kExit = "exit";
constexpr const char* kSignal = "signal";
constexpr const char* kSignalNumber = "signal_number";
// A boot counted while a selected boot test was short of its target; false for a
// reboot no boot test asked for.
constexpr const char* kPlanned = "planned";
constexpr const char* kCause = "cause";

// A record handed out sums its long lists up: the first entries of each, those
// that stand out (an executor's end other than exit 0, an unplanned boot) and
// the last executor, each executor with its start's number (index), and the
// counts; and the steps a restart found the plan did not confirm.
constexpr const char* kIndex = "index";
constexpr const char* kExecutorCount = "executor_count";
constexpr const char* kBootCount = "boot_count";
constexpr const char* kUnplannedBoots = "unplanned_boots";
constexpr const char* kUnconfirmed = "unconfirmed";
constexpr const char* kStep = "step";  // of an unconfirmed step: "start", "boot" or "end"

// The device's members.
constexpr const char* kPlatform = "platform";
constexpr const char* kDeviceId = "device_id";
constexpr const char* kHostName = "host_name";
constexpr const char* kOs = "os";
constexpr const char* kKernel = "kernel";
constexpr const char* kFingerprint = "fingerprint";
constexpr const char* kModel = "model";

// How a run ended.
constexpr const char* kCauseExecutor = "executor";
constexpr const char* kCauseRunFinished = "runFinished";
constexpr const char* kCauseRunAbort = "runAbort";

// The kernel's first real-time signal: SIGRTMIN+n counts from it, whatever a C
// library reserves, so a record reads the same on every machine.
constexpr int kFirstRealTimeSignal = 32;

// "SIGSEGV" for 11, "SIGRTMIN+4" for 36; "signal N" for a number no signal has.
std::string signalName(int number);

// |when| in UTC as 2026-11-24T05:31:00Z; "" when it cannot be told.
std::string utcText(time_t when);
// Such a text as seconds since the epoch; -1 for any other text.
int64_t utcSeconds(const std::string& text);

}  // namespace vendor::brevane::hardware::ostrel::core::runrecord
