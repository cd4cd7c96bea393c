// SPDX-License-Identifier: MIT
// The registry daemon's operations on a database in a temporary folder.
#include "servd/service_keys.h"
#include "tests/support/registry_in_file.h"
#include "tvregd/planting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

int syncs = 0;

} // namespace

// In the place of the C library's: databases are synced with it. Nothing here outlives the machine.
extern "C" int fdatasync(int /*descriptor*/) {
    ++syncs;
    return 0;
}

namespace {

using Tvregd = RegistryInFile;

} // namespace

TEST_F(Tvregd, all_seven_roots_open_by_their_predefined_handles) {
    for (std::uint32_t root = HKEY_CLASSES_ROOT; root <= HKEY_DYN_DATA; ++root) {
        EXPECT_EQ(Open(root, ""), root);
    }
    EXPECT_EQ(CodeOfOpen(HKEY_DYN_DATA + 1, ""), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(Tvregd, handle_that_was_never_given_out_answers_6) {
    const std::uint32_t handle = Make(HKEY_LOCAL_MACHINE, "a");
    for (const std::uint32_t wrong :
         {0u, 1u, 7u, handle + 1, 0x00100000u | handle, 0x0FF00000u, 0xFFFFFFFFu, 0x7FFFFFFFu})
        EXPECT_EQ(CodeOfOpen(wrong, ""), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE)) << wrong;
}

TEST_F(Tvregd, create_makes_the_whole_path_and_tells_new_from_old) {
    Key *key = nullptr;
    std::uint32_t disposition = 0;
    EXPECT_EQ(CreateKey(registry, HKEY_LOCAL_MACHINE, "a\\b\\c", "kind", 0, &key, &disposition), 0u);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    EXPECT_EQ(key->name, "c");
    EXPECT_EQ(key->keyClass, "kind");
    const std::uint32_t handle = HandleOf(*key);
    EXPECT_EQ(CreateKey(registry, HKEY_LOCAL_MACHINE, "a\\b\\c", "other", 0, &key, &disposition), 0u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(HandleOf(*key), handle);
    EXPECT_EQ(key->keyClass, "kind");
    EXPECT_EQ(CreateKey(registry, HKEY_LOCAL_MACHINE, "a\\b\\d", std::nullopt, 0, &key, &disposition), 0u);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
}

TEST_F(Tvregd, names_keep_their_case_and_are_found_in_any) {
    const std::uint32_t handle = Make(HKEY_LOCAL_MACHINE, "SYSTEM\\Services");
    EXPECT_EQ(Make(HKEY_LOCAL_MACHINE, "system\\sERVICES"), handle);
    EXPECT_THAT(SubKeys(HKEY_LOCAL_MACHINE), ElementsAre("SYSTEM"));
    EXPECT_EQ(Set(handle, "Start", "1"), 0u);
    EXPECT_EQ(Set(handle, "START", "2"), 0u);
    EXPECT_THAT(Values(handle), ElementsAre("Start"));
    ASSERT_NE(Get(handle, "start"), nullptr);
    EXPECT_EQ(Get(handle, "start")->data, "2");
}

TEST(NameTable, finds_what_is_in_it_whatever_has_been_added_and_removed) {
    struct Entry {
        std::string name;
    };
    std::vector<Entry> entries;
    for (int i = 0; i < 3000; ++i) {
        entries.push_back({"Name" + std::to_string(i)});
    }
    NameTable<Entry> table;
    std::set<const Entry *> inTable;
    std::minstd_rand random(1);
    for (int step = 0; step < 40'000; ++step) {
        Entry &entry = entries[random() % entries.size()];
        if (random() % 2 == 0) {
            EXPECT_EQ(AddName(table, entry), inTable.insert(&entry).second);
        } else {
            RemoveName(table, entry);
            inTable.erase(&entry);
        }
    }
    EXPECT_EQ(table.count, inTable.size());
    for (Entry &entry : entries) {
        EXPECT_EQ(FindName(table, entry.name), inTable.contains(&entry) ? &entry : nullptr);
    }
    Entry other{"NAME7"};
    (void)AddName(table, entries[7]);
    RemoveName(table, other); // of the same name, but not in it
    EXPECT_EQ(FindName(table, "nAME7"), &entries[7]);
    EXPECT_FALSE(AddName(table, other));
}

TEST_F(Tvregd, names_ignore_case_by_simple_folding_and_bytes_that_are_no_utf8_stand_for_themselves) {
    using Pair = std::pair<const char *, const char *>;
    for (const auto &[a, b] : {Pair{"ÄRGER", "ärger"}, Pair{"ΣΊΣΥΦΟΣ", "σίσυφος"}, Pair{"Ǆ", "ǆ"}, Pair{"Ж", "ж"},
                               Pair{"K\u212A", "kk"}, Pair{"𐐀", "𐐨"}, Pair{"a\xFFÄ", "A\xFFä"}, Pair{"\xC3", "\xC3"}}) {
        EXPECT_TRUE(AreNamesEqual(a, b)) << a;
        EXPECT_EQ(HashOfName(a), HashOfName(b)) << a;
    }
    for (const auto &[a, b] : {Pair{"straße", "strasse"}, Pair{"ä", "a\u0308"}, Pair{"İ", "i"}, Pair{"ı", "i"},
                               Pair{"a", "ab"}, Pair{"\xC4", "\xE4"}, Pair{"\xC3", "\xC3\x83"},
                               Pair{"\xED\xA0\x80", "\uFFFD"}, Pair{"\xF4\x90\x80\x80", "\uFFFD"}, Pair{"\xFF", "ÿ"}}) {
        EXPECT_FALSE(AreNamesEqual(a, b)) << a;
    }
    const std::uint32_t handle = Make(HKEY_USERS, "Ärger\\Größe");
    EXPECT_EQ(Open(HKEY_USERS, "äRGER\\gRÖßE"), handle);
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("Ärger"));
    EXPECT_EQ(Set(handle, "Übung", "1"), 0u);
    EXPECT_EQ(Set(handle, "übung", "2"), 0u);
    EXPECT_THAT(Values(handle), ElementsAre("Übung"));
    EXPECT_EQ(DeleteValue(registry, handle, "ÜBUNG"), 0u);
}

TEST_F(Tvregd, lists_find_their_entries_whether_they_are_few_or_many) {
    const auto name = [](int i, char letter) { return std::string(1, letter) + std::to_string(i); };
    for (int i = 0; i < 100; ++i) {
        const std::uint32_t made = Make(HKEY_USERS, name(i, 'K'));
        EXPECT_EQ(Open(HKEY_USERS, name(i, 'k')), made);
        EXPECT_EQ(Set(HKEY_USERS, name(i, 'V'), name(i, 'd')), 0u);
        for (int earlier = 0; earlier <= i; ++earlier) {
            ASSERT_EQ(Get(HKEY_USERS, name(earlier, 'v'))->data, name(earlier, 'd'));
        }
    }
    for (int i = 99; i >= 0; i -= 2) {
        EXPECT_EQ(DeleteKey(registry, HKEY_USERS, name(i, 'k')), 0u);
        EXPECT_EQ(DeleteValue(registry, HKEY_USERS, name(i, 'v')), 0u);
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Open(HKEY_USERS, name(i, 'k')) != 0, i % 2 == 0);
        EXPECT_EQ(Get(HKEY_USERS, name(i, 'v')) != nullptr, i % 2 == 0);
    }
}

