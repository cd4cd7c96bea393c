// SPDX-License-Identifier: MIT
// message: assembling fragments however they come, the memory that takes, and the growing stream beside xdrmem.
#include "rpc/message.h"

#include "util/guard.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t megabyte = std::size_t{1} << 20;

std::string Header(std::uint32_t bytes, bool last) {
    const std::uint32_t word = htonl(bytes | (last ? 0x80000000 : 0));
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

std::string Fragment(const std::string &payload, bool last) {
    return Header(static_cast<std::uint32_t>(payload.size()), last) + payload;
}

// The text in fragments of at most fragmentBytes.
std::string InFragments(const std::string &text, std::size_t fragmentBytes) {
    std::string stream;
    std::size_t at = 0;
    do {
        const std::string piece = text.substr(at, fragmentBytes);
        at += piece.size();
        stream += Fragment(piece, at == text.size());
    } while (at < text.size());
    return stream;
}

std::string SomeText(std::size_t bytes) {
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i) {
        text[i] = static_cast<char>(i * 31 + i / 256);
    }
    return text;
}

struct Receiver {
    MessageInput input = {};
    std::vector<std::string> messages = {};
    std::size_t greatestCapacity = 0;
};

// Lets bytes arrive as a connection would take them, in pieces of at most pieceBytes, and takes every whole message.
// Returns the last state.
MessageState Arrive(Receiver *receiver, const std::string &stream, std::size_t pieceBytes,
                    std::size_t maxBytes = 64 * megabyte) {
    MessageInput *input = &receiver->input;
    MessageState state = MessageState::Incomplete;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t piece = std::min({pieceBytes, stream.size() - at, MakeRoom(input)});
        std::memcpy(input->bytes + input->received, stream.data() + at, piece);
        input->received += piece;
        at += piece;
        receiver->greatestCapacity = std::max(receiver->greatestCapacity, input->capacity);
        while ((state = AssembleMessage(input, maxBytes)) == MessageState::Whole) {
            receiver->messages.emplace_back(input->bytes + input->begin, input->end - input->begin);
            DropMessage(input);
            ReleaseIfEmpty(input);
        }
        if (state == MessageState::TooLong) break;
    }
    return state;
}

using InputGuard = std::unique_ptr<MessageInput, Calls<&ReleaseInput>>;
using OutputGuard = std::unique_ptr<MessageOutput, Calls<&ReleaseOutput>>;

} // namespace

TEST(AssembleMessage, any_fragmentation_in_any_pieces_gives_the_message) {
    const std::string text = SomeText(3001);
    for (const std::size_t fragmentBytes : {1, 2, 3, 4, 7, 100, 1500, 3000, 3001, 9999}) {
        for (const std::size_t pieceBytes : {1, 2, 3, 5, 4096, 100000}) {
            Receiver receiver;
            const InputGuard guard(&receiver.input);
            (void)Arrive(&receiver, InFragments(text, fragmentBytes), pieceBytes);
            ASSERT_EQ(receiver.messages.size(), 1U) << fragmentBytes << " in pieces of " << pieceBytes;
            EXPECT_TRUE(receiver.messages[0] == text) << fragmentBytes << " in pieces of " << pieceBytes;
        }
    }
}

TEST(AssembleMessage, empty_fragments_add_nothing) {
    const std::string stream = Fragment("", false) + Fragment("ab", false) + Fragment("", false) + Fragment("", false) +
                               Fragment("cd", false) + Fragment("", true);
    for (const std::size_t pieceBytes : {1, 4, 1000}) {
        Receiver receiver;
        const InputGuard guard(&receiver.input);
        (void)Arrive(&receiver, stream, pieceBytes);
        EXPECT_EQ(receiver.messages, std::vector<std::string>{"abcd"});
    }
}

TEST(AssembleMessage, a_single_empty_last_fragment_is_an_empty_message) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    (void)Arrive(&receiver, Fragment("", true) + Fragment("x", true), 1000);
    EXPECT_EQ(receiver.messages, (std::vector<std::string>{"", "x"}));
}

TEST(AssembleMessage, pipelined_messages_come_one_by_one_in_order) {
    std::string stream;
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < 300; ++i) {
        texts.push_back(SomeText(i * 7 % 1000));
        stream += InFragments(texts.back(), 1 + i);
    }
    for (const std::size_t pieceBytes : {1, 13, 4096, 1000000}) {
        Receiver receiver;
        const InputGuard guard(&receiver.input);
        (void)Arrive(&receiver, stream, pieceBytes);
        EXPECT_TRUE(receiver.messages == texts) << "pieces of " << pieceBytes;
        EXPECT_EQ(receiver.input.bytes, nullptr) << "memory is given back when nothing is left";
    }
}

