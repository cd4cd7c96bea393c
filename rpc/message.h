// SPDX-License-Identifier: MIT
// message: RPC messages on a byte stream, in both directions (record marking, RFC 5531 section 11).
//
// On the wire a message is one or more fragments, each behind a 4-byte header: the top bit marks the last fragment, the
// other 31 bits are the fragment's length in bytes.
// Thread: reentrant; a record belongs to one connection.
#pragma once

#include <rpc/rpc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

// Bytes received from one peer, and the message that is being assembled from them, in place: payload is moved down
// over the fragment headers between, each byte at most once. A zeroed record is ready for use.
struct MessageInput {
    char *bytes;          // malloc memory; null while nothing is held
    std::size_t capacity; // bytes allocated
    std::size_t received; // bytes received
    std::size_t parsed;   // bytes looked at
    std::size_t begin;    // the message's payload so far: [begin, end)
    std::size_t end;
    std::uint32_t fragmentLeft; // bytes of the present fragment still to come
    bool inMessage;
    bool lastFragment;
};

enum class MessageState { Incomplete, Whole, TooLong };

// Makes room for more bytes behind those received, at least 4 KiB, growing with what has arrived.
// Returns the number of bytes that may be written at input->bytes + input->received; 0 when out of memory.
[[nodiscard]] std::size_t MakeRoom(MessageInput *input);

// Goes on assembling from the bytes received. Whole: the message is [begin, end) and stays until DropMessage; TooLong:
// it would have more than maxBytes, and the connection is of no further use.
[[nodiscard]] MessageState AssembleMessage(MessageInput *input, std::size_t maxBytes);

// Forgets the whole message; bytes received behind it stay. The memory is kept for the next one.
void DropMessage(MessageInput *input);

// Gives the memory back when nothing is held in it.
void ReleaseIfEmpty(MessageInput *input);

void ReleaseInput(MessageInput *input);

// The 4-byte word at this place of a message, in the order of this machine.
[[nodiscard]] inline std::uint32_t WordAt(const char *at) {
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return ntohl(word);
}

// A message being written: an XDR stream that grows, with room for one fragment header in front.
struct MessageOutput {
    char *bytes; // malloc memory: the header, then the payload
    std::size_t capacity;
    std::size_t size; // header included
};

// Starts a message in output (whose memory is used again) and makes *xdrs encode into it. The stream needs no destroy.
// False when out of memory.
[[nodiscard]] bool BeginMessage(MessageOutput *output, XDR *xdrs);

// Writes the header. The whole message is then output->bytes[0, size). False when it is too long for one fragment.
[[nodiscard]] bool FinishMessage(MessageOutput *output);

void ReleaseOutput(MessageOutput *output);
