// SPDX-License-Identifier: MIT
// The registry daemon's hives: keys that go to files and come from them.
#include "tests/support/registry_in_file.h"
#include "tvregd/hive_file.h"
#include "tvregd/hives.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <functional>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

enum Code : std::uint32_t {
    OK = 0,
    NO_FILE = ERROR_FILE_NOT_FOUND,
    NO_PATH = ERROR_PATH_NOT_FOUND,
    DENIED = ERROR_ACCESS_DENIED,
    BAD_HANDLE = ERROR_INVALID_HANDLE,
    SHARED = ERROR_SHARING_VIOLATION,
    BAD_ARGUMENT = ERROR_INVALID_PARAMETER,
    BAD_PATH = ERROR_BAD_PATHNAME,
    EXISTS = ERROR_ALREADY_EXISTS,
    DAMAGED = ERROR_BADDB,
    FAILED = ERROR_REGISTRY_IO_FAILED,
    DELETED = ERROR_KEY_DELETED,
};

struct Hives : RegistryInFile {
    std::string Path(const std::string &name) { return Folder() + "/" + name; }

    void RestartDaemon() {
        Restart();
        MakeReplacements(registry);
    }
    // Some of everything below a key; another generation has other data.
    void Fill(std::uint32_t key, const std::string &generation) {
        EXPECT_EQ(Set(key, "", generation), 0u);
        EXPECT_EQ(Set(key, "Generation", generation), 0u);
        EXPECT_EQ(Set(key, "bytes", std::string("\0\xFF\x80", 3), 0xDEADBEEF), 0u);
        EXPECT_EQ(Set(key, "empty", "", REG_NONE), 0u);
        EXPECT_EQ(Set(key, "no \xFF utf8", "x"), 0u);
        for (const char *name : {"zeta", "Alpha", "ärger"}) {
            EXPECT_EQ(Set(Make(key, "list\\" + std::string(name)), name, generation), 0u);
        }
        Key *made = nullptr;
        std::uint32_t disposition = 0;
        EXPECT_EQ(CreateKey(registry, key, "classy", "a class", 0, &made, &disposition), 0u);
        EXPECT_EQ(Set(Make(key, "passing", REG_OPTION_VOLATILE), "v", "x"), 0u);
        EXPECT_EQ(CommitGroup(registry), 0u);
    }
    // What a hive holds of a key: everything but its name, its time, and what is volatile.
    std::string ContentOf(std::uint32_t handle, bool withTime = false) {
        Key *key = nullptr;
        EXPECT_EQ(OpenKey(registry, handle, "", &key), 0u);
        std::string content = "[" + key->keyClass.value_or("-") + (withTime ? std::to_string(key->written) : "") + "]";
        for (const auto &value : key->values.inOrder) {
            content += value->name + ":" + std::to_string(value->type) + "=" + value->data + ";";
        }
        for (const auto &subKey : key->subKeys.inOrder) {
            if (!subKey->isVolatile) content += subKey->name + "{" + ContentOf(HandleOf(*subKey), true) + "}";
        }
        return content;
    }
    std::uint32_t Load(const std::string &name, const std::string &path) {
        return LoadHive(registry, HKEY_USERS, name, path);
    }
    std::uint32_t Unload(const std::string &name) { return UnloadHive(registry, HKEY_USERS, name); }
    std::vector<std::string> Files() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(Folder())) {
            if (entry.path().string().rfind(file, 0) != 0) names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

// --- to a file ---

TEST_F(Hives, a_saved_key_loads_again_with_all_that_lasts_and_its_times) {
    const std::uint32_t key = Make(HKEY_LOCAL_MACHINE, "Software\\Some");
    Fill(key, "1");
    EXPECT_EQ(SaveKey(registry, key, Path("a.hive")), OK);
    EXPECT_THAT(Files(), ElementsAre("a.hive"));
    struct stat found = {};
    ASSERT_EQ(stat(Path("a.hive").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
    EXPECT_EQ(Load("again", Path("a.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "again")), ContentOf(key));
    EXPECT_EQ(CodeOfOpen(HKEY_USERS, "again\\passing"), NO_FILE);
    RestartDaemon();
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "again")), ContentOf(key));
}

TEST_F(Hives, a_file_that_is_there_is_never_overwritten_by_a_save) {
    std::ofstream(Path("there")) << "mine";
    std::filesystem::create_symlink(Path("nowhere"), Path("link"));
    std::filesystem::create_directory(Path("folder"));
    for (const char *name : {"there", "link", "folder"}) {
        EXPECT_EQ(SaveKey(registry, HKEY_USERS, Path(name)), EXISTS) << name;
    }
    EXPECT_EQ(Content(Path("there")), "mine");
    EXPECT_THAT(Files(), ElementsAre("folder", "link", "there"));
}

TEST_F(Hives, a_save_that_cannot_be_answers_why_and_leaves_no_file) {
    EXPECT_EQ(SaveKey(registry, 0x000FFFFF, Path("x")), BAD_HANDLE);
    const std::uint32_t gone = Make(HKEY_USERS, "gone");
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "gone"), 0u);
    EXPECT_EQ(SaveKey(registry, gone, Path("x")), DELETED);
    for (const char *path : {"", "x", "./x", "../x", "folder/x"}) {
        EXPECT_EQ(SaveKey(registry, HKEY_USERS, path), BAD_PATH) << path;
    }
    for (const char *name : {"", ".", "..", "a/", "a/.."}) {
        EXPECT_EQ(SaveKey(registry, HKEY_USERS, Path(name)), BAD_PATH) << name;
    }
    EXPECT_EQ(SaveKey(registry, HKEY_USERS, Path(std::string(300, 'x'))), BAD_PATH);
    EXPECT_EQ(SaveKey(registry, HKEY_USERS, Path("none/x")), NO_PATH);
    std::ofstream(Path("file")) << "x";
    EXPECT_EQ(SaveKey(registry, HKEY_USERS, Path("file/x")), NO_PATH);
    EXPECT_EQ(SaveKey(registry, HKEY_USERS, "/proc/self/x"), NO_FILE) << "nothing can be made there";
    EXPECT_THAT(Files(), ElementsAre("file"));
}

// --- from a file into a key ---

TEST_F(Hives, restoring_puts_the_file_in_the_place_of_all_below_a_key_that_stays_the_same_key) {
    const std::uint32_t from = Make(HKEY_USERS, "from"), to = Make(HKEY_LOCAL_MACHINE, "Software\\to");
    Fill(from, "1");
    Fill(to, "2");
    const std::uint32_t below = Make(to, "list\\only here");
    EXPECT_EQ(SaveKey(registry, from, Path("a.hive")), OK);
    for (const std::uint32_t flags : {0u, REG_FORCE_RESTORE, REG_FORCE_RESTORE | REG_NO_LAZY_FLUSH}) {
        EXPECT_EQ(RestoreKey(registry, to, Path("a.hive"), flags), OK);
        EXPECT_EQ(ContentOf(to), ContentOf(from));
    }
    EXPECT_EQ(CodeOfOpen(below, ""), DELETED);
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "software\\TO"), to);
    RestartDaemon();
    EXPECT_EQ(ContentOf(to), ContentOf(from));
    EXPECT_EQ(RestoreKey(registry, HKEY_CURRENT_USER, Path("a.hive"), 0), OK) << "a root that shows nothing yet";
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, ".Default")), ContentOf(from));
}

