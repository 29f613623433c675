// The list query: runs "sillet list", merges its listing into configList and hands
// the list out as compact JSON.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <cstring>

#include "ConfigBridge.h"
#include "SilletCmd.h"
#include "ToolCapture.h"

namespace vendor::brevane::hardware::ostrel::core {

namespace {

void execList() {
    const char* path = silletPath();
    char* argv[] = {const_cast<char*>(path), const_cast<char*>("list"), nullptr};
    execvp(path, argv);
    failExec();
}

int checkListRun(ReplyLogSink* owner, int status, ToolOutput* out, ToolOutput* err) {
    logText(owner, stdout, "collect sillet out_buf size=%d\n", out->length);
    logText(owner, stdout, "%s", out->data);
    logText(owner, stderr, "collect sillet err_buf size=%d\n", err->length);
    logText(owner, stderr, "%s", err->data);
    int code = toolExitCode(owner, status);
    if (code < 0) return -1;
    if (code != 0) {
        logText(owner, stderr, "sillet returns error (errno:%d, %s)\n", code, err->data);
        return -1;
    }
    if (parseSilletList(owner, out->data, out->length) < 0) {
        logText(owner, stderr, "Cannot parse outputs of sillet\n");
        return -1;
    }
    return 0;
}

}  // namespace

int querySilletList(ReplyLogSink* owner) {
    logText(owner, stdout, "Preparing the QaV list\n");
    ToolOutput out;
    ToolOutput err;
    int status = 0;
    int result = -1;
    if (runToolCaptured(owner, execList, &out, &err, &status) == TOOL_DONE) {
        result = checkListRun(owner, status, &out, &err);
    }
    releaseToolOutput(&out);
    releaseToolOutput(&err);
    if (result == 0) logText(owner, stdout, "Have the QaV list ready\n");
    return result;
}

int serializeConfigList(ReplyLogSink* owner, char** dest) {
    if (!configList.IsObject()) {
        logText(owner, stderr, "JSON is not ready\n");
        return -1;
    }
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    configList.Accept(writer);
    int size = static_cast<int>(text.GetSize()) + 1;
    if (dest != nullptr) {
        logText(owner, stdout, "Query the QaV list\n");
        memcpy(*dest, text.GetString(), size);
    }
    return size;
}

}  // namespace vendor::brevane::hardware::ostrel::core
