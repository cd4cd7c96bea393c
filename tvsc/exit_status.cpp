// SPDX-License-Identifier: MIT
// exit_status: from Win32 codes to exit statuses.
#include "tvsc/exit_status.h"

#include "tv/winerror.h"

int ExitStatusOf(DWORD code) {
    switch (code) {
    case ERROR_SUCCESS: return EXIT_DONE;
    case ERROR_INVALID_SERVICE_CONTROL: return EXIT_NOT_SUPPORTED;
    case ERROR_SERVICE_DOES_NOT_EXIST:
    case ERROR_FILE_NOT_FOUND: return EXIT_UNKNOWN_SERVICE;
    case ERROR_INVALID_SERVICE_ACCOUNT:
    case ERROR_CIRCULAR_DEPENDENCY:
    case ERROR_DATABASE_DOES_NOT_EXIST: return EXIT_NOT_CONFIGURED;
    case ERROR_SERVICE_NOT_ACTIVE: return EXIT_NOT_RUNNING;
    case ERROR_REGISTRY_IO_FAILED:
    case RPC_S_SERVER_UNAVAILABLE:
    case RPC_S_CALL_FAILED: return EXIT_UNREACHABLE;
    case ERROR_TIMEOUT: return EXIT_TIMED_OUT;
    case ERROR_SERVICE_DATABASE_LOCKED: return EXIT_LOCKED;
    case ERROR_SERVICE_DEPENDENCY_FAIL:
    case ERROR_DEPENDENT_SERVICES_RUNNING: return EXIT_DEPENDENCY;
    case ERROR_SERVICE_MARKED_FOR_DELETE: return EXIT_DELETE_PENDING;
    case ERROR_ALREADY_EXISTS:
    case ERROR_SERVICE_EXISTS:
    case ERROR_DUP_NAME: return EXIT_EXISTS;
    default: return EXIT_FAILED;
    }
}