TEST_F(Hives, what_is_restored_below_a_volatile_key_is_volatile) {
    const std::uint32_t from = Make(HKEY_USERS, "from"), to = Make(HKEY_USERS, "passing", REG_OPTION_VOLATILE);
    Fill(from, "1");
    EXPECT_EQ(SaveKey(registry, from, Path("a.hive")), OK);
    EXPECT_EQ(RestoreKey(registry, to, Path("a.hive"), 0), OK);
    Key *key = nullptr;
    ASSERT_EQ(OpenKey(registry, to, "list\\zeta", &key), 0u);
    EXPECT_TRUE(key->isVolatile);
    RestartDaemon();
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("from"));
}

TEST_F(Hives, a_restore_that_cannot_be_changes_nothing) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(SaveKey(registry, key, Path("a.hive")), OK);
    const std::string before = Picture();
    EXPECT_EQ(RestoreKey(registry, 0x000FFFFF, Path("a.hive"), 0), BAD_HANDLE);
    EXPECT_EQ(RestoreKey(registry, key, Path("none"), 0), NO_FILE);
    EXPECT_EQ(RestoreKey(registry, key, Path("none/a.hive"), 0), NO_PATH);
    EXPECT_EQ(RestoreKey(registry, key, "a.hive", 0), BAD_PATH);
    EXPECT_EQ(RestoreKey(registry, key, Path("a.hive"), REG_WHOLE_HIVE_VOLATILE), BAD_ARGUMENT);
    EXPECT_EQ(RestoreKey(registry, key, Path("a.hive"), REG_REFRESH_HIVE), BAD_ARGUMENT);
    std::filesystem::create_symlink(Path("a.hive"), Path("link"));
    std::filesystem::create_directory(Path("folder"));
    EXPECT_EQ(RestoreKey(registry, key, Path("link"), 0), DENIED);
    EXPECT_EQ(RestoreKey(registry, key, Path("folder"), 0), DENIED);
    EXPECT_EQ(RestoreKey(registry, key, "/dev/zero", 0), DENIED);
    std::ofstream(Path("text")) << "REGEDIT4\n";
    std::ofstream(Path("nothing")).close();
    EXPECT_EQ(RestoreKey(registry, key, Path("text"), 0), DAMAGED);
    EXPECT_EQ(RestoreKey(registry, key, Path("nothing"), 0), DAMAGED);
    for (const char *own : {"", "-wal", "-lock"}) {
        EXPECT_EQ(RestoreKey(registry, key, file + own, 0), SHARED) << own;
    }
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(RestoreKey(registry, key, Path("a.hive"), 0), FAILED);
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(Picture(), before);
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(Set(key, "Generation", "1"), 0u) << "and writing goes on";
}

