// SPDX-License-Identifier: MIT
// servd_xdr: the routines of the service daemon's records.
//
// Each record is coded whole or not at all (CodeWhole): after a failed decode nothing is left to release, so that the
// dispatcher can answer and return at once.
#include "servd/servd_xdr.h"

#include <cstring>

namespace {

using Listed = svd_enum_status_list_t;

constexpr std::size_t longestInPlace = 4096; // of both names together

std::size_t WordsOf(std::size_t bytes) { return (bytes + BYTES_PER_XDR_UNIT - 1) / BYTES_PER_XDR_UNIT; }

std::uint32_t *PutWord(std::uint32_t *at, std::uint32_t word) {
    *at = htonl(word);
    return at + 1;
}

// The zeros that fill the last word up stand there first.
std::uint32_t *PutText(std::uint32_t *at, std::string_view text) {
    at = PutWord(at, static_cast<std::uint32_t>(text.size()));
    const std::size_t words = WordsOf(text.size());
    if (words == 0) return at;
    at[words - 1] = 0;
    std::memcpy(at, text.data(), text.size());
    return at + words;
}

std::string_view ViewOf(const char *text) { return text != nullptr ? text : std::string_view(); }

// A link with the word before it. False where the stream has no such stretch: nothing is encoded then.
bool EncodeInPlace(XDR *xdrs, const Listed &link) {
    const std::string_view name = ViewOf(link.name);
    const std::string_view displayName = ViewOf(link.displayName);
    if (name.size() > longestInPlace || displayName.size() > longestInPlace - name.size()) return false;
    const std::size_t words = ListedNameWords(name.size(), displayName.size()) + listedStatusWords;
    const std::size_t bytes = words * BYTES_PER_XDR_UNIT;
    auto *at = reinterpret_cast<std::uint32_t *>(XDR_INLINE(xdrs, static_cast<u_int>(bytes)));
    if (at == nullptr) return false;
    (void)PutListedStatus(PutListedNames(at, name, displayName), link.status);
    return true;
}

bool_t Encode(XDR *xdrs, Listed *link) {
    for (; link != nullptr; link = link->next) {
        std::uint32_t more = 1;
        if (EncodeInPlace(xdrs, *link)) continue;
        if (!CodeField(xdrs, more) || !CodeField(xdrs, *link)) return FALSE;
    }
    std::uint32_t end = 0;
    return CodeField(xdrs, end);
}

} // namespace

std::size_t ListedNameWords(std::size_t nameBytes, std::size_t displayNameBytes) {
    constexpr std::size_t otherWords = 1 + 2; // there is a link, two lengths
    return otherWords + WordsOf(nameBytes) + WordsOf(displayNameBytes);
}

std::uint32_t *PutListedNames(std::uint32_t *at, std::string_view name, std::string_view displayName) {
    return PutText(PutText(PutWord(at, 1), name), displayName);
}

bool_t xdr_EncodedEnumeration(XDR *xdrs, EncodedEnumeration *record) {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN &words = record->words;
    if (xdrs->x_op != XDR_ENCODE ||
        !CodeFields(xdrs, words.status, words.bytesNeeded, words.servicesReturned, words.resumeIndex)) {
        return FALSE;
    }
    if (record->serviceBytes != 0 && !XDR_PUTBYTES(xdrs, record->services, static_cast<u_int>(record->serviceBytes))) {
        return FALSE;
    }
    return CodeField(xdrs, words.services); // the end
}

bool_t CodeField(XDR *xdrs, svd_enum_status_list_t *&head) {
    return xdrs->x_op == XDR_ENCODE ? Encode(xdrs, head) : CodeField<svd_enum_status_list_t>(xdrs, head);
}

#define ROUTINE(Record)                                                                                                \
    bool_t xdr_##Record(XDR *xdrs, Record *record) { return CodeWhole(xdrs, *record); }
#define ROUTINES(number, name, handler, Record) ROUTINE(Record) ROUTINE(Record##_RETURN)

ROUTINE(svd_arglist_t)
ROUTINE(svd_status_t)
ROUTINE(svd_enum_status_list_t)
SERVD_PROCEDURES(ROUTINES)