TEST_F(Tvregd, malformed_paths_answer_161_and_one_backslash_at_the_end_is_allowed) {
    const std::uint32_t handle = Make(HKEY_LOCAL_MACHINE, "a\\b");
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "a\\b\\"), handle);
    for (const char *path : {"\\a", "a\\\\b", "\\"}) {
        EXPECT_EQ(CodeOfOpen(HKEY_LOCAL_MACHINE, path), static_cast<std::uint32_t>(ERROR_BAD_PATHNAME)) << path;
        EXPECT_EQ(CodeOfMake(HKEY_LOCAL_MACHINE, path), static_cast<std::uint32_t>(ERROR_BAD_PATHNAME)) << path;
    }
    EXPECT_EQ(CodeOfMake(HKEY_LOCAL_MACHINE, "x\\\\y"), static_cast<std::uint32_t>(ERROR_BAD_PATHNAME));
    EXPECT_EQ(CodeOfOpen(HKEY_LOCAL_MACHINE, "x"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(Tvregd, too_long_names_and_too_deep_keys_answer_87_and_make_nothing) {
    EXPECT_EQ(CodeOfMake(HKEY_LOCAL_MACHINE, std::string(maxKeyNameBytes, 'n')), 0u);
    EXPECT_EQ(CodeOfMake(HKEY_USERS, "a\\" + std::string(maxKeyNameBytes + 1, 'n')),
              static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    std::string deep = "d";
    for (std::uint32_t depth = 1; depth < maxKeyDepth; ++depth) {
        deep += "\\d";
    }
    EXPECT_EQ(CodeOfMake(HKEY_CURRENT_CONFIG, deep), 0u);
    EXPECT_EQ(CodeOfMake(HKEY_USERS, deep + "\\d"), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre());
    EXPECT_EQ(Set(HKEY_USERS, std::string(maxValueNameBytes, 'v'), ""), 0u);
    EXPECT_EQ(Set(HKEY_USERS, std::string(maxValueNameBytes + 1, 'v'), ""),
              static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    Restart();
    EXPECT_EQ(CodeOfOpen(HKEY_CURRENT_CONFIG, deep), 0u);
    EXPECT_EQ(DeleteKey(registry, HKEY_CURRENT_CONFIG, "d"), 0u);
    EXPECT_THAT(SubKeys(HKEY_CURRENT_CONFIG), ElementsAre());
}

TEST_F(Tvregd, keys_and_values_are_listed_in_the_order_in_which_they_came) {
    for (const char *name : {"zeta", "Alpha", "mid"}) {
        (void)Make(HKEY_USERS, name);
        EXPECT_EQ(Set(HKEY_USERS, name, name), 0u);
    }
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("zeta", "Alpha", "mid"));
    EXPECT_EQ(Set(HKEY_USERS, "ZETA", "again"), 0u);
    EXPECT_THAT(Values(HKEY_USERS), ElementsAre("zeta", "Alpha", "mid"));
    Restart();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("zeta", "Alpha", "mid"));
    EXPECT_THAT(Values(HKEY_USERS), ElementsAre("zeta", "Alpha", "mid"));
}

TEST_F(Tvregd, deleting_moves_the_following_down_by_one_index) {
    for (const char *name : {"a", "b", "c"}) {
        (void)Make(HKEY_USERS, name);
        EXPECT_EQ(Set(HKEY_USERS, name, name), 0u);
    }
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "B"), 0u);
    EXPECT_EQ(DeleteValue(registry, HKEY_USERS, "A"), 0u);
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("a", "c"));
    EXPECT_THAT(Values(HKEY_USERS), ElementsAre("b", "c"));
    (void)Make(HKEY_USERS, "b");
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("a", "c", "b"));
    Restart();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("a", "c", "b"));
    EXPECT_THAT(Values(HKEY_USERS), ElementsAre("b", "c"));
}

