// SPDX-License-Identifier: MIT
// logs: reading log files, the newest one and those that were put aside.
#include "tvsc/logs.h"

#include "svcapi/log_place.h"
#include "tvhost/journal.h"
#include "tvhost/state_file.h"
#include "tvsc/json_output.h"
#include "tvsc/report.h"
#include "util/printable.h"
#include "util/shell_quoted.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

constexpr unsigned mostFiles = 1001; // the newest one, and as many as tvhost keeps
constexpr unsigned followedLines = 10;
constexpr std::size_t notedLines = 5;
constexpr std::size_t longestNotedLine = 400;
constexpr std::size_t chunkBytes = 256 * 1024;
constexpr auto followPause = std::chrono::milliseconds(200);

int OpenLogFile(const std::string &folder, const std::string &name, unsigned number) {
    const std::string path = LogFilePath(folder, name, number);
    int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat found = {};
    if (file >= 0 && fstat(file, &found) == 0 && S_ISREG(found.st_mode)) return file;
    if (file >= 0) (void)close(file);
    return -1;
}

struct stat StatOf(int file) {
    struct stat found = {};
    (void)fstat(file, &found); // zeros stand for a file that is not there
    return found;
}

// How many older files there are, without a gap.
unsigned OlderFiles(const std::string &folder, const std::string &name) {
    struct stat found = {};
    unsigned number = 0;
    while (number + 1 < mostFiles && lstat(LogFilePath(folder, name, number + 1).c_str(), &found) == 0) {
        ++number;
    }
    return number;
}

// --- the last lines ---

// Where the last `most` lines of a file begin; *found is how many there are from there on.
off_t BeginOfLastLines(int file, std::size_t most, std::size_t *found) {
    off_t at = StatOf(file).st_size;
    std::string chunk;
    *found = 0;
    if (most == 0) return at;
    bool isEnd = true; // the end of the last line begins none
    while (at > 0) {
        const off_t bytes = std::min<off_t>(at, chunkBytes);
        chunk.resize(static_cast<std::size_t>(bytes));
        if (pread(file, chunk.data(), chunk.size(), at - bytes) != bytes) break;
        for (std::size_t i = chunk.size(); i-- > 0;) {
            if (chunk[i] == '\n' && !isEnd && ++*found == most) return at - bytes + static_cast<off_t>(i) + 1;
            isEnd = false;
        }
        at -= bytes;
    }
    if (!isEnd) ++*found;
    return at;
}

// The number of the file in which the last `most` lines begin, and where in it.
unsigned FindLastLines(const std::string &folder, const std::string &name, std::size_t most, off_t *begin) {
    const unsigned oldest = OlderFiles(folder, name);
    for (unsigned number = 0;; ++number) {
        int file = OpenLogFile(folder, name, number);
        const DescriptorGuard closed(&file);
        std::size_t found = 0;
        *begin = file >= 0 ? BeginOfLastLines(file, most, &found) : 0;
        most -= std::min(found, most);
        if (most == 0 || number >= oldest) return number;
    }
}

// --- writing ---

// How lines are shown, and whether one is, by the moment that it begins with; one without a moment goes with the one
// before.
struct Since {
    Options options;
    std::string name; // of the service
    std::optional<std::int64_t> epochMs = {};
    bool isShown = true;
    bool sawMoment = false;
};

constexpr std::size_t momentLength = 24; // 2026-01-31T12:00:00.000Z

std::optional<std::int64_t> MomentOf(std::string_view line) {
    tm parts = {};
    if (line.size() < momentLength || line[momentLength - 1] != 'Z') return std::nullopt;
    const std::string text(line.substr(0, momentLength));
    const char *rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr || *rest != '.') return std::nullopt;
    return std::int64_t{timegm(&parts)} * 1000 + std::strtol(rest + 1, nullptr, 10);
}

bool IsShown(Since *since, std::string_view line) {
    if (!since->epochMs) return true;
    if (const std::optional<std::int64_t> moment = MomentOf(line)) {
        since->sawMoment = true;
        since->isShown = *moment >= *since->epochMs;
    }
    return since->isShown;
}

