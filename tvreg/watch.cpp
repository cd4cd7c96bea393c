// SPDX-License-Identifier: MIT
// watch: changes below a key as they come.
//
// The protocol has no notification that a connection could wait for. What it has is the time of the last write of each
// key: a round asks every key for its state and reads those that have changed.
#include "tvreg/commands.h"
#include "tvreg/compare.h"
#include "tvreg/registry_reading.h"
#include "util/json_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace {

std::string Now(const char *format) { return fmt::format(fmt::runtime(format), fmt::gmtime(std::time(nullptr))); }

void ShowRound(const Options &options, const std::vector<Difference> &differences, const KeyPath &top) {
    if (!options.json) {
        Print(fmt::format("{}\n", Now("{:%Y-%m-%d %H:%M:%S} UTC")));
        return PrintDifferences(differences, top);
    }
    for (const Difference &difference : differences) {
        Json event = {{"schema", "tvreg.event/1"}, {"time", Now("{:%Y-%m-%dT%H:%M:%SZ}")}};
        event.update(DifferenceJson(difference, top));
        Print(JsonLine(event) + "\n");
    }
}

} // namespace

// Ends by a signal or --timeout, or when the key or the registry goes.
int Watch(const Options &options) {
    const KeyPath top = KeyOf(options);
    KnownKeys known;
    KeyTree before = {top, ReadKeys(top, &known)};
    for (;;) {
        std::this_thread::sleep_for(std::chrono::duration<double>(options.intervalSec));
        KeyTree after = {top, ReadKeys(top, &known)};
        const std::vector<Difference> differences = CompareTrees(before, after);
        if (!differences.empty()) ShowRound(options, differences, top);
        before = std::move(after);
    }
}
