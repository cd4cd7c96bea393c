// SPDX-License-Identifier: MIT
// codec: the fields whose length the peer declares: strings, character arrays, counted bytes.
//
// Decoding grows a buffer in doubling steps and reads each step before it takes the next, so that a declared length
// costs at most twice the bytes that really came.
#include "rpc/codec.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint32_t firstStepBytes = 4096;
constexpr std::uint32_t unitBytes = 4; // BYTES_PER_XDR_UNIT, unsigned
constexpr std::uint32_t blockChars = 256;
const char zeros[unitBytes] = {};

std::uint32_t PaddingOf(std::uint32_t bytes) { return (unitBytes - bytes % unitBytes) % unitBytes; }

// Reads `count` elements of one byte each with `read(destination, count)`, growing the buffer as they come. Returns
// malloc memory of count + 1 bytes, the last of them zero; null when the stream ends first or memory does.
template <typename Read>
char *ReadInSteps(std::uint32_t count, Read read) {
    char *buffer = nullptr;
    std::uint32_t have = 0;
    do {
        const std::uint32_t step = std::min(count - have, std::max(have, firstStepBytes));
        char *grown = static_cast<char *>(std::realloc(buffer, std::size_t{have} + step + 1));
        if (grown == nullptr || !read(grown + have, step)) {
            std::free(grown != nullptr ? grown : buffer);
            return nullptr;
        }
        buffer = grown;
        have += step;
    } while (have < count);
    buffer[have] = '\0';
    return buffer;
}

// A count and its bytes, in place where the stream has room for them in one piece.
bool_t PutCounted(XDR *xdrs, const char *bytes, std::uint32_t count) {
    const std::uint32_t padding = PaddingOf(count);
    if (count <= firstStepBytes) {
        std::int32_t *at = XDR_INLINE(xdrs, unitBytes + count + padding);
        if (at != nullptr) {
            *at = static_cast<std::int32_t>(htonl(count));
            char *to = reinterpret_cast<char *>(at + 1);
            std::memcpy(to, bytes, count);
            std::memset(to + count, 0, padding);
            return TRUE;
        }
    }
    return CodeField(xdrs, count) && XDR_PUTBYTES(xdrs, bytes, count) && XDR_PUTBYTES(xdrs, zeros, padding);
}

// The bytes behind a count. Returns as ReadInSteps.
char *GetCounted(XDR *xdrs, std::uint32_t count) {
    const std::uint32_t padding = PaddingOf(count);
    const std::int32_t *at = count <= firstStepBytes ? XDR_INLINE(xdrs, count + padding) : nullptr;
    if (at != nullptr) {
        char *bytes = static_cast<char *>(std::malloc(std::size_t{count} + 1));
        if (bytes == nullptr) return nullptr;
        std::memcpy(bytes, at, count);
        bytes[count] = '\0';
        return bytes;
    }
    char *bytes = ReadInSteps(count, [xdrs](char *to, std::uint32_t step) { return XDR_GETBYTES(xdrs, to, step); });
    char ignored[unitBytes];
    if (bytes != nullptr && !XDR_GETBYTES(xdrs, ignored, padding)) {
        std::free(bytes);
        return nullptr;
    }
    return bytes;
}

// One block of characters as XDR integers. As xdr_char has it, a character travels as a signed int.
bool_t PutChars(XDR *xdrs, const char *chars, std::uint32_t count) {
    std::uint32_t block[blockChars];
    for (std::uint32_t i = 0; i < count; ++i) {
        block[i] = htonl(static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(chars[i]))));
    }
    return XDR_PUTBYTES(xdrs, reinterpret_cast<const char *>(block), count * unitBytes);
}

bool_t GetChars(XDR *xdrs, char *chars, std::uint32_t count) {
    std::uint32_t block[blockChars];
    if (!XDR_GETBYTES(xdrs, reinterpret_cast<char *>(block), count * unitBytes)) return FALSE;
    for (std::uint32_t i = 0; i < count; ++i) {
        chars[i] = static_cast<char>(ntohl(block[i]));
    }
    return TRUE;
}

template <typename Block>
bool_t InBlocks(char *chars, std::uint32_t count, Block block) {
    for (std::uint32_t done = 0; done < count; done += blockChars) {
        if (!block(chars + done, std::min(blockChars, count - done))) return FALSE;
    }
    return TRUE;
}

} // namespace

bool_t CodeField(XDR *xdrs, char *&text) {
    if (xdrs->x_op == XDR_FREE) {
        std::free(text);
        text = nullptr;
        return TRUE;
    }
    if (xdrs->x_op == XDR_ENCODE) {
        const char *bytes = text != nullptr ? text : "";
        return PutCounted(xdrs, bytes, static_cast<std::uint32_t>(std::strlen(bytes)));
    }
    std::uint32_t count = 0;
    if (!CodeField(xdrs, count)) return FALSE;
    text = GetCounted(xdrs, count);
    return text != nullptr ? TRUE : FALSE;
}

bool_t CodeField(XDR *xdrs, CountedBytes &field) {
    if (xdrs->x_op == XDR_FREE) {
        std::free(field.bytes);
        field = {};
        return TRUE;
    }
    if (xdrs->x_op == XDR_ENCODE) return PutCounted(xdrs, field.count != 0 ? field.bytes : "", field.count);
    std::uint32_t count = 0;
    if (!CodeField(xdrs, count)) return FALSE;
    if (count == 0) return TRUE;
    field.bytes = GetCounted(xdrs, count);
    if (field.bytes != nullptr) field.count = count;
    return field.bytes != nullptr ? TRUE : FALSE;
}

bool_t CodeField(XDR *xdrs, CharArray &field) {
    if (xdrs->x_op == XDR_FREE) {
        std::free(field.chars);
        field = {};
        return TRUE;
    }
    std::uint32_t count = field.count;
    if (!CodeField(xdrs, count)) return FALSE;
    if (count == 0) return TRUE;
    if (xdrs->x_op == XDR_ENCODE) {
        return InBlocks(field.chars, count, [xdrs](char *at, std::uint32_t n) { return PutChars(xdrs, at, n); });
    }
    field.chars = ReadInSteps(count, [xdrs](char *to, std::uint32_t step) {
        return InBlocks(to, step, [xdrs](char *at, std::uint32_t n) { return GetChars(xdrs, at, n); });
    });
    if (field.chars != nullptr) field.count = count;
    return field.chars != nullptr ? TRUE : FALSE;
}