// The key of the event sources gets what the service daemon needs from an older copy, too.
TEST_F(Hives, what_is_restored_gets_the_values_that_some_keys_have_from_the_beginning) {
    const std::uint32_t services = Make(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services");
    const std::uint32_t from = Make(HKEY_USERS, "from");
    (void)Make(from, "EventLog\\Application");
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(SaveKey(registry, from, Path("a.hive")), OK);
    EXPECT_EQ(RestoreKey(registry, services, Path("a.hive"), 0), OK);
    EXPECT_EQ(Values(Open(services, "EventLog")).size(), 4u);
}

// --- loaded and unloaded ---

TEST_F(Hives, a_loaded_hive_is_a_key_that_lasts_and_goes_back_to_its_file_when_it_is_unloaded) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(SaveKey(registry, key, Path("a.hive")), OK);
    ASSERT_EQ(chmod(Path("a.hive").c_str(), 0640), 0);
    const std::string saved = Content(Path("a.hive"));
    EXPECT_EQ(LoadHive(registry, HKEY_LOCAL_MACHINE, "mounted", Path("a.hive")), OK);
    const std::uint32_t mounted = Open(HKEY_LOCAL_MACHINE, "mounted");
    EXPECT_EQ(Set(mounted, "Generation", "2"), 0u);
    EXPECT_EQ(Set(Make(mounted, "new\\below"), "v", "x"), 0u);
    EXPECT_EQ(DeleteKey(registry, mounted, "list"), 0u);
    RestartDaemon();
    EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "mounted"), mounted);
    EXPECT_EQ(Get(mounted, "Generation")->data, "2");
    EXPECT_EQ(Content(Path("a.hive")), saved) << "not before it is unloaded";
    EXPECT_EQ(DeleteKey(registry, HKEY_LOCAL_MACHINE, "mounted"), DENIED);
    const std::string content = ContentOf(mounted);

    EXPECT_EQ(UnloadHive(registry, HKEY_LOCAL_MACHINE, "MOUNTED"), OK);
    EXPECT_EQ(CodeOfOpen(HKEY_LOCAL_MACHINE, "mounted"), NO_FILE);
    EXPECT_EQ(CodeOfOpen(mounted, ""), DELETED);
    struct stat found = {};
    ASSERT_EQ(stat(Path("a.hive").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0640u);
    RestartDaemon();
    EXPECT_EQ(CodeOfOpen(HKEY_LOCAL_MACHINE, "mounted"), NO_FILE);
    EXPECT_EQ(Load("elsewhere", Path("a.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "elsewhere")), content);
    EXPECT_EQ(Unload("elsewhere"), OK);
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "k"), OK) << "an ordinary key";
    EXPECT_EQ(CommitGroup(registry), 0u);
    while (EraseSome(registry)) {
    }
    EXPECT_EQ(RowsOnDisk("hives"), 0);
    EXPECT_EQ(RowsOnDisk("keys"), static_cast<int>(rootCount));
    EXPECT_THAT(Files(), ElementsAre("a.hive"));
}

TEST_F(Hives, hives_are_loaded_right_below_two_roots_under_new_names_and_each_file_once) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(SaveKey(registry, key, Path("a.hive")), OK);
    EXPECT_EQ(LoadHive(registry, 0x000FFFFF, "x", Path("a.hive")), BAD_HANDLE);
    for (const std::uint32_t other : {key, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_CURRENT_CONFIG}) {
        EXPECT_EQ(LoadHive(registry, other, "x", Path("a.hive")), BAD_ARGUMENT);
    }
    EXPECT_EQ(Load("", Path("a.hive")), BAD_ARGUMENT);
    EXPECT_EQ(Load(std::string(maxKeyNameBytes + 1, 'x'), Path("a.hive")), BAD_ARGUMENT);
    EXPECT_EQ(Load("x\\y", Path("a.hive")), BAD_PATH);
    EXPECT_EQ(Load("K", Path("a.hive")), EXISTS);
    EXPECT_EQ(Load("x", Path("none")), NO_FILE);
    EXPECT_EQ(Load("x", Path("none/a.hive")), NO_PATH);
    EXPECT_EQ(Load("x", "a.hive"), BAD_PATH);
    EXPECT_EQ(Load("x", file), SHARED);
    std::ofstream(Path("text")) << std::string(5000, 'x');
    EXPECT_EQ(Load("x", Path("text")), DAMAGED);
    EXPECT_THAT(SubKeys(HKEY_USERS), ElementsAre("k"));
    EXPECT_EQ(Load("x", Path("a.hive")), OK);
    std::filesystem::create_directory_symlink(Folder(), Path("way"));
    EXPECT_EQ(Load("y", Path("way/../" + std::filesystem::path(Folder()).filename().string() + "/a.hive")), SHARED);
    RestartDaemon();
    EXPECT_EQ(Load("y", Path("a.hive")), SHARED);
    EXPECT_EQ(SaveKey(registry, key, Path("b.hive")), OK);
    EXPECT_EQ(RestoreKey(registry, HKEY_USERS, Path("b.hive"), 0), DENIED) << "would bury a loaded hive";
    EXPECT_EQ(UnloadHive(registry, 0x000FFFFF, "x"), BAD_HANDLE);
    EXPECT_EQ(UnloadHive(registry, key, "x"), BAD_ARGUMENT);
    EXPECT_EQ(Unload("none"), NO_FILE);
    EXPECT_EQ(Unload("k"), BAD_ARGUMENT) << "was not loaded";
    EXPECT_EQ(Unload("x"), OK);
}

