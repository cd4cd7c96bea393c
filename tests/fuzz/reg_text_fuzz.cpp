// SPDX-License-Identifier: MIT
// Fuzz target over .reg text: no input may crash the reader; what it reads, the writer writes so that reading gives it
// back; what it refuses leaves nothing and names a line of the input.
#include "tvreg/reg_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

bool AreSame(const std::vector<RegKey> &a, const std::vector<RegKey> &b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const RegKey &x, const RegKey &y) {
        return KeyPathText(x.key) == KeyPathText(y.key) && x.isDeleted == y.isDeleted && x.values == y.values;
    });
}

void WriteAndReadAgain(const std::vector<RegKey> &keys, RegDialect dialect) {
    std::string text, culprit;
    std::vector<RegKey> again;
    if (!WriteRegText(keys, dialect, &text, &culprit)) return Require(!culprit.empty(), "the culprit is named");
    Require(ReadRegText(text, &again).empty(), "what was written can be read");
    Require(AreSame(keys, again), "reading gives back what was written");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    std::vector<RegKey> keys;
    const auto errors = ReadRegText(input, &keys);
    for (const RegTextError &error : errors) {
        Require(keys.empty() && !error.text.empty(), "a refusal has a reason and leaves nothing");
        Require(error.line >= 1 && error.line <= 1 + std::count(input.begin(), input.end(), '\n'),
                "the line is one of the input");
    }
    Require(errors.size() <= mostRegTextErrors, "refusals come to an end");
    if (!errors.empty()) (void)ReadRegText(input, &keys, {.isLenient = true}); // what can be read is whole, too
    WriteAndReadAgain(keys, RegDialect::regedit4);
    WriteAndReadAgain(keys, RegDialect::version5);
    return 0;
}