TEST_F(Tvregd, deleting_a_key_deletes_what_is_below_it) {
    const std::uint32_t key = Make(HKEY_USERS, "top");
    const std::uint32_t below = Make(key, "in\\deeper");
    EXPECT_EQ(Set(below, "v", "1"), 0u);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "top"), 0u);
    EXPECT_EQ(CodeOfOpen(HKEY_USERS, "top"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(store->database.execAndGet("SELECT count(*) FROM key_values").getInt(), 0);
    EXPECT_EQ(store->database.execAndGet("SELECT count(*) FROM keys").getInt(), static_cast<int>(rootCount));
}

TEST_F(Tvregd, handle_of_a_deleted_key_answers_1018_and_still_closes) {
    const std::uint32_t key = Make(HKEY_USERS, "top");
    const std::uint32_t below = Make(key, "in");
    EXPECT_EQ(DeleteKey(registry, key, ""), 0u);
    for (const std::uint32_t handle : {key, below}) {
        EXPECT_EQ(CodeOfOpen(handle, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        EXPECT_EQ(Set(handle, "v", ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        EXPECT_EQ(CloseKey(registry, handle), 0u);
    }
    const std::uint32_t again = Make(HKEY_USERS, "top");
    EXPECT_NE(again, key);
    EXPECT_NE(again, below);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "top"), 0u);
    Restart();
    EXPECT_EQ(CodeOfOpen(again, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    EXPECT_NE(Make(HKEY_USERS, "top"), again);
}

// --- much that is deleted ---

TEST_F(Tvregd, a_key_with_much_below_it_is_gone_at_once_and_its_rows_go_in_pieces) {
    MakeMuch();
    const std::uint32_t below = Open(HKEY_USERS, "much\\k7\\s3"), other = Make(HKEY_USERS, "other");
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "much"), 0u);
    EXPECT_EQ(CodeOfOpen(HKEY_USERS, "much"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(CodeOfOpen(below, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    const std::uint32_t again = Make(HKEY_USERS, "much");
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("other", "much"));
    EXPECT_FALSE(EraseSome(registry)) << "the group might be given up";
    EXPECT_EQ(CommitGroup(registry), 0u);
    const int before = RowsOnDisk("keys") + RowsOnDisk("key_values");
    EXPECT_GT(before, 6000) << "the deletion itself erases nothing";
    int pieces = 1, rows = before;
    for (; EraseSome(registry); ++pieces) {
        const int left = RowsOnDisk("keys") + RowsOnDisk("key_values");
        EXPECT_LT(left, rows);
        EXPECT_GE(left, rows - 2100);
        EXPECT_EQ(CodeOfOpen(below, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        rows = left;
    }
    EXPECT_GE(pieces, 4);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 2);
    EXPECT_EQ(RowsOnDisk("key_values"), 0);
    EXPECT_EQ(RowsOnDisk("deleted_keys"), 0);
    EXPECT_EQ(CodeOfOpen(below, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    EXPECT_EQ(Open(other, ""), other);
    Restart();
    EXPECT_EQ(Open(HKEY_USERS, "much"), again);
    EXPECT_EQ(CodeOfOpen(below, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
}

TEST_F(Tvregd, a_daemon_that_ends_in_the_middle_of_erasing_goes_on_with_it_at_the_next_start) {
    MakeMuch();
    const std::uint32_t below = Open(HKEY_USERS, "much\\k7\\s3");
    (void)Make(HKEY_USERS, "other");
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "much"), 0u);
    for (int restart = 0; restart < 2; ++restart) {
        Restart();
        EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("other"));
        EXPECT_EQ(CodeOfOpen(below, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        EXPECT_TRUE(EraseSome(registry));
    }
    Restart();
    while (EraseSome(registry)) {
    }
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 1);
    EXPECT_EQ(RowsOnDisk("key_values"), 0);
    EXPECT_EQ(RowsOnDisk("deleted_keys"), 0);
}

// The row of the outer key goes with its deletion, those below the inner one later: after a restart they have no
// parent.
TEST_F(Tvregd, a_daemon_that_ends_between_deleting_a_key_and_erasing_one_deleted_below_it_before_starts_again) {
    for (int number = 0; number < 300; ++number) {
        (void)Make(HKEY_USERS, "outer\\inner\\k" + std::to_string(number));
    }
    (void)Make(HKEY_USERS, "other");
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "outer\\inner"), 0u);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "outer"), 0u);
    Restart();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("other"));
    while (EraseSome(registry)) {
    }
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 1);
    EXPECT_EQ(RowsOnDisk("deleted_keys"), 0);
}

TEST_F(Tvregd, a_deletion_of_much_that_fails_leaves_all_of_it) {
    MakeMuch();
    const std::string before = Picture();
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "much"), 0u);
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(Set(HKEY_USERS, "refused", ""), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(Picture(), before);
    EXPECT_FALSE(EraseSome(registry));
    Restart();
    EXPECT_EQ(Picture(), before);
}

TEST_F(Tvregd, erasing_that_fails_is_tried_again_later) {
    MakeMuch();
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "much"), 0u);
    EXPECT_EQ(CommitGroup(registry), 0u);
    const int rows = RowsOnDisk("keys");
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_FALSE(EraseSome(registry));
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_TRUE(IsAnythingBuried(registry));
    EXPECT_FALSE(EraseSome(registry)) << "not at once";
    EXPECT_EQ(RowsOnDisk("keys"), rows);
    registry.eraseFailed -= 10'000'000;
    while (EraseSome(registry)) {
    }
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount));
    EXPECT_FALSE(IsAnythingBuried(registry));
}

TEST_F(Tvregd, a_root_cannot_be_deleted) {
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, ""), static_cast<std::uint32_t>(ERROR_ACCESS_DENIED));
}

// --- roots that show other keys ---

TEST_F(Tvregd, two_roots_show_keys_below_other_roots_and_make_them_when_they_are_written_to) {
    for (const auto &[root, above, path] : {std::tuple{HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, "Software\\Classes"},
                                            std::tuple{HKEY_CURRENT_USER, HKEY_USERS, ".Default"}}) {
        EXPECT_EQ(Open(root, ""), root) << "shows nothing yet";
        EXPECT_THAT(SubKeys(root), ElementsAre());
        EXPECT_THAT(Values(root), ElementsAre());
        EXPECT_EQ(CodeOfOpen(root, "x"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(CodeOfOpen(above, path), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND)) << "looking makes nothing";
        const std::uint32_t made = Make(root, "x\\y");
        EXPECT_EQ(Open(above, path + std::string("\\X\\Y")), made);
        EXPECT_EQ(Open(root, ""), Open(above, path));
        EXPECT_THAT(SubKeys(root), ElementsAre("x"));
        EXPECT_EQ(DeleteKey(registry, root, ""), static_cast<std::uint32_t>(ERROR_ACCESS_DENIED)) << "a root";
        EXPECT_EQ(DeleteKey(registry, above, path), 0u);
        EXPECT_THAT(SubKeys(root), ElementsAre());
        EXPECT_EQ(Set(root, "v", "1"), 0u);
        EXPECT_EQ(Get(Open(above, path), "v")->data, "1");
        Restart();
        EXPECT_THAT(Values(root), ElementsAre("v"));
        EXPECT_EQ(DeleteValue(registry, root, "v"), 0u);
        EXPECT_THAT(Values(Open(above, path)), ElementsAre());
    }
}

TEST_F(Tvregd, an_answer_through_a_root_that_shows_an_uncommitted_change_is_provisional) {
    (void)Make(HKEY_USERS, "quiet");
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_TRUE(IsProvisional([&] { (void)Make(HKEY_USERS, ".Default\\x"); }));
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(SubKeys(HKEY_CURRENT_USER).size(), 1u); }));
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(DeleteKey(registry, HKEY_USERS, ".Default"), 0u); }));
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(SubKeys(HKEY_CURRENT_USER).size(), 0u); }));
}

