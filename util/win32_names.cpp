// SPDX-License-Identifier: MIT
// win32_names: the codes of winerror.h with their names and what they say, in the order of the numbers.
#include "util/win32_names.h"

#include "tv/winerror.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace {

struct ErrorWords {
    std::uint32_t code;
    const char *name;
    const char *text;
};

#define WORDS(code, text)                                                                                              \
    { code, #code, text }

constexpr ErrorWords errors[] = {
    WORDS(ERROR_SUCCESS, "done"),
    WORDS(ERROR_FILE_NOT_FOUND, "no such key, value or file"),
    WORDS(ERROR_PATH_NOT_FOUND, "no such path, or the program there could not be executed"),
    WORDS(ERROR_ACCESS_DENIED, "access denied"),
    WORDS(ERROR_INVALID_HANDLE, "the handle names nothing"),
    WORDS(ERROR_NOT_ENOUGH_MEMORY, "not enough memory or room"),
    WORDS(ERROR_INVALID_DATA, "the data is not of the kind that was asked for"),
    WORDS(ERROR_WRITE_FAULT, "what was to be written was refused"),
    WORDS(ERROR_SHARING_VIOLATION, "the file is in use"),
    WORDS(ERROR_NOT_SUPPORTED, "not supported"),
    WORDS(ERROR_DUP_NAME, "the name is in use already"),
    WORDS(ERROR_INVALID_PARAMETER, "an argument is missing or not allowed"),
    WORDS(ERROR_DISK_FULL, "the disk is full"),
    WORDS(ERROR_CALL_NOT_IMPLEMENTED, "this function is not available"),
    WORDS(ERROR_INSUFFICIENT_BUFFER, "the buffer is too small"),
    WORDS(ERROR_INVALID_NAME, "the name is not allowed"),
    WORDS(ERROR_INVALID_LEVEL, "the call has no such kind of information"),
    WORDS(ERROR_MOD_NOT_FOUND, "no such module"),
    WORDS(ERROR_BAD_PATHNAME, "the path is malformed"),
    WORDS(ERROR_ALREADY_EXISTS, "exists already"),
    WORDS(ERROR_BAD_EXE_FORMAT, "the program is not one that can be run here"),
    WORDS(ERROR_ENVVAR_NOT_FOUND, "no such variable in the environment"),
    WORDS(ERROR_FILE_TOO_LARGE, "the data is larger than can be stored"),
    WORDS(ERROR_MORE_DATA, "there is more data than the buffer holds"),
    WORDS(ERROR_NO_MORE_ITEMS, "there are no more entries"),
    WORDS(ERROR_MR_MID_NOT_FOUND, "there is no text for the code"),
    WORDS(ERROR_BADDB, "the registry is damaged"),
    WORDS(ERROR_BADKEY, "the registry key is not valid"),
    WORDS(ERROR_CANTOPEN, "the registry key could not be opened"),
    WORDS(ERROR_CANTREAD, "the registry key could not be read"),
    WORDS(ERROR_CANTWRITE, "the registry key could not be written"),
    WORDS(ERROR_REGISTRY_IO_FAILED, "the registry daemon cannot be reached or could not store"),
    WORDS(ERROR_KEY_DELETED, "the registry key has been deleted"),
    WORDS(ERROR_KEY_HAS_CHILDREN, "the registry key has subkeys"),
    WORDS(ERROR_CHILD_MUST_BE_VOLATILE, "below a volatile key only volatile keys can be made"),
    WORDS(ERROR_DEPENDENT_SERVICES_RUNNING, "other services that run depend on the service"),
    WORDS(ERROR_INVALID_SERVICE_CONTROL, "the service does not take this control"),
    WORDS(ERROR_SERVICE_REQUEST_TIMEOUT, "the process of the service did not answer in time"),
    WORDS(ERROR_SERVICE_NO_THREAD, "no thread could be made for the service"),
    WORDS(ERROR_SERVICE_DATABASE_LOCKED, "the service database is locked"),
    WORDS(ERROR_SERVICE_ALREADY_RUNNING, "the service runs already"),
    WORDS(ERROR_INVALID_SERVICE_ACCOUNT, "the account does not exist or is not allowed"),
    WORDS(ERROR_SERVICE_DISABLED, "the service is disabled"),
    WORDS(ERROR_CIRCULAR_DEPENDENCY, "the dependencies form a ring"),
    WORDS(ERROR_SERVICE_DOES_NOT_EXIST, "no such service"),
    WORDS(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, "the service cannot take controls at this moment"),
    WORDS(ERROR_SERVICE_NOT_ACTIVE, "the service does not run"),
    WORDS(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, "the service daemon cannot be reached"),
    WORDS(ERROR_EXCEPTION_IN_SERVICE, "the service failed while it handled the request"),
    WORDS(ERROR_DATABASE_DOES_NOT_EXIST, "the service database did not load"),
    WORDS(ERROR_SERVICE_SPECIFIC_ERROR, "the service ended with an error code of its own"),
    WORDS(ERROR_PROCESS_ABORTED, "the process of the service ended without a report"),
    WORDS(ERROR_SERVICE_DEPENDENCY_FAIL, "a service that this one depends on does not run"),
    WORDS(ERROR_SERVICE_LOGON_FAILED, "the account of the service could not be used"),
    WORDS(ERROR_SERVICE_START_HANG, "the service hung while it started"),
    WORDS(ERROR_INVALID_SERVICE_LOCK, "the lock is not this one"),
    WORDS(ERROR_SERVICE_MARKED_FOR_DELETE, "the service is marked for deletion"),
    WORDS(ERROR_SERVICE_EXISTS, "a service of this name exists already"),
    WORDS(ERROR_SERVICE_DEPENDENCY_DELETED,
          "a service that this one depends on does not exist or is marked for deletion"),
    WORDS(ERROR_SERVICE_NEVER_STARTED, "the service was never started"),
    WORDS(ERROR_DUPLICATE_SERVICE_NAME, "the display name is in use already"),
    WORDS(ERROR_SERVICE_NOT_IN_EXE, "the program does not hold the service that it was started for"),
    WORDS(ERROR_NO_UNICODE_TRANSLATION, "the text cannot be converted"),
    WORDS(ERROR_ALREADY_REGISTERED, "registered already"),
    WORDS(ERROR_TIMEOUT, "no answer came in time"),
    WORDS(RPC_S_SERVER_UNAVAILABLE, "the server cannot be reached"),
    WORDS(RPC_S_CALL_FAILED, "the remote call failed"),
};

#undef WORDS

static_assert(std::is_sorted(std::begin(errors), std::end(errors),
                             [](const ErrorWords &a, const ErrorWords &b) { return a.code < b.code; }));

const ErrorWords *FindError(std::uint32_t code) {
    const auto *found =
        std::lower_bound(std::begin(errors), std::end(errors), code,
                         [](const ErrorWords &words, std::uint32_t wanted) { return words.code < wanted; });
    return found != std::end(errors) && found->code == code ? found : nullptr;
}

} // namespace

const char *Win32ErrorName(uint32_t code) {
    const ErrorWords *found = FindError(code);
    return found != nullptr ? found->name : nullptr;
}

const char *Win32ErrorText(uint32_t code) {
    const ErrorWords *found = FindError(code);
    return found != nullptr ? found->text : nullptr;
}
