// SPDX-License-Identifier: MIT
// registry_reading: enumerations that are held against what the key says of itself.
#include "tvreg/registry_reading.h"

#include "registry/key.h"
#include "registry/limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <unordered_set>

namespace {

constexpr std::uint32_t leastNameRoom = 64 * 1024;          // for names that are made meanwhile
constexpr std::uint32_t mostNameRoom = 16 * 1024 * 1024;    // no name comes near it
constexpr std::uint32_t firstDataRoom = 1024 * 1024;        // what is longer is asked for again
constexpr std::uint32_t mostDataRoom = 1024u * 1024 * 1024; // longer than any answer
constexpr int mostReadingsOfValue = 4;                      // that grows
constexpr int mostReadingsOfKey = 40;                       // that changes; about three seconds of pauses
constexpr int mostContradictions = 5;                       // of a key that says it has not changed
constexpr std::ptrdiff_t mostKeysBelowEachOther = 2 * std::ptrdiff_t{maxKeyDepth}; // a hive in another
constexpr int mostWalks = 40;                                                      // over a tree that changes

[[noreturn]] void FailWithoutEnd(const KeyPath &key) {
    throw Failure(EXIT_FAILED,
                  fmt::format("{}: what the registry daemon answers does not come to an end", KeyPathText(key)));
}

[[noreturn]] void FailWithoutRest(const KeyPath &key) {
    throw Failure(EXIT_FAILED, fmt::format("{}: changes faster than it can be read", KeyPathText(key)));
}

// Before another reading: ever longer, so that whoever writes comes to an end.
void Pause(int reading) {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(1 << std::min(reading, 7), 100)));
}

KeyState ReadState(HKEY opened, const KeyPath &key) {
    KeyState state;
    FILETIME written = {};
    Check(RegQueryInfoKeyA(opened, nullptr, nullptr, nullptr, &state.subKeys, &state.longestSubKey, nullptr,
                           &state.values, &state.longestName, &state.longestData, nullptr, &written),
          KeyPathText(key));
    state.written = std::uint64_t{written.dwHighDateTime} << 32 | written.dwLowDateTime;
    return state;
}

std::string NameRoom(std::uint32_t longest) {
    return std::string(std::clamp(longest, leastNameRoom, mostNameRoom) + 1, '\0');
}

// Both enumerations return false where there is more, or less, than the key says to have: it has changed meanwhile, or
// the daemon's answers have no end.

