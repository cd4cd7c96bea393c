// SPDX-License-Identifier: MIT
// prepare: goes over all services of the registry.
#include "tvsc/prepare.h"

#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "svcapi/service_files.h"
#include "tvsc/mask.h"
#include "tvsc/report.h"
#include "tvsc/words.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace {

// The account of a service, empty when it has none.
DWORD ReadAccount(HKEY services, const char *name, std::string *account) {
    HKEY key = 0;
    DWORD rc = static_cast<DWORD>(RegOpenKeyExA(services, name, 0, KEY_READ, &key));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    TextBuffer text = {};
    rc = ReadText(key, accountValue, text);
    *account = rc == ERROR_SUCCESS ? WithoutMask(text) : "";
    return rc == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : rc;
}

void Prepare(Session &session, HKEY services, const std::string &name) {
    std::string account;
    if (const DWORD rc = ReadAccount(services, name.c_str(), &account); rc != ERROR_SUCCESS) {
        Failed(session, name, "prepare", rc);
        return;
    }
    if (session.options.dryRun) return Done(session, name, "prepare", "would have its files");
    const int error = PrepareServiceFiles(name, account);
    if (error == ENOENT) {
        Note(session, fmt::format("tvsc: {}: there is no account {}", name, account));
    } else if (error != 0) {
        Failed(session, name, "prepare", error == EPERM ? ERROR_ACCESS_DENIED : ERROR_CANTWRITE, std::strerror(error));
    }
}

} // namespace

int RunPrepare(const Options &options) {
    Session session;
    session.options = options;
    HKEY services = 0;
    DWORD rc = static_cast<DWORD>(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_READ, &services));
    if (rc == ERROR_FILE_NOT_FOUND) return Finish(session); // no daemon has run yet
    const KeyGuard closed(&services);
    for (DWORD index = 0; rc == ERROR_SUCCESS; ++index) {
        TextBuffer name = {};
        DWORD nameBytes = textBytes;
        rc = static_cast<DWORD>(RegEnumKeyExA(services, index, name, &nameBytes, nullptr, nullptr, nullptr, nullptr));
        if (rc == ERROR_SUCCESS) Prepare(session, services, name);
    }
    if (rc != ERROR_NO_MORE_ITEMS) Failed(session, "Services", "prepare", rc);
    return Finish(session);
}
