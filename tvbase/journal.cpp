// SPDX-License-Identifier: MIT
// journal: libsystemd, looked for at run time, so that nobody needs it to build or to link.
#include "tvbase/journal.h"

#include "tv/winerror.h"

#include <dlfcn.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char journalSocket[] = "/run/systemd/journal/socket"; // the journal takes entries while it is there

using SendToJournal = int (*)(const iovec *, int); // sd_journal_sendv(3)

SendToJournal FindSendToJournal() {
    void *library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    return library == nullptr ? nullptr : reinterpret_cast<SendToJournal>(dlsym(library, "sd_journal_sendv"));
}

// Null where there is no journal. libsystemd itself would say nothing and drop the entry.
SendToJournal TheJournal() {
    static const SendToJournal send = FindSendToJournal();
    return access(journalSocket, W_OK) == 0 ? send : nullptr;
}

iovec PartOf(const std::string &field) { return {const_cast<char *>(field.data()), field.size()}; }

} // namespace

DWORD WriteLogEntry(const LogEntry &entry) {
    const SendToJournal send = TheJournal();
    if (send == nullptr) {
        syslog(LOG_USER | entry.priority, "%s: %s", entry.source.c_str(), entry.text.c_str());
        return ERROR_SUCCESS;
    }
    const std::string fixed[] = {"MESSAGE=" + entry.text, "PRIORITY=" + std::to_string(entry.priority),
                                 "SYSLOG_IDENTIFIER=" + entry.source};
    std::vector<iovec> parts;
    for (const std::string &field : fixed) {
        parts.push_back(PartOf(field));
    }
    for (const std::string &field : entry.fields) {
        parts.push_back(PartOf(field));
    }
    return send(parts.data(), static_cast<int>(parts.size())) == 0 ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}
