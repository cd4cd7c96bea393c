// SPDX-License-Identifier: MIT
// group: the transaction that writes share, and the way back for what it has changed.
#include "tvregd/group.h"

#include "util/wall_time.h"

#include <algorithm>
#include <exception>

namespace {

// What a group may hold before it is committed although more requests wait: those in it wait for their answers.
constexpr std::size_t maxWrites = 10'000;
constexpr std::size_t maxWrittenBytes = std::size_t{4} << 20;
constexpr std::uint64_t leastAge = 20'000, mostAge = 200'000; // 2 ms to 20 ms
constexpr std::uint64_t maxPatience = 50'000;                 // 5 ms

// Where requests never cease, as in an import, commits may take a ninth of the time, or more on a slow disk.
std::uint64_t AgeOf(const Group &group) { return std::clamp(8 * group.commitTook, leastAge, mostAge); }

std::uint64_t WaitOf(const Group &group) { return std::min(group.commitTook, maxPatience); }

void NoteChange(Registry &registry, Key &key, Change change) {
    key.changedIn = registry.group.number;
    registry.group.wayBack.push_back(std::move(change));
}

void GoBack(Tree &tree, Change &change) {
    std::size_t index = 0;
    switch (change.kind) {
    case Change::Kind::KeyMade: RemoveKey(tree, *change.key); break;
    case Change::Kind::KeyBuried:
        DigUpKey(tree, *change.key, *change.parent, change.index);
        change.key->isErased = false;
        break;
    case Change::Kind::KeyTouched: change.key->written = change.written; break;
    case Change::Kind::ValueMade: (void)TakeOutValue(*change.key, *change.value, &index); break;
    case Change::Kind::ValueReplaced:
        change.value->type = change.before->type;
        change.value->data = std::move(change.before->data);
        break;
    case Change::Kind::HivesChanged: tree.hives = std::move(*change.hives); break;
    case Change::Kind::ValueDeleted: PutValueBack(*change.key, std::move(change.before), change.index); break;
    }
}

void EndGroup(Registry &registry) {
    Group &group = registry.group;
    group.isOpen = false;
    group.writes = group.writtenBytes = 0;
    group.wayBack.clear();
}

} // namespace

std::uint64_t FileTimeNow() {
    constexpr std::uint64_t secondsFrom1601To1970 = 11'644'473'600;
    const WallTime now = WallTimeNow();
    return (static_cast<std::uint64_t>(now.seconds) + secondsFrom1601To1970) * 10'000'000 +
           static_cast<std::uint64_t>(now.microseconds) * 10;
}

std::uint64_t TimeOfChange() {
    constexpr std::uint64_t stepBack = 600'000'000; // a minute: a clock that was set back by more is followed
    static std::uint64_t last = 0;
    const std::uint64_t now = FileTimeNow();
    const bool isNoLater = last - now < stepBack; // wraps around for a later time
    last = isNoLater ? last + 1 : now;
    return last;
}

void Look(Registry &registry, const Key &key) {
    if (registry.group.isOpen && key.changedIn == registry.group.number) registry.isProvisional = true;
}

void OpenGroup(Registry &registry) {
    Begin(*registry.store);
    registry.group.isOpen = true;
    ++registry.group.number;
    registry.group.begun = FileTimeNow();
}

std::uint32_t AbandonGroup(Registry &registry, const std::exception &failure) {
    TellTrouble(registry.trouble, "not stored", failure, FileTimeNow());
    const std::uint32_t status = StatusOf(failure);
    RollBack(*registry.store);
    std::vector<Change> &wayBack = registry.group.wayBack;
    for (auto change = wayBack.rbegin(); change != wayBack.rend(); ++change) {
        GoBack(registry.tree, *change);
    }
    EndGroup(registry);
    registry.ended = status;
    return status;
}

std::uint32_t CommitGroup(Registry &registry) {
    if (!registry.group.isOpen) return 0;
    const std::uint64_t begun = FileTimeNow();
    try {
        Commit(*registry.store);
    } catch (const std::exception &failure) {
        return AbandonGroup(registry, failure);
    }
    TellTroubleIsOver(registry.trouble);
    registry.group.commitTook = FileTimeNow() - begun;
    EndGroup(registry);
    registry.ended = 0;
    return 0;
}

bool IsGroupFull(const Group &group) {
    return group.writes >= maxWrites || group.writtenBytes >= maxWrittenBytes ||
           FileTimeNow() - group.begun >= AgeOf(group);
}

int PatienceOf(const Group &group, std::size_t clientsAwaited) {
    if (!group.isOpen || clientsAwaited == 0) return 0;
    const std::uint64_t age = FileTimeNow() - group.begun; // very long when the clock was set back
    return age < WaitOf(group) ? static_cast<int>((WaitOf(group) - age) / 10) : 0;
}

Key *HangKey(Registry &registry, Key &parent, std::unique_ptr<Key> key) {
    Key *made = AddKey(registry.tree, parent, std::move(key));
    parent.changedIn = registry.group.number;
    NoteChange(registry, *made, {.kind = Change::Kind::KeyMade, .key = made});
    return made;
}

void BuryKey(Registry &registry, Key &key, bool isErased) {
    Key &parent = *key.parent;
    parent.changedIn = registry.group.number;
    const std::size_t index = BuryKey(registry.tree, key);
    key.isErased = isErased;
    NoteChange(registry, key, {.kind = Change::Kind::KeyBuried, .key = &key, .parent = &parent, .index = index});
}

void TouchKey(Registry &registry, Key &key, std::uint64_t written) {
    NoteChange(registry, key, {.kind = Change::Kind::KeyTouched, .key = &key, .written = key.written});
    key.written = written;
}

void HangValue(Registry &registry, Key &key, Value value) {
    Value *made = AddValue(key, std::move(value));
    NoteChange(registry, key, {.kind = Change::Kind::ValueMade, .key = &key, .value = made});
}

void ReplaceValue(Registry &registry, Key &key, Value &value, Value by) {
    std::swap(value.type, by.type);
    std::swap(value.data, by.data);
    Change change{.kind = Change::Kind::ValueReplaced, .key = &key, .value = &value};
    change.before = std::make_unique<Value>(std::move(by));
    NoteChange(registry, key, std::move(change));
}

void TakeValueOut(Registry &registry, Key &key, Value &value) {
    Change change{.kind = Change::Kind::ValueDeleted, .key = &key};
    change.before = TakeOutValue(key, value, &change.index);
    NoteChange(registry, key, std::move(change));
}

void SetHives(Registry &registry, std::vector<Hive> hives) {
    registry.tree.hives.swap(hives);
    registry.group.wayBack.push_back(
        {.kind = Change::Kind::HivesChanged, .hives = std::make_unique<std::vector<Hive>>(std::move(hives))});
}