// As an earlier version has left it: with content of their own below these roots.
TEST_F(Tvregd, what_lay_below_a_root_that_shows_other_keys_is_moved_to_them_and_nothing_is_lost) {
    const std::uint32_t there = Make(HKEY_LOCAL_MACHINE, "Software\\Classes\\.txt\\shell");
    const std::uint32_t txt = Open(HKEY_LOCAL_MACHINE, "Software\\Classes\\.txt");
    EXPECT_EQ(Set(txt, "same", "1"), 0u);
    EXPECT_EQ(Set(txt, "differs", "there"), 0u);
    EXPECT_EQ(CommitGroup(registry), 0u);
    store->database.exec(R"(
        INSERT INTO keys VALUES (5000, 1, 5000, '.TXT', 'kind', 0, 7), (5001, 5000, 5001, 'shell', NULL, 0, 7),
            (5002, 5001, 5002, 'open', NULL, 0, 7), (5003, 1, 5003, '.doc', NULL, 0, 7),
            (5004, 5003, 5004, 'below', NULL, 0, 7), (5005, 2, 5005, 'mine', NULL, 0, 7);
        INSERT INTO key_values VALUES (600, 1, 'own', 1, x'61', 7), (601, 5000, 'SAME', 1, x'31', 7),
            (602, 5000, 'Differs', 1, x'32', 7), (603, 5002, 'deep', 3, x'0001', 7), (604, 2, 'me', 1, x'62', 7);
        UPDATE counters SET last_number = 5005;)");
    testing::internal::CaptureStderr();
    Restart();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("another value has the name of Differs, which is Differs (2) now"));
    for (int opened = 0; opened < 2; ++opened) {
        EXPECT_THAT(SubKeys(HKEY_CLASSES_ROOT), ElementsAre(".txt", ".doc"));
        EXPECT_THAT(Values(HKEY_CLASSES_ROOT), ElementsAre("own"));
        EXPECT_THAT(Values(txt), ElementsAre("same", "differs", "Differs (2)"));
        EXPECT_EQ(Get(txt, "differs")->data, "there");
        EXPECT_EQ(Get(txt, "differs (2)")->data, "2");
        Key *key = nullptr;
        ASSERT_EQ(OpenKey(registry, txt, "", &key), 0u);
        EXPECT_EQ(key->keyClass, "kind");
        EXPECT_THAT(SubKeys(there), ElementsAre("open"));
        EXPECT_EQ(Get(Open(there, "open"), "deep")->data, std::string("\0\1", 2));
        EXPECT_EQ(Open(HKEY_CLASSES_ROOT, ".doc\\below"), 5004u) << "keeps its handle";
        EXPECT_EQ(Open(HKEY_USERS, ".default\\mine"), 5005u);
        EXPECT_THAT(Values(HKEY_CURRENT_USER), ElementsAre("me"));
        EXPECT_EQ(CodeOfOpen(5000, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        Restart();
    }
    EXPECT_EQ(store->database.execAndGet("SELECT count(*) FROM keys WHERE parent IN (1, 2)").getInt(), 0);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 9);
}

TEST_F(Tvregd, handles_hold_over_a_restart_and_leave_the_clients_bits_clear) {
    std::vector<std::uint32_t> handles(50);
    for (std::size_t i = 0; i < handles.size(); ++i) {
        handles[i] = Make(HKEY_LOCAL_MACHINE, "k" + std::to_string(i));
    }
    Restart();
    for (std::size_t i = 0; i < handles.size(); ++i) {
        EXPECT_EQ(handles[i] & 0x8FF00000, 0u);
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "k" + std::to_string(i)), handles[i]);
    }
}

TEST_F(Tvregd, the_highest_numbers_use_the_bits_beside_the_clients) {
    registry.tree.lastNumber = 0xFFFFF;
    const std::uint32_t first = Make(HKEY_USERS, "first");
    EXPECT_EQ(first, 0x10000000u);
    registry.tree.lastNumber = maxKeyNumber - 1;
    const std::uint32_t last = Make(HKEY_USERS, "last");
    EXPECT_EQ(last, 0x700FFFFFu);
    EXPECT_EQ(Open(first, ""), first);
    EXPECT_EQ(Open(last, ""), last);
}

TEST_F(Tvregd, numbers_begin_again_when_all_were_used_and_pass_over_living_keys) {
    const std::uint32_t old = Make(HKEY_USERS, "old");
    registry.tree.lastNumber = maxKeyNumber;
    const std::uint32_t next = Make(HKEY_USERS, "next");
    EXPECT_EQ(old, rootCount + 1);
    EXPECT_EQ(next, rootCount + 2);
    (void)Make(HKEY_USERS, "third");
    Restart();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("old", "next", "third"));
}

