// SPDX-License-Identifier: MIT
// tvreg: the registry on the command line. What it takes is in command_line, what it does in the files of the commands.
#include "tvreg/command_line.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "util/json_text.h"
#include "util/similar_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

constexpr std::string_view timeIsOver = "the time that --timeout gives is over";
std::string timeoutLine, timeoutJson; // for the signal handler, which cannot make them; empty: not wanted

void EndByTimeout(int /*signal*/) {
    (void)!write(STDERR_FILENO, timeoutLine.data(), timeoutLine.size());
    (void)!write(STDOUT_FILENO, timeoutJson.data(), timeoutJson.size());
    _exit(EXIT_TIMED_OUT);
}

void EndWatch(int /*signal*/) { _exit(0); }

void StartTimer(const Invocation &invocation) {
    const double seconds = invocation.options.timeoutSec;
    if (seconds <= 0) return;
    timeoutLine = fmt::format("tvreg: {}\n", timeIsOver);
    if (invocation.options.json) timeoutJson = JsonText(ErrorJson(std::string(timeIsOver))) + "\n";
    (void)std::signal(SIGALRM, invocation.run == Watch ? EndWatch : EndByTimeout); // watching ends no other way
    itimerval timer = {};
    timer.it_value.tv_sec = static_cast<time_t>(seconds);
    timer.it_value.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * 1e6);
    (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

// --- a key or a value that is not there ---

std::vector<std::string> SimilarValues(const KeyPath &key, const std::string &name) {
    std::vector<std::string> names;
    for (const RegValue &value : ReadKey(key).values) {
        names.push_back(value.name);
    }
    return SimilarNames(name, names);
}

// The first key on the way that is not there, as it may have been meant.
std::vector<std::string> SimilarKeys(const KeyPath &key) {
    KeyPath above = {.root = key.root, .path = {}, .host = key.host};
    for (std::string_view rest = key.path; !rest.empty();) {
        const std::string name(rest.substr(0, rest.find('\\')));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        const KeyPath next = Below(above, name);
        if (!KeyExists(next)) {
            std::vector<std::string> similar = SimilarNames(name, ReadKey(above).subKeys);
            for (std::string &candidate : similar) {
                candidate = KeyPathText(Below(above, candidate));
            }
            return similar;
        }
        above = next;
    }
    return {};
}

std::vector<std::string> Suggestions(const Options &options, const Failure &failure) {
    KeyPath key;
    if (failure.code != ERROR_FILE_NOT_FOUND || !ParseKeyOfHost(options.key, &key)) return {};
    try {
        const std::string value = options.goesValue.value_or(options.valueName);
        return KeyExists(key) && !value.empty() ? SimilarValues(key, value) : SimilarKeys(key);
    } catch (const Failure &) {
        return {}; // the first failure is the one that counts
    }
}

void TellFailure(const Options &options, const Failure &failure) {
    const std::string text = failure.what();
    if (text.empty()) return; // has been told
    Tell(text);
    const std::vector<std::string> similar = !failure.meant.empty() ? failure.meant : Suggestions(options, failure);
    if (!similar.empty()) Tell(fmt::format("did you mean {}?", fmt::join(similar, ", ")));
    if (options.json) PrintJson(ErrorJson(text, failure.code, similar));
}

// compare has a status 2 of its own, diff a status 1.
int StatusFor(const Invocation &invocation, int status) {
    if (invocation.run == Compare && status == EXIT_USAGE) return EXIT_FAILED;
    if ((invocation.run == Diff || invocation.run == DiffSnapshot) && status == EXIT_FAILED) return EXIT_USAGE;
    return status;
}

int RunProgram(int argc, char **argv) {
    Invocation invocation;
    try {
        ReadCommandLine(argc, argv, &invocation);
        if (invocation.run == nullptr) return 0;
        if (!invocation.options.host.empty()) (void)setenv("TARVO_REGISTRY_HOST", invocation.options.host.c_str(), 1);
        StartTimer(invocation);
        return invocation.run(invocation.options);
    } catch (const Failure &failure) {
        TellFailure(invocation.options, failure);
        return StatusFor(invocation, failure.status);
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const std::exception &failure) {
        Tell(failure.what());
        return EXIT_FAILED;
    }
}
