// The run record's journal: while a run lives, each thing that happens to it
// (its start, an executor's start and end, a boot counted, its end, a step found
// unconfirmed after a restart) is one JSON line appended and flushed to disk, so
// recording costs the size of that line, never that of the whole record. At
// getResult the journal is folded into the record handed out beside the archive
// (QAV<stamp>.run.json), its long lists summed up beyond a bound.
#pragma once

#include <functional>
#include <string>

#include "ResultLayout.h"
#include "RunRecordSchema.h"

namespace vendor::brevane::hardware::ostrel::core {

// The kinds of journal line ("event" of each).
namespace journal {
constexpr const char* kEvent = "event";
constexpr const char* kStart = "start";
constexpr const char* kExecutor = "executor";
constexpr const char* kExecutorEnd = "executor_end";
constexpr const char* kBoot = "boot";
constexpr const char* kEnd = "end";
constexpr const char* kUnconfirmed = "unconfirmed";
// Of an "unconfirmed" line: which step the plan did not confirm.
constexpr const char* kStep = runrecord::kStep;
// Of a "boot" line: the boot tests' rounds counted once this boot is, which the
// plan confirms when it holds them.
constexpr const char* kBootRounds = "boot_rounds";
}  // namespace journal

// Each whole line of the journal at |path|, in order; a torn last line (a power
// cut in the middle of an append) is left out. False when the file cannot be read.
bool readJournal(const std::string& path, const std::function<void(const std::string&)>& line);

// The record that the journal at |path| makes, as JSON text: the run's start, the
// executors and boots (the first kListed of each, with every one that stands out
// and the last, and their counts), the end, and the steps left unconfirmed. ""
// when the journal holds no start.
std::string foldJournal(const std::string& path);

// Entries of a list kept in full in a folded record.
constexpr size_t kListed = 100;

}  // namespace vendor::brevane::hardware::ostrel::core
