// SPDX-License-Identifier: MIT
// The launchers that tvsc writes for service programs, against both daemons. Each test has an /etc/tv of its own.
#include "tests/support/service_world.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char base[] = "/etc/tv";
const std::string launchers = std::string(base) + "/services";

struct Launchers : ServiceWorld {
    const std::string launcher = launchers + "/" + name + ".csh";

    void SetUp() override {
        (void)mkdir(base, 0755); // what it is mounted on
        if (mount("launchers", base, "tmpfs", 0, "mode=755") != 0) GTEST_SKIP() << "nothing can be mounted";
    }
    void TearDown() override { (void)umount2(base, MNT_DETACH); }

    Ended Create(const std::string &options = "") {
        return Tvsc(
            {"create", name, "--program", ProgramPath("tvsample") + " --log \"" + LogOf(name) + "\" " + options});
    }
    // A launcher as tvsc writes it.
    static std::string Written(const std::string &service) {
        return "#!/bin/csh -f\n# starts the service " + service + "; written by tvsc\nexec '/bin/true'\n";
    }
    static mode_t ModeOf(const std::string &path) {
        struct stat found = {};
        return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
    }
    static std::vector<std::string> Files() {
        std::vector<std::string> names;
        for (const auto &file : std::filesystem::directory_iterator(launchers)) {
            names.push_back(file.path().filename());
        }
        return names;
    }
    bool HasService() const { return KeyExists(servicesKey + "\\" + name); }
};

TEST_F(Launchers, one_starts_a_service_program_and_goes_with_the_service) {
    EXPECT_EQ(Create().error, "");
    EXPECT_THAT(ReadFile(launcher), StartsWith("#!/bin/csh"));
    EXPECT_EQ(Do({"start", name, "--", "it's", "!history"}), name + ": running\n");
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    Do({"delete", name, "--wait"});
    EXPECT_THAT(Files(), IsEmpty());
}

// It used to be written before the daemon was asked.
TEST_F(Launchers, a_service_that_is_refused_leaves_that_of_the_present_one_alone) {
    (void)Create("--first");
    const Ended second = Create("--second");
    EXPECT_EQ(second.status, 155);
    EXPECT_THAT(second.error, HasSubstr("1073"));
    EXPECT_THAT(ReadFile(launcher), AllOf(HasSubstr("--first"), Not(HasSubstr("--second"))));
}

// A root with the mask 077 made folders that nobody but root could enter, one with the mask 0 files that anybody could
// replace.
TEST_F(Launchers, modes_are_those_that_services_need_whatever_the_mask) {
    for (const mode_t mask : {0u, 077u}) {
        std::filesystem::remove_all(launchers);
        const mode_t before = umask(mask);
        EXPECT_EQ(Create().error, "");
        (void)umask(before);
        EXPECT_EQ(ModeOf(launchers), 0755u);
        EXPECT_EQ(ModeOf(launcher), 0644u);
        Do({"delete", name, "--wait"});
    }
}

TEST_F(Launchers, folders_that_others_may_write_in_are_refused_before_the_service_is_made) {
    const auto refuses = [&](const std::string &folderAtFault) {
        const Ended ended = Create();
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.error, AllOf(HasSubstr("tvsc: " + name + ": " + folderAtFault + ": owned by user "),
                                       HasSubstr("it must belong to root and have the mode 0755: 5 ")));
        EXPECT_FALSE(HasService());
        EXPECT_THAT(Files(), IsEmpty());
    };
    std::filesystem::create_directory(launchers);
    for (const mode_t mode : {0775u, 0757u, 0700u}) {
        ASSERT_EQ(chmod(launchers.c_str(), mode), 0);
        refuses(launchers);
    }
    ASSERT_EQ(chmod(launchers.c_str(), 0755), 0);
    ASSERT_EQ(chown(launchers.c_str(), 1, 1), 0);
    refuses(launchers);
    ASSERT_EQ(chown(launchers.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(base, 0777), 0);
    refuses(base);
}

TEST_F(Launchers, a_folder_behind_a_link_is_refused) {
    std::filesystem::create_directory_symlink(folder, launchers);
    EXPECT_EQ(Create().status, 1);
    EXPECT_FALSE(HasService());
    EXPECT_FALSE(std::filesystem::exists(folder + "/" + name + ".csh"));
}

