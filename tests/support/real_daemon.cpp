// SPDX-License-Identifier: MIT
// real_daemon: the registry emptied key by key, the daemon started anew, calls over one connection.
#include "tests/support/real_daemon.h"

#include "registry/key.h"
#include "tests/support/host.h"
#include "tests/support/procedures.h"
#include "tv/winerror.h"
#include "tv/winreg.h"

namespace {

pid_t daemonProcess = 0;
RpcClient daemonConnection;

void EmptyKey(HKEY parent, const std::string &path) {
    HKEY key = 0;
    if (RegOpenKeyExA(parent, path.c_str(), 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) return;
    const KeyGuard closeKey(&key);
    char name[1024] = {};
    DWORD nameBytes = sizeof name;
    while (RegEnumKeyExA(key, 0, name, &nameBytes, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
        EmptyKey(key, name);
        if (RegDeleteKeyA(key, name) != ERROR_SUCCESS) FailCall(REG_DELETE_KEY, RPC_FAILED);
        nameBytes = sizeof name;
    }
}

} // namespace

pid_t DaemonProcess() { return daemonProcess; }
CLIENT *DaemonConnection() { return daemonConnection.get(); }
int WaitForDaemonEnd() { return WaitForEnd(std::exchange(daemonProcess, 0)); }

void ClearRegistry() {
    static const pid_t registryDaemon = StartRegistryDaemon(MakeScratchFolder() + "/registry");
    (void)registryDaemon;
    EmptyKey(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet");
}

void StartDaemon() {
    daemonConnection.reset();
    if (daemonProcess != 0) (void)StopDaemon(daemonProcess);
    daemonProcess = StartServiceDaemon();
    daemonConnection = DialServiceDaemon();
}

bool Exchange(std::uint32_t procedure, xdrproc_t codeArgument, void *argument, xdrproc_t codeReply, void *reply) {
    return clnt_call(DaemonConnection(), procedure, codeArgument, static_cast<char *>(argument), codeReply,
                     static_cast<char *>(reply), (timeval{60, 0})) == RPC_SUCCESS;
}

bool IsFreshProcess() { return true; } // each test starts a daemon of its own
