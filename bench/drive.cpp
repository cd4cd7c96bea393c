// SPDX-License-Identifier: MIT
// drive: what bench/profile needs on its private host.
//
// usage: drive write FILE [SERVICES]                writes a registry of so many services, else 1,000
//        drive await servd|tvregd                   waits until the daemon answers
//        drive status|enumeration|registry COUNT    sends so many equal requests
//        drive listing COUNT                        calls EnumServicesStatus so often, into one buffer
#include "bench/measure/servers.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <cstdio>
#include <limits>

namespace {

constexpr char manyServices[] = "1000";

void QueryStatus(CLIENT *client) { (void)CallForAnswer(client, servd_SERV_QUERY_STATUS_SERVICE{1}); }

void Enumerate(CLIENT *client) {
    const servd_SERV_ENUM_STATUS_SERVICE everything = {0, SERVICE_WIN32, SERVICE_STATE_ALL,
                                                       std::numeric_limits<std::int32_t>::max()};
    (void)CallForAnswer(client, everything);
}

void ListServices(int count) {
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    std::vector<char> buffer(std::size_t{1} << 20);
    for (int i = 0; i < count; ++i) {
        DWORD bytesNeeded = 0;
        DWORD returned = 0;
        if (!EnumServicesStatusA(manager, SERVICE_WIN32, SERVICE_STATE_ALL,
                                 reinterpret_cast<LPENUM_SERVICE_STATUSA>(buffer.data()),
                                 static_cast<DWORD>(buffer.size()), &bytesNeeded, &returned, nullptr)) {
            throw std::runtime_error("not all services are listed");
        }
    }
    (void)CloseServiceHandle(manager);
}

void ReadImagePath() {
    HKEY key = 0;
    char data[1024];
    DWORD bytes = sizeof data;
    const std::string path = servicesKey + "\\" + ServiceName(500);
    (void)RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, &key);
    (void)RegQueryValueExA(key, "ImagePath", nullptr, nullptr, reinterpret_cast<LPBYTE>(data), &bytes);
    (void)RegCloseKey(key);
}

void Drive(const std::string &what, int count) {
    if (what == "listing") {
        ListServices(count);
        return;
    }
    const RpcClient client = what == "registry" ? nullptr : DialServiceDaemon();
    for (int i = 0; i < count; ++i) {
        if (what == "registry") {
            ReadImagePath();
        } else {
            (what == "status" ? QueryStatus : Enumerate)(client.get());
        }
    }
}

int Run(const std::string &what, const std::string &argument, const char *services) {
    if (what == "write") {
        WriteRegistry(argument, std::stoi(services));
    } else if (what == "await") {
        return WaitForProgram(argument == "servd" ? SERVDAEMONPROG : REGDAEMONPROG,
                              argument == "servd" ? SERVDAEMONVERS : REGDAEMONVERS, 60000)
                   ? 0
                   : 1;
    } else {
        Drive(what, std::stoi(argument));
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 && argc != 4) return 2;
    try {
        return Run(argv[1], argv[2], argc == 4 ? argv[3] : manyServices);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "drive: %s\n", failure.what());
        return 1;
    }
}
