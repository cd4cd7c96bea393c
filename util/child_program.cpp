// SPDX-License-Identifier: MIT
// child_program: starting and waiting.
#include "util/child_program.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>

int SpawnProgram(const std::vector<std::string> &command, const posix_spawn_file_actions_t *actions, pid_t *process) {
    std::vector<char *> argv;
    argv.reserve(command.size() + 1);
    for (const std::string &word : command) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawnattr_t attributes;
    sigset_t none, pipeSignal;
    (void)posix_spawnattr_init(&attributes);
    sigemptyset(&none);
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    (void)posix_spawnattr_setsigmask(&attributes, &none);
    (void)posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int rc = posix_spawnp(process, argv.front(), actions, &attributes, argv.data(), environ);
    (void)posix_spawnattr_destroy(&attributes);
    return rc;
}

int RunProgram(const std::vector<std::string> &command, int *status) {
    pid_t process = 0;
    if (const int rc = SpawnProgram(command, nullptr, &process); rc != 0) return rc;
    int ended = 0;
    while (waitpid(process, &ended, 0) < 0) {
        if (errno != EINTR) return errno;
    }
    *status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    return 0;
}