TEST_F(Hives, a_hive_that_would_hang_too_deep_is_not_loaded) {
    std::string deep = "d";
    for (std::uint32_t depth = 1; depth < maxKeyDepth; ++depth) {
        deep += "\\d";
    }
    (void)Make(HKEY_CURRENT_CONFIG, deep);
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(SaveKey(registry, HKEY_CURRENT_CONFIG, Path("a.hive")), OK);
    const std::string before = Picture();
    EXPECT_EQ(Load("x", Path("a.hive")), BAD_ARGUMENT);
    EXPECT_EQ(RestoreKey(registry, Make(HKEY_LOCAL_MACHINE, "x"), Path("a.hive"), 0), BAD_ARGUMENT);
    EXPECT_EQ(RestoreKey(registry, HKEY_USERS, Path("a.hive"), 0), OK);
    EXPECT_EQ(CodeOfOpen(HKEY_USERS, deep), OK);
    RestartDaemon();
    EXPECT_EQ(CodeOfOpen(HKEY_USERS, deep), OK);
}

TEST_F(Hives, loading_and_unloading_that_the_database_refuses_leave_everything_as_it_was) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(DeleteKey(registry, key, "passing"), 0u);
    EXPECT_EQ(CommitGroup(registry), 0u);
    EXPECT_EQ(SaveKey(registry, key, Path("a.hive")), OK);
    const std::string before = Picture();
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(Load("x", Path("a.hive")), FAILED);
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(Picture(), before);
    EXPECT_EQ(Load("x", Path("a.hive")), OK) << "it was not taken for loaded";
    const std::string loaded = Picture();
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(Unload("x"), FAILED);
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_EQ(Picture(), loaded);
    EXPECT_EQ(Load("y", Path("a.hive")), SHARED) << "it is loaded still";
    RestartDaemon();
    EXPECT_EQ(Picture(), loaded);
    EXPECT_EQ(Unload("x"), OK);
}

