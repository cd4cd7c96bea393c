// SPDX-License-Identifier: MIT
// codec: how each kind of field of our protocols travels in XDR (RFC 4506), one overload a kind.
//
// What is made of fields is in record.h. All overloads work in all three directions of an XDR stream:
//   encode   a null string or an empty counted field travels with length 0; nothing is allocated;
//   decode   pointers must be null on entry; memory comes from malloc and is taken as bytes arrive, in steps, never on
//            the strength of a length that the peer only declared; count and pointer are set together;
//   free     pointers are released with free() and set to null, counts to 0.
// Thread: reentrant.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <type_traits>

// Characters as an XDR array of char: a count, then one 4-byte XDR integer for each character (sign-extended).
struct CharArray {
    std::uint32_t count;
    char *chars; // count characters, no terminator added; null when count is 0
};

// Bytes as XDR variable-length opaque: a count, the bytes, padding to a multiple of 4.
struct CountedBytes {
    std::uint32_t count;
    char *bytes; // null when count is 0
};

// A text as a field of a record that is only encoded: encoding reads through pointers and never writes.
inline char *Borrowed(const char *text) { return const_cast<char *>(text); }

// A 4-byte XDR integer in either sense of the sign. Never through xdr_u_long or xdr_long: those touch eight bytes of
// memory where long is 64 bits.
inline bool_t CodeField(XDR *xdrs, std::uint32_t &value) {
    long word = static_cast<long>(value);
    if (xdrs->x_op == XDR_ENCODE) return XDR_PUTLONG(xdrs, &word);
    if (xdrs->x_op == XDR_FREE) return TRUE;
    if (!XDR_GETLONG(xdrs, &word)) return FALSE;
    value = static_cast<std::uint32_t>(word);
    return TRUE;
}

inline bool_t CodeField(XDR *xdrs, std::int32_t &value) {
    std::uint32_t word = static_cast<std::uint32_t>(value);
    const bool_t coded = CodeField(xdrs, word);
    value = static_cast<std::int32_t>(word);
    return coded;
}

// A 16-bit value in one 4-byte XDR unit; the upper half is dropped on decoding.
inline bool_t CodeField(XDR *xdrs, std::uint16_t &value) {
    std::uint32_t word = value;
    const bool_t coded = CodeField(xdrs, word);
    value = static_cast<std::uint16_t>(word);
    return coded;
}

bool_t CodeField(XDR *xdrs, char *&text); // an unbounded XDR string
bool_t CodeField(XDR *xdrs, CharArray &array);
bool_t CodeField(XDR *xdrs, CountedBytes &bytes);

template <typename Field>
inline constexpr bool isWord = std::is_same_v<Field, std::int32_t> || std::is_same_v<Field, std::uint32_t>;

// A row of words, in place where the stream has them in one piece. False when it has not: nothing is coded then.
template <typename... Words>
bool CodeWordsInPlace(XDR *xdrs, Words &...words) {
    std::int32_t *at = XDR_INLINE(xdrs, static_cast<u_int>(sizeof...(Words) * BYTES_PER_XDR_UNIT));
    if (at == nullptr) return false;
    if (xdrs->x_op == XDR_ENCODE) {
        ((*at++ = static_cast<std::int32_t>(htonl(static_cast<std::uint32_t>(words)))), ...);
    } else {
        ((words = static_cast<Words>(ntohl(static_cast<std::uint32_t>(*at++)))), ...);
    }
    return true;
}

// Codes fields in the order given and stops at the first that fails. After a failed decode the fields before it hold
// what was decoded; freeing the record releases them.
template <typename... Field>
bool_t CodeFields(XDR *xdrs, Field &...fields) {
    if constexpr (sizeof...(Field) > 1 && (isWord<Field> && ...)) {
        if (xdrs->x_op == XDR_FREE || CodeWordsInPlace(xdrs, fields...)) return TRUE;
    }
    return (CodeField(xdrs, fields) && ...) ? TRUE : FALSE;
}