TEST_F(Tvregd, values_keep_their_exact_bytes_and_types) {
    const std::string all("\0\x01\xFF\n\0", 5);
    const std::string big(300'000, 'x');
    EXPECT_EQ(Set(HKEY_USERS, "bytes", all, 77), 0u);
    EXPECT_EQ(Set(HKEY_USERS, "empty", "", REG_BINARY), 0u);
    EXPECT_EQ(Set(HKEY_USERS, "", "unnamed", REG_SZ), 0u);
    EXPECT_EQ(Set(HKEY_USERS, "big", big, 0xFFFFFFFF), 0u);
    Restart();
    ASSERT_THAT(Values(HKEY_USERS), ElementsAre("bytes", "empty", "", "big"));
    EXPECT_EQ(Get(HKEY_USERS, "bytes")->data, all);
    EXPECT_EQ(Get(HKEY_USERS, "bytes")->type, 77u);
    EXPECT_EQ(Get(HKEY_USERS, "empty")->data, "");
    EXPECT_EQ(Get(HKEY_USERS, "empty")->type, REG_BINARY);
    EXPECT_EQ(Get(HKEY_USERS, "")->data, "unnamed");
    EXPECT_EQ(Get(HKEY_USERS, "big")->data, big);
    EXPECT_EQ(Get(HKEY_USERS, "big")->type, 0xFFFFFFFFu);
}

TEST_F(Tvregd, missing_values_answer_2) {
    const Value *value = nullptr;
    EXPECT_EQ(QueryValue(registry, HKEY_USERS, "none", &value), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(DeleteValue(registry, HKEY_USERS, "none"), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ValueAt(registry, HKEY_USERS, 0, &value), static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
}

TEST_F(Tvregd, changes_move_the_write_time_of_the_key_that_they_happen_in) {
    const std::uint32_t handle = Make(HKEY_USERS, "k");
    Key *key = nullptr;
    ASSERT_EQ(OpenKey(registry, handle, "", &key), 0u);
    const std::uint64_t made = key->written;
    EXPECT_EQ(key->parent->written, made);
    EXPECT_GT(made, 132'000'000'000'000'000u); // some day of 2019
    EXPECT_EQ(Set(handle, "v", "1"), 0u);
    const std::uint64_t set = key->written;
    EXPECT_GT(set, made);
    EXPECT_EQ(key->parent->written, made);
    (void)Make(handle, "sub");
    const std::uint64_t below = key->written;
    EXPECT_GT(below, set);
    EXPECT_EQ(DeleteKey(registry, handle, "sub"), 0u);
    const std::uint64_t deleted = key->written;
    EXPECT_GT(deleted, below);
    Restart();
    ASSERT_EQ(OpenKey(registry, handle, "", &key), 0u);
    EXPECT_EQ(key->written, deleted);
    EXPECT_EQ(key->parent->written, made);
    EXPECT_EQ(Set(handle, "v", "2"), 0u);
    const std::uint64_t again = key->written;
    Restart();
    ASSERT_EQ(OpenKey(registry, handle, "", &key), 0u);
    EXPECT_EQ(key->written, again);
    EXPECT_EQ(DeleteValue(registry, handle, "v"), 0u);
    const std::uint64_t gone = key->written;
    EXPECT_GT(gone, again);
    Restart();
    ASSERT_EQ(OpenKey(registry, handle, "", &key), 0u);
    EXPECT_EQ(key->written, gone);
}

// Programs make the key with their event sources; without values the service daemon would load no service at all.
// Symptom: of three changes within a microsecond, the last had the time of the first.
TEST_F(Tvregd, each_change_is_later_than_the_one_before_however_fast_they_come) {
    std::uint64_t last = 0;
    for (int change = 0; change < 100'000; ++change) {
        const std::uint64_t now = TimeOfChange();
        ASSERT_GT(now, last) << "change " << change;
        last = now;
    }
}

TEST_F(Tvregd, the_key_of_the_event_sources_is_made_with_the_values_of_a_service_that_is_never_started) {
    const std::string services = servicesKeyPath;
    (void)Make(HKEY_LOCAL_MACHINE, services + "\\eventlog\\Application\\web");
    (void)Make(HKEY_LOCAL_MACHINE, services + "\\web\\EventLog");
    (void)Make(HKEY_USERS, services + "\\EventLog");
    const auto valuesOf = [&](std::uint32_t root, const std::string &path) {
        Key *key = nullptr;
        EXPECT_EQ(OpenKey(registry, root, path, &key), 0u);
        std::vector<std::string> values;
        for (const auto &value : key->values.inOrder) {
            values.push_back(value->name + "=" + value->data);
        }
        return values;
    };
    const auto isSeeded =
        ElementsAre(std::string("Type=\4\0\0\0", 9), std::string("Start=\4\0\0\0", 10),
                    std::string("ErrorControl=\0\0\0\0", 17), std::string("DisplayName=EventLog\0", 21));
    EXPECT_THAT(valuesOf(HKEY_LOCAL_MACHINE, services + "\\EventLog"), isSeeded);
    Restart();
    EXPECT_THAT(valuesOf(HKEY_LOCAL_MACHINE, services + "\\EventLog"), isSeeded);
    for (const char *other : {"", "\\EventLog\\Application", "\\EventLog\\Application\\web", "\\web\\EventLog"}) {
        EXPECT_THAT(valuesOf(HKEY_LOCAL_MACHINE, services + other), ElementsAre()) << other;
    }
    EXPECT_THAT(valuesOf(HKEY_USERS, services + "\\EventLog"), ElementsAre());
}

TEST_F(Tvregd, values_that_the_key_of_the_event_sources_lacks_at_start_are_added) {
    const std::string path = std::string(servicesKeyPath) + "\\EventLog";
    EXPECT_EQ(PlantSeeds(registry), 0u);
    Key *key = nullptr;
    EXPECT_EQ(OpenKey(registry, HKEY_LOCAL_MACHINE, path, &key), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
    const std::uint32_t handle = Make(HKEY_LOCAL_MACHINE, path);
    for (const char *name : {"Type", "Start", "ErrorControl"}) {
        EXPECT_EQ(DeleteValue(registry, handle, name), 0u);
    }
    EXPECT_EQ(Set(handle, "DisplayName", "Events"), 0u);
    Restart();
    EXPECT_EQ(PlantSeeds(registry), 0u);
    Restart();
    ASSERT_EQ(OpenKey(registry, HKEY_LOCAL_MACHINE, path, &key), 0u);
    EXPECT_EQ(FindValue(*key, "Type")->data, std::string("\4\0\0\0", 4));
    EXPECT_EQ(FindValue(*key, "DisplayName")->data, "Events");
    EXPECT_EQ(key->values.inOrder.size(), 4u);
}

TEST_F(Tvregd, volatile_keys_are_gone_after_a_restart_and_have_no_lasting_children) {
    const std::uint32_t handle = Make(HKEY_USERS, "passing", REG_OPTION_VOLATILE);
    EXPECT_EQ(Set(handle, "v", "1"), 0u);
    EXPECT_EQ(CodeOfMake(handle, "lasting"), static_cast<std::uint32_t>(ERROR_CHILD_MUST_BE_VOLATILE));
    EXPECT_EQ(CodeOfMake(handle, "more", REG_OPTION_VOLATILE), 0u);
    EXPECT_EQ(CodeOfMake(handle, "odd", 2), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    Restart();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre());
    EXPECT_EQ(CodeOfOpen(handle, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    while (EraseSome(registry)) {
    }
    EXPECT_EQ(RowsOnDisk("key_values"), 0);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount));
}

TEST_F(Tvregd, write_that_the_database_refuses_answers_1016_and_changes_nothing) {
    const std::uint32_t handle = Make(HKEY_USERS, "k");
    EXPECT_EQ(Set(handle, "v", "old"), 0u);
    EXPECT_EQ(CommitGroup(registry), 0u);
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(Set(handle, "v", "new"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    EXPECT_EQ(CodeOfMake(handle, "sub"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "k"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    EXPECT_EQ(DeleteValue(registry, handle, "v"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    EXPECT_EQ(Get(handle, "v")->data, "old");
    EXPECT_THAT(SubKeys(handle), ElementsAre());
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(Set(handle, "v", "new"), 0u);
    EXPECT_EQ(Get(handle, "v")->data, "new");
}

TEST_F(Tvregd, a_failing_disk_is_told_once_and_once_that_it_is_over) {
    testing::internal::CaptureStderr();
    store->database.exec("PRAGMA query_only = ON");
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(Set(HKEY_USERS, "v", "x"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    }
    store->database.exec("PRAGMA query_only = OFF");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Set(HKEY_USERS, "v", "x"), 0u);
        EXPECT_EQ(CommitGroup(registry), 0u);
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("tvregd: not stored: [^\n]+\ntvregd: the database can be written again\n"));
    testing::internal::CaptureStderr();
    Trouble trouble;
    const std::runtime_error failure("no room");
    for (std::uint64_t second = 1; second <= 119; ++second) {
        TellTrouble(trouble, "not stored", failure, second * 10'000'000);
        TellTroubleIsOver(trouble);
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 4) << "two a minute: " << told;
}

TEST_F(Tvregd, a_reader_of_messages_who_does_not_read_holds_up_nothing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int before = dup(STDERR_FILENO);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    const std::runtime_error failure(std::string(10'000, 'x'));
    for (int i = 0; i < 100; ++i) { // more than the pipe takes
        Trouble trouble;
        TellTrouble(trouble, "not stored", failure, 1);
        TellTroubleIsOver(trouble);
    }
    (void)dup2(before, STDERR_FILENO);
    for (const int descriptor : {before, ends[0], ends[1]}) {
        (void)close(descriptor);
    }
}

// --- writes that share a commit ---

TEST_F(Tvregd, writes_of_a_group_are_seen_at_once_and_are_in_the_database_when_it_is_committed) {
    const std::uint32_t handle = Make(HKEY_USERS, "k");
    EXPECT_EQ(Set(handle, "v", "1"), 0u);
    EXPECT_EQ(Get(handle, "v")->data, "1");
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount));
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(registry.ended, 0u);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 1);
    EXPECT_EQ(RowsOnDisk("key_values"), 1);
    EXPECT_EQ(CommitGroup(registry), 0u) << "nothing is left";
}

TEST_F(Tvregd, answers_that_tell_of_what_is_not_committed_are_provisional_and_others_are_not) {
    const std::uint32_t quiet = Make(HKEY_USERS, "quiet\\below"), written = Make(HKEY_USERS, "written");
    EXPECT_EQ(Set(quiet, "v", "1"), 0u);
    EXPECT_EQ(Set(written, "v", "1"), 0u);
    const std::uint32_t doomed = Make(written, "doomed");
    EXPECT_EQ(CommitGroup(registry), 0u);

    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(Set(written, "w", "2"), 0u); }));
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(Get(written, "v")->data, "1"); })) << "its key has changed";
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(SubKeys(HKEY_USERS).size(), 2u); })) << "its time is listed";
    EXPECT_FALSE(IsProvisional([&] { EXPECT_EQ(Get(quiet, "v")->data, "1"); }));
    EXPECT_FALSE(IsProvisional([&] { EXPECT_EQ(Open(HKEY_USERS, "quiet\\below"), quiet); }));
    EXPECT_FALSE(IsProvisional([&] { EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "none"), 0u); }));
    EXPECT_TRUE(IsProvisional([&] { (void)Make(HKEY_CURRENT_CONFIG, "new"); }));
    EXPECT_TRUE(IsProvisional([&] { (void)Make(HKEY_CURRENT_CONFIG, "NEW"); })) << "opens what is new";
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(Open(HKEY_CURRENT_CONFIG, "none"), 0u); })) << "might be there again";
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(DeleteKey(registry, doomed, ""), 0u); }));
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(Set(doomed, "v", ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED)); }));

    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_FALSE(IsProvisional([&] { EXPECT_EQ(Get(written, "w")->data, "2"); }));
    EXPECT_FALSE(
        IsProvisional([&] { EXPECT_EQ(Set(doomed, "v", ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED)); }));
}

