// SPDX-License-Identifier: MIT
// message: assembling fragments as bytes come, and an XDR stream that grows as it is written.
#include "rpc/message.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t headerBytes = 4;
constexpr std::uint32_t lastFragmentBit = 0x80000000;
constexpr std::size_t firstCapacity = 4096;

void StoreWord(char *at, std::uint32_t word) {
    word = htonl(word);
    std::memcpy(at, &word, sizeof word);
}

// Takes the header of the next fragment.
void BeginFragment(MessageInput *input) {
    const std::uint32_t header = WordAt(input->bytes + input->parsed);
    input->parsed += headerBytes;
    input->fragmentLeft = header & ~lastFragmentBit;
    input->lastFragment = (header & lastFragmentBit) != 0;
    if (!input->inMessage) {
        input->inMessage = true;
        input->begin = input->end = input->parsed;
    }
}

void TakePayload(MessageInput *input) {
    const std::size_t bytes = std::min<std::size_t>(input->fragmentLeft, input->received - input->parsed);
    if (input->end != input->parsed) {
        std::memmove(input->bytes + input->end, input->bytes + input->parsed, bytes);
    }
    input->end += bytes;
    input->parsed += bytes;
    input->fragmentLeft -= static_cast<std::uint32_t>(bytes);
}

// Closes the gap before the message (or before the bytes not looked at), and the one behind its payload.
void Compact(MessageInput *input) {
    const std::size_t unparsed = input->received - input->parsed;
    const std::size_t payload = input->inMessage ? input->end - input->begin : 0;
    std::memmove(input->bytes, input->bytes + input->begin, payload);
    std::memmove(input->bytes + payload, input->bytes + input->parsed, unparsed);
    input->begin = 0;
    input->end = input->parsed = payload;
    input->received = payload + unparsed;
}

} // namespace

std::size_t MakeRoom(MessageInput *input) {
    if (input->capacity - input->received >= firstCapacity) return input->capacity - input->received;
    if (input->bytes != nullptr) Compact(input);
    // Compacting moves the whole payload: it must gain enough room not to be needed again for the next few bytes.
    const std::size_t enough = std::max(firstCapacity, input->capacity / 4);
    if (input->capacity - input->received < enough) {
        const std::size_t grown = std::max(firstCapacity, input->capacity * 2);
        char *bytes = static_cast<char *>(std::realloc(input->bytes, grown));
        if (bytes == nullptr) return 0;
        input->bytes = bytes;
        input->capacity = grown;
    }
    return input->capacity - input->received;
}

MessageState AssembleMessage(MessageInput *input, std::size_t maxBytes) {
    for (;;) {
        if (input->inMessage && input->fragmentLeft == 0 && input->lastFragment) return MessageState::Whole;
        if (!input->inMessage || input->fragmentLeft == 0) {
            if (input->received - input->parsed < headerBytes) return MessageState::Incomplete;
            BeginFragment(input);
            if (input->end - input->begin + input->fragmentLeft > maxBytes) return MessageState::TooLong;
        }
        TakePayload(input);
        if (input->fragmentLeft != 0) return MessageState::Incomplete;
    }
}

void DropMessage(MessageInput *input) {
    input->inMessage = false;
    if (input->parsed == input->received) input->parsed = input->received = 0;
    input->begin = input->end = input->parsed;
}

void ReleaseIfEmpty(MessageInput *input) {
    if (input->received == 0) ReleaseInput(input);
}

void ReleaseInput(MessageInput *input) {
    std::free(input->bytes);
    *input = {};
}

// --- the growing stream ---

namespace {

MessageOutput *OutputOf(XDR *xdrs) { return reinterpret_cast<MessageOutput *>(xdrs->x_private); }

// Returns where `bytes` more can be written, null when out of memory.
char *Extend(MessageOutput *output, std::size_t bytes) {
    if (output->capacity - output->size < bytes) {
        const std::size_t grown = std::max({firstCapacity, output->capacity * 2, output->size + bytes});
        char *moved = static_cast<char *>(std::realloc(output->bytes, grown));
        if (moved == nullptr) return nullptr;
        output->bytes = moved;
        output->capacity = grown;
    }
    char *at = output->bytes + output->size;
    output->size += bytes;
    return at;
}

bool_t PutWord(XDR *xdrs, const long *word) {
    char *at = Extend(OutputOf(xdrs), sizeof(std::uint32_t));
    if (at == nullptr) return FALSE;
    StoreWord(at, static_cast<std::uint32_t>(*word));
    return TRUE;
}

bool_t PutBytes(XDR *xdrs, const char *bytes, u_int count) {
    char *at = Extend(OutputOf(xdrs), count);
    if (at == nullptr) return FALSE;
    std::memcpy(at, bytes, count);
    return TRUE;
}

std::int32_t *Inline(XDR *xdrs, u_int bytes) { return reinterpret_cast<std::int32_t *>(Extend(OutputOf(xdrs), bytes)); }

u_int GetPosition(XDR *xdrs) { return static_cast<u_int>(OutputOf(xdrs)->size - headerBytes); }

bool_t SetPosition(XDR *xdrs, u_int position) {
    MessageOutput *output = OutputOf(xdrs);
    if (headerBytes + position > output->size) return FALSE;
    output->size = headerBytes + position;
    return TRUE;
}

bool_t NoWord(XDR * /*xdrs*/, long * /*word*/) { return FALSE; }
bool_t NoBytes(XDR * /*xdrs*/, char * /*bytes*/, u_int /*count*/) { return FALSE; }
bool_t NoControl(XDR * /*xdrs*/, int /*request*/, void * /*info*/) { return FALSE; }
void Destroy(XDR * /*xdrs*/) {}

const XDR::xdr_ops outputOps = {
    .x_getlong = NoWord,
    .x_putlong = PutWord,
    .x_getbytes = NoBytes,
    .x_putbytes = PutBytes,
    .x_getpostn = GetPosition,
    .x_setpostn = SetPosition,
    .x_inline = Inline,
    .x_destroy = Destroy,
    .x_control = NoControl,
};

} // namespace

bool BeginMessage(MessageOutput *output, XDR *xdrs) {
    output->size = 0;
    *xdrs = {};
    xdrs->x_op = XDR_ENCODE;
    xdrs->x_ops = &outputOps;
    xdrs->x_private = output;
    return Extend(output, headerBytes) != nullptr;
}

bool FinishMessage(MessageOutput *output) {
    const std::size_t payload = output->size - headerBytes;
    if (output->size < headerBytes || payload >= lastFragmentBit) return false;
    StoreWord(output->bytes, lastFragmentBit | static_cast<std::uint32_t>(payload));
    return true;
}

void ReleaseOutput(MessageOutput *output) {
    std::free(output->bytes);
    *output = {};
}
