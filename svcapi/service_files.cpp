// SPDX-License-Identifier: MIT
// service_files: one after the other.
#include "svcapi/service_files.h"

#include "svcapi/log_place.h"
#include "svcapi/pid_file.h"
#include "svcapi/run_record.h"
#include "svcapi/runtime_file.h"

int PrepareServiceFiles(const std::string &serviceName, const std::string &account) {
    if (account.empty()) return 0; // root's are made when they are needed
    int error = 0;
    for (const int one : {PreparePidFile(serviceName, account), PrepareRuntimeFile(serviceName, stateSuffix, account),
                          PrepareRuntimeFile(serviceName, runSuffix, account), PrepareLogPlace(serviceName, account)}) {
        if (error == 0) error = one;
    }
    return error;
}
