// TEMPORARY placeholders until the config bridge lands; the config work removes this file.
#include "ConfigBridge.h"
#include "OstrelFSM.h"
namespace vendor { namespace brevane { namespace hardware { namespace ostrel { namespace core {
ConfigDocument configList;
char* OstrelFSM::getConfig() { return nullptr; }
int selectSilletConfig(Ostrel*, const char*) { return -1; }
int clearSilletConfig(Ostrel*) { return -1; }
}}}}}
