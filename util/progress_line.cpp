// SPDX-License-Identifier: MIT
// progress_line: carriage returns, and a terminal that does not wrap meanwhile.
#include "util/progress_line.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr char withoutWrapping[] = "\x1B[?7l", wrapping[] = "\x1B[?7h", eraseRest[] = "\x1B[K";

std::atomic<bool> isShown;

} // namespace

bool CanShowProgress() {
    static const bool isTerminal = isatty(STDERR_FILENO) == 1;
    return isTerminal;
}

void ShowProgress(const std::string &text) {
    static std::string &shown = *new std::string; // for the life of the process
    if (!CanShowProgress() || (isShown && shown == text)) return;
    (void)std::fprintf(stderr, "%s\r%s%s%s", withoutWrapping, text.c_str(), eraseRest, wrapping);
    (void)std::fflush(stderr);
    shown = text;
    isShown = true;
}

void EraseProgress() {
    if (isShown.exchange(false)) (void)std::fprintf(stderr, "\r%s", eraseRest);
}
