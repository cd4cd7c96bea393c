// SPDX-License-Identifier: MIT
// event_log: what a Win32 event is in the log of a Unix machine.
#include "tvbase/journal.h"
#include "tvbase/objects.h"
#include "tvbase/result.h"
#include "tvbase/wide.h"

#include "tv/winbase.h"

#include <syslog.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr WORD mostStrings = 256;

struct EventType {
    WORD type;
    int priority;
    const char *name;
};

constexpr EventType eventTypes[] = {
    {EVENTLOG_SUCCESS, LOG_INFO, "success"},
    {EVENTLOG_ERROR_TYPE, LOG_ERR, "error"},
    {EVENTLOG_WARNING_TYPE, LOG_WARNING, "warning"},
    {EVENTLOG_INFORMATION_TYPE, LOG_INFO, "information"},
    {EVENTLOG_AUDIT_SUCCESS, LOG_INFO, "audit_success"},
    {EVENTLOG_AUDIT_FAILURE, LOG_NOTICE, "audit_failure"},
};

const EventType *FindType(WORD type) {
    const auto *found = std::find_if(std::begin(eventTypes), std::end(eventTypes),
                                     [type](const EventType &known) { return known.type == type; });
    return found == std::end(eventTypes) ? nullptr : found;
}

// The parts of an event beside its strings.
struct Event {
    WORD type;
    WORD category;
    DWORD id;
    std::string_view data;
};

std::string Joined(const std::vector<std::string> &strings) {
    std::string text;
    for (const std::string &string : strings) {
        if (!text.empty()) text += ' ';
        text += string;
    }
    return text;
}

LogEntry MakeEntry(const std::string &source, const Event &event, const EventType &type,
                   const std::vector<std::string> &strings) {
    const std::string id = std::to_string(event.id);
    LogEntry entry = {type.priority, source, strings.empty() ? "event " + id : Joined(strings), {}};
    entry.fields = {"TV_EVENT_ID=" + id, std::string("TV_EVENT_TYPE=") + type.name,
                    "TV_EVENT_CATEGORY=" + std::to_string(event.category)};
    for (std::size_t i = 0; i < strings.size(); ++i) {
        entry.fields.push_back("TV_EVENT_STRING_" + std::to_string(i + 1) + "=" + strings[i]);
    }
    if (!event.data.empty()) entry.fields.push_back("TV_EVENT_DATA=" + std::string(event.data));
    return entry;
}

DWORD Report(HANDLE log, const Event &event, const std::vector<std::string> &strings) {
    const ObjectRef source = FindObject(log, ObjectKind::eventSource);
    if (source == nullptr) return ERROR_INVALID_HANDLE;
    const EventType *type = FindType(event.type);
    if (type == nullptr) return ERROR_INVALID_PARAMETER;
    return WriteLogEntry(MakeEntry(source->name, event, *type, strings));
}

DWORD CopyString(LPCSTR string, std::string *copy) {
    *copy = string;
    return ERROR_SUCCESS;
}
DWORD CopyString(LPCWSTR string, std::string *copy) { return Narrow(string, copy); }

template <typename String>
DWORD CopyStrings(const String *strings, WORD count, std::vector<std::string> *copies) {
    if (count > mostStrings || (count != 0 && strings == nullptr)) return ERROR_INVALID_PARAMETER;
    for (WORD i = 0; i < count; ++i) {
        if (strings[i] == nullptr) return ERROR_INVALID_PARAMETER;
        if (const DWORD rc = CopyString(strings[i], &copies->emplace_back()); rc != 0) return rc;
    }
    return ERROR_SUCCESS;
}

// Both forms of ReportEvent.
template <typename String>
BOOL ReportStrings(HANDLE log, WORD type, WORD category, DWORD id, WORD count, DWORD dataSize, const String *strings,
                   LPVOID data) {
    return Answer(Guarded([&]() -> DWORD {
        if (dataSize != 0 && data == nullptr) return ERROR_INVALID_PARAMETER;
        std::vector<std::string> copies;
        if (const DWORD rc = CopyStrings(strings, count, &copies); rc != 0) return rc;
        return Report(log, {type, category, id, {static_cast<const char *>(data), dataSize}}, copies);
    }));
}

} // namespace

HANDLE RegisterEventSourceA(LPCSTR lpUNCServerName, LPCSTR lpSourceName) {
    HANDLE handle = nullptr;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpSourceName == nullptr || *lpSourceName == 0) return ERROR_INVALID_PARAMETER;
        if (lpUNCServerName != nullptr) return RPC_S_SERVER_UNAVAILABLE;
        const ObjectRef source = std::make_shared<Object>(ObjectKind::eventSource);
        source->name = lpSourceName;
        handle = OpenObject(LockObjects(), source);
        return ERROR_SUCCESS;
    }));
    return handle;
}

HANDLE RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName) {
    HANDLE handle = nullptr;
    (void)WithNarrow(lpSourceName, [&](const char *name) {
        handle = RegisterEventSourceA(lpUNCServerName == nullptr ? nullptr : "", name);
    });
    return handle;
}

BOOL DeregisterEventSource(HANDLE hEventLog) { return Answer(CloseObject(hEventLog, true)); }

BOOL ReportEventA(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID, LPVOID, WORD wNumStrings,
                  DWORD dwDataSize, LPCSTR *lpStrings, LPVOID lpRawData) {
    return ReportStrings(hEventLog, wType, wCategory, dwEventID, wNumStrings, dwDataSize, lpStrings, lpRawData);
}

BOOL ReportEventW(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID, LPVOID, WORD wNumStrings,
                  DWORD dwDataSize, LPCWSTR *lpStrings, LPVOID lpRawData) {
    return ReportStrings(hEventLog, wType, wCategory, dwEventID, wNumStrings, dwDataSize, lpStrings, lpRawData);
}
