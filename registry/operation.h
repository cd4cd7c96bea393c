// SPDX-License-Identifier: MIT
// operation: what every operation on a key has in common: find the connection, send one request, read one reply.
//
// An operation checks its caller's pointers, fills in its own fields of the argument record, and says what to store
// from the reply. Encoding only reads a record, so its strings are borrowed from the caller.
#pragma once

#include "registry/connection.h"
#include "registry/operations.h"
#include "registry/regd_clnt.h"
#include "tv/winerror.h"

#include <algorithm>
#include <cstring>

inline bool IsGiven(const char *name) { return name != nullptr && name[0] != '\0'; }

// A name that the daemon cannot do without. Beside it travels a flag that tells a placeholder from a name.
inline char *NameOrPlaceholder(const char *name) { return Borrowed(IsGiven(name) ? name : "SubKeyIsNull"); }
inline std::uint16_t IsNullFlag(const char *name) { return IsGiven(name) ? 0 : 1; }

inline std::uint16_t NullPointerFlag(const void *pointer) { return pointer != nullptr ? 0 : 1; }

// A size that the caller may have left out.
inline DWORD SizeOrZero(const DWORD *size) { return size != nullptr ? *size : 0; }

inline void StoreIfGiven(DWORD *to, DWORD value) {
    if (to != nullptr) *to = value;
}

inline void StoreIfGiven(FILETIME *to, const regd_FILETIME &time) {
    if (to != nullptr) *to = {time.low, time.high};
}

// Copies as many of a reply's bytes as there is room for.
inline void CopyBytes(void *to, DWORD room, const CountedBytes &data) {
    if (data.count != 0) std::memcpy(to, data.bytes, std::min(room, data.count));
}

// --- requests that are made in two ways: one by one, and many on their way at once (pipeline.h) ---

inline regd_REG_OPEN_KEY_EX OpenKeyRequest(const char *subKey, DWORD options) {
    return {.subKey = NameOrPlaceholder(subKey), .options = options, .subKeyIsNull = IsNullFlag(subKey)};
}

inline regd_REG_QUERY_VALUE_EX QueryValueRequest(const char *name, const void *data, DWORD room) {
    return {.valueName = NameOrPlaceholder(name),
            .dataBytes = room,
            .nameIsNull = IsNullFlag(name),
            .dataIsNull = NullPointerFlag(data)};
}

// Deliberate: a value longer than the buffer is cut even though the status stays what the daemon says.
inline void StoreQueriedValue(const regd_REG_QUERY_VALUE_RETURN &reply, BYTE *data, DWORD room, DWORD *type,
                              DWORD *dataBytes) {
    if (reply.status == ERROR_SUCCESS && data != nullptr) {
        std::memset(data, 0, room);
        CopyBytes(data, room, reply.data);
    }
    StoreIfGiven(dataBytes, reply.dataBytes);
    StoreIfGiven(type, reply.type);
}

// An empty class is a class.
inline regd_REG_CREATE_KEY_EX CreateKeyRequest(const char *subKey, const char *keyClass, DWORD options) {
    return {.subKey = NameOrPlaceholder(subKey),
            .keyClass = Borrowed(keyClass != nullptr ? keyClass : "classIsNull"),
            .options = options,
            .subKeyIsNull = IsNullFlag(subKey),
            .classIsNull = NullPointerFlag(keyClass)};
}

// No data travel as a placeholder of 11 bytes; the size beside it says 0.
inline regd_REG_SET_VALUE_EX SetValueRequest(const char *name, DWORD type, const BYTE *data, DWORD bytes) {
    static const char noData[] = "ValueIsNull";
    return {.valueName = NameOrPlaceholder(name),
            .type = type,
            .data = bytes != 0 ? CountedBytes{bytes, Borrowed(reinterpret_cast<const char *>(data))}
                               : CountedBytes{sizeof noData - 1, Borrowed(noData)},
            .dataBytes = bytes,
            .nameIsNull = IsNullFlag(name)};
}

// An empty name is sent as it is.
inline regd_REG_DELETE_VALUE DeleteValueRequest(const char *name) {
    return {.valueName = Borrowed(name != nullptr ? name : "valueIsNull"), .nameIsNull = NullPointerFlag(name)};
}

// Sends an argument record to the daemon that a key belongs to, after filling in identity and key.
//   stub       the client stub
//   argument   the operation's own fields
//   store      takes the reply's body and the number of the connection, stores the outputs and returns the status; the
//              reply is released afterwards
// Returns 1016 without connection or reply; store is not called then.
template <typename Argument, typename Result, typename Store>
LONG AskDaemon(Result *(*stub)(Argument *, CLIENT *), HKEY key, Argument argument, Store store) {
    int clientNum = 0;
    CLIENT *client = tvConnectRegistryDaemon(nullptr, &key, &clientNum);
    if (client == nullptr) return ERROR_REGISTRY_IO_FAILED;
    argument.user = g_userData;
    argument.key = key;
    Result *reply = stub(&argument, client);
    if (reply == nullptr) {
        DropConnectionIfBroken(clientNum);
        return ERROR_REGISTRY_IO_FAILED;
    }
    const DWORD status = store(reply->body, clientNum);
    FreeRecord(reply);
    return static_cast<LONG>(status);
}

// The same for a request whose reply is a status and nothing more.
template <typename Argument>
LONG AskForStatus(regd_BASIC_RES *(*stub)(Argument *, CLIENT *), HKEY key, Argument argument) {
    return AskDaemon(stub, key, argument, [](const regd_BASIC_RETURN &reply, int) { return reply.status; });
}
