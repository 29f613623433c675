// Where a run's results lie and what they are called, in one place for the
// service that makes them, the report that reads them and the scripts that fetch
// them (through ostrel-layout): the two folders the archive packs and their files,
// the names of those files as archive entries, the result folder with the stem
// and suffixes of the three files of one result (QAV<stamp>.zip, .db_history,
// .run.json), and the run folder that holds the record's journal and the
// supervisors' side files. Constants only: the service forms a result's names
// with its own formatting calls.
#pragma once

namespace vendor::brevane::hardware::ostrel::core {

// The folders the archive packs; entry names are their paths below kArchiveRoot.
constexpr const char* kArchiveRoot = "/data/vendor/";
constexpr const char* kPlanDataDir = "/data/vendor/qav/data";
constexpr const char* kExecutorDir = "/data/vendor/qav/kelbrun";
// The run's crash-history lines, collected beside the plan.
constexpr const char* kHistoryCopy = "/data/vendor/qav/data/db_history";
constexpr const char* kExecutorLogFile = "/data/vendor/qav/kelbrun/kelbrun_log.txt";

// Entries of an archive (a folder's own entry ends in "/").
constexpr const char* kPlanDataEntry = "qav/data/";
constexpr const char* kExecutorEntry = "qav/kelbrun/";
constexpr const char* kPlanEntry = "qav/data/ostreldata.txt";
constexpr const char* kHistoryEntry = "qav/data/db_history";
constexpr const char* kExecutorLogEntry = "qav/kelbrun/kelbrun_log.txt";

// The result folder; one result is <kResultStem><stamp> with each suffix.
constexpr const char* kResultDir = "/data/vendor/qav/results";
constexpr const char* kResultStem = "QAV";
constexpr const char* kArchiveSuffix = ".zip";
constexpr const char* kHistorySuffix = ".db_history";
constexpr const char* kRecordSuffix = ".run.json";

// The run folder, outside the two that the archive packs.
constexpr const char* kRunRecordDir = "/data/vendor/qav/run";
constexpr const char* kRunJournalFile = "/data/vendor/qav/run/record.journal";
constexpr const char* kRunConfigFile = "/data/vendor/qav/run/configuration.json";
constexpr const char* kDeviceIdFile = "/data/vendor/qav/run/device_id";
// A supervisor's side file: kRunRecordDir/<prefix><pid><suffix>.
constexpr const char* kSideFilePrefix = "executor.";
constexpr const char* kSideFileSuffix = ".end";
// What a write in progress is called until it is renamed over its file: the
// record's files and the records beside the archives, and a side file.
constexpr const char* kTempSuffix = ".new";
constexpr const char* kSideTempSuffix = ".tmp";

}  // namespace vendor::brevane::hardware::ostrel::core
