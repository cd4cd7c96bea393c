// SPDX-License-Identifier: MIT
// printable: text as a terminal or a log may show it.
//
// Names and data are bytes, and anybody who may write them chooses them. What a terminal would act on, what cannot be
// seen and what changes the order or the look of other characters must not reach it as it is.
#pragma once

#include <string>
#include <string_view>

enum class Charset { ascii, utf8 };

// What the locale that the environment names can show; told once, for the life of the process.
[[nodiscard]] Charset CharsetShown();

// Whether a text is nothing but printable ASCII: as wide as it is long, and seldom changed by what follows.
[[nodiscard]] bool IsPlain(std::string_view text);

// The text with these bytes as \xNN, NN being two hexadecimal digits in lower case:
//   - control characters: C0, DEL and C1;
//   - what is no proper UTF-8, and with Charset::ascii all that is not ASCII;
//   - characters without a shape: zero-width and tag characters, variation selectors, fillers, the ends of lines and
//     paragraphs, and those that override or isolate the direction of writing;
//   - a backslash in front of an x and two hexadecimal digits, which would read as such an escape, and in front of
//     `alsoMeant` unless that is zero.
// Every other backslash stands for itself, so that a path stays a path and the bytes can still be told from the text.
[[nodiscard]] std::string Printable(std::string_view text, Charset charset = CharsetShown(), char alsoMeant = '\0');