TEST_F(Hives, a_hive_whose_file_cannot_be_written_stays_loaded) {
    std::filesystem::create_directory(Path("folder"));
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(SaveKey(registry, key, Path("folder/a.hive")), OK);
    EXPECT_EQ(Load("x", Path("folder/a.hive")), OK);
    std::filesystem::rename(Path("folder"), Path("moved"));
    EXPECT_EQ(Unload("x"), NO_PATH);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "x")), ContentOf(key));
    std::filesystem::create_directory(Path("folder"));
    EXPECT_EQ(Unload("x"), OK) << "a file that is gone is made anew";
    EXPECT_EQ(Load("x", Path("folder/a.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "x")), ContentOf(key));
}

// --- replaced ---

TEST_F(Hives, a_replacement_is_made_at_the_next_start_and_the_old_content_is_in_its_file) {
    const std::uint32_t from = Make(HKEY_USERS, "from"), to = Make(HKEY_LOCAL_MACHINE, "to");
    Fill(from, "new");
    Fill(to, "old");
    EXPECT_EQ(SaveKey(registry, from, Path("new.hive")), OK);
    EXPECT_EQ(ReplaceHive(registry, HKEY_LOCAL_MACHINE, "to", Path("new.hive"), Path("old.hive")), OK);
    EXPECT_EQ(Get(to, "Generation")->data, "old") << "not before the start";
    EXPECT_EQ(DeleteKey(registry, HKEY_LOCAL_MACHINE, "to"), DENIED);
    EXPECT_EQ(Set(to, "later", "x"), 0u);
    const std::string old = ContentOf(to), wanted = ContentOf(from);
    std::filesystem::remove(Path("new.hive")); // is not needed any more
    for (int started = 0; started < 2; ++started) {
        RestartDaemon();
        EXPECT_EQ(ContentOf(to), wanted);
        EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "to"), to);
    }
    EXPECT_EQ(Load("old", Path("old.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "old")), old) << "what was written after the call, too";
    EXPECT_EQ(DeleteKey(registry, HKEY_LOCAL_MACHINE, "to"), OK);
    EXPECT_EQ(RowsOnDisk("replacements"), 0);
}

TEST_F(Hives, a_loaded_hive_with_a_replacement_leaves_the_new_content_in_its_file) {
    const std::uint32_t one = Make(HKEY_USERS, "one"), two = Make(HKEY_USERS, "two");
    Fill(one, "1");
    Fill(two, "2");
    EXPECT_EQ(SaveKey(registry, one, Path("1.hive")), OK);
    EXPECT_EQ(SaveKey(registry, two, Path("2.hive")), OK);
    EXPECT_EQ(Load("x", Path("1.hive")), OK);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "x", Path("2.hive"), Path("old.hive")), OK);
    EXPECT_EQ(Unload("x"), OK);
    EXPECT_EQ(Load("x", Path("1.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "x")), ContentOf(two));
    EXPECT_EQ(Load("old", Path("old.hive")), OK);
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "old")), ContentOf(one));
    // Replaced by a start, it is loaded all the same.
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "old", Path("2.hive"), Path("old2.hive")), OK);
    RestartDaemon();
    EXPECT_EQ(ContentOf(Open(HKEY_USERS, "old")), ContentOf(two));
    EXPECT_EQ(Unload("old"), OK);
}

