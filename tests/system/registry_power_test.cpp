// SPDX-License-Identifier: MIT
// registry_power: what tvregd has after a power failure, on disks whose images are copied at random moments.
//
// The disk is an ext4 in a file, and that file lies on an XFS, which copies it at once: nothing is written to it
// meanwhile (FICLONE). A copy thus has what had been written to the disk at one moment, and nothing of what the system
// only kept in memory. Disks that keep a cache, and lose any part of it, are the unit test tvregd_power's.
#include "tests/support/hazard.h"
#include "tests/support/regd_calls.h"
#include "tv/winreg.h"

#include <linux/fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include <array>
#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <numeric>
#include <random>
#include <thread>

using namespace raw;

namespace {

constexpr std::size_t clients = 64;
using Counts = std::array<std::uint32_t, clients>; // the number of the last write of each client

// A write's number, and then as much more that some commits change several pages.
std::string DataOfWrite(std::uint32_t number) { return Dword(number) + std::string(number % 7 * 100, 'x'); }
std::string NameOf(std::size_t client) { return "w" + std::to_string(client); }

struct Copy {
    std::string image;
    Counts acknowledged; // before it was made
    Counts sent;         // after
};

struct RegistryPower : testing::Test {
    std::string folder = MakeScratchFolder();
    std::vector<std::string> mounted;
    std::array<std::atomic<std::uint32_t>, clients> acknowledged{}, sent{};

    static bool Run(const std::vector<std::string> &command) {
        Launch launch{.command = command};
        launch.command[0] = "/usr/sbin/" + command[0];
        return RunProgram(launch) == 0;
    }
    // A place to mount at.
    std::string Place(const std::string &name) const {
        std::filesystem::create_directory(folder + "/" + name);
        return folder + "/" + name;
    }
    bool Mount(const std::string &image, const std::string &place) {
        Launch launch{.command = {"/usr/bin/mount", "-o", "loop", image, place}, .errorFile = "/dev/null"};
        if (RunProgram(launch) != 0) return false;
        mounted.push_back(place);
        return true;
    }
    void Unmount() {
        EXPECT_EQ(umount2(mounted.back().c_str(), 0), 0) << mounted.back();
        mounted.pop_back();
    }
    void MakeDisk() {
        if (access("/usr/sbin/mkfs.xfs", X_OK) != 0) GTEST_SKIP() << "xfsprogs is not installed";
        const std::string memory = Place("memory");
        if (mount("tmpfs", memory.c_str(), "tmpfs", 0, "size=400m") != 0) {
            GTEST_SKIP() << "nothing can be mounted here";
        }
        mounted.push_back(memory);
        WriteFile(memory + "/pool", "");
        std::filesystem::resize_file(memory + "/pool", 384 * mebibyte);
        ASSERT_TRUE(Run({"mkfs.xfs", "-q", memory + "/pool"}));
        if (!Mount(memory + "/pool", Place("pool"))) GTEST_SKIP() << "no image of an XFS can be mounted here";
        const std::string disk = folder + "/pool/disk";
        WriteFile(disk, "");
        std::filesystem::resize_file(disk, 32 * mebibyte);
        ASSERT_TRUE(Run({"mkfs.ext4", "-q", "-F", disk}));
        if (!Mount(disk, Place("disk"))) GTEST_SKIP() << "no image of an ext4 can be mounted here";
    }
    void TearDown() override {
        EndAllProcesses();
        while (!mounted.empty()) {
            Unmount();
        }
    }

    // The disk as it is at this moment.
    std::string CopyDisk(int number) const {
        const std::string copy = folder + "/pool/copy" + std::to_string(number);
        const int from = open((folder + "/pool/disk").c_str(), O_RDONLY | O_CLOEXEC);
        const int into = open(copy.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(ioctl(into, FICLONE, from), 0) << std::strerror(errno);
        (void)close(from);
        (void)close(into);
        return copy;
    }
    static Counts Now(const std::array<std::atomic<std::uint32_t>, clients> &counts) {
        Counts now{};
        std::copy(counts.begin(), counts.end(), now.begin());
        return now;
    }

    static pid_t Start(const std::string &disk, const std::vector<std::string> &options = {}) {
        std::vector<std::string> command = {ProgramPath("tvregd"), "--database", disk + "/registry.db"};
        command.insert(command.end(), options.begin(), options.end());
        const pid_t daemon = StartProgram({.command = command});
        EXPECT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
        return daemon;
    }
    static std::uint32_t MakeKey() {
        const Socket client = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
        EXPECT_TRUE(Send(client, CreateCall(HKEY_LOCAL_MACHINE, "k", 1)));
        return WordOf(ReadAnswer(client).rest, 0);
    }

    void SendNext(const Socket &socket, std::size_t client, std::uint32_t key) {
        const std::uint32_t number = ++sent[client];
        EXPECT_TRUE(Send(socket, SetCall(key, NameOf(client), DataOfWrite(number), number)));
    }

    // Each client has one write under way at any time.
    void WriteUntil(const std::atomic<bool> &ends, std::uint32_t key) {
        std::vector<Socket> sockets;
        std::vector<pollfd> waiting;
        for (std::size_t i = 0; i < clients; ++i) {
            sockets.push_back(ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS)));
            waiting.push_back({sockets[i].descriptor, POLLIN, 0});
            SendNext(sockets[i], i, key);
        }
        while (!ends) {
            (void)poll(waiting.data(), waiting.size(), 100);
            for (std::size_t i = 0; i < clients; ++i) {
                if (waiting[i].revents == 0) continue;
                const Answer answer = ReadAnswer(sockets[i]);
                ASSERT_EQ(answer.status, 0u);
                acknowledged[i] = answer.xid;
                SendNext(sockets[i], i, key);
            }
        }
    }

