// SPDX-License-Identifier: MIT
// The daemon against a model of its rules: thousands of calls drawn by lot, each reply compared; at the end the
// registry, and all of it again after the daemon has been started anew.
//
// SEED in the environment repeats the calls of a test that prints its seed; CALLS sets how many there are.
#include "tests/handlers/model.h"
#include "tests/handlers/suite.h"

#include <cinttypes>
#include <functional>
#include <random>

namespace {

constexpr int callsPerTest = 4000;

struct Play {
    std::mt19937_64 random;
    int names;       // how many services there can be
    int dependOneIn; // one service in this many gets dependencies
    Model model = {};
    std::deque<std::string> history = {};
    bool agrees = true;
};

// --- drawing ---

int Below(Play &play, int bound) { return static_cast<int>(play.random() % static_cast<unsigned>(bound)); }
bool OneIn(Play &play, int chance) { return Below(play, chance) == 0; }

template <typename Choice>
Choice OneOf(Play &play, std::initializer_list<Choice> choices) {
    return choices.begin()[Below(play, static_cast<int>(choices.size()))];
}

std::string SomeName(Play &play) {
    if (OneIn(play, 20)) return OneOf<std::string>(play, {"", "S1", "never", "with space", "\xC3\xA4rger"});
    return "s" + std::to_string(Below(play, play.names));
}

std::string SomeGroup(Play &play) { return OneOf<std::string>(play, {"", "", "g1", "g2", "g3", "g4"}); }
std::string SomePath(Play &play) { return OneOf<std::string>(play, {"", "/bin/p1", "/bin/p2", "/bin/p3 -x"}); }
std::string SomeAccount(Play &play) {
    return OneOf<std::string>(play, {"", "", "root", "daemon", "no-such-user-here"});
}

std::string SomeDisplayName(Play &play) {
    return OneIn(play, 6) ? "" : "Display " + std::to_string(Below(play, play.names * 3));
}

std::int32_t SomeHandle(Play &play) {
    if (OneIn(play, 15)) return OneOf<std::int32_t>(play, {-1, 49, 50, 99, 100, INT32_MAX, INT32_MIN});
    return Below(play, play.names + 2);
}

std::string SomeDependencies(Play &play) {
    if (!OneIn(play, play.dependOneIn)) return std::string(1, '\0');
    if (OneIn(play, 10)) return OneOf<std::string>(play, {"", "x", "s1", std::string("\0s1\0", 4)});
    Names names;
    for (int left = 1 + Below(play, 3); left > 0; --left) {
        names.push_back(OneIn(play, 4) ? "+" + SomeGroup(play) : SomeName(play));
    }
    return MultiSz(names);
}

// Nothing that starts by itself with the daemon.
std::uint32_t SomeStartType(Play &play) { return OneOf<std::uint32_t>(play, {3, 4, 5, 77, 0xFFFFFFFE}); }

std::uint32_t SomeType(Play &play) { return OneOf<std::uint32_t>(play, {0x10, 0x10, 0x20, 0x110, 1, 2, 8, 0}); }

svd_status_t SomeStatus(Play &play) {
    return {OneOf<std::int32_t>(play, {0x10, 0x20, -1}),
            OneOf<std::int32_t>(play, {1, 1, 1, 2, 3, 4, 4, 4, 5, 6, 7, 0, 99}),
            OneOf<std::int32_t>(play, {0, 1, 2, 3, 7}),
            Below(play, 2000),
            Below(play, 10),
            Below(play, 10),
            OneOf<std::int32_t>(play, {0, 0, 600000, -600000, INT32_MAX, INT32_MIN})};
}

// A changed string: none, or its bytes with or without a terminator, or with more behind it.
std::string Maybe(Play &play, const std::string &text) {
    if (!OneIn(play, 3)) return "";
    if (OneIn(play, 8)) return text;
    return OneIn(play, 8) ? Sz(text) + "tail" : Sz(text);
}

NewService SomeService(Play &play) {
    return {.name = SomeName(play),
            .displayName = SomeDisplayName(play),
            .serviceType = SomeType(play),
            .startType = SomeStartType(play),
            .errorControl = static_cast<std::uint32_t>(Below(play, 4)),
            .imagePath = SomePath(play),
            .group = SomeGroup(play),
            .dependencies = SomeDependencies(play),
            .account = SomeAccount(play),
            .tagWanted = Below(play, 3) - 1};
}

Change SomeChange(Play &play) {
    return {.handle = SomeHandle(play),
            .serviceType = OneIn(play, 2) ? 0xFFFFFFFF : SomeType(play),
            .startType = OneIn(play, 2) ? 0xFFFFFFFF : SomeStartType(play),
            .errorControl = OneIn(play, 4) ? 0xFFFFFFFF : static_cast<std::uint32_t>(Below(play, 4)),
            .imagePath = Maybe(play, SomePath(play)),
            .group = Maybe(play, SomeGroup(play)),
            .dependencies = OneIn(play, 2) ? "" : SomeDependencies(play),
            .account = Maybe(play, SomeAccount(play)),
            .password = Maybe(play, "secret"),
            .displayName = Maybe(play, SomeDisplayName(play)),
            .tagWanted = Below(play, 2)};
}

std::int32_t SomeRoom(Play &play) {
    return OneIn(play, 2) ? enoughBytes : OneOf<std::int32_t>(play, {0, -1, -500, 40, 60, 100, 150, 300});
}

// --- comparing ---

void Agree(Play &play, const std::string &call, const std::string &expected, const std::string &answered) {
    play.history.push_back(call + " -> " + answered);
    if (play.history.size() > 30) play.history.pop_front();
    if (expected == answered) return;
    play.agrees = false;
    std::string story;
    for (const std::string &line : play.history) {
        story += "\n  " + line;
    }
    ADD_FAILURE() << call << "\nmodel:  " << expected << "\ndaemon: " << answered << "\nlast calls:" << story;
}

std::string Show(const NewService &wanted) {
    return Line(wanted.name, wanted.displayName, wanted.serviceType, wanted.startType, wanted.errorControl,
                wanted.imagePath, wanted.group, wanted.dependencies, wanted.account, wanted.tagWanted);
}

std::string Show(const Change &change) {
    return Line(change.handle, change.serviceType, change.startType, change.errorControl, change.imagePath,
                change.group, change.dependencies, change.account, change.displayName, change.tagWanted);
}

void CompareRegistry(Play &play) {
    std::map<std::string, Values> expected;
    for (const ModelKey &key : play.model.services) {
        expected[key.name] = key.values;
    }
    EXPECT_EQ(ServicesInRegistry(), expected);
    EXPECT_EQ(ValuesOf(TagOrderPath()), play.model.tagOrder);
    play.agrees = play.agrees && !::testing::Test::HasFailure();
}

// What every record shows, by looking only.
void CompareRecords(Play &play) {
    for (std::int32_t handle = -1; handle <= static_cast<std::int32_t>(play.model.records.size()); ++handle) {
        const std::string at = std::to_string(handle);
        Agree(play, "query config " + at, QueryConfig(play.model, handle), LineOf(*QueryConfig(handle)));
        Agree(play, "query status " + at, QueryStatus(play.model, handle), LineOf(*QueryStatus(handle)));
        Agree(play, "dependencies " + at, EnumDepend(play.model, handle, 3, enoughBytes),
              LineOf(*EnumDepend(handle, 3, enoughBytes)));
    }
    for (std::int32_t filter : {0x30, 0x0B}) {
        Agree(play, "list", EnumStatus(play.model, 0, filter, 3, enoughBytes),
              LineOf(*EnumStatus(0, filter, 3, enoughBytes)));
    }
}

void Restart(Play &play) {
    StartDaemon();
    StartModel(play.model);
    if (IsFreshProcess()) play.model.replies = {};
    play.history.push_back("restart");
}

// --- playing ---

// One kind of call, and how often it is drawn.
struct Kind {
    int weight;
    std::function<void(Play &)> call;
};

const std::vector<Kind> kinds = {
    {1, [](Play &play) { Agree(play, "connect", Connect(play.model), Line(Connect("x"))); }},
    {12,
     [](Play &play) {
         const NewService wanted = SomeService(play);
         Agree(play, "create " + Show(wanted), Create(play.model, wanted), LineOf(*Create(wanted)));
     }},
    {6,
     [](Play &play) {
         const std::string name = SomeName(play);
         Agree(play, "open " + name, Open(play.model, name), LineOf(*Open(name)));
     }},
    {5,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         Agree(play, "delete " + std::to_string(handle), Delete(play.model, handle), Line(Delete(handle)));
     }},
    {12,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         Agree(play, "close " + std::to_string(handle), Close(play.model, handle), Line(Close(handle)));
     }},
    {2,
     [](Play &play) {
         const std::int32_t id = Below(play, 3);
         const std::string owner = "owner " + std::to_string(Below(play, 9));
         Agree(play, "lock " + std::to_string(id), Lock(play.model, id, owner), Line(Lock(id, owner)));
     }},
    {4,
     [](Play &play) {
         const std::int32_t id = Below(play, 3);
         Agree(play, "unlock " + std::to_string(id), Unlock(play.model, id), Line(Unlock(id)));
     }},
    {2,
     [](Play &play) {
         const auto reply = QueryLock();
         Agree(play, "query lock", QueryLock(play.model, reply->lockDurationSec), LineOf(*reply));
     }},
    {4,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         const std::string expected = Start(play.model, handle);
         if (expected.empty()) return; // it would start a process
         Agree(play, "start " + std::to_string(handle), expected, Line(Start(handle)));
     }},
    {6,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         const std::int32_t control = OneOf<std::int32_t>(play, {0, 1, 1, 2, 3, 4, 5, 127, 128, 255, 256, -1});
         Agree(play, "control " + std::to_string(handle) + " " + std::to_string(control),
               Control(play.model, handle, control), LineOf(*Control(handle, control)));
     }},
    {10,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         const svd_status_t status = SomeStatus(play);
         Agree(play, "set status " + std::to_string(handle) + Line(status), SetStatus(play.model, handle, status),
               Line(SetStatus(handle, status)));
     }},
    {4,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         Agree(play, "query status " + std::to_string(handle), QueryStatus(play.model, handle),
               LineOf(*QueryStatus(handle)));
     }},
    {4,
     [](Play &play) {
         const std::int32_t resume = OneIn(play, 3) ? SomeHandle(play) : 0;
         const std::int32_t type = OneOf<std::int32_t>(play, {0x30, 0x10, 0x0B, 0x08, 0x3B, 0, 4, -1});
         const std::int32_t state = OneOf<std::int32_t>(play, {3, 3, 1, 2, 0, 7});
         const std::int32_t room = SomeRoom(play);
         Agree(play, "list" + Line(resume, type, state, room), EnumStatus(play.model, resume, type, state, room),
               LineOf(*EnumStatus(resume, type, state, room)));
     }},
    {4,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         const std::int32_t state = OneOf<std::int32_t>(play, {3, 3, 1, 2, 0, 7});
         const std::int32_t room = SomeRoom(play);
         Agree(play, "dependencies" + Line(handle, state, room), EnumDepend(play.model, handle, state, room),
               LineOf(*EnumDepend(handle, state, room)));
     }},
    {2,
     [](Play &play) {
         const std::string name = SomeName(play);
         Agree(play, "display " + name, GetDisplay(play.model, name), LineOf(*GetDisplay(name)));
     }},
    {2,
     [](Play &play) {
         const std::string name = SomeDisplayName(play);
         Agree(play, "key " + name, GetKey(play.model, name), LineOf(*GetKey(name)));
     }},
    {5,
     [](Play &play) {
         const std::int32_t handle = SomeHandle(play);
         Agree(play, "query config " + std::to_string(handle), QueryConfig(play.model, handle),
               LineOf(*QueryConfig(handle)));
     }},
    {12,
     [](Play &play) {
         const Change change = SomeChange(play);
         Agree(play, "change " + Show(change), ChangeConfig(play.model, change), LineOf(*ChangeConfig(change)));
     }},
};

