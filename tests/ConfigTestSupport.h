// Helpers for the config bridge's tests: the sillet stand-in chosen through
// SILLET_BIN, a service object whose reply log is read back, and lookups in the
// configuration list.
#pragma once

#include <rapidjson/document.h>
#include <utils/StrongPointer.h>

#include <cstdlib>
#include <string>

#include "ConfigBridge.h"
#include "OstrelImpl.h"
#include "TestSupport.h"

namespace ostrel_test {

using vendor::brevane::hardware::ostrel::V2_0::implementation::Ostrel;

constexpr const char* kSilletState = "/tmp/sillet-state";

// Selects the stand-in with no failure switch set and an empty state file.
inline std::string useSilletStandIn() {
    std::string bin = sourcePath("fakes/sillet/sillet");
    setenv("SILLET_BIN", bin.c_str(), 1);
    setenv("SILLET_STATE", kSilletState, 1);
    for (const char* name :
         {"SILLET_HANG", "SILLET_QUIET_HANG", "SILLET_OUTPUT", "SILLET_OUTPUT_FILE",
          "SILLET_STDERR", "SILLET_EXIT", "SILLET_SIGNAL"}) {
        unsetenv(name);
    }
    remove(kSilletState);
    return bin;
}

// A service object and the part of its reply log written since the last call.
class ReplyLog {
  public:
    ReplyLog() : owner(new Ostrel()), seen(owner->replyLog().size()) {}
    Ostrel* get() { return owner.get(); }
    std::string added() {
        std::string text = owner->replyLog().substr(seen);
        seen = owner->replyLog().size();
        return text;
    }

  private:
    android::sp<Ostrel> owner;
    size_t seen;
};

// The plain item or group member called |name| in |list|, or null.
inline const rapidjson::Value* findEntry(const rapidjson::Value& list, const std::string& name) {
    for (auto& entry : list["config"].GetArray()) {
        if (entry.HasMember("content")) {
            for (auto& member : entry["content"].GetArray()) {
                if (name == member["name"].GetString()) return &member;
            }
        } else if (name == entry["name"].GetString()) {
            return &entry;
        }
    }
    return nullptr;
}

// The integer |key| of entry |name| in the process-wide list (-100 when absent).
inline int listNumber(const std::string& name, const char* key) {
    const rapidjson::Value* entry =
            findEntry(vendor::brevane::hardware::ostrel::core::configList, name);
    return entry != nullptr && entry->HasMember(key) ? (*entry)[key].GetInt() : -100;
}

}  // namespace ostrel_test
