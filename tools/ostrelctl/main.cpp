// ostrelctl: the command-line client of the Ostrel HAL service. It talks to the
// service only through IOstrel::getService("default"), so the same source
// builds for Android (HIDL) and for a Linux host (D-Bus).
#include <iostream>

#include "Client.h"

int main(int argc, char** argv) {
    ostrelctl::CommandLine line;
    int status = ostrelctl::parseCommandLine(argc, argv, &line);
    if (status >= 0) return status;
    const ostrelctl::Command& command = *line.command;
    if (command.group != ostrelctl::Command::kService) return command.run(nullptr, line.args, line.options);
    auto service = ostrelctl::IOstrel::getService("default");
    if (service == nullptr) {
        std::cerr << "ostrelctl: the Ostrel service (IOstrel/default) is not running or cannot "
                     "be reached\n";
        return ostrelctl::kTransport;
    }
    return command.run(service, line.args, line.options);
}
