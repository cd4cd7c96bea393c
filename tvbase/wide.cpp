// SPDX-License-Identifier: MIT
// wide: conversion of whole texts.
#include "tvbase/wide.h"

DWORD Narrow(LPCWSTR wide, std::string *narrow) {
    std::u16string units;
    while (*wide != 0) {
        units.push_back(static_cast<char16_t>(*wide++));
    }
    return Utf8FromUtf16(units, narrow) ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION;
}

DWORD Widen(const std::string &narrow, std::u16string *wide) {
    return Utf16FromUtf8(narrow, wide) ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION;
}
