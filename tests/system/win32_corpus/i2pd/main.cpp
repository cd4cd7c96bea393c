// SPDX-License-Identifier: MIT
// Stands in for i2pd: its service that may be paused, too.
#include "Win32Service.h"

#include "Daemon.h"

DaemonStandIn Daemon;

int main() {
    char name[] = SERVICE_NAME;
    I2PService service(name, TRUE, TRUE, TRUE);
    return I2PService::Run(service) ? 0 : 1;
}