TEST(DropMessage, keeps_the_memory_for_the_next_message) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    (void)Arrive(&receiver, Fragment("first", true).substr(0, 7), 100);
    char *bytes = receiver.input.bytes;
    std::memcpy(receiver.input.bytes + receiver.input.received, "st", 2);
    receiver.input.received += 2;
    ASSERT_EQ(AssembleMessage(&receiver.input, 100), MessageState::Whole);
    DropMessage(&receiver.input);
    EXPECT_EQ(receiver.input.bytes, bytes);
    EXPECT_EQ(receiver.input.received, 0U);
    EXPECT_GE(MakeRoom(&receiver.input), 4096U);
    EXPECT_EQ(receiver.input.bytes, bytes);
}

TEST(AssembleMessage, half_a_header_is_incomplete) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    EXPECT_EQ(Arrive(&receiver, std::string("\x80\0", 2), 10), MessageState::Incomplete);
    EXPECT_EQ(Arrive(&receiver, std::string("\0\x03", 2) + "abc", 10), MessageState::Incomplete);
    EXPECT_EQ(receiver.messages, std::vector<std::string>{"abc"});
}

TEST(AssembleMessage, the_bound_itself_fits_and_one_byte_more_is_too_long) {
    for (const std::size_t fragmentBytes : {1, 10, 1000}) {
        Receiver fits;
        const InputGuard guard(&fits.input);
        (void)Arrive(&fits, InFragments(SomeText(1000), fragmentBytes), 4096, 1000);
        EXPECT_EQ(fits.messages.size(), 1U);

        Receiver tooLong;
        const InputGuard otherGuard(&tooLong.input);
        EXPECT_EQ(Arrive(&tooLong, InFragments(SomeText(1001), fragmentBytes), 4096, 1000), MessageState::TooLong);
        EXPECT_TRUE(tooLong.messages.empty());
    }
}

TEST(AssembleMessage, a_declared_length_beyond_the_bound_is_refused_before_its_bytes_come) {
    for (const std::uint32_t declared : {1001U, 0x7FFFFFFFU}) {
        for (const bool last : {false, true}) {
            Receiver receiver;
            const InputGuard guard(&receiver.input);
            EXPECT_EQ(Arrive(&receiver, Header(declared, last), 4, 1000), MessageState::TooLong);
        }
    }
}

TEST(MakeRoom, memory_follows_what_arrived_not_what_was_declared) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    (void)Arrive(&receiver, Header(16 * megabyte, true) + SomeText(100), 10, 16 * megabyte);
    EXPECT_LE(receiver.greatestCapacity, 8192U);
    (void)Arrive(&receiver, SomeText(megabyte), 4096, 16 * megabyte);
    EXPECT_LE(receiver.greatestCapacity, 4 * megabyte);
}

TEST(MakeRoom, endless_empty_fragments_take_no_memory) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    std::string stream;
    for (int i = 0; i < 100000; ++i) {
        stream += Fragment("", false);
    }
    EXPECT_EQ(Arrive(&receiver, stream, 4096), MessageState::Incomplete);
    EXPECT_LE(receiver.greatestCapacity, 16384U);
}

TEST(MakeRoom, long_pipelines_take_no_more_memory_than_one_message) {
    Receiver receiver;
    const InputGuard guard(&receiver.input);
    std::string stream;
    for (int i = 0; i < 20000; ++i) {
        stream += Fragment(SomeText(40), true);
    }
    (void)Arrive(&receiver, stream, 1000);
    EXPECT_EQ(receiver.messages.size(), 20000U);
    EXPECT_LE(receiver.greatestCapacity, 16384U);
}

// Symptom: a peer that had sent megabytes of a request and then one empty fragment at a time made the server move those
// megabytes once for each four bytes. Cause: the buffer was compacted whenever fewer than 4 KiB were free, however
// little that gained.
TEST(MakeRoom, small_gains_do_not_move_a_large_payload_again_and_again) {
    for (std::size_t spare = 4000; spare <= 4200; spare += 20) {
        Receiver receiver;
        const InputGuard guard(&receiver.input);
        std::size_t payload = 8 * megabyte - spare;
        (void)Arrive(&receiver, Header(static_cast<std::uint32_t>(payload), false) + SomeText(payload), megabyte);
        int moves = 0;
        for (int i = 0; i < 100; ++i) {
            const std::size_t received = receiver.input.received;
            (void)Arrive(&receiver, Fragment("", false), 4);
            moves += receiver.input.received < received + 4 ? 1 : 0;
        }
        ASSERT_LE(moves, 1) << "with " << spare << " bytes free";
    }
}

