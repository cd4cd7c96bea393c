// SPDX-License-Identifier: MIT
// commits: writes to tvregd that share commits, beside SQLite by itself and, where it is installed, redis.
#include "bench/measure/crowd.h"
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"
#include "tests/support/xdr_bytes.h"
#include "tv/winreg.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <fmt/core.h>

#include <sys/socket.h>

#include <atomic>
#include <thread>

namespace {

constexpr std::size_t basicReplyBytes = 4 + 6 * 4 + 2 * 4; // fragment header, reply header, discriminant, status
const std::string data(25, 'x');

std::string Identity() { return Words({6, 0}) + XdrString("root") + Words({0}); }

std::string SetRequest(std::uint32_t key, const std::string &name) {
    const auto bytes = static_cast<std::uint32_t>(data.size());
    return RpcCall(REGDAEMONPROG, REGDAEMONVERS, REG_SET_VALUE_EX,
                   Identity() + Words({key}) + XdrString(name) + Words({REG_SZ}) + XdrString(data) + Words({bytes, 0}));
}

std::uint32_t MakeKey(const std::string &path) {
    const RpcClient client = DialRegistryDaemon();
    regd_REG_CREATE_KEY argument = {};
    argument.key = HKEY_LOCAL_MACHINE;
    argument.subKey = Text(path.c_str());
    auto made = CallForAnswer(client.get(), argument);
    return made->body.key;
}

// Each writer sets a value of its own.
Crowd MakeWriters(int clients, std::uint32_t key) {
    std::vector<std::string> requests;
    for (int i = 0; i < clients; ++i) {
        requests.push_back(SetRequest(key, fmt::format("value{:03}", i)));
    }
    return MakeCrowd(PortOf(REGDAEMONPROG, REGDAEMONVERS), clients, std::move(requests), basicReplyBytes);
}

// --- what they are held against ---

// A database as tvregd opens its own, with one table.
struct Table {
    SQLite::Database database;
    SQLite::Statement set;

