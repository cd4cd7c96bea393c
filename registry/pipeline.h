// SPDX-License-Identifier: MIT
// pipeline: many requests on their way to a registry daemon at once, for the programs around it.
//
// One request after the other costs a way there and back each, and a daemon that shares a commit among the writes that
// are ready finds one. The requests stand in the order of the array, and reach a daemon in that order.
#pragma once

#include "tv/winreg.h"

#include <cstddef>

struct RegistryWrite {
    enum Kind { createKey, setValue, deleteValue, closeKey };

    Kind kind;
    HKEY key;         // createKey: the one above
    const char *name; // createKey: a path below it; else of the value; null: closeKey; borrowed
    DWORD type;       // setValue, like the next two
    const BYTE *data; // borrowed
    DWORD dataBytes;
    LONG code;    // afterwards: the daemon's
    HKEY created; // afterwards, for createKey
};

struct RegistryRead {
    enum Kind { openKey, enumKey, queryValue, closeKey };

    Kind kind;
    HKEY key;         // openKey, enumKey: the one above
    const char *name; // openKey: a path below it; queryValue: of the value; else null; borrowed
    DWORD index;      // enumKey: of the key below
    BYTE *data;      // the caller's room; queryValue: filled as RegQueryValueExA does; enumKey: for the name and a zero
    DWORD dataBytes; // room; afterwards the size of the value, the length of the name
    DWORD type;      // afterwards, for queryValue
    LONG code;       // afterwards: the daemon's
    HKEY opened;     // afterwards, for openKey
};

// With nothing to read into and no answer yet.
inline RegistryRead NewRead(RegistryRead::Kind kind, HKEY key, const char *name = nullptr) {
    return {.kind = kind,
            .key = key,
            .name = name,
            .index = 0,
            .data = nullptr,
            .dataBytes = 0,
            .type = 0,
            .code = 0,
            .opened = 0};
}

// Send all of them over the connection of the first key, which all of them belong to. Return how many were answered,
// counted from the first one: fewer than all when there is no connection or when it breaks, also under a daemon that
// cannot take several requests at once; whether one of the rest was done is not known then, and the next call, one by
// one, connects anew. None is sent where other operations stand in the table (operations.h). Block; take the registry's
// mutex.
[[nodiscard]] std::size_t WriteTogether(RegistryWrite *writes, std::size_t count);
[[nodiscard]] std::size_t ReadTogether(RegistryRead *reads, std::size_t count);

// The same reads one after the other, through the table: for what does not answer them together. From one that brings
// no answer on (1016) none is asked, and all have its code. Blocks; takes the registry's mutex.
void ReadInTurn(RegistryRead *reads, std::size_t count);
