// SPDX-License-Identifier: MIT
// log_file: appending and putting aside.
#include "tvhost/log_file.h"

#include "svcapi/log_place.h"
#include "util/file_status.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr mode_t logMode = 0640;

bool OpenNewest(LogFile *log) {
    if (log->file >= 0) return true;
    const std::string path = LogFilePath(log->folder, log->service, 0);
    log->file = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, logMode);
    FileStatus found;
    if (log->file < 0 || !LookAtFile(log->file, &found)) return false;
    if (!S_ISREG(found.mode)) {
        CloseLogFile(log);
        errno = EINVAL;
        return false;
    }
    log->bytes = found.bytes;
    // The last line of a process that was killed has no end.
    char last = '\n';
    if (log->bytes > 0 && pread(log->file, &last, 1, static_cast<off_t>(found.bytes) - 1) == 1 && last != '\n') {
        log->bytes += static_cast<std::uint64_t>(write(log->file, "\n", 1) == 1);
    }
    return true;
}

// Puts the newest file aside; the oldest one goes.
void Rotate(LogFile *log) {
    CloseLogFile(log);
    const auto pathOf = [log](unsigned number) { return LogFilePath(log->folder, log->service, number); };
    if (log->olderFiles == 0) (void)unlink(pathOf(0).c_str());
    for (unsigned number = log->olderFiles; number > 0; --number) {
        (void)std::rename(pathOf(number - 1).c_str(), pathOf(number).c_str()); // not all are there yet
    }
}

// The lines, as many as fit into the newest file; the first one of an empty file in any case.
std::string_view LinesThatFit(const LogFile &log, std::string_view lines) {
    if (log.mostBytes == 0 || log.bytes + lines.size() <= log.mostBytes) return lines;
    const std::uint64_t room = log.bytes < log.mostBytes ? log.mostBytes - log.bytes : 0;
    const std::size_t end = room > 0 ? lines.rfind('\n', static_cast<std::size_t>(room) - 1) : std::string_view::npos;
    if (end != std::string_view::npos) return lines.substr(0, end + 1);
    return log.bytes == 0 ? lines.substr(0, lines.find('\n') + 1) : std::string_view{};
}

// Writes as much as goes; takes a line back that did not go in whole.
std::size_t WriteWhole(LogFile *log, std::string_view text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t bytes = write(log->file, text.data() + written, text.size() - written);
        if (bytes < 0 && errno == EINTR) continue;
        if (bytes < 0) break;
        written += static_cast<std::size_t>(bytes);
    }
    if (written < text.size()) {
        const int error = errno;
        const std::size_t lineEnd = text.substr(0, written).rfind('\n');
        written = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
        [[maybe_unused]] const int cut =
            ftruncate(log->file, static_cast<off_t>(log->bytes + written)); // else the line stands there twice
        errno = error;
    }
    log->bytes += written;
    return written;
}

} // namespace

std::size_t AppendLines(LogFile *log, std::string_view lines) {
    std::size_t done = 0;
    while (done < lines.size()) {
        if (!OpenNewest(log)) return done;
        const std::string_view fitting = LinesThatFit(*log, lines.substr(done));
        if (fitting.empty()) {
            Rotate(log);
            continue;
        }
        const std::size_t written = WriteWhole(log, fitting);
        done += written;
        if (written < fitting.size()) return done;
    }
    return done;
}

void CloseLogFile(LogFile *log) {
    if (log->file >= 0) (void)close(log->file);
    log->file = -1;
    log->bytes = 0;
}