    explicit Table(const std::string &file)
        : database(Open(file)), set(database, "INSERT INTO data VALUES (?, ?) "
                                              "ON CONFLICT (id) DO UPDATE SET data = excluded.data") {}
    static SQLite::Database Open(const std::string &file) {
        SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        (void)database.execAndGet("PRAGMA journal_mode = WAL");
        database.exec("PRAGMA synchronous = FULL");
        database.exec("CREATE TABLE data (id INTEGER PRIMARY KEY, data BLOB)");
        return database;
    }
};

void SetInTransaction(Table &table, int sets) {
    static int turn = 0;
    std::string changing = data + std::to_string(++turn); // SQLite does not write what has not changed
    table.database.exec("BEGIN IMMEDIATE");
    for (int i = 0; i < sets; ++i) {
        table.set.reset();
        table.set.bind(1, i);
        table.set.bind(2, changing.data(), static_cast<int>(changing.size()));
        (void)table.set.exec();
    }
    table.database.exec("COMMIT");
}

// redis, which syncs before it answers. 0: it is not installed.
constexpr std::uint16_t redisPort = 6399;
pid_t StartRedis() {
    const std::string program = "/usr/bin/redis-server";
    if (access(program.c_str(), X_OK) != 0) return 0;
    const std::string folder = MakeScratchFolder();
    const pid_t process = StartProgram({.command = {program, "--port", std::to_string(redisPort), "--appendonly", "yes",
                                                    "--appendfsync", "always", "--save", "", "--dir", folder},
                                        .outputFile = folder + "/log"});
    const bool answers = WaitUntil([] {
        try {
            (void)close(ConnectTo(redisPort));
            return true;
        } catch (const std::exception &) {
            return false;
        }
    });
    if (!answers) throw std::runtime_error("redis does not answer");
    return process;
}

Crowd MakeRedisWriters(int clients) {
    std::vector<std::string> requests;
    for (int i = 0; i < clients; ++i) {
        requests.push_back(fmt::format("*3\r\n$3\r\nSET\r\n$8\r\nvalue{:03}\r\n${}\r\n{}\r\n", i, data.size(), data));
    }
    return MakeCrowd(redisPort, clients, std::move(requests), 5); // +OK
}

// --- rows ---

void MeasureCrowds(Bench &bench, pid_t tvregd, std::uint32_t key) {
    constexpr int clients = 64;
    Table table(MakeScratchFolder() + "/floor.db");
    const pid_t redis = StartRedis();
    Crowd writers = MakeWriters(clients, key);
    Crowd redisWriters = redis != 0 ? MakeRedisWriters(clients) : Crowd{};
    std::vector<Figures> measured, transactions, redisSets;
    const int sets = Samples(bench, 6400);
    for (int i = 0; i < 3 * bench.rounds; ++i) {
        const double begin = NowUs();
        for (int set = 0; set < sets; set += clients) {
            SetInTransaction(table, clients);
        }
        const double each = (NowUs() - begin) / sets;
        transactions.push_back({each, each});
        if (redis != 0) redisSets.push_back(RunCrowd(redisWriters, redis, sets));
        measured.push_back(RunCrowd(writers, tvregd, sets));
    }
    const Comparison beside = Summarise(measured, transactions);
    AddRow(bench, {"tvregd: sets from 64 clients",
                   "64 a transaction",
                   beside.measured,
                   beside.floor,
                   {"time / SQLite", beside.ratio}});
    if (redis != 0) {
        const Comparison result = Summarise(measured, redisSets);
        AddRow(bench, {"tvregd: sets from 64 clients",
                       "redis, fsync always",
                       result.measured,
                       result.floor,
                       {"sets/s / redis", 1 / result.ratio, 2.0, true}});
        ReleaseCrowd(redisWriters);
        StopProcess(redis);
    }
    ReleaseCrowd(writers);
}

void MeasureReadsBesideWriters(Bench &bench, pid_t tvregd, std::uint32_t key) {
    const std::uint32_t quiet = MakeKey("quiet");
    const RpcClient client = DialRegistryDaemon();
    const auto read = [&] {
        regd_REG_QUERY_INFO_KEY argument = {};
        argument.key = quiet;
        (void)CallForAnswer(client.get(), argument);
    };
    const int samples = Samples(bench, 2000);
    std::vector<Figures> alone, beside;
    for (int i = 0; i < bench.rounds; ++i) {
        alone.push_back(SampleRound({read, tvregd}, samples));
        std::atomic<bool> ends = false;
        std::thread others([&] {
            Crowd writers = MakeWriters(16, key);
            while (!ends) {
                (void)RunCrowd(writers, tvregd, 160);
            }
            ReleaseCrowd(writers);
        });
        SleepMs(20);
        beside.push_back(SampleRound({read, tvregd}, samples));
        ends = true;
        others.join();
    }
    const Comparison result = Summarise(beside, alone);
    AddRow(bench, {"tvregd: read beside writers",
                   "16 writers",
                   result.measured,
                   result.floor,
                   {"time / alone", result.ratio, 3.0}});
}

// Sends all requests in one stream and takes all replies.
double ImportUs(std::uint32_t key, int values) {
    std::string stream;
    for (int i = 0; i < values; ++i) {
        stream += SetRequest(key, fmt::format("value{:06}", i));
    }
    const int connection = ConnectTo(PortOf(REGDAEMONPROG, REGDAEMONVERS));
    const double begin = NowUs();
    std::thread sender([&] {
        for (std::size_t sent = 0; sent < stream.size();) {
            const ssize_t now = send(connection, stream.data() + sent, stream.size() - sent, MSG_NOSIGNAL);
            if (now <= 0) return;
            sent += static_cast<std::size_t>(now);
        }
    });
    std::vector<char> replies(basicReplyBytes * static_cast<std::size_t>(values));
    const ssize_t got = recv(connection, replies.data(), replies.size(), MSG_WAITALL);
    const double end = NowUs();
    sender.join();
    (void)close(connection);
    if (got != static_cast<ssize_t>(replies.size())) throw std::runtime_error("the import is not answered");
    return end - begin;
}

void MeasureImport(Bench &bench) {
    const int values = Samples(bench, 100'000);
    std::vector<Figures> imports, transactions;
    for (int i = 0; i < bench.rounds; ++i) {
        Table table(MakeScratchFolder() + "/floor.db");
        const double begin = NowUs();
        SetInTransaction(table, values);
        const double transaction = NowUs() - begin;
        transactions.push_back({transaction, transaction});
        const double import = ImportUs(MakeKey(fmt::format("import{}", i)), values);
        imports.push_back({import, import});
    }
    const Comparison result = Summarise(imports, transactions);
    AddRow(bench, {"tvregd: import",
                   Thousands(values) + " values",
                   result.measured,
                   result.floor,
                   {"time / SQLite", result.ratio, 5.0}});
}

} // namespace

void MeasureCommits(Bench &bench) {
    if (!bench.isWanted("tvregd: commits")) return;
    const pid_t tvregd = StartRegistryDaemon(MakeScratchFolder() + "/registry.db");
    const std::uint32_t key = MakeKey("written");
    MeasureCrowds(bench, tvregd, key);
    MeasureReadsBesideWriters(bench, tvregd, key);
    MeasureImport(bench);
    (void)StopDaemon(tvregd);
}