TEST_F(Hives, a_replacement_that_cannot_be_is_refused_and_leaves_no_file) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(SaveKey(registry, key, Path("new.hive")), OK);
    const std::string fresh = Path("new.hive"), old = Path("old.hive");
    EXPECT_EQ(ReplaceHive(registry, 0x000FFFFF, "k", fresh, old), BAD_HANDLE);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "none", fresh, old), NO_FILE);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k\\list", fresh, old), BAD_ARGUMENT);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "", fresh, old), BAD_ARGUMENT);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", Path("none"), old), NO_FILE);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", fresh, Path("none/old")), NO_PATH);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", fresh, fresh), EXISTS);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", fresh, "old"), BAD_PATH);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", file, old), SHARED);
    std::ofstream(Path("text")) << "x";
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", Path("text"), old), DAMAGED);
    store->database.exec("PRAGMA query_only = ON");
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", fresh, old), FAILED);
    store->database.exec("PRAGMA query_only = OFF");
    EXPECT_THAT(Files(), ElementsAre("new.hive", "text"));
    EXPECT_EQ(DeleteKey(registry, HKEY_USERS, "k"), OK) << "no replacement is left";
}

TEST_F(Hives, a_replacement_whose_old_file_cannot_be_written_waits_for_the_next_start) {
    std::filesystem::create_directory(Path("folder"));
    const std::uint32_t key = Make(HKEY_USERS, "k"), other = Make(HKEY_USERS, "other");
    Fill(key, "1");
    Fill(other, "2");
    EXPECT_EQ(SaveKey(registry, other, Path("2.hive")), OK);
    EXPECT_EQ(ReplaceHive(registry, HKEY_USERS, "k", Path("2.hive"), Path("folder/old")), OK);
    std::filesystem::rename(Path("folder"), Path("moved"));
    testing::internal::CaptureStderr();
    RestartDaemon();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("HKEY_USERS\\k is not replaced: error 3"));
    EXPECT_EQ(Get(key, "Generation")->data, "1");
    std::filesystem::rename(Path("moved"), Path("folder"));
    RestartDaemon();
    EXPECT_EQ(Get(key, "Generation")->data, "2");
}

// --- files that are not as they were written ---

