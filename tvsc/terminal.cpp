// SPDX-License-Identifier: MIT
// terminal: asking the terminal and the environment.
#include "tvsc/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::array<const char *, 5> sequences = {"", "\x1B[32m", "\x1B[33m", "\x1B[31m", "\x1B[2m"};
constexpr char plain[] = "\x1B[0m";

bool showsColours;

bool IsSet(const char *variable) {
    const char *value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool IsColourTerminal() {
    const char *kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0 && !IsSet("NO_COLOR");
}

winsize SizeOfTerminal() {
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

} // namespace

void ChooseColours(ColourWhen when) {
    showsColours = when == ColourWhen::always || (when == ColourWhen::automatic && IsColourTerminal());
}

std::string Coloured(Colour colour, const std::string &text) {
    if (!showsColours || colour == Colour::none || text.empty()) return text;
    return sequences[static_cast<std::size_t>(colour)] + text + plain;
}

std::optional<std::size_t> TerminalWidth() {
    if (isatty(STDOUT_FILENO) == 0) return std::nullopt;
    if (IsSet("COLUMNS")) {
        const unsigned long columns = std::strtoul(std::getenv("COLUMNS"), nullptr, 10);
        if (columns > 0) return columns;
    }
    const winsize size = SizeOfTerminal();
    return size.ws_col == 0 ? std::nullopt : std::make_optional<std::size_t>(size.ws_col);
}

std::optional<std::size_t> TerminalHeight() {
    const winsize size = SizeOfTerminal();
    return isatty(STDOUT_FILENO) == 0 || size.ws_row == 0 ? std::nullopt : std::make_optional<std::size_t>(size.ws_row);
}
