/* SPDX-License-Identifier: MIT */
/* Stands in for Unbound's server: it opens nothing, and one worker waits for the event of the service code. */
#include "config.h"
#include "daemon/daemon.h"
#include "winrc/win_svc.h"

#include <stdarg.h>

int verbosity;
static struct daemon theDaemon;
static struct worker theWorker;
static struct {
    HANDLE event;
    void (*callback)(int, short, void *);
    void *argument;
} registered;

static void print(const char *format, va_list values) {
    vfprintf(stderr, format, values);
    fputc('\n', stderr);
}

#define LOG_FUNCTION(name, before, last)                                                                               \
    void name(before const char *format, ...) {                                                                        \
        va_list values;                                                                                                \
        va_start(values, format);                                                                                      \
        print(format, values);                                                                                         \
        va_end(values);                                                                                                \
        last;                                                                                                          \
    }
#define LEVEL int level,
LOG_FUNCTION(log_err, , (void)0)
LOG_FUNCTION(log_warn, , (void)0)
LOG_FUNCTION(log_info, , (void)0)
LOG_FUNCTION(fatal_exit, , exit(1))
LOG_FUNCTION(verbose, LEVEL, (void)level)

void log_init(const char *file, int useSyslog, const char *chroot) { (void)file, (void)useSyslog, (void)chroot; }
void log_thread_set(int *number) { (void)number; }
const char *wsa_strerror(int code) { return code == 0 ? "none" : "some"; }
void *startCron(void *(*routine)(void *), void *argument) { return routine(argument); }

struct daemon *daemon_init(void) {
    return &theDaemon;
}
void daemon_delete(struct daemon *daemon) { (void)daemon; }
void daemon_cleanup(struct daemon *daemon) { (void)daemon; }
void daemon_apply_cfg(struct daemon *daemon, struct config_file *config) { (void)daemon, (void)config; }
int daemon_open_shared_ports(struct daemon *daemon) { return daemon != NULL; }
void *daemon_remote_create(struct config_file *config) { return config; }
struct config_file *config_create(void) {
    return calloc(1, sizeof(struct config_file));
}
void config_delete(struct config_file *config) { free(config); }
void w_config_adjust_directory(struct config_file *config) { (void)config; }
void *listen_sslctx_create(char *key, char *pem, char *verify) { return (void)pem, (void)verify, key; }
void comm_base_exit(struct comm_base *base) { (void)base; }
void *comm_base_internal(struct comm_base *base) { return base; }
void comm_timer_set(struct comm_timer *timer, struct timeval *after) { (void)timer, (void)after; }
void comm_timer_delete(struct comm_timer *timer) { (void)timer; }

int config_read(struct config_file *config, const char *file, const char *chroot) {
    (void)config, (void)file, (void)chroot;
    errno = ENOENT;
    return 0;
}

void *connect_sslctx_create(char *key, char *pem, char *bundle, int winCert) {
    (void)key, (void)pem, (void)bundle, (void)winCert;
    return &theDaemon;
}

struct comm_timer *comm_timer_create(struct comm_base *base, void (*callback)(void *), void *argument) {
    (void)base, (void)callback;
    return argument;
}

struct ub_event *ub_winsock_register_wsaevent(void *base, HANDLE event, void (*callback)(int, short, void *),
                                              void *argument) {
    (void)base;
    registered.event = event;
    registered.callback = callback;
    registered.argument = argument;
    return argument;
}

/* The loop of the one worker. */
void daemon_fork(struct daemon *daemon) {
    (void)daemon;
    wsvc_setup_worker(&theWorker);
    while (!theWorker.need_to_exit) {
        if (WaitForSingleObject(registered.event, INFINITE) == WAIT_OBJECT_0) {
            registered.callback(0, 0, registered.argument);
        }
    }
    wsvc_desetup_worker(&theWorker);
}

int main(int argc, char **argv) {
    if (argc != 3 || strcmp(argv[1], "-w") != 0) return 2;
    wsvc_command_option(argv[2], NULL, 0, 0);
    return 1;
}
