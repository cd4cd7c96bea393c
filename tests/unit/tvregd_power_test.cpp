// SPDX-License-Identifier: MIT
// Power failures under the registry daemon's database: what was synced is there, and of what was written since, any
// sectors are and any are not.
#include "tests/support/registry_in_file.h"

#include <map>
#include <random>
#include <utility>

namespace {

constexpr std::size_t sectorBytes = 512;

// The files as a power failure at one moment would leave them, by their suffixes.
using Image = std::map<std::string, std::string>;

struct Disk {
    std::string file;                           // watched, with its log; empty: nothing is
    std::map<std::string, std::string> durable; // by suffix
    std::mt19937 random{1};
    std::vector<Image> images; // of failures just before syncs
    int syncs = 0;
};
Disk disk;

std::string ContentOf(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Each sector as it was synced last or as it is now.
std::string Torn(const std::string &durable, const std::string &now) {
    std::string torn = disk.random() % 2 == 0 ? now : durable;
    for (std::size_t at = 0; at < torn.size(); at += sectorBytes) {
        const std::string &from = disk.random() % 2 == 0 ? now : durable;
        if (at < from.size()) torn.replace(at, std::min(sectorBytes, torn.size() - at), from, at, sectorBytes);
    }
    return torn;
}

void NoteSync(const std::string &path) {
    if (disk.file.empty() || path.rfind(disk.file, 0) != 0) return;
    ++disk.syncs;
    for (int failure = 0; failure < 3; ++failure) {
        Image image;
        for (const char *suffix : {"", "-wal"}) {
            image[suffix] = Torn(disk.durable[suffix], ContentOf(disk.file + suffix));
        }
        disk.images.push_back(std::move(image));
    }
    disk.durable[path.substr(disk.file.size())] = ContentOf(path);
}

} // namespace

// In the place of the C library's: databases are synced with it.
extern "C" int fdatasync(int descriptor) {
    NoteSync(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    return 0;
}

namespace {

struct TvregdPower : RegistryInFile {
    // What a daemon finds that is started after the failure.
    std::string PictureAfter(const Image &image) {
        const std::string after = Folder() + "/after.db";
        std::filesystem::remove(after + "-shm");
        for (const auto &[suffix, content] : image) {
            std::ofstream(after + suffix, std::ios::binary) << content;
        }
        const StoreGuard opened = OpenStore(after);
        Registry started{MakeTree(), opened.get()};
        LoadTree(*opened, started.tree);
        std::swap(registry, started);
        std::string picture = Picture();
        std::swap(registry, started);
        return picture;
    }
};

} // namespace

// Pages of 512 bytes, and few of them in the log before it is brought into the database, so that failures meet that,
// too, and the log from its beginning. With TV_LONG more commits.
TEST_F(TvregdPower, a_power_failure_at_any_sync_leaves_every_acknowledged_write_and_whole_groups) {
    store.reset();
    std::filesystem::remove(file);
    SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec("PRAGMA page_size = 512; VACUUM");
    Open();
    store->database.exec("PRAGMA wal_autocheckpoint = 12");
    (void)Make(HKEY_USERS, "first");
    EXPECT_EQ(CommitGroup(registry), 0u);
    std::string acknowledged = Picture();
    for (const char *suffix : {"", "-wal"}) {
        disk.durable[suffix] = ContentOf(file + suffix);
    }
    disk.file = file;

    std::mt19937 random(2);
    int failures = 0, unacknowledged = 0;
    const int commits = std::getenv("TV_LONG") != nullptr ? 1000 : 120;
    for (int i = 0; i < commits; ++i) {
        const std::uint32_t key = Make(HKEY_USERS, "k" + std::to_string(random() % 10));
        for (std::uint32_t writes = random() % 4 + 1; writes > 0; --writes) {
            EXPECT_EQ(Set(key, "v" + std::to_string(random() % 5), std::string(random() % 1500, 'x')), 0u);
        }
        if (random() % 5 == 0) {
            EXPECT_EQ(DeleteKey(registry, HKEY_USERS, SubKeys(HKEY_USERS).back()), 0u);
        }
        const std::string written = Picture();
        EXPECT_EQ(CommitGroup(registry), 0u);
        for (const Image &image : std::exchange(disk.images, {})) {
            const std::string watched = std::exchange(disk.file, {});
            const std::string found = PictureAfter(image);
            disk.file = watched;
            ASSERT_TRUE(found == acknowledged || found == written) << "commit " << i;
            unacknowledged += found == written;
            ++failures;
        }
        acknowledged = written;
        // And when nothing is under way.
        const std::string watched = std::exchange(disk.file, {});
        Image quiet;
        for (const char *suffix : {"", "-wal"}) {
            quiet[suffix] = Torn(disk.durable[suffix], ContentOf(watched + suffix));
        }
        ASSERT_EQ(PictureAfter(quiet), acknowledged) << "commit " << i;
        disk.file = watched;
    }
    disk.file.clear();
    EXPECT_GT(disk.syncs, commits * 5 / 4) << "the log was brought into the database meanwhile";
    EXPECT_GT(failures, 3 * commits);
    EXPECT_GT(unacknowledged, 0);
}