// A line as a document, without the moment that it begins with, which is a member.
std::string LineJson(const Since &since, std::string_view line) {
    if (!MomentOf(line)) return LogLineJson(since.options, since.name, "", std::string(line));
    const std::size_t text = line.size() > momentLength && line[momentLength] == ' ' ? momentLength + 1 : momentLength;
    return LogLineJson(since.options, since.name, std::string(line.substr(0, momentLength)),
                       std::string(line.substr(text)));
}

void WriteLine(Since *since, std::string_view line) {
    static const bool isRead = isatty(STDOUT_FILENO) == 0; // a terminal would act on what it is shown
    if (!IsShown(since, line)) return;
    if (since->options.json) {
        fmt::print("{}\n", LineJson(*since, line));
        return;
    }
    const std::string text = isRead ? std::string(line) : Printable(line);
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    (void)std::fputc('\n', stdout);
}

// Writes the whole lines of what follows in a file; what is left of one stays in *partial.
void WriteRest(int file, Since *since, std::string *partial) {
    std::string chunk(chunkBytes, '\0');
    for (ssize_t bytes = 0; (bytes = read(file, chunk.data(), chunk.size())) > 0;) {
        partial->append(chunk, 0, static_cast<std::size_t>(bytes));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = partial->find('\n', begin)) != std::string::npos; begin = end + 1) {
            WriteLine(since, std::string_view(*partial).substr(begin, end - begin));
        }
        partial->erase(0, begin);
    }
    (void)std::fflush(stdout);
}

// The number that a file bears now; mostFiles when it is gone.
unsigned NumberOf(const std::string &folder, const std::string &name, const struct stat &wanted) {
    for (unsigned number = 0; number < mostFiles; ++number) {
        struct stat found = {};
        if (lstat(LogFilePath(folder, name, number).c_str(), &found) != 0) break;
        if (found.st_ino == wanted.st_ino && found.st_dev == wanted.st_dev) return number;
    }
    return mostFiles;
}

// Goes on from file to file as they are put aside, until interrupted. The file is the newest of those that were
// written.
[[noreturn]] void Follow(const std::string &folder, const std::string &name, int file, Since *since,
                         std::string *partial) {
    for (;;) {
        if (file >= 0) WriteRest(file, since, partial);
        const unsigned number = file >= 0 ? NumberOf(folder, name, StatOf(file)) : mostFiles;
        if (number == 0) {
            std::this_thread::sleep_for(followPause);
            continue;
        }
        // Once more: lines may have come between the last look and the moment when it was put aside.
        if (file >= 0) WriteRest(file, since, partial);
        const int next = OpenLogFile(folder, name, number == mostFiles ? OlderFiles(folder, name) : number - 1);
        if (next < 0) {
            std::this_thread::sleep_for(followPause);
            continue;
        }
        if (file >= 0) (void)close(file);
        file = next;
    }
}

int ShowFiles(const Options &options, const LogOptions &log, const std::string &folder) {
    Session session;
    session.options = options;
    Since since = {.options = options, .name = log.name};
    if (log.sinceSec) since.epochMs = EpochMs() - static_cast<std::int64_t>(*log.sinceSec * 1000);
    std::optional<unsigned> lines = log.lines;
    if (!lines && log.follow && !log.sinceSec) lines = followedLines;
    off_t begin = 0;
    unsigned number = lines ? FindLastLines(folder, log.name, *lines, &begin) : OlderFiles(folder, log.name);
    std::string partial;
    int file = -1;
    for (;; --number, begin = 0) {
        if (file >= 0) (void)close(file);
        file = OpenLogFile(folder, log.name, number);
        if (file < 0 && errno == EACCES) {
            Failed(session, log.name, "logs", ERROR_ACCESS_DENIED, LogFilePath(folder, log.name, number));
            return Finish(session);
        }
        const bool isTooOld = since.epochMs && StatOf(file).st_mtime * std::int64_t{1000} + 1000 < *since.epochMs;
        if (file >= 0 && !isTooOld) {
            (void)lseek(file, begin, SEEK_SET);
            WriteRest(file, &since, &partial);
        }
        if (number == 0) break;
    }
    if (since.epochMs && !since.sawMoment) {
        Note(session, fmt::format("tvsc: {}: its lines bear no time (AppLogTimestamps): shown are those of files that "
                                  "were written since",
                                  log.name));
    }
    if (log.follow) Follow(folder, log.name, file, &since, &partial);
    if (!partial.empty()) WriteLine(&since, partial);
    if (file >= 0) (void)close(file);
    return std::fflush(stdout) == 0 ? EXIT_DONE : EXIT_FAILED;
}

