// SPDX-License-Identifier: MIT
// Fuzz target over what the service API takes from the answer to an enumeration: whatever the bytes, and wherever they
// stand in memory, it takes what the routine of the whole record does, and reads nothing beside them.
//
// Input: one byte for the place, so many bytes behind a word's boundary; then the answer.
#include "tests/support/enumeration_answer.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data + 1), size - 1);
    if (TakenByApi(bytes, data[0] % 4) == TakenAsRecord(bytes)) return 0;
    std::fprintf(stderr, "does not hold: the service API takes what the routine takes\n");
    std::abort();
}
