// SPDX-License-Identifier: MIT
// tvregd: a registry daemon over a SQLite database, for one machine. Options, the loop, the end on a signal.
#include "rpc/door.h"
#include "tvregd/hives.h"
#include "tvregd/loading.h"
#include "tvregd/planting.h"
#include "tvregd/regd_svc.h"
#include "tvregd/writers.h"
#include "util/printable.h"
#include "util/standard_descriptors.h"
#include "util/usage.h"

#include <CLI/CLI.hpp>
#include <sqlite3.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>

namespace {

struct Options {
    std::string database;
    bool user = false;
    bool allowRemote = false;
    bool background = false;
    bool lazy = false;
    std::optional<std::string> writers = std::nullopt;
};

volatile std::sig_atomic_t endRequested = 0;

void RequestEnd(int) { endRequested = 1; }

// The end is asked for with SIGTERM or SIGINT, which are blocked except while the loop waits. A client that has left
// shows as a failed send. Returns the mask to wait with.
sigset_t PrepareSignals() {
    struct sigaction end {};
    end.sa_handler = RequestEnd;
    (void)sigaction(SIGTERM, &end, nullptr);
    (void)sigaction(SIGINT, &end, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked, waiting;
    (void)sigemptyset(&blocked);
    (void)sigaddset(&blocked, SIGTERM);
    (void)sigaddset(&blocked, SIGINT);
    (void)sigprocmask(SIG_BLOCK, &blocked, &waiting);
    (void)sigdelset(&waiting, SIGTERM);
    (void)sigdelset(&waiting, SIGINT);
    return waiting;
}

// What one group of writes has needed the next needs again: memory that went back to the system between them would be
// fetched and cleared anew, page by page. SQLite's statistics of its memory, which nobody reads, take a lock each time.
void PrepareMemory() {
    constexpr int keptBytes = 4 << 20;
    (void)mallopt(M_TRIM_THRESHOLD, keptBytes);
    (void)mallopt(M_MMAP_THRESHOLD, keptBytes);
    (void)sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

std::string UserDatabase() {
    const char *state = std::getenv("XDG_STATE_HOME");
    const char *home = std::getenv("HOME");
    std::filesystem::path folder;
    if (state != nullptr && *state == '/') {
        folder = state;
    } else if (home != nullptr && *home == '/') {
        folder = std::filesystem::path(home) / ".local/state";
    } else {
        throw std::runtime_error("--user needs HOME or XDG_STATE_HOME");
    }
    folder /= "tvregd";
    std::filesystem::create_directories(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all); // where it was there, too
    return folder / "registry.db";
}

// Goes on in a child process. The calling process stays until the child serves or fails: it then exits with 0 or 1.
//   returns  the descriptor that the child writes a byte to once it serves
int GoToBackground() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process");
    if (child > 0) {
        char byte = 0;
        (void)close(ends[1]);
        _exit(read(ends[0], &byte, 1) == 1 ? 0 : 1);
    }
    (void)close(ends[0]);
    (void)setsid();
    return ends[1];
}

// Lets go of the caller's terminal and pipes.
void TellServing(int descriptor) {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int standard = 0; standard <= 2; ++standard) {
        (void)dup2(null, standard);
    }
    (void)close(null);
    [[maybe_unused]] const ssize_t written = write(descriptor, "", 1);
    (void)close(descriptor);
}

// Tells a service manager that waits for it, as systemd does for Type=notify, that requests are served from now on.
void NotifyManager() {
    const char *name = std::getenv("NOTIFY_SOCKET");
    sockaddr_un manager = {};
    manager.sun_family = AF_UNIX;
    if (name == nullptr || std::strlen(name) > sizeof manager.sun_path) return;
    std::memcpy(manager.sun_path, name, std::strlen(name));
    if (*name == '@') manager.sun_path[0] = '\0'; // stands for that in an abstract name
    const auto bytes = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    constexpr std::string_view ready = "READY=1";
    (void)sendto(descriptor, ready.data(), ready.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&manager),
                 bytes); // a manager that cannot be told gives up by itself
    (void)close(descriptor);
}

int Serve(const Options &options) {
    OpenStandardDescriptors();
    (void)umask(077);
    const int serving = options.background ? GoToBackground() : -1;
    const sigset_t waitingMask = PrepareSignals();
    PrepareMemory();
    const std::string file = options.user ? UserDatabase() : options.database;
    StoreGuard store;
    Registry registry{MakeTree(), nullptr};
    try {
        store = OpenStore(file, options.lazy ? Durability::normal : Durability::full);
        LoadTree(*store, registry.tree);
    } catch (const std::exception &failure) {
        throw std::runtime_error(file + ": " + failure.what());
    }
    if (options.writers) LimitWriters(*options.writers);
    registry.store = store.get();
    MakeReplacements(registry);
    (void)PlantSeeds(registry); // it has said what was in the way; what is there can be read all the same
    if (!StartService(registry, options.allowRemote)) return 1;
    if (serving >= 0) TellServing(serving);
    NotifyManager();
    while (endRequested == 0) {
        const int waitMs = FinishTurn();
        (void)ServeNextRequests(-1, &waitingMask, waitMs);
    }
    (void)FinishTurn();
    store.reset();
    StopService();
    return 0;
}

} // namespace

static int RunProgram(int argc, char **argv) {
    Options options{.database = "/var/lib/tvregd/registry.db"};
    CLI::App app("Registry daemon: keeps the Win32 registry of this machine in a SQLite database and serves it as ONC "
                 "RPC program 0x3003003C version 2 over TCP.",
                 "tvregd");
    SpeakAs(app, TV_VERSION);
    auto *database = app.add_option("--database", options.database, "the database file, made when it is not there")
                         ->type_name("FILE")
                         ->capture_default_str();
    app.add_flag("--user", options.user, "use the registry.db of this user, under XDG_STATE_HOME")->excludes(database);
    app.add_flag("--allow-remote", options.allowRemote, "serve other machines too");
    app.add_flag("--background", options.background, "return as soon as requests are served");
    app.add_flag("--lazy", options.lazy,
                 "acknowledge writes before they are on the disk: faster, but a power failure may take the last ones");
    app.add_option("--writers", options.writers, "let only root and the members of this group change the registry")
        ->type_name("GROUP");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return Serve(options);
}

int main(int argc, char **argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "tvregd: %s\n", Printable(failure.what()).c_str());
        return 1;
    }
}
