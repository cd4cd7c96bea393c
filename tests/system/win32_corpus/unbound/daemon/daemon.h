/* SPDX-License-Identifier: MIT */
/* Stands in for Unbound: what the service code takes of its daemon, workers and configuration. */
#include <pthread.h>

struct comm_base;
struct comm_timer;
struct ub_event;
struct config_file {
    int verbosity, use_syslog;
    char *directory, *logfile, *chrootdir;
    char *ssl_service_key, *ssl_service_pem, *tls_cert_bundle;
    int tls_win_cert;
};
struct daemon {
    void *rc, *listen_sslctx, *connect_sslctx;
    char *chroot;
};
struct worker {
    int need_to_exit;
    struct comm_base *base;
};

typedef void *ub_thread_type;
#define ub_thread_create(thread, routine, argument) (*(thread) = startCron((routine), (argument)))
void *startCron(void *(*routine)(void *), void *argument);

enum { VERB_QUERY = 3, VERB_ALGO = 4 };
extern int verbosity;
void verbose(int level, const char *format, ...);
void log_err(const char *format, ...);
void log_warn(const char *format, ...);
void log_info(const char *format, ...);
void fatal_exit(const char *format, ...);
void log_init(const char *file, int useSyslog, const char *chroot);
void log_thread_set(int *number);
const char *wsa_strerror(int code);

struct daemon *daemon_init(void);
void daemon_delete(struct daemon *daemon);
void daemon_cleanup(struct daemon *daemon);
void daemon_apply_cfg(struct daemon *daemon, struct config_file *config);
int daemon_open_shared_ports(struct daemon *daemon);
void daemon_fork(struct daemon *daemon);
void *daemon_remote_create(struct config_file *config);
struct config_file *config_create(void);
void config_delete(struct config_file *config);
int config_read(struct config_file *config, const char *file, const char *chroot);
void w_config_adjust_directory(struct config_file *config);
void *listen_sslctx_create(char *key, char *pem, char *verify);
void *connect_sslctx_create(char *key, char *pem, char *bundle, int winCert);
void comm_base_exit(struct comm_base *base);
void *comm_base_internal(struct comm_base *base);
struct comm_timer *comm_timer_create(struct comm_base *base, void (*callback)(void *), void *argument);
void comm_timer_set(struct comm_timer *timer, struct timeval *after);
void comm_timer_delete(struct comm_timer *timer);
struct ub_event *ub_winsock_register_wsaevent(void *base, HANDLE event, void (*callback)(int, short, void *),
                                              void *argument);