TEST_F(Launchers, a_file_that_tvsc_did_not_write_for_the_service_is_neither_replaced_nor_removed) {
    std::filesystem::create_directory(launchers);
    for (const std::string &text : {std::string("#!/bin/csh -f\nexec /bin/true\n"), std::string(), Written("other"),
                                    Written(name + "x"), "\n" + Written(name)}) {
        WriteFile(launcher, text);
        const Ended ended = Create();
        EXPECT_EQ(ended.status, 155);
        EXPECT_THAT(ended.error,
                    HasSubstr(launcher + ": there already, and not written by tvsc for this service: 183"));
        EXPECT_FALSE(HasService());
        if (!text.empty()) { // which is no image
            Do({"create", name, "--image", launcher});
            Do({"delete", name, "--wait"});
        }
        EXPECT_EQ(ReadFile(launcher), text);
        std::filesystem::remove(launcher);
    }
}

TEST_F(Launchers, neither_links_nor_pipes_are_taken_for_launchers) {
    std::filesystem::create_directory(launchers);
    WriteFile(folder + "/" + name + ".target", Written(name));
    std::filesystem::create_symlink(folder + "/" + name + ".target", launcher);
    EXPECT_EQ(Create().status, 155);
    EXPECT_EQ(ReadFile(launcher), Written(name));
    std::filesystem::remove(launcher);
    ASSERT_EQ(mkfifo(launcher.c_str(), 0644), 0);
    EXPECT_EQ(Create().status, 155);
    EXPECT_THAT(Tvsc({"create", name, "--image", launcher}).error, HasSubstr(launcher + ": not a file: 3 "));
}

TEST_F(Launchers, one_left_over_from_a_service_of_the_same_name_is_replaced) {
    std::filesystem::create_directory(launchers);
    WriteFile(launcher, Written(name), 0600);
    EXPECT_EQ(Create().error, "");
    EXPECT_THAT(ReadFile(launcher), HasSubstr("tvsample"));
    EXPECT_EQ(ModeOf(launcher), 0644u);
    EXPECT_THAT(Files(), ElementsAre(name + ".csh"));
}

TEST_F(Launchers, one_that_another_service_is_started_with_is_neither_replaced_nor_removed) {
    EXPECT_EQ(Create("--first").error, "");
    std::filesystem::create_symlink(launcher, folder + "/" + name + ".link.csh");
    Do({"create", name + "-2", "--image", folder + "/" + name + ".link.csh"});
    const Ended deleted = Tvsc({"delete", name, "--wait"});
    EXPECT_EQ(deleted.status, 0);
    EXPECT_EQ(deleted.error, "tvsc: " + launcher + " stays: " + name + "-2 is started with it\n");
    const Ended created = Create("--second");
    EXPECT_EQ(created.status, 155);
    EXPECT_THAT(created.error, HasSubstr(launcher + ": there already, and " + name + "-2 is started with it: 183"));
    EXPECT_THAT(ReadFile(launcher), HasSubstr("--first"));
    EXPECT_FALSE(HasService());
}

// It left an empty one: a service that the daemon starts without an error, and that is no service.
TEST_F(Launchers, a_full_disk_leaves_the_old_one_or_none) {
    ASSERT_EQ(umount2(base, MNT_DETACH), 0);
    ASSERT_EQ(mount("launchers", base, "tmpfs", 0, "mode=755,size=32k"), 0);
    std::filesystem::create_directory(launchers);
    const auto fill = [] {
        std::error_code failed;
        std::filesystem::remove(std::string(base) + "/filler", failed);
        EXPECT_NE(
            RunProgram({.command = {"/bin/sh", "-c", "cat /dev/zero > /etc/tv/filler"}, .errorFile = "/dev/null"}), 0);
    };
    fill();
    const Ended ended = Create();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(launcher + ": No space left on device: 8 "));
    EXPECT_FALSE(HasService());
    EXPECT_THAT(Files(), IsEmpty());

    std::filesystem::remove(std::string(base) + "/filler");
    WriteFile(launcher, Written(name));
    fill();
    EXPECT_EQ(Create().status, 1);
    EXPECT_EQ(ReadFile(launcher), Written(name));
    EXPECT_THAT(Files(), ElementsAre(name + ".csh"));
}

} // namespace
