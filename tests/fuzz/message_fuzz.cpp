// SPDX-License-Identifier: MIT
// Fuzz target over the assembly of messages: however a stream of fragments is cut into pieces as it arrives, the same
// messages come out as from reading it in one go, and not one byte more is waited for.
//
// Input: one byte that seeds the sizes of the pieces, then the stream.
#include "rpc/message.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t maxBytes = 300;

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

struct Outcome {
    std::vector<std::string> messages;
    bool tooLong;

    bool operator==(const Outcome &) const = default;
};

// The plain way: header after header over the whole stream.
Outcome ReadWhole(std::string_view stream) {
    Outcome outcome = {};
    std::string message;
    while (stream.size() >= 4) {
        std::uint32_t header;
        std::memcpy(&header, stream.data(), sizeof header);
        header = ntohl(header);
        stream.remove_prefix(4);
        const std::size_t length = header & 0x7FFFFFFF;
        if (message.size() + length > maxBytes) {
            outcome.tooLong = true;
            return outcome;
        }
        if (length > stream.size()) return outcome;
        message += stream.substr(0, length);
        stream.remove_prefix(length);
        if ((header & 0x80000000) != 0) {
            outcome.messages.push_back(message);
            message.clear();
        }
    }
    return outcome;
}

Outcome ReadInPieces(std::string_view stream, unsigned seed) {
    std::minstd_rand random(seed + 1);
    Outcome outcome = {};
    MessageInput input = {};
    while (!stream.empty() && !outcome.tooLong) {
        const std::size_t room = MakeRoom(&input);
        Require(room >= 1, "there is room for more");
        const std::size_t piece = std::min({room, stream.size(), std::size_t{1} + random() % 64});
        std::memcpy(input.bytes + input.received, stream.data(), piece);
        input.received += piece;
        stream.remove_prefix(piece);
        MessageState state;
        while ((state = AssembleMessage(&input, maxBytes)) == MessageState::Whole) {
            outcome.messages.emplace_back(input.bytes + input.begin, input.end - input.begin);
            DropMessage(&input);
        }
        outcome.tooLong = state == MessageState::TooLong;
    }
    ReleaseInput(&input);
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view stream(reinterpret_cast<const char *>(data + 1), size - 1);
    Require(ReadInPieces(stream, data[0]) == ReadWhole(stream), "pieces make no difference");
    return 0;
}