bool ReadSubKeys(HKEY opened, const KeyPath &key, const KeyState &state, std::vector<std::string> *names) {
    std::unordered_set<std::string> seen;
    std::string name = NameRoom(state.longestSubKey);
    for (DWORD index = 0; index <= state.subKeys; ++index) {
        auto size = static_cast<DWORD>(name.size());
        const LONG code = RegEnumKeyExA(opened, index, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
        if (code == ERROR_NO_MORE_ITEMS) return index == state.subKeys;
        Check(code, KeyPathText(key));
        if (name.front() == '\0') {
            throw Failure(EXIT_FAILED,
                          fmt::format("{}: the registry daemon answers a subkey without a name", KeyPathText(key)));
        }
        if (!seen.insert(name.c_str()).second) return false;
        names->emplace_back(name.c_str());
    }
    return false;
}

// One value. The room for data grows with what is there.
LONG EnumerateValue(HKEY opened, DWORD index, std::string *name, std::string *room, RegValue *value) {
    LONG code = ERROR_MORE_DATA;
    for (int reading = 0; code == ERROR_MORE_DATA && reading < mostReadingsOfValue; ++reading) {
        auto nameSize = static_cast<DWORD>(name->size());
        auto dataSize = static_cast<DWORD>(room->size());
        name->front() = '\0'; // an empty name leaves it as it is
        code = RegEnumValueA(opened, index, name->data(), &nameSize, nullptr, &value->type,
                             reinterpret_cast<LPBYTE>(room->data()), &dataSize);
        if (code == ERROR_SUCCESS) value->data.assign(*room, 0, dataSize);
        if (code == ERROR_MORE_DATA && dataSize > room->size()) room->resize(std::min(dataSize, mostDataRoom));
    }
    value->name = name->c_str();
    return code;
}

bool ReadValues(HKEY opened, const KeyPath &key, const KeyState &state, std::vector<RegValue> *values) {
    std::unordered_set<std::string> seen;
    std::string name = NameRoom(state.longestName), room(firstDataRoom, '\0');
    for (DWORD index = 0; index <= state.values; ++index) {
        RegValue value;
        const LONG code = EnumerateValue(opened, index, &name, &room, &value);
        if (code == ERROR_NO_MORE_ITEMS) return index == state.values;
        Check(code, KeyPathText(key));
        if (!seen.insert(value.name).second) return false;
        values->push_back(std::move(value));
    }
    return false;
}

KeyContent ReadOpenKey(HKEY opened, const KeyPath &key) {
    KeyState before = ReadState(opened, key);
    int contradictions = 0;
    for (int reading = 0; reading < mostReadingsOfKey; ++reading) {
        KeyContent content = {.values = {}, .subKeys = {}, .state = before};
        const bool isWhole =
            ReadValues(opened, key, before, &content.values) && ReadSubKeys(opened, key, before, &content.subKeys);
        const KeyState after = ReadState(opened, key);
        if (isWhole && before == after) return content;
        if (before == after && ++contradictions == mostContradictions) FailWithoutEnd(key);
        before = after;
        Pause(reading);
    }
    FailWithoutRest(key);
}

bool IsGone(const Failure &failure) {
    return failure.code == ERROR_FILE_NOT_FOUND || failure.code == ERROR_KEY_DELETED; // 2, 1018
}

// The keys still to be visited by a walk, the next one last.
struct Walk {
    KeyPath top;
    std::vector<KeyPath> pending;
};

bool TakeNext(Walk &walk, KeyPath *next) {
    if (walk.pending.empty()) return false;
    *next = std::move(walk.pending.back());
    walk.pending.pop_back();
    if (std::count(next->path.begin(), next->path.end(), '\\') >= mostKeysBelowEachOther) FailWithoutEnd(*next);
    return true;
}

void GoBelow(Walk &walk, const KeyPath &key, const std::vector<std::string> &subKeys) {
    for (auto name = subKeys.rbegin(); name != subKeys.rend(); ++name) {
        walk.pending.push_back(Below(key, *name));
    }
}

// What is met at a key now; nothing when the key, which is not the top, has gone.
//   before  what was met the last time; may be null
std::optional<KeyContent> Visit(const Walk &walk, const KeyPath &key, const KeyContent *before) {
    try {
        HKEY opened = OpenKey(key);
        const KeyGuard guard(&opened);
        if (before != nullptr && before->state.written != 0 && before->state == ReadState(opened, key)) return *before;
        return ReadOpenKey(opened, key);
    } catch (const Failure &failure) {
        if (!IsGone(failure) || key.path == walk.top.path) throw;
        return {};
    }
}

bool IsSame(const KeyContent &a, const KeyContent &b) {
    return a.state == b.state && a.subKeys == b.subKeys && a.values == b.values;
}

// Walks the tree. Returns whether all was as it is known; `known` is what was met afterwards.
bool WalkAgain(const KeyPath &key, KnownKeys *known, std::vector<RegKey> *keys) {
    Walk walk = {.top = key, .pending = {key}};
    KnownKeys met;
    bool isSame = true;
    for (KeyPath next; TakeNext(walk, &next);) {
        const auto before = known->find(next.path);
        std::optional<KeyContent> content = Visit(walk, next, before != known->end() ? &before->second : nullptr);
        isSame = isSame && content && before != known->end() && IsSame(*content, before->second);
        if (!content) continue;
        GoBelow(walk, next, content->subKeys);
        keys->push_back({next, false, content->values});
        met[next.path] = std::move(*content);
    }
    *known = std::move(met);
    return isSame;
}

} // namespace

KeyContent ReadKey(const KeyPath &key) {
    HKEY opened = OpenKey(key);
    const KeyGuard guard(&opened);
    return ReadOpenKey(opened, key);
}

void ForEachKey(const KeyPath &key, const std::function<void(const KeyPath &, KeyContent &)> &use) {
    Walk walk = {.top = key, .pending = {key}};
    for (KeyPath next; TakeNext(walk, &next);) {
        std::optional<KeyContent> content = Visit(walk, next, nullptr);
        if (!content) continue;
        GoBelow(walk, next, content->subKeys);
        use(next, *content);
    }
}

std::vector<RegKey> ReadKeys(const KeyPath &key, KnownKeys *known) {
    std::vector<RegKey> keys;
    for (int walks = 0; walks < mostWalks; ++walks) {
        keys.clear();
        if (WalkAgain(key, known, &keys)) return keys;
        if (walks > 0) Pause(walks);
    }
    FailWithoutRest(key);
}

std::vector<RegKey> ReadKeys(const KeyPath &key) {
    KnownKeys known;
    return ReadKeys(key, &known);
}
