// SPDX-License-Identifier: MIT
// Fuzz target over the codecs of every record: no bytes may crash them or make them take memory that has not arrived;
// what decodes encodes to bytes that decode to the same; what does not decode leaves nothing behind (registry records:
// nothing that their own routine does not release).
//
// Input: one byte that chooses the record, then the record's bytes.
#include "tests/support/wire.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace {

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

template <typename Record, bool releasesItself>
void TryRecord(std::string_view bytes) {
    Record record = {};
    std::size_t used = 0;
    if (!DecodeRecord(bytes, record, &used)) {
        if (!releasesItself) FreeRecord(&record); // the leak checker tells what the others have left
        return;
    }
    Require(used <= bytes.size() && used % 4 == 0, "whole words of the input are used");
    const std::string encoded = EncodeRecord(record, bytes.size() + 64);
    FreeRecord(&record);
    Require(!encoded.empty() && encoded.size() <= used, "no more bytes than were used"); // a text ends at its first NUL
    Record again = {};
    Require(DecodeRecord(encoded, again), "what was encoded decodes");
    Require(EncodeRecord(again, bytes.size() + 64) == encoded, "and encodes to the same");
    FreeRecord(&again);
}

constexpr void (*tries[])(std::string_view) = {
#define TV_RECORD(Record) TryRecord<Record, true>,
    SERVD_RECORDS SERVICE_RECORDS
#undef TV_RECORD
#define TV_RECORD(Record) TryRecord<Record, false>,
        REGD_RECORDS
#undef TV_RECORD
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    tries[data[0] % std::size(tries)](std::string_view(reinterpret_cast<const char *>(data + 1), size - 1));
    return 0;
}
