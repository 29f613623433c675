// The record of the current run, kept beside the plan in files of its own: how
// the run started (time, boot, a digest of the plan's test-case definitions, a
// run id), each executor start and how that executor ended as its supervisor
// saw it, each boot counted (planned or not), how the run ended, the device and
// the service's version. Each of them is a line appended to the run's journal and
// flushed before the plan that goes with it is written, so after a kill at any
// instant the record is never behind the plan; a restart marks a step the plan
// does not confirm. getResult hands the record out beside the result archive
// before it packs, so every archive of a run has it. A record that cannot be
// written costs a line.
#pragma once

#include <rapidjson/document.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "RunJournal.h"

namespace vendor::brevane::hardware::ostrel::core {

constexpr const char* kServiceVersion = "2.0.5";

class RunRecord {
  public:
    // Removes what a kill left half made, folds in the executor ends that
    // supervisors wrote while no service reaped them, and reads where the
    // journal stands.
    RunRecord();

    // After a restart: marks each step of the journal that the plan does not
    // confirm (a start when the plan shows no run, an end when it shows the run
    // live, a boot when its boot tests hold fewer rounds); a journal whose record
    // was handed out is removed.
    void reconcile(bool planStarted, bool planFinished, int planBootRounds);

    // A new run: a new journal, with the configuration applied last.
    void runStarted(const std::string& planDefinitions);
    // A configuration applied (the client's list, null for a clearing) and what
    // the tool was asked; kept in a file of its own until the next run starts.
    void configurationApplied(const char* clientList, const std::vector<std::string>& words,
                              int exitStatus);
    void executorStarted(pid_t supervisor, const std::vector<std::string>& words);
    // Appends the end that |supervisor| wrote to its side file, if any, and
    // removes the side file once the journal holds it.
    void executorReaped(pid_t supervisor);
    // A boot counted in a live run; |planned| when a selected boot test was short
    // of its target (else the device restarted with no boot test asking for it);
    // |bootRounds|: the boot tests' rounds with this boot counted.
    void bootCounted(bool planned, int bootRounds);
    // |cause|: "executor", "runFinished" or "runAbort".
    void runEnded(const char* cause);

    // Writes the record beside |zipName| as <stem>.run.json (before the archive
    // is packed); the journal stays until the plan shows the result taken.
    bool writeBeside(const std::string& zipName);
    // Called once the event's plan is written: the journal of a record handed
    // out goes.
    void commit();

    // Called in the supervisor, after its executor ended and before it signals its
    // group: the wait status and the time go to a side file of its own (open,
    // write, fsync, rename; async-signal-safe calls only).
    static void persistExecutorEnd(int waitStatus);

  private:
    bool append(rapidjson::Document& line);
    void foldSideFiles();
    void readState();
    void removeLeftovers();
    void error(const char* fmt, const char* what, int err);

    bool started = false;     // the journal holds a start
    bool ended = false;       // and an end the plan has not contradicted
    bool startUnconfirmed = false;
    bool handedOut = false;   // the record was written beside an archive in this event
    int bootRounds = 0;       // the boot tests' rounds after the last boot in the journal
};

}  // namespace vendor::brevane::hardware::ostrel::core
