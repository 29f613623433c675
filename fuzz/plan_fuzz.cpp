// Fuzz target: a client's plan text through putJSON, then every accessor of the
// plan store and the executor command line built from it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "OstrelFSM.h"

using vendor::brevane::hardware::ostrel::core::OstrelFSM;
using vendor::brevane::hardware::ostrel::core::OstrelFSMData;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // One machine for the whole run: its constructor reads the plan file once.
    static OstrelFSM* fsm = new OstrelFSM(nullptr);
    OstrelFSMData& data = fsm->planStore();
    std::string text(reinterpret_cast<const char*>(bytes), size);
    data.putJSON(text.c_str());

    data.getState();
    data.getRunStart();
    data.getRunFinished();
    int length = data.getTestcasesLength();
    // Indexes around the ends as well as inside.
    for (int i = -1; i <= length; i++) {
        data.getTestcaseCommand(i);
        data.getTestcaseValue(i);
        data.getTestcaseIsBootTest(i);
        data.getTestcaseIsRound(i);
        data.getTestcaseIsSelect(i);
        data.getTestcaseCurrentTime(i);
        data.getTestcaseTargetTime(i);
        data.getTestcaseCurrentRound(i);
        data.getTestcaseTargetRound(i);
    }
    std::string line = fsm->executorCommandLine();
    (void)line;
    free(data.getJSON());
    return 0;
}