// With TV_LONG every byte, else every eleventh.
TEST_F(Hives, a_file_that_is_spoiled_or_cut_anywhere_is_refused_or_says_the_same) {
    const std::uint32_t key = Make(HKEY_USERS, "k");
    Fill(key, "1");
    EXPECT_EQ(DeleteKey(registry, key, "passing"), 0u);
    Key *saved = nullptr;
    ASSERT_EQ(OpenKey(registry, key, "", &saved), 0u);
    std::string bytes;
    ASSERT_EQ(EncodeHive(*saved, &bytes), OK);
    const auto told = [&](std::string_view content) {
        Tree hive;
        const std::uint32_t rc = DecodeHive(content, &hive);
        if (rc != 0) return std::to_string(rc);
        std::string again;
        EXPECT_EQ(EncodeHive(*hive.roots.front(), &again), OK);
        return again;
    };
    ASSERT_EQ(told(bytes), bytes);
    const std::size_t step = std::getenv("TV_LONG") != nullptr ? 1 : 11;
    std::size_t refused = 0;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        for (const int bits : {0x01, 0x80, 0xFF}) {
            std::string spoiled = bytes;
            spoiled[at] = static_cast<char>(spoiled[at] ^ bits);
            const std::string found = told(spoiled);
            refused += found != bytes;
            ASSERT_TRUE(found == bytes || found == "1009") << "byte " << at << " of " << bytes.size() << ": " << found;
        }
    }
    EXPECT_GT(refused, 100u);
    for (std::size_t size = 0; size < bytes.size(); size += step * 7) {
        ASSERT_EQ(told(std::string_view(bytes).substr(0, size)), "1009") << size;
    }
}

// Whoever can write such a file could write all of the registry, but not what the registry cannot hold.
TEST_F(Hives, content_that_no_registry_can_hold_is_refused) {
    const auto codeWith = [&](const std::string &change) {
        std::string bytes;
        Key root;
        EXPECT_EQ(EncodeHive(root, &bytes), OK);
        std::ofstream(Path("odd.hive"), std::ios::binary) << bytes;
        {
            SQLite::Database database(Path("odd.hive"), SQLite::OPEN_READWRITE);
            database.exec(change);
        }
        Tree hive;
        return DecodeHive(Content(Path("odd.hive")), &hive);
    };
    EXPECT_EQ(codeWith("SELECT 1"), OK);
    for (const char *change :
         {"PRAGMA user_version = 2", "PRAGMA application_id = 1", "CREATE TABLE another (x)",
          "CREATE VIEW v AS SELECT 1", "DROP TABLE hive_seal", "DELETE FROM hive_seal", "DELETE FROM hive_keys",
          "INSERT INTO hive_keys VALUES (2, 1, 'unsealed', NULL, 0)", "UPDATE hive_seal SET digest = digest + 1",
          "INSERT INTO hive_seal SELECT digest FROM hive_seal", "PRAGMA journal_mode = WAL"})
        EXPECT_EQ(codeWith(change), DAMAGED) << change;

    // Sealed by our own hand.
    Tree tree = MakeTree();
    const auto codeOf = [&](const std::function<void(Key &)> &spoil) {
        Key root;
        auto below = std::make_unique<Key>();
        below->name = "name";
        spoil(*below);
        root.subKeys.inOrder.push_back(std::move(below));
        std::string bytes;
        EXPECT_EQ(EncodeHive(root, &bytes), OK);
        Tree hive;
        return DecodeHive(bytes, &hive);
    };
    EXPECT_EQ(codeOf([](Key &) {}), OK);
    EXPECT_EQ(codeOf([](Key &key) { key.name = ""; }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) { key.name = "a\\b"; }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) { key.name = std::string("a\0b", 3); }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) { key.name = std::string(maxKeyNameBytes + 1, 'x'); }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) { (void)AddValue(key, {std::string(maxValueNameBytes + 1, 'x'), 0, ""}); }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) { (void)AddValue(key, {"v", 0, std::string(maxValueBytes + 1, 'x')}); }), DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) {
                  (void)AddValue(key, {"Ärger", 0, ""});
                  (void)AddValue(key, {"ärger", 0, ""});
              }),
              DAMAGED);
    EXPECT_EQ(codeOf([](Key &key) {
                  for (const char *name : {"x", "X"}) {
                      key.subKeys.inOrder.push_back(std::make_unique<Key>());
                      key.subKeys.inOrder.back()->name = name;
                  }
              }),
              DAMAGED);
}
