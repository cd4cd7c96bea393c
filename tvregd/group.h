// SPDX-License-Identifier: MIT
// group: the writes that share one commit, and the way back when it fails.
//
//   state   event                      next state
//   closed  a write                    open: a transaction of the database
//   open    another write              open: rows and tree have changed, the way back is noted
//   open    CommitGroup                closed: the database has all of it
//   open    a failure of the database  closed: nothing was written, the tree is again as the database has it
//
// The tree shows a change at once, to the one who made it and to everybody else, so that an answer may tell of what the
// database does not have yet. Such an answer is provisional: it must not leave before the group is committed, and not
// at all when that fails. Thread: the only one.
#pragma once

#include "tvregd/store.h"
#include "tvregd/tree.h"
#include "tvregd/trouble.h"

// One step of the way back.
struct Change {
    enum class Kind { KeyMade, KeyBuried, KeyTouched, ValueMade, ValueReplaced, ValueDeleted, HivesChanged } kind;
    Key *key = nullptr;                         // that was made, buried or touched; of the value
    Key *parent = nullptr;                      // of the key buried
    std::unique_ptr<Value> before{};            // the value deleted, or as it was before it was replaced
    Value *value = nullptr;                     // made or replaced
    std::size_t index = 0;                      // where the deleted one stood
    std::uint64_t written = 0;                  // the time that the key had
    std::unique_ptr<std::vector<Hive>> hives{}; // as they were
};

struct Group {
    bool isOpen = false;
    std::uint32_t number = 0;     // of the group that is open or was last; a key has that of its last change
    std::size_t writes = 0;       // in the open group
    std::size_t writtenBytes = 0; // of names and data
    std::uint64_t begun = 0;      // FILETIME
    std::uint64_t commitTook = 0; // the last one, in steps of 100 ns
    std::vector<Change> wayBack;
};

struct Registry {
    Tree tree;
    Store *store = nullptr; // borrowed
    Group group{};
    std::size_t pieceRows = 500;               // to be erased next; see graveyard.h
    std::uint64_t erased = 0, eraseFailed = 0; // FILETIME of the last pieces; see graveyard.h
    bool isProvisional = false;                // what the present operation saw or did; for the caller to reset
    std::optional<std::uint32_t> ended{};      // a group has ended with this code; to be told those in it, then reset
    Trouble trouble{};
};

// Now as a FILETIME: 100-nanosecond steps since 1601.
std::uint64_t FileTimeNow();

// The same for a change: each is later than the one before, so that whoever looks again at a key that has changed sees
// that by its time; but for a clock that is set back by more than a minute.
std::uint64_t TimeOfChange();

// Notes that an answer tells of the key. Whoever looks at a key for an answer says so.
void Look(Registry &registry, const Key &key);

// Executes Store... functions in the open group, opening one when there is none; the tree is changed behind it, with
// the functions below.
//   bytes  of names and data, about
// Returns 0; or the code of the failure, with which the group has been given up.
template <typename Writes>
[[nodiscard]] std::uint32_t WriteRows(Registry &registry, std::size_t bytes, Writes writes);

// Changes to the tree, each with its way back.
Key *HangKey(Registry &registry, Key &parent, std::unique_ptr<Key> key);
void BuryKey(Registry &registry, Key &key, bool isErased);
void TouchKey(Registry &registry, Key &key, std::uint64_t written);
void HangValue(Registry &registry, Key &key, Value value);
void ReplaceValue(Registry &registry, Key &key, Value &value, Value by); // type and data; the name stays
void TakeValueOut(Registry &registry, Key &key, Value &value);

void SetHives(Registry &registry, std::vector<Hive> hives);

// Whether the group has become so large or old that it should not wait for more writes.
bool IsGroupFull(const Group &group);

// How long the open group should wait for further writes when none is there, in microseconds: as long as clients are
// awaited who had to do with the last group and may write again, but no longer than a commit takes. Clients that write
// as soon as they are answered come one after the other: the first of them alone would make a commit of its own, and
// the others wait for it.
int PatienceOf(const Group &group, std::size_t clientsAwaited);

// Ends the open group, if there is one, and says so in `ended`. Returns 0; 112 when the disk is full; 8; 1016.
std::uint32_t CommitGroup(Registry &registry);

// Gives the open group up, if there is one, after what has happened there; a text goes to stderr. Returns its code.
std::uint32_t AbandonGroup(Registry &registry, const std::exception &failure);

// --- implementation ---

void OpenGroup(Registry &registry);

template <typename Writes>
std::uint32_t WriteRows(Registry &registry, std::size_t bytes, Writes writes) {
    try {
        if (!registry.group.isOpen) OpenGroup(registry);
        writes();
    } catch (const std::exception &failure) {
        return AbandonGroup(registry, failure);
    }
    ++registry.group.writes;
    registry.group.writtenBytes += bytes;
    registry.isProvisional = true;
    return 0;
}
