// Applying a client's configuration list ("sillet set" with one number, and
// optionally "a<value>", per offered feature) and clearing all settings
// ("sillet clear").
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ConfigBridge.h"
#include "JsonText.h"
#include "SilletCmd.h"
#include "ToolCapture.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

constexpr const char* kSelectRefused = "Cannot parse the given JSON: exit_select_qav\n";

// Typed reads: a member of another type reads as missing.
bool readInt(const rapidjson::Value& entry, const char* key, int* value) {
    auto it = entry.FindMember(key);
    if (it == entry.MemberEnd() || !it->value.IsInt()) return false;
    *value = it->value.GetInt();
    return true;
}

const char* readName(const rapidjson::Value& entry) {
    if (!entry.IsObject()) return nullptr;
    auto it = entry.FindMember("name");
    return it != entry.MemberEnd() && it->value.IsString() ? it->value.GetString() : nullptr;
}

// An entry the walk can read: an object with members, "select" among them.
bool isSelectable(const rapidjson::Value& entry) {
    return entry.IsObject() && entry.MemberCount() > 0 && entry.HasMember("select");
}

// The tool's number for an entry: "enable-num" when selected, else "disable-num";
// -1 when that member is missing (passed on as the word "-1"). A group member's "num"
// overrides it. False when the tool does not offer the feature (a negative number).
bool chooseNumber(const rapidjson::Value& entry, bool member, int* number) {
    auto select = entry.FindMember("select");
    bool selected = select != entry.MemberEnd() && select->value.IsTrue();
    *number = -1;
    if (readInt(entry, selected ? "enable-num" : "disable-num", number) && *number < 0) {
        return false;
    }
    if (member && readInt(entry, "num", number) && *number < 0) return false;
    return true;
}

// Adds one entry's words; -1 when the command could not grow.
int addEntry(ReplyLogSink* owner, SilletCmd& cmd, const rapidjson::Value& entry, bool member) {
    int number = -1;
    if (!chooseNumber(entry, member, &number)) return 0;
    int value = -1;
    readInt(entry, "value", &value);
    return cmd.addArg(owner, number, value);
}

void refuseEntry(ReplyLogSink* owner, const rapidjson::Value& entry) {
    const char* name = readName(entry);
    logText(owner, stderr, "exit: name:%s\n", name != nullptr ? name : "(null)");
    logText(owner, stderr, kSelectRefused);
}

// Walks the list in order; -1 (reported) when an entry cannot be read or the
// command could not grow.
int buildCommand(ReplyLogSink* owner, SilletCmd& cmd, const rapidjson::Value& config) {
    for (auto& entry : config.GetArray()) {
        bool group = entry.IsObject() && entry.HasMember("multi");
        if (!group) {
            if (!isSelectable(entry)) {
                refuseEntry(owner, entry);
                return -1;
            }
            if (addEntry(owner, cmd, entry, false) != 0) return -1;
            continue;
        }
        auto content = entry.FindMember("content");
        if (content == entry.MemberEnd() || !content->value.IsArray()) continue;
        for (auto& member : content->value.GetArray()) {
            if (!isSelectable(member)) {
                refuseEntry(owner, member);
                return -1;
            }
            if (addEntry(owner, cmd, member, true) != 0) return -1;
        }
    }
    return 0;
}

int runSet(ReplyLogSink* owner, SilletCmd& cmd, ToolApplied* applied) {
    if (applied != nullptr && cmd.argv != nullptr) {
        for (int i = 0; i < cmd.argc && cmd.argv[i] != nullptr; i++) applied->words.push_back(cmd.argv[i]);
    }
    ToolOutput out;
    ToolOutput err;
    int status = 0;
    auto child = [&cmd]() {
        printf("argv = ");
        cmd.stdoutCmd();
        if (cmd.argv != nullptr) execvp(cmd.argv[0], cmd.argv);
        failExec();
    };
    ToolRunResult run = runToolCaptured(owner, child, &out, &err, &status);
    int result = -1;
    if (run == TOOL_NO_PIPE) {
        // Reported as a refused selection too.
        logText(owner, stderr, kSelectRefused);
    } else if (run == TOOL_DONE) {
        logText(owner, stdout, "collect sillet out_buf size=%lu\n",
                static_cast<unsigned long>(out.length));
        logText(owner, stdout, "%s", out.data);
        logText(owner, stderr, "collect sillet err_buf size=%lu\n",
                static_cast<unsigned long>(err.length));
        logText(owner, stderr, "%s", err.data);
        int code = toolExitCode(owner, status);
        if (code > 0) logText(owner, stderr, "sillet returns error(%d)\n", code);
        if (applied != nullptr) applied->exitStatus = code;
        result = code == 0 ? 0 : -1;
    }
    releaseToolOutput(&out);
    releaseToolOutput(&err);
    return result;
}

void releaseCommand(SilletCmd& cmd) {
    if (cmd.argv == nullptr) return;
    // Slots 0 and 1 are the environment's path and the static action word.
    for (int i = 2; i < cmd.argc; i++) free(cmd.argv[i]);
    free(cmd.argv);
    cmd.argv = nullptr;
}

}  // namespace

int selectSilletConfig(ReplyLogSink* owner, const char* json, ToolApplied* applied) {
    SilletCmd cmd(owner);
    ConfigDocument doc(nullptr, kConfigParseStack);
    int result = -1;
    if (json == nullptr || !parseJsonText(doc, json, strlen(json)) || !doc.IsObject()) {
        logText(owner, stderr, "Cannot parse the given JSON: is not object\n");
    } else if (!doc.HasMember("config") || !doc["config"].IsArray()) {
        logText(owner, stderr, "Cannot parse the given JSON: no configs array\n");
    } else if (buildCommand(owner, cmd, doc["config"]) == 0) {
        result = runSet(owner, cmd, applied);
    }
    releaseCommand(cmd);
    return result;
}

int clearSilletConfig(ReplyLogSink*, ToolApplied* applied) {
    if (applied != nullptr) applied->words = {silletPath(), "clear"};
    fflush(stdout);
    fflush(stderr);
    pid_t pid = fork();
    if (pid < 0) {
        logText(nullptr, stderr, "Cannot fork (errno:%d)\n", errno);
        return -1;
    }
    if (pid == 0) {
        const char* path = silletPath();
        char* argv[] = {const_cast<char*>(path), const_cast<char*>("clear"), nullptr};
        execvp(path, argv);
        failExec();
    }
    int status = 0;
    pid_t waited;
    do {
        waited = waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0) {
        logText(nullptr, stderr, "Cannot wait for child (errno:%d)\n", errno);
        return -1;
    }
    int code = toolExitCode(nullptr, status);
    if (code > 0) logText(nullptr, stderr, "sillet returns error(%d)\n", code);
    if (applied != nullptr) applied->exitStatus = code;
    return code == 0 ? 0 : -1;
}

}  // namespace vendor::brevane::hardware::ostrel::core
