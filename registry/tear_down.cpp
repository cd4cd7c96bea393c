// SPDX-License-Identifier: MIT
// tear_down: closing, or forgetting, all connections.
//
// It stands above the entry points, because its farewell is an ordinary call of RegPingDaemon.
// Thread:  any; the mutex is taken for each slot.
#include "registry/connection.h"
#include "registry/tvpthread.h"
#include "registry/unused_state.h"
#include "tv/tvregistry.h"

#include <cstdlib>

// The mode 1 ping goes over slot 0, the first to be closed: the local daemon hears it once.
// Deliberate: the host name's copy is not released with its entry.
void tvRegistryCleanConnections(int destroy) {
    connectionTableDestroyed = 1;
    if (clntArray == nullptr) return;
    pingXtIntervalId = 0;
    for (int number = 0; number < connectionSlots; ++number) {
        if (clntArray[number] == nullptr) continue;
        if (destroy != 0) (void)RegPingDaemon(1); // a farewell; nothing depends on its arrival
        LockRegistryMutex();
        if (destroy != 0) CloseConnection(clntArray[number]);
        std::free(clntArray[number]);
        clntArray[number] = nullptr;
        UnlockRegistryMutex();
    }
    LockRegistryMutex(); // a ping of another thread looks at the table even now
    std::free(clntArray);
    ForgetConnections();
    UnlockRegistryMutex();
}

void tvRegistryInitData(void) {
    tvRegistryCleanConnections(0);
    ForgetConnections(); // also where there was no table
    connectionTableDestroyed = 0;
    pingXtIntervalId = 0;
    pingThreadHandle = 0;
}
