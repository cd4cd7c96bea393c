// SPDX-License-Identifier: MIT
// daemon_commands: the commands about the daemon itself and its lock, on the command line.
#include "tvsc/commands.h"
#include "tvsc/daemon.h"
#include "tvsc/drain.h"
#include "tvsc/lock.h"
#include "tvsc/prepare.h"

namespace {

constexpr int mostPings = 1'000'000;

} // namespace

void AddDaemonCommands(CLI::App &app, CommandLine &line) {
    CLI::App *lock = app.add_subcommand("lock", "The database lock");
    lock->require_subcommand(1);
    AddCommand(*lock, line, "status", "Who holds it", [](Session &session) { return RunLockStatus(session); });
    AddCommand(*lock, line, "release", "Free it, whoever holds it", [&line](Session &session) {
        return RunLockRelease(session, line.lockId);
    })->add_option("--id", line.lockId, "Its identifier, where the owner's name does not tell it");
    AddCommand(*lock, line, "take", "Hold it while the command behind -- runs, or until interrupted",
               [&line](Session &session) { return RunLockTake(session, "lock take", line.behindDashes); });
    AddCommand(
        app, line, "with-lock", "Run the command behind -- while holding the lock",
        [&line](Session &session) { return RunLockTake(session, "with-lock", line.behindDashes); },
        [&line] {
            if (line.behindDashes.empty()) throw CLI::RequiredError("a command behind --");
        });

    CLI::App *handles = app.add_subcommand("handles", "The handles of services at the daemon");
    handles->require_subcommand(1);
    AddCommand(*handles, line, "drain", "Close those that keep a deleted service, whoever left them open",
               [&line](Session &session) { return RunHandlesDrain(session, line.names); })
        ->add_option(nameOption, line.names, "Service names")
        ->required();

    CLI::App *ping = app.add_subcommand("ping", "Ask the daemon whether it answers");
    ping->add_option("-c,--count", line.pings, "How often")->check(CLI::Range(1, mostPings))->capture_default_str();
    ping->callback([&line] { line.run = [&line] { return RunPing(line.options, line.pings); }; });
    CLI::App *online = app.add_subcommand("wait-online", "Wait until the daemon answers");
    online->callback([&line] { line.run = [&line] { return RunWaitOnline(line.options); }; });
    online->add_option("--timeout", line.options.waitTimeoutSec, "Longest wait, such as 90s or 15min")
        ->transform(ReadTime())
        ->type_name("TIME");
    CLI::App *daemon = app.add_subcommand("daemon", "The daemon itself");
    daemon->require_subcommand(1);
    daemon->add_subcommand("status", "Whether it runs, with its services")->callback([&line] {
        line.run = [&line] { return RunDaemonStatus(line.options); };
    });
    daemon->add_subcommand("rpcinfo", "Its entry at the port mapper, and that of the registry daemon")
        ->callback([&line] { line.run = [&line] { return RunDaemonRpcInfo(line.options); }; });
    app.add_subcommand("prepare", "Make the files that services with accounts leave their process ids in; for root")
        ->callback([&line] { line.run = [&line] { return RunPrepare(line.options); }; });
    daemon->add_subcommand("stop", "End it; services are left running")->callback([&line] {
        line.run = [&line] { return RunDaemonStop(line.options); };
    });
}
