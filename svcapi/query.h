// SPDX-License-Identifier: MIT
// query: the Win32 shape of a question that one record answers, with the strings that it points at behind it.
#pragma once

#include "svcapi/last_error.h"

// Asks about a handle (client.h), and packs the answer (packing.h) into the caller's buffer.
//   buffer       may be null when bytes is 0
//   bytesNeeded  set to the whole size whenever there is an answer
// FALSE with 87 ERROR_INVALID_PARAMETER for pointers that are null, with 122 ERROR_INSUFFICIENT_BUFFER for a buffer
// that is too small, else with the code of the question.
template <typename Answer, typename Record>
BOOL AnswerIntoBuffer(DWORD (*ask)(SC_HANDLE, Answer *), DWORD (*pack)(const Answer &, Record *, DWORD, DWORD *),
                      SC_HANDLE handle, Record *buffer, DWORD bytes, DWORD *bytesNeeded) {
    if (bytesNeeded == nullptr || (buffer == nullptr && bytes != 0)) return Succeeded(ERROR_INVALID_PARAMETER);
    Answer answer;
    const DWORD rc = ask(handle, &answer);
    return Succeeded(rc != ERROR_SUCCESS ? rc : pack(answer, buffer, bytes, bytesNeeded));
}
