// The record of the current run, kept beside the plan in a file of its own: how
// the run started (time, boot, a digest of the plan's test-case definitions),
// each executor start and how that executor ended as its supervisor saw it, each
// boot counted, how the run ended, the device and the service's version. It is
// written with an atomic replace at most once per event, and moved beside the
// result archive by getResult. A record that cannot be written costs a line.
#pragma once

#include <rapidjson/document.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kRunRecordDir = "/data/vendor/qav/run";
constexpr const char* kRunRecordFile = "/data/vendor/qav/run/record.json";
constexpr const char* kServiceVersion = "2.0.4";

class RunRecord {
  public:
    // Loads the record a previous life of the service left, and folds in the
    // executor ends its supervisors wrote meanwhile.
    RunRecord();

    // A new run: the record starts over, with the configuration applied last.
    void runStarted(const std::string& planDefinitions);
    // A configuration applied (the client's list, null for a clearing) and what
    // the tool was asked; kept in a file of its own until the next run starts.
    void configurationApplied(const char* clientList, const std::vector<std::string>& words,
                              int exitStatus);
    void executorStarted(pid_t supervisor, const std::vector<std::string>& words);
    // Folds in the end that |supervisor| wrote to its side file, if any.
    void executorReaped(pid_t supervisor);
    // A boot counted in a live run; |planned| when a selected boot test was short
    // of its target (else the device restarted with no boot test asking for it).
    void bootCounted(bool planned);
    // |cause|: "executor", "runFinished" or "runAbort".
    void runEnded(const char* cause);

    // Writes the record if it changed since the last write.
    void commit();
    // Moves the record beside |zipName| as <stem>.run.json; false when there is
    // no record.
    bool moveBeside(const std::string& zipName);

    // Called in the supervisor, after its executor ended and before it signals its
    // group: the wait status goes to a side file of its own (open, write, fsync,
    // rename; async-signal-safe calls only).
    static void persistExecutorEnd(int waitStatus);

  private:
    static std::string textOf(const rapidjson::Value& value);
    bool replaceFile(const char* temp, const char* path, const std::string& text);
    rapidjson::Value* executorOf(pid_t supervisor);
    void foldSideFiles();
    void error(const char* fmt, const char* what, int err);

    rapidjson::Document doc;
    bool changed = false;
};

}  // namespace vendor::brevane::hardware::ostrel::core