// Every kind of change, in an order in which some undo others, and all that can be seen of it before and after.
TEST_F(Tvregd, a_group_that_fails_leaves_the_tree_as_the_database_has_it) {
    for (const char *path : {"a\\b\\c", "d", "e"}) {
        (void)Make(HKEY_USERS, path);
    }
    const std::uint32_t a = Open(HKEY_USERS, "a"), c = Open(HKEY_USERS, "a\\b\\c"), d = Open(HKEY_USERS, "d");
    for (const char *name : {"one", "two", "three"}) {
        EXPECT_EQ(Set(a, name, name), 0u);
    }
    EXPECT_EQ(CommitGroup(registry), 0u);
    const std::string before = Picture();

    EXPECT_EQ(DeleteValue(registry, a, "two"), 0u);
    EXPECT_EQ(Set(a, "ONE", "changed", REG_BINARY), 0u);
    EXPECT_EQ(Set(a, "one", "again"), 0u);
    EXPECT_EQ(Set(a, "two", "new"), 0u);
    EXPECT_EQ(Set(c, "deep", "x"), 0u);
    const std::uint32_t made = Make(c, "f\\g");
    EXPECT_EQ(Set(made, "", "x"), 0u);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "a\\b"), 0u);
    (void)Make(HKEY_USERS, "a\\b");
    EXPECT_EQ(DeleteKey(registry, d, ""), 0u);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "a"), 0u);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount) + 5);
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(Set(HKEY_USERS, "refused", "x"), static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(registry.ended, static_cast<std::uint32_t>(ERROR_REGISTRY_IO_FAILED));
    EXPECT_FALSE(registry.group.isOpen);

    EXPECT_EQ(Picture(), before);
    EXPECT_EQ(CodeOfOpen(made, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
    EXPECT_EQ(Open(c, ""), c);
    Restart();
    EXPECT_EQ(Picture(), before);
    EXPECT_EQ(Set(a, "one", "works"), 0u);
    Restart();
    EXPECT_EQ(Get(a, "one")->data, "works");
}

TEST_F(Tvregd, a_group_takes_only_so_many_writes_and_bytes_and_so_long) {
    EXPECT_EQ(Set(HKEY_USERS, "v", "x"), 0u);
    registry.group.begun = FileTimeNow() + 10'000'000; // nothing is old meanwhile
    EXPECT_TRUE(IsGroupFull(registry.group)) << "a clock that was set back";
    const auto age = [&](std::uint64_t by) { registry.group.begun = FileTimeNow() - by; };
    age(0);
    EXPECT_FALSE(IsGroupFull(registry.group));
    age(10'000'000);
    EXPECT_TRUE(IsGroupFull(registry.group));
    age(0);
    EXPECT_EQ(Set(HKEY_USERS, "v", std::string(5 << 20, 'x')), 0u);
    age(0);
    EXPECT_TRUE(IsGroupFull(registry.group));
    EXPECT_EQ(CommitGroup(registry), 0u);
    for (int i = 0; i < 10'000; ++i) {
        EXPECT_EQ(Set(HKEY_USERS, "v", "x"), 0u);
    }
    age(0);
    EXPECT_TRUE(IsGroupFull(registry.group));
}

TEST_F(Tvregd, a_group_waits_while_clients_are_awaited_and_no_longer_than_a_commit) {
    const auto write = [&] {
        EXPECT_EQ(Set(HKEY_USERS, "v", "x"), 0u);
        registry.group.begun = FileTimeNow();
    };
    EXPECT_EQ(PatienceOf(registry.group, 1), 0) << "none is open";
    write();
    EXPECT_EQ(PatienceOf(registry.group, 1), 0) << "nothing is known yet of commits";
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_GT(registry.group.commitTook, 0u);
    registry.group.commitTook = 20'000;
    write();
    EXPECT_EQ(PatienceOf(registry.group, 0), 0);
    EXPECT_GT(PatienceOf(registry.group, 1), 0);
    EXPECT_LE(PatienceOf(registry.group, 1), 2000);
    registry.group.begun -= 20'000;
    EXPECT_EQ(PatienceOf(registry.group, 1), 0);
    registry.group.begun = FileTimeNow() + 10'000'000;
    EXPECT_EQ(PatienceOf(registry.group, 1), 0) << "a clock that was set back";
    EXPECT_EQ(CommitGroup(registry), 0u);
    registry.group.commitTook = 100'000'000; // a disk that takes ten seconds
    write();
    EXPECT_LE(PatienceOf(registry.group, 1), 5000);
}

// --- what is on the disk ---

TEST_F(Tvregd, flush_waits_for_the_commit_and_no_reader_of_the_database_delays_it) {
    SQLite::Database reader(file, SQLite::OPEN_READONLY);
    reader.exec("BEGIN");
    (void)reader.execAndGet("SELECT count(*) FROM keys");
    const std::uint32_t handle = Make(HKEY_USERS, "k");
    const std::uint64_t begin = FileTimeNow();
    EXPECT_TRUE(IsProvisional([&] { EXPECT_EQ(FlushKey(registry, handle), 0u); }));
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_FALSE(IsProvisional([&] { EXPECT_EQ(FlushKey(registry, handle), 0u); }));
    EXPECT_LT(FileTimeNow() - begin, 5'000'000u) << "half a second";
    EXPECT_EQ(FlushKey(registry, handle + 1), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(Tvregd, every_commit_is_synced_and_a_lazy_one_by_the_flush_only) {
    for (const Durability durability : {Durability::full, Durability::normal}) {
        OpenAs(durability);
        SQLite::Database reader(file, SQLite::OPEN_READONLY);
        reader.exec("BEGIN");
        (void)reader.execAndGet("SELECT count(*) FROM keys");
        EXPECT_EQ(Set(HKEY_USERS, "first", "x"), 0u);
        EXPECT_EQ(CommitGroup(registry), 0u);
        syncs = 0;
        EXPECT_EQ(Set(HKEY_USERS, "v", "1"), 0u);
        EXPECT_EQ(CommitGroup(registry), 0u);
        EXPECT_EQ(syncs, durability == Durability::full ? 1 : 0);
        EXPECT_EQ(Set(HKEY_USERS, "v", "2"), 0u);
        EXPECT_EQ(FlushKey(registry, HKEY_USERS), 0u);
        if (durability == Durability::normal) {
            EXPECT_EQ(registry.ended, 0u) << "the group is committed with it";
        }
        EXPECT_EQ(CommitGroup(registry), 0u);
        EXPECT_EQ(syncs, durability == Durability::full ? 2 : 1);
    }
}

// As after a power failure that took a part of the log, or spoiled it. Pages of 512 bytes, so that there are fewer
// cuts; with TV_LONG every byte is one, else those around the ends of the frames and every 61st.
TEST_F(Tvregd, a_log_that_is_cut_or_spoiled_anywhere_leaves_whole_groups) {
    store.reset();
    std::filesystem::remove(file);
    SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec("PRAGMA page_size = 512; VACUUM");
    Open();
    std::vector<std::string> pictures = {Picture()};
    std::vector<std::uintmax_t> ends = {0}; // of the log
    const auto commit = [&] {
        EXPECT_EQ(CommitGroup(registry), 0u);
        pictures.push_back(Picture());
        ends.push_back(std::filesystem::file_size(file + "-wal"));
    };
    (void)Make(HKEY_USERS, "a\\b");
    commit();
    EXPECT_EQ(Set(HKEY_USERS, "v", "1"), 0u);
    EXPECT_EQ(Set(Open(HKEY_USERS, "a"), "v", std::string(700, 'x')), 0u);
    commit();
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "a\\b"), 0u);
    EXPECT_EQ(Set(HKEY_USERS, "v", "2"), 0u);
    commit();
    const std::string whole = Content(file), log = Content(file + "-wal");
    store.reset();
    ASSERT_EQ(log.size(), ends.back());

    const auto pictureOf = [&](const std::string &content) {
        std::filesystem::remove(file + "-shm");
        std::ofstream(file, std::ios::binary) << whole;
        std::ofstream(file + "-wal", std::ios::binary) << content;
        Open();
        const std::string picture = Picture();
        store.reset();
        return picture;
    };
    constexpr std::uintmax_t frame = 512 + 24;
    for (auto size = static_cast<std::size_t>(ends[1]); size <= log.size(); ++size) {
        const std::uintmax_t inFrame = (size - 32) % frame;
        const bool isTried = inFrame < 26 || inFrame > frame - 3 || size % 61 == 0;
        if (!isTried && std::getenv("TV_LONG") == nullptr) continue;
        std::size_t complete = 1;
        while (complete + 1 < ends.size() && ends[complete + 1] <= size) {
            ++complete;
        }
        ASSERT_EQ(pictureOf(log.substr(0, size)), pictures[complete]) << "cut at " << size << " of " << log.size();
        if (size == log.size()) break;
        std::string spoiled = log;
        spoiled[size] = static_cast<char>(~spoiled[size]);
        ASSERT_EQ(pictureOf(spoiled), pictures[complete]) << "byte " << size << " of " << log.size();
    }
    Open();
}

TEST_F(Tvregd, second_daemon_on_the_same_file_is_refused) {
    try {
        (void)OpenStore(file);
        FAIL() << "the lock did not hold";
    } catch (const std::exception &failure) {
        EXPECT_THAT(failure.what(), HasSubstr("another registry daemon"));
    }
}

TEST_F(Tvregd, file_that_is_no_registry_is_refused_and_left_as_it_is) {
    const std::string other = Folder() + "/other.db";
    std::ofstream(other) << std::string(5000, 'x');
    EXPECT_THROW((void)OpenStore(other), std::exception);
    EXPECT_EQ(std::filesystem::file_size(other), 5000u);
    const std::string foreign = Folder() + "/foreign.db";
    {
        SQLite::Database database(foreign, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        database.exec("CREATE TABLE something (x)");
    }
    EXPECT_THROW((void)OpenStore(foreign), std::exception);
}

// The tables of the first version, with a key and a value that were two then.
TEST_F(Tvregd, database_of_the_first_version_opens_and_equal_names_are_told_apart) {
    const std::string old = Folder() + "/old.db";
    {
        SQLite::Database database(old, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        (void)database.execAndGet("PRAGMA journal_mode = WAL");
        database.exec(R"(
            CREATE TABLE keys (number INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER REFERENCES keys ON DELETE CASCADE,
                position INTEGER NOT NULL, name TEXT NOT NULL COLLATE NOCASE, class TEXT, volatile INTEGER NOT NULL,
                written INTEGER NOT NULL, UNIQUE (parent, name)) STRICT;
            CREATE TABLE key_values (id INTEGER PRIMARY KEY, key INTEGER NOT NULL REFERENCES keys ON DELETE CASCADE,
                name TEXT NOT NULL COLLATE NOCASE, type INTEGER NOT NULL, data BLOB NOT NULL, written INTEGER NOT NULL,
                UNIQUE (key, name)) STRICT;
            INSERT INTO keys VALUES (1, NULL, 1, 'HKEY_CLASSES_ROOT', NULL, 0, 0), (2, NULL, 2, 'HKEY_CURRENT_USER', NULL, 0, 0),
                (3, NULL, 3, 'HKEY_LOCAL_MACHINE', NULL, 0, 0), (4, NULL, 4, 'HKEY_USERS', NULL, 0, 7),
                (5, NULL, 5, 'HKEY_PERFORMANCE_DATA', NULL, 0, 0), (6, NULL, 6, 'HKEY_CURRENT_CONFIG', NULL, 0, 0),
                (7, NULL, 7, 'HKEY_DYN_DATA', NULL, 0, 0), (20, NULL, 20, 'gone', NULL, 0, 0);
            DELETE FROM keys WHERE number = 20;
            INSERT INTO keys VALUES (8, 4, 12, 'ärger', 'kind', 0, 5), (9, 4, 11, 'Ärger', NULL, 0, 6),
                (10, 8, 13, 'below', NULL, 0, 0), (11, 4, 14, 'ÄRGER (2)', NULL, 0, 0), (12, 4, 15, 'passing', NULL, 1, 0);
            INSERT INTO key_values VALUES (3, 8, 'ö', 1, CAST('small' AS BLOB), 8), (2, 8, 'Ö', 3, x'00FF', 9), (4, 12, 'v', 1, x'78', 1);
            PRAGMA user_version = 1;)");
    }
    for (int opened = 0; opened < 2; ++opened) {
        store.reset();
        store = OpenStore(old);
        registry = {MakeTree(), store.get()};
        LoadTree(*store, registry.tree);
        EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("Ärger", "ärger (3)", "ÄRGER (2)"));
        EXPECT_EQ(Open(HKEY_USERS, "ärger"), 9u);
        EXPECT_EQ(Open(HKEY_USERS, "ärger (3)\\below"), 10u);
        EXPECT_THAT(Values(8), ElementsAre("Ö", "ö (2)"));
        EXPECT_EQ(Get(8, "ö")->data, std::string("\0\xFF", 2));
        EXPECT_EQ(Get(8, "ö (2)")->data, "small");
        Key *key = nullptr;
        ASSERT_EQ(OpenKey(registry, 8, "", &key), 0u);
        EXPECT_EQ(key->keyClass, "kind");
        EXPECT_EQ(key->written, 9u);
        EXPECT_EQ(CodeOfOpen(12, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        EXPECT_EQ(CodeOfOpen(20, ""), static_cast<std::uint32_t>(ERROR_KEY_DELETED));
        EXPECT_EQ(CodeOfOpen(21, ""), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
    }
    EXPECT_EQ(Make(HKEY_USERS, "new"), 21u);
}

TEST_F(Tvregd, database_of_a_later_version_is_refused) {
    store->database.exec("PRAGMA user_version = 3");
    EXPECT_THROW(Restart(), std::exception);
}

TEST_F(Tvregd, database_with_a_key_without_parent_is_refused) {
    store->database.exec("INSERT INTO keys VALUES (100, 99, 100, 'orphan', NULL, 0, 0)");
    EXPECT_THROW(Restart(), std::exception);
}