// --- the growing stream ---

namespace {

bool_t CodeMixture(XDR *xdrs) {
    bool_t coded = TRUE;
    for (int i = 0; i < 1000; ++i) {
        char text[] = "some text";
        char *at = text;
        int number = i * 7919;
        u_short small = static_cast<u_short>(i);
        bool_t flag = i % 2;
        char opaque[13] = "opaque bytes";
        coded = coded && xdr_int(xdrs, &number) && xdr_string(xdrs, &at, 100) && xdr_u_short(xdrs, &small) &&
                xdr_bool(xdrs, &flag) && xdr_opaque(xdrs, opaque, static_cast<u_int>(i % 13));
    }
    return coded;
}

} // namespace

TEST(MessageOutput, writes_the_bytes_that_xdrmem_writes) {
    std::string expected(megabyte, '\0');
    XDR memory;
    xdrmem_create(&memory, expected.data(), static_cast<u_int>(expected.size()), XDR_ENCODE);
    ASSERT_TRUE(CodeMixture(&memory));
    expected.resize(xdr_getpos(&memory));

    MessageOutput output = {};
    const OutputGuard guard(&output);
    XDR xdrs;
    ASSERT_TRUE(BeginMessage(&output, &xdrs));
    ASSERT_TRUE(CodeMixture(&xdrs));
    EXPECT_EQ(xdr_getpos(&xdrs), expected.size());
    ASSERT_TRUE(FinishMessage(&output));
    EXPECT_TRUE(std::string(output.bytes, output.size) == Fragment(expected, true));
}

TEST(MessageOutput, a_second_message_uses_the_same_memory) {
    MessageOutput output = {};
    const OutputGuard guard(&output);
    XDR xdrs;
    ASSERT_TRUE(BeginMessage(&output, &xdrs) && CodeMixture(&xdrs) && FinishMessage(&output));
    const char *bytes = output.bytes;
    ASSERT_TRUE(BeginMessage(&output, &xdrs) && CodeMixture(&xdrs) && FinishMessage(&output));
    EXPECT_EQ(output.bytes, bytes);
}

TEST(MessageOutput, an_inline_stretch_is_written_like_any_other) {
    MessageOutput output = {};
    const OutputGuard guard(&output);
    XDR xdrs;
    ASSERT_TRUE(BeginMessage(&output, &xdrs));
    std::int32_t *words = XDR_INLINE(&xdrs, 8);
    ASSERT_NE(words, nullptr);
    IXDR_PUT_INT32(words, 1);
    IXDR_PUT_INT32(words, 2);
    ASSERT_TRUE(FinishMessage(&output));
    EXPECT_EQ(std::string(output.bytes, output.size), Fragment(std::string("\0\0\0\1\0\0\0\2", 8), true));
}

TEST(MessageOutput, the_position_can_be_taken_back_but_not_beyond_the_end) {
    MessageOutput output = {};
    const OutputGuard guard(&output);
    XDR xdrs;
    ASSERT_TRUE(BeginMessage(&output, &xdrs));
    int number = 5;
    ASSERT_TRUE(xdr_int(&xdrs, &number) && xdr_int(&xdrs, &number));
    EXPECT_FALSE(xdr_setpos(&xdrs, 9));
    ASSERT_TRUE(xdr_setpos(&xdrs, 4));
    ASSERT_TRUE(FinishMessage(&output));
    EXPECT_EQ(std::string(output.bytes, output.size), Fragment(std::string("\0\0\0\5", 4), true));
}

TEST(MessageOutput, decoding_from_it_fails) {
    MessageOutput output = {};
    const OutputGuard guard(&output);
    XDR xdrs;
    ASSERT_TRUE(BeginMessage(&output, &xdrs));
    long word = 0;
    char bytes[4];
    EXPECT_FALSE(XDR_GETLONG(&xdrs, &word));
    EXPECT_FALSE(XDR_GETBYTES(&xdrs, bytes, 4));
}

TEST(FinishMessage, nothing_begun_is_no_message) {
    MessageOutput output = {};
    EXPECT_FALSE(FinishMessage(&output));
}
