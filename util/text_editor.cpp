// SPDX-License-Identifier: MIT
// text_editor: making the file and running the editor.
#include "util/text_editor.h"

#include "util/guard.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

static std::string Variable(const char *name, const std::string &otherwise) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

static bool WriteWhole(int descriptor, const std::string &text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<std::size_t>(written);
    }
    return fsync(descriptor) == 0;
}

std::string NewTextFile(const std::string &name, const std::string &suffix, const std::string &text,
                        std::string *problem) {
    std::string file = Variable("TMPDIR", "/tmp") + '/' + name + ".XXXXXX" + suffix;
    int descriptor = mkstemps(file.data(), static_cast<int>(suffix.size()));
    if (descriptor >= 0) {
        const DescriptorGuard closed(&descriptor);
        if (WriteWhole(descriptor, text)) return file;
        *problem = file + ": " + std::strerror(errno);
        (void)unlink(file.c_str()); // half a text is none
        return "";
    }
    *problem = file + ": " + std::strerror(errno);
    return "";
}

bool RunEditor(const std::string &file, std::string *problem) {
    const std::string editor = Variable("VISUAL", Variable("EDITOR", "vi")), command = editor + " \"$1\"";
    const pid_t child = fork();
    if (child == 0) {
        sigset_t none;
        sigemptyset(&none);
        (void)sigprocmask(SIG_SETMASK, &none, nullptr); // the program may have signals blocked for a thread of its own
        (void)signal(SIGPIPE, SIG_DFL);
        execl("/bin/sh", "sh", "-c", command.c_str(), "sh", file.c_str(), nullptr);
        _exit(127);
    }
    int status = -1;
    *problem = editor + ": " + (child < 0 ? std::strerror(errno) : "the editor failed");
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && status == 0;
}
