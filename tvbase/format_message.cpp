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

bool IsTooLong(std::size_t length) { return length >= std::numeric_limits<DWORD>::max(); }

} // namespace

DWORD FormatMessageA(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD, LPSTR lpBuffer, DWORD nSize,
                     va_list *Arguments) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpBuffer == nullptr) return ERROR_INVALID_PARAMETER;
        std::string message;
        if (const DWORD rc = MakeMessage<char>(dwFlags, lpSource, dwMessageId, Arguments, &message); rc != 0) return rc;
        if (IsTooLong(message.size())) return ERROR_NOT_ENOUGH_MEMORY;
        if (const DWORD rc = Deliver(dwFlags, message, lpBuffer, nSize); rc != 0) return rc;
        length = static_cast<DWORD>(message.size());
        return ERROR_SUCCESS;
    }));
    return length;
}

DWORD FormatMessageW(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD, LPWSTR lpBuffer, DWORD nSize,
                     va_list *Arguments) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpBuffer == nullptr) return ERROR_INVALID_PARAMETER;
        std::string message;
        std::u16string wide;
        if (const DWORD rc = MakeMessage<WCHAR>(dwFlags, lpSource, dwMessageId, Arguments, &message); rc != 0) {
            return rc;
        }
        if (const DWORD rc = Widen(message, &wide); rc != 0) return rc;
        if (IsTooLong(wide.size())) return ERROR_NOT_ENOUGH_MEMORY;
        if (const DWORD rc = Deliver(dwFlags, wide, lpBuffer, nSize); rc != 0) return rc;
        length = static_cast<DWORD>(wide.size());
        return ERROR_SUCCESS;
    }));
    return length;
}
