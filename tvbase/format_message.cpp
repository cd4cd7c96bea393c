// SPDX-License-Identifier: MIT
// format_message: FormatMessage in both forms.
#include "tvbase/messages.h"
#include "tvbase/wide.h"

#include "tv/winbase.h"

#include <algorithm>
#include <limits>

namespace {

// A text of the caller's, in UTF-8.
template <typename Unit>
DWORD ReadSource(const void *source, std::string *text) {
    if (source == nullptr) return ERROR_INVALID_PARAMETER;
    if constexpr (sizeof(Unit) == 1) {
        *text = static_cast<const char *>(source);
        return ERROR_SUCCESS;
    } else {
        return Narrow(static_cast<LPCWSTR>(source), text);
    }
}

DWORD ReadSystem(DWORD code, std::string *text) {
    *text = SystemMessage(code);
    return text->empty() ? ERROR_MR_MID_NOT_FOUND : ERROR_SUCCESS;
}

// The text before anything is replaced in it.
template <typename Unit>
DWORD ReadText(DWORD flags, const void *source, DWORD code, std::string *text) {
    const bool fromString = (flags & FORMAT_MESSAGE_FROM_STRING) != 0;
    const bool fromSystem = (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0;
    const bool fromModule = (flags & FORMAT_MESSAGE_FROM_HMODULE) != 0;
    if (fromString && !fromSystem && !fromModule) return ReadSource<Unit>(source, text);
    if (fromSystem && !fromString) return ReadSystem(code, text);
    return fromModule && !fromString ? ERROR_MR_MID_NOT_FOUND : ERROR_INVALID_PARAMETER;
}

template <typename Unit>
DWORD MakeMessage(DWORD flags, const void *source, DWORD code, va_list *arguments, std::string *message) {
    const bool stripLines = (flags & FORMAT_MESSAGE_MAX_WIDTH_MASK) == FORMAT_MESSAGE_MAX_WIDTH_MASK;
    std::string text;
    if (const DWORD rc = ReadText<Unit>(flags, source, code, &text); rc != 0) return rc;
    if ((flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0) {
        *message = stripLines ? StripLines(text) : text;
        return ERROR_SUCCESS;
    }
    InsertSource inserts = {arguments, (flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0, sizeof(Unit) != 1, {}};
    return ExpandMessage(text, stripLines, &inserts, message);
}

// Copies the message into the caller's buffer, or into memory for LocalFree.
template <typename Unit, typename Text>
DWORD Deliver(DWORD flags, const Text &message, Unit *buffer, DWORD room) {
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) == 0) {
        if (message.size() >= room) return ERROR_INSUFFICIENT_BUFFER;
        (void)CopyCut(message, buffer, room);
        return ERROR_SUCCESS;
    }
    const std::size_t units = std::max<std::size_t>(message.size() + 1, room);
    auto *memory = static_cast<Unit *>(LocalAlloc(LMEM_ZEROINIT, units * sizeof(Unit)));
    if (memory == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    (void)CopyCut(message, memory, units);
    *reinterpret_cast<Unit **>(buffer) = memory;
    return ERROR_SUCCESS;
}

DWORD ConvertMessage(std::string &&message, std::string *converted) {
    *converted = std::move(message);
    return ERROR_SUCCESS;
}

DWORD ConvertMessage(const std::string &message, std::u16string *converted) { return Widen(message, converted); }

// Returns the message's length without its terminator, 0 with the thread's last error set.
template <typename Text, typename Unit = typename Text::value_type>
DWORD FormatMessageAs(DWORD flags, const void *source, DWORD code, Unit *buffer, DWORD room, va_list *arguments) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        if (buffer == nullptr) return ERROR_INVALID_PARAMETER;
        std::string message;
        if (const DWORD rc = MakeMessage<Unit>(flags, source, code, arguments, &message); rc != 0) return rc;
        Text text;
        if (const DWORD rc = ConvertMessage(std::move(message), &text); rc != 0) return rc;
        if (text.size() >= std::numeric_limits<DWORD>::max()) return ERROR_NOT_ENOUGH_MEMORY;
        if (const DWORD rc = Deliver(flags, text, buffer, room); rc != 0) return rc;
        length = static_cast<DWORD>(text.size());
        return ERROR_SUCCESS;
    }));
    return length;
}

} // namespace

DWORD FormatMessageA(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD, LPSTR lpBuffer, DWORD nSize,
                     va_list *Arguments) {
    return FormatMessageAs<std::string>(dwFlags, lpSource, dwMessageId, lpBuffer, nSize, Arguments);
}

DWORD FormatMessageW(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD, LPWSTR lpBuffer, DWORD nSize,
                     va_list *Arguments) {
    return FormatMessageAs<std::u16string>(dwFlags, lpSource, dwMessageId, lpBuffer, nSize, Arguments);
}
