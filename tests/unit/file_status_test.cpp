// SPDX-License-Identifier: MIT
// What the kernel says of files, those of after 2038 among them.
#include "util/file_status.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

struct Status : testing::Test {
    std::string file = "/tmp/file_status_XXXXXX", link = "";
    int descriptor = -1;

    void SetUp() override {
        descriptor = mkstemp(file.data());
        ASSERT_GE(descriptor, 0);
        ASSERT_EQ(write(descriptor, "abc", 3), 3);
        ASSERT_EQ(fchmod(descriptor, 0640), 0);
        link = file + ".link";
        ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    }
    void TearDown() override {
        (void)close(descriptor);
        (void)unlink(link.c_str());
        (void)unlink(file.c_str());
    }
    void ExpectTheFile(const FileStatus &status) const {
        EXPECT_EQ(status.mode, mode_t{S_IFREG | 0640});
        EXPECT_EQ(status.owner, geteuid());
        EXPECT_EQ(status.bytes, 3u);
        EXPECT_GT(status.inode, 0u);
    }
};

TEST_F(Status, is_that_of_the_file_behind_a_descriptor_a_path_or_a_link) {
    FileStatus byDescriptor, byPath, byLink;
    ASSERT_TRUE(LookAtFile(descriptor, &byDescriptor));
    ASSERT_TRUE(LookAtPath(file.c_str(), &byPath));
    ASSERT_TRUE(LookAtPath(link.c_str(), &byLink));
    ExpectTheFile(byDescriptor);
    ExpectTheFile(byPath);
    ExpectTheFile(byLink);
    EXPECT_EQ(byLink.inode, byDescriptor.inode);
    ASSERT_TRUE(LookAtLink(link.c_str(), &byLink));
    EXPECT_TRUE(S_ISLNK(byLink.mode));
}

TEST_F(Status, of_what_is_not_there_is_told_with_errno_and_leaves_the_status_alone) {
    FileStatus status = {.bytes = 7};
    errno = 0;
    EXPECT_FALSE(LookAtPath((file + "/x").c_str(), &status));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(LookAtLink((file + "x").c_str(), &status));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(LookAtFile(-1, &status));
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(status.bytes, 7u);
}

// Symptom: with 32-bit seconds libc answers EOVERFLOW for such a file, and it passed for missing.
TEST_F(Status, of_a_file_written_after_2038_is_told_at_every_word_size) {
    ASSERT_EQ(std::system(("touch -d 2040-01-01T00:00:00Z " + file).c_str()), 0);
    FileStatus status;
    ASSERT_TRUE(LookAtFile(descriptor, &status)) << errno;
    ExpectTheFile(status);
    EXPECT_EQ(status.writtenAt, 2'208'988'800);
    ASSERT_TRUE(LookAtPath(link.c_str(), &status)) << errno;
    EXPECT_EQ(status.writtenAt, 2'208'988'800);
}

} // namespace
