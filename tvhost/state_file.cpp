// SPDX-License-Identifier: MIT
// state_file: the lines of the file.
#include "tvhost/state_file.h"

#include "svcapi/process_stat.h"
#include "svcapi/runtime_file.h"
#include "util/printable.h"

#include <charconv>
#include <chrono>
#include <sstream>
#include <type_traits>

namespace {

constexpr char lastLine[] = "end";
constexpr std::size_t longestText = 512; // of one value
constexpr std::size_t longestFile = 16 * 1024;

std::string TextOf(const std::string &text) { return Printable(text, Charset::utf8).substr(0, longestText); }

template <typename Number>
requires std::is_integral_v<Number> std::string TextOf(Number number) { return std::to_string(number); }

void Parse(const std::string &text, std::string *member) { *member = text; }

template <typename Number>
requires std::is_integral_v<Number>
void Parse(const std::string &text, Number *member) {
    (void)std::from_chars(text.data(), text.data() + text.size(), *member); // what is no number leaves it
}

void ParseLine(const std::string &line, HostState *state) {
    const std::string key = line.substr(0, line.find(' '));
    if (key.size() == line.size()) return;
    const std::string text = line.substr(key.size() + 1);
    VisitHostState([&](const char *name, auto member) {
        if (key == name) Parse(text, &(state->*member));
    });
}

bool ParseFile(const std::string &text, HostState *state) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line == lastLine) return true;
        ParseLine(line, state);
    }
    return false;
}

bool IsAlive(pid_t process, std::uint64_t start, uid_t owner) {
    ProcessStat stat;
    const bool isThere = process > 0 && ReadProcessStat(process, &stat) && stat.startTicks == start;
    return isThere && stat.state != 'Z' && IsBelieved(process, owner);
}

} // namespace

void WriteHostState(const std::string &serviceName, const HostState &state) {
    std::string text;
    VisitHostState([&](const char *name, auto member) { text += name + (" " + TextOf(state.*member)) + "\n"; });
    (void)WriteRuntimeFile(serviceName, stateSuffix, text + lastLine + "\n");
}

bool ReadHostState(const std::string &serviceName, HostState *state, uid_t *owner) {
    for (const RuntimeFile &file : ReadRuntimeFiles(serviceName, stateSuffix, longestFile)) {
        *state = {};
        *owner = file.owner;
        if (ParseFile(file.text, state)) return true;
    }
    return false;
}

bool IsHostAlive(const HostState &state, uid_t owner) { return IsAlive(state.host, state.hostStart, owner); }

bool IsProgramAlive(const HostState &state, uid_t owner) { return IsAlive(state.program, state.programStart, owner); }

std::int64_t EpochMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}