std::vector<std::string> JournalCommand(const LogOptions &log) {
    std::vector<std::string> words = {"journalctl", "--no-pager", "-t", log.name};
    if (log.lines) words.push_back("-n" + std::to_string(*log.lines));
    if (log.follow) words.emplace_back("-f");
    if (log.sinceSec) {
        words.push_back("--since=@" + std::to_string(EpochMs() / 1000 - static_cast<std::int64_t>(*log.sinceSec)));
    }
    return words;
}

int JournalFailed(const Options &options, const LogOptions &log, const std::string &why) {
    Session session;
    session.options = options;
    Failed(session, log.name, "logs", ERROR_FILE_NOT_FOUND, "journalctl: " + why);
    return Finish(session);
}

// Becomes journalctl. Returns only when that cannot be.
int ShowJournal(const Options &options, const LogOptions &log) {
    std::vector<std::string> words = JournalCommand(log);
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    (void)execvp(argv.front(), argv.data());
    return JournalFailed(options, log, std::strerror(errno));
}

// Takes the journal's own JSON and writes ours.
int ShowJournalJson(const Options &options, const LogOptions &log) {
    std::string command = "exec";
    for (const std::string &word : JournalCommand(log)) {
        command += " " + ShellQuoted(word);
    }
    FILE *const journal = popen((command + " -o json --output-fields=MESSAGE").c_str(), "re");
    if (journal == nullptr) return JournalFailed(options, log, std::strerror(errno));
    char *line = nullptr;
    std::size_t room = 0;
    for (ssize_t bytes = 0; (bytes = getline(&line, &room, journal)) > 0;) {
        const std::string ours = LogLineOfJournal(options, log.name, {line, static_cast<std::size_t>(bytes)});
        if (!ours.empty()) fmt::print("{}\n", ours);
        (void)std::fflush(stdout); // looked at when the program ends
    }
    std::free(line);
    const int status = pclose(journal);
    if (status == 0) return EXIT_DONE;
    return JournalFailed(options, log, WIFEXITED(status) && WEXITSTATUS(status) == 127 ? "not there" : "has failed");
}

} // namespace

int RunLogs(const Options &options, const LogOptions &log) {
    HostState state;
    uid_t owner = 0;
    (void)ReadHostState(log.name, &state, &owner); // without it, where the log is has to be found
    const std::string folder = FindLogFolder(log.name);
    const bool isInJournal = state.log == "journal" || (folder.empty() && access(journalSocketPath, F_OK) == 0);
    if (isInJournal) return options.json ? ShowJournalJson(options, log) : ShowJournal(options, log);
    if (!folder.empty()) return ShowFiles(options, log, folder);
    Session session;
    session.options = options;
    Failed(session, log.name, "logs", ERROR_FILE_NOT_FOUND, "no log; only services that tvhost runs have one");
    return Finish(session);
}

std::vector<std::string> LastLines(const std::string &name, std::size_t most) {
    std::vector<std::string> lines;
    const std::string folder = FindLogFolder(name);
    if (folder.empty()) return lines;
    off_t begin = 0;
    for (unsigned number = FindLastLines(folder, name, most, &begin);; --number, begin = 0) {
        int file = OpenLogFile(folder, name, number);
        const DescriptorGuard closed(&file);
        // Of lines that are too long the beginning is enough.
        std::string text(chunkBytes, '\0');
        const ssize_t bytes = file >= 0 ? pread(file, text.data(), text.size(), begin) : 0;
        text.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            lines.push_back(Printable(text.substr(at, std::min(end - at, longestNotedLine))));
            at = end + 1;
        }
        if (number == 0) break;
    }
    if (lines.size() > most) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
    return lines;
}

void NoteLastLines(const Session &session, const std::string &name) {
    if (!IsThisMachine(session.options)) return;
    for (const std::string &line : LastLines(name, notedLines)) {
        Note(session, "  | " + line);
    }
}
