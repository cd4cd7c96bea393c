// SPDX-License-Identifier: MIT
// log: the pipes, the thread, and where lines go.
#include "tvhost/log.h"

#include "svcapi/log_place.h"
#include "tvhost/journal.h"
#include "tvhost/state_file.h"
#include "util/printable.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr int pipeBytes = 1024 * 1024;
constexpr std::size_t chunkBytes = std::size_t{256} * 1024;
constexpr auto retryPause = std::chrono::seconds(1);
constexpr auto flushLimit = std::chrono::seconds(5);

// --- where lines go ---

std::string Stamped(std::string_view lines, const std::string &prefix) {
    std::string stamped;
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n') + 1;
        stamped += prefix;
        stamped += lines.substr(0, end);
        lines.remove_prefix(end);
    }
    return stamped;
}

std::size_t SendLines(Log *log, int priority, std::string_view lines) {
    std::size_t done = 0;
    while (done < lines.size()) {
        const std::size_t end = lines.find('\n', done);
        if (!SendToJournal(log->journal, log->service, priority, lines.substr(done, end - done))) break;
        done = end + 1;
    }
    return done;
}

std::size_t PrintLines(std::string_view lines) {
    std::size_t done = 0;
    while (done < lines.size()) {
        const ssize_t bytes = write(STDERR_FILENO, lines.data() + done, lines.size() - done);
        if (bytes < 0 && errno != EINTR) return lines.size(); // there is nobody to tell
        done += bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
    }
    return done;
}

std::size_t PutOnce(Log *log, int priority, std::string_view lines) {
    switch (log->where) {
    case LogWhere::journal: return SendLines(log, priority, lines);
    case LogWhere::file: return AppendLines(&log->file, lines);
    default: return PrintLines(lines);
    }
}

// Waits before the next attempt. Returns false when there is none.
bool AwaitRetry(Log *log) {
    std::unique_lock<std::mutex> locked(log->guard);
    return !log->flushed.wait_for(locked, retryPause, [log] { return log->givingUp; });
}

// Puts whole lines where they go, however long that takes.
void Put(Log *log, int priority, std::string_view lines) {
    std::string stamped;
    if (log->where == LogWhere::none) {
        stamped = Stamped(lines, log->service + ": ");
    } else if (log->timestamps && log->where == LogWhere::file) {
        stamped = Stamped(lines, Timestamp(EpochMs()) + " ");
    }
    if (!stamped.empty()) lines = stamped;
    bool isTold = false;
    for (;;) {
        lines.remove_prefix(PutOnce(log, priority, lines));
        if (lines.empty()) return;
        if (!isTold) {
            std::fprintf(stderr, "tvhost: %s: %s: %s; its lines wait\n", Printable(log->service).c_str(),
                         Printable(LogPlaceText(*log)).c_str(), std::strerror(errno));
        }
        isTold = true;
        if (!AwaitRetry(log)) return;
    }
}

// --- reading ---

// Puts the whole lines of a stream, and what is too long to wait for its end.
void PutWholeLines(Log *log, LogStream *stream) {
    const std::size_t end = stream->partial.rfind('\n');
    if (end != std::string::npos) {
        Put(log, stream->priority, std::string_view(stream->partial).substr(0, end + 1));
        stream->partial.erase(0, end + 1);
    }
    if (stream->partial.size() < longestLineBytes) return;
    stream->partial.push_back('\n');
    Put(log, stream->priority, stream->partial);
    stream->partial.clear();
}

// Reads what is there, up to a chunk. Returns false when there is nothing.
bool ReadStream(Log *log, LogStream *stream) {
    const ssize_t bytes = read(stream->readEnd, log->chunk.get(), chunkBytes);
    if (bytes <= 0) return false;
    stream->partial.append(log->chunk.get(), static_cast<std::size_t>(bytes));
    PutWholeLines(log, stream);
    return true;
}

void DrainStream(Log *log, LogStream *stream) {
    while (ReadStream(log, stream)) {
    }
    if (stream->partial.empty()) return;
    stream->partial.push_back('\n');
    Put(log, stream->priority, stream->partial);
    stream->partial.clear();
}

// Takes what was asked of the thread. Returns whether it goes on.
bool ServeRequests(Log *log) {
    eventfd_t count = 0;
    (void)eventfd_read(log->wake, &count);
    std::unique_lock<std::mutex> locked(log->guard);
    const bool flush = log->flushesDone < log->flushesAsked;
    const std::uint64_t asked = log->flushesAsked;
    while (flush || !log->said.empty()) {
        locked.unlock();
        if (flush) {
            DrainStream(log, &log->output);
            DrainStream(log, &log->error);
        }
        locked.lock();
        if (log->said.empty()) break;
        const std::string line = log->said.front() + "\n";
        log->said.pop_front();
        locked.unlock();
        Put(log, LOG_NOTICE, line);
        locked.lock();
    }
    log->flushesDone = asked;
    log->flushed.notify_all();
    // The end may have been asked for while a line was put: its own flush is still to come then.
    return !log->ending || log->flushesDone < log->flushesAsked;
}

