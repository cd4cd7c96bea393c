// SPDX-License-Identifier: MIT
// million: tvregd with a million keys: its start, its memory, and what others notice when all of them are deleted.
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tv/winreg.h"
#include "tvregd/loading.h"
#include "tvregd/operations.h"

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

constexpr int folders = 1000;

// So many keys, a thousandth of them in each folder, folder by folder, each with a value. Written through the daemon's
// own code.
std::string MakeBigRegistry(int keys) {
    const std::string file = MakeScratchFolder() + "/registry.db";
    Registry registry{MakeTree(), nullptr};
    const StoreGuard store = OpenStore(file);
    store->database.exec("PRAGMA synchronous = OFF");
    LoadTree(*store, registry.tree);
    registry.store = store.get();
    std::uint32_t rc = 0, disposition = 0;
    for (int i = 0; i < keys && rc == 0; ++i) {
        const std::string path = fmt::format("big\\folder{:03}\\key{:07}", i / ((keys + folders - 1) / folders), i);
        Key *key = nullptr;
        rc = CreateKey(registry, HKEY_LOCAL_MACHINE, path, std::nullopt, 0, &key, &disposition);
        if (rc == 0) rc = SetValue(registry, HandleOf(*key), "Description", REG_SZ, Sz("What this key is for"));
        if (IsGroupFull(registry.group)) rc = CommitGroup(registry);
    }
    if (rc == 0) rc = CommitGroup(registry);
    if (rc != 0) throw std::runtime_error(fmt::format("the registry answers {}", rc));
    sync(); // or the daemon's first sync of the file would write all of it
    return file;
}

double SecondsOfStart(const std::string &file, pid_t *tvregd) {
    const double begin = NowUs();
    *tvregd = StartRegistryDaemon(file);
    return (NowUs() - begin) / 1e6;
}

// The longest that a client waits that asks all the time, while another deletes everything, and then until all rows are
// gone.
double WorstMsBesideDeletion(const std::string &file, double *deletionMs) {
    std::atomic<bool> ends = false;
    std::atomic<double> worst = 0;
    std::thread prober([&] {
        const RpcClient client = DialRegistryDaemon();
        while (!ends) {
            const double begin = NowUs();
            regd_REG_QUERY_INFO_KEY argument = {};
            argument.key = HKEY_USERS;
            (void)CallForAnswer(client.get(), argument);
            worst = std::max(worst.load(), (NowUs() - begin) / 1000);
        }
    });
    SleepMs(100);
    const double begin = NowUs();
    DeleteKey("big");
    *deletionMs = (NowUs() - begin) / 1000;
    SQLite::Database reader(file, SQLite::OPEN_READONLY);
    const bool erased =
        WaitUntil([&] { return reader.execAndGet("SELECT count(*) FROM deleted_keys").getInt() == 0; }, 120'000);
    ends = true;
    prober.join();
    if (!erased) throw std::runtime_error("the deleted keys are still there");
    return worst;
}

} // namespace

void MeasureMillion(Bench &bench) {
    if (!bench.isWanted("tvregd: a million keys")) return;
    const int keys = Samples(bench, 1'000'000);
    const std::string file = MakeBigRegistry(keys), setting = Thousands(keys) + " keys";
    std::vector<double> seconds;
    pid_t tvregd = 0;
    for (int i = 0; i < bench.rounds; ++i) {
        if (tvregd != 0) (void)StopDaemon(tvregd);
        seconds.push_back(SecondsOfStart(file, &tvregd));
    }
    AddRow(bench, {"tvregd: start", setting, {}, {}, {"s", Median(seconds), 2.5}});
    const double megabytes = static_cast<double>(ResidentBytes(tvregd)) / 1e6;
    AddRow(bench, {"tvregd: memory", setting, {}, {}, {"MB", megabytes, 600}});
    double deletionMs = 0;
    const double worst = WorstMsBesideDeletion(file, &deletionMs);
    AddRow(bench, {"tvregd: their deletion, another's wait", setting, {}, {}, {"worst, ms", worst, 50}});
    AddRow(bench, {"tvregd: their deletion", setting, {}, {}, {"ms", deletionMs}});
    (void)StopDaemon(tvregd);
}
