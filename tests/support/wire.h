// SPDX-License-Identifier: MIT
// wire: XDR bytes written by hand, and records coded from and to memory.
#pragma once

#include "tests/support/records.h"
#include "tests/support/xdr_bytes.h"

#include <memory>
#include <string>
#include <string_view>

// A count word and one integer for each character.
inline std::string CountedChars(std::string_view chars) {
    std::string bytes = Words({static_cast<std::uint32_t>(chars.size())});
    for (const char c : chars) {
        bytes += Words({static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(c)))});
    }
    return bytes;
}

// The bytes of a record; nothing when it does not encode.
template <typename Record>
std::string EncodeRecord(Record &record, std::size_t roomBytes = std::size_t{1} << 20) {
    const std::unique_ptr<char[]> room(new char[roomBytes]);
    XDR xdrs = {};
    xdrmem_create(&xdrs, room.get(), static_cast<u_int>(roomBytes), XDR_ENCODE);
    if (!routineOf<Record>(&xdrs, &record)) return {};
    return {room.get(), XDR_GETPOS(&xdrs)};
}

// Decodes a record from the front of the bytes. Returns the routine's answer; *used: the bytes it took.
template <typename Record>
bool DecodeRecord(std::string_view bytes, Record &record, std::size_t *used = nullptr) {
    XDR xdrs = {};
    xdrmem_create(&xdrs, const_cast<char *>(bytes.data()), static_cast<u_int>(bytes.size()), XDR_DECODE);
    const bool decoded = routineOf<Record>(&xdrs, &record) != FALSE;
    if (used != nullptr) *used = XDR_GETPOS(&xdrs);
    return decoded;
}