// Thread body.
void RunLog(Log *log) {
    for (bool goesOn = true; goesOn;) {
        pollfd polled[] = {{log->wake, POLLIN, 0}, {log->output.readEnd, POLLIN, 0}, {log->error.readEnd, POLLIN, 0}};
        if (poll(polled, std::size(polled), -1) <= 0) continue;
        if ((polled[1].revents & POLLIN) != 0) (void)ReadStream(log, &log->output);
        if ((polled[2].revents & POLLIN) != 0) (void)ReadStream(log, &log->error);
        if (polled[0].revents != 0) goesOn = ServeRequests(log);
    }
}

// --- opening ---

bool OpenStream(LogStream *stream, int priority) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    stream->readEnd = ends[0];
    stream->writeEnd = ends[1];
    stream->priority = priority;
    (void)fcntl(stream->readEnd, F_SETFL, O_NONBLOCK);
    (void)fcntl(stream->writeEnd, F_SETPIPE_SZ, pipeBytes); // more for a program in a hurry, where it may be had
    return true;
}

void CloseAt(int *descriptor) {
    if (*descriptor >= 0) (void)close(*descriptor);
    *descriptor = -1;
}

std::string OpenPlace(LogWhere wanted, Log *log) {
    log->where = wanted;
    if (wanted == LogWhere::automatic || wanted == LogWhere::journal) {
        log->journal = OpenJournal();
        if (log->journal >= 0) {
            log->where = LogWhere::journal;
            return "";
        }
        log->where = LogWhere::none;
        if (wanted == LogWhere::journal) return std::string(journalSocketPath) + ": " + std::strerror(errno);
    }
    if (wanted == LogWhere::none) return "";
    log->where = LogWhere::none;
    log->file.folder = OwnLogFolder(log->service);
    if (log->file.folder.empty()) {
        return "no place for its log: " + std::string(std::strerror(errno)) + "; try: tvsc prepare, as root";
    }
    const std::string path = LogFilePath(log->file.folder, log->service, 0);
    if (AppendLines(&log->file, "") == 0 && access(log->file.folder.c_str(), W_OK) == 0) log->where = LogWhere::file;
    return log->where == LogWhere::file ? "" : path + ": " + std::strerror(errno);
}

// Flushes; with the last flush the thread ends.
bool Flush(Log *log, bool isLast) {
    if (!log->thread.joinable()) return true;
    std::unique_lock<std::mutex> locked(log->guard);
    const std::uint64_t flush = ++log->flushesAsked;
    log->ending = isLast;
    (void)eventfd_write(log->wake, 1);
    return log->flushed.wait_for(locked, flushLimit, [&] { return log->flushesDone >= flush; });
}

} // namespace

std::string OpenLog(const std::string &serviceName, const HostParameters &parameters, Log *log) {
    log->service = serviceName;
    log->timestamps = parameters.logTimestamps != 0;
    log->file.service = serviceName;
    log->file.mostBytes = parameters.rotateBytes;
    log->file.olderFiles = parameters.rotateFiles;
    std::string why = OpenPlace(parameters.log, log);
    log->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (log->wake < 0 || !OpenStream(&log->output, LOG_INFO) || !OpenStream(&log->error, LOG_WARNING)) {
        log->where = LogWhere::none;
        return std::string("no pipe for its output: ") + std::strerror(errno);
    }
    // Signals are for the thread that runs the service.
    sigset_t all, before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    log->chunk = std::make_unique_for_overwrite<char[]>(chunkBytes);
    log->thread = std::thread(RunLog, log);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return why;
}

std::string LogPlaceText(const Log &log) {
    switch (log.where) {
    case LogWhere::journal: return "journal";
    case LogWhere::file: return LogFilePath(log.file.folder, log.service, 0);
    default: return "";
    }
}

void SayInLog(Log *log, const std::string &line) {
    // Without a log it would be said twice on standard error.
    if (!log->thread.joinable() || log->where == LogWhere::none) return;
    const std::lock_guard<std::mutex> locked(log->guard);
    log->said.push_back(line);
    (void)eventfd_write(log->wake, 1);
}

bool FlushLog(Log *log) { return Flush(log, false); }

void CloseLog(Log *log) {
    if (!log->thread.joinable()) return;
    const bool isWhole = Flush(log, true);
    {
        const std::lock_guard<std::mutex> locked(log->guard);
        log->givingUp = true;
        log->flushed.notify_all();
        (void)eventfd_write(log->wake, 1);
    }
    if (!isWhole) std::fprintf(stderr, "tvhost: %s: lines of its log are lost\n", Printable(log->service).c_str());
    log->thread.join();
    for (int *descriptor : {&log->output.readEnd, &log->output.writeEnd, &log->error.readEnd, &log->error.writeEnd,
                            &log->wake, &log->journal}) {
        CloseAt(descriptor);
    }
    CloseLogFile(&log->file);
}

std::string Timestamp(std::int64_t epochMs) {
    const std::time_t seconds = static_cast<std::time_t>(epochMs / 1000);
    tm parts = {};
    (void)gmtime_r(&seconds, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    (void)std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(epochMs % 1000));
    return text;
}