// What the first daemon finds: an order of groups, tag vectors, and names where a deletion looks for them.
void Prepare(Play &play) {
    Model &model = play.model;
    model.groupOrder = {"g2", "unused", "g2", "g1"};
    model.tagOrder = {{"g1", AsBinary(Words({3, 2, 1, 3}))}, {"g2", {REG_NONE, Words({0xFFFFFFFF})}}};
    if (OneIn(play, 2)) model.servicesKeyValues = {{"Group", AsText("g1")}, {"ImagePath", AsText("/bin/p1")}};
    WriteModel(model);
}

std::uint64_t NumberFrom(const char *variable, std::uint64_t otherwise) {
    const char *text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

void PlayAgainstModel(std::uint64_t seed, int names, int dependOneIn) {
    if (!IsFreshProcess()) GTEST_SKIP() << "an earlier test of this process has called procedures";
    seed = NumberFrom("SEED", seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    Play play = {.random = std::mt19937_64(seed), .names = names, .dependOneIn = dependOneIn};
    int weights = 0;
    for (const Kind &kind : kinds) {
        weights += kind.weight;
    }
    Prepare(play);
    Restart(play);
    const auto calls = static_cast<int>(NumberFrom("CALLS", callsPerTest));
    for (int i = 0; i < calls && play.agrees; ++i) {
        if (OneIn(play, 400)) Restart(play);
        int drawn = Below(play, weights);
        auto kind = kinds.begin();
        while (drawn >= kind->weight) {
            drawn -= (kind++)->weight;
        }
        kind->call(play);
    }
    if (play.agrees) CompareRecords(play);
    if (play.agrees) CompareRegistry(play);
    if (!play.agrees) return;
    Restart(play);
    CompareRecords(play);
    CompareRegistry(play);
}

TEST_F(Handlers, agree_with_the_model_over_few_services) { PlayAgainstModel(20261121, 12, 2); }

TEST_F(Handlers, agree_with_the_model_over_more_services_than_the_first_array_holds) { PlayAgainstModel(4711, 75, 8); }

TEST_F(Handlers, agree_with_the_model_from_a_seed_of_the_day) {
    const std::uint64_t seed = std::random_device()();
    std::printf("seed %" PRIu64 "\n", seed);
    PlayAgainstModel(seed, 16, 3);
}

} // namespace