    // Has the clients write, and copies the disk meanwhile.
    std::vector<Copy> CopyWhileWriting(int copies, const std::vector<std::string> &options = {}) {
        const pid_t daemon = Start(folder + "/disk", options);
        const std::uint32_t key = MakeKey();
        std::atomic<bool> ends = false;
        std::thread writers([&] { WriteUntil(ends, key); });
        EXPECT_TRUE(WaitUntil([&] { return acknowledged[clients - 1] > 0; }));
        std::mt19937 random(7);
        std::vector<Copy> made;
        for (int i = 0; i < copies; ++i) {
            (void)usleep(std::uniform_int_distribution<useconds_t>(1, 60'000)(random));
            const Counts before = Now(acknowledged);
            const std::string image = CopyDisk(i);
            made.push_back({image, before, Now(sent)});
        }
        ends = true;
        writers.join();
        EXPECT_EQ(StopDaemon(daemon), 0);
        return made;
    }

    // The last write of each client that a daemon finds which is started with the copy; 0: none. Each must be whole.
    Counts Find(const Copy &copy) {
        Counts found{};
        EXPECT_TRUE(Mount(copy.image, Place("after"))) << "the file system itself";
        const pid_t daemon = Start(folder + "/after");
        const Socket reader = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
        const std::uint32_t key = MakeKey();
        for (std::size_t i = 0; i < clients; ++i) {
            EXPECT_TRUE(Send(reader, QueryCall(key, NameOf(i), 1)));
            const Answer answer = ReadAnswer(reader);
            if (answer.status == ERROR_FILE_NOT_FOUND) continue;
            const std::string data = DataOf(answer);
            EXPECT_EQ(answer.status, 0u);
            if (data.size() >= 4) std::memcpy(&found[i], data.data(), 4);
            EXPECT_EQ(data, DataOfWrite(found[i]));
            EXPECT_LE(found[i], copy.sent[i]);
        }
        EXPECT_EQ(StopDaemon(daemon), 0);
        Unmount();
        return found;
    }
};

} // namespace

TEST_F(RegistryPower, every_copy_of_the_disk_has_every_write_acknowledged_before) {
    MakeDisk();
    if (IsSkipped()) return;
    std::uint64_t checked = 0, unacknowledged = 0;
    const std::vector<Copy> copies = CopyWhileWriting(Trials(8, 150));
    for (const Copy &copy : copies) {
        const Counts found = Find(copy);
        for (std::size_t i = 0; i < clients; ++i) {
            EXPECT_GE(found[i], copy.acknowledged[i]) << copy.image << ", client " << i;
            unacknowledged += found[i] > copy.acknowledged[i];
        }
        for (const std::uint32_t count : copy.acknowledged) {
            checked += count;
        }
        if (HasFailure()) return;
    }
    Measured("%zu copies, %.0f writes acknowledged before the last, %.0f found that were not yet", copies.size(),
             static_cast<double>(std::accumulate(copies.back().acknowledged.begin(), copies.back().acknowledged.end(),
                                                 std::uint64_t{0})),
             static_cast<double>(unacknowledged));
    EXPECT_GT(checked, 0u);
}

// Which shows, too, that a copy lacks what is not synced.
TEST_F(RegistryPower, copies_of_a_lazy_daemons_disk_lack_the_last_writes_but_have_no_part_of_one) {
    MakeDisk();
    if (IsSkipped()) return;
    std::uint64_t lost = 0;
    for (const Copy &copy : CopyWhileWriting(Trials(4, 40), {"--lazy"})) {
        const Counts found = Find(copy);
        for (std::size_t i = 0; i < clients; ++i) {
            lost += copy.acknowledged[i] - std::min(found[i], copy.acknowledged[i]);
        }
        if (HasFailure()) return;
    }
    Measured("%.0f acknowledged writes are not in the copies", static_cast<double>(lost));
    EXPECT_GT(lost, 0u);
}
