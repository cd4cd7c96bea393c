/* SPDX-License-Identifier: MIT */
/* Stands in for the agent: its command line, and a loop that runs until the service code ends it. */
#include "common.h"

/* Of service.h, which defines the first in every file that includes it. */
extern int application_status;
void service_start(int flags);
int ZabbixCreateService(const char *path, int multiple_agents);
int ZabbixRemoveService(void);
int ZabbixStartService(void);
int ZabbixStopService(void);

char *CONFIG_FILE;

void zbx_free_service_resources(int result) { (void)result; }
void zbx_on_exit(int result) { exit(result); }

void zbx_error(const char *format, ...) {
    va_list values;
    va_start(values, format);
    vprintf(format, values);
    va_end(values);
    printf("\n");
    fflush(stdout);
}

char *strerror_from_system(DWORD code) {
    static char text[32];
    snprintf(text, sizeof text, "%u", (unsigned)code);
    return text;
}

wchar_t *zbx_utf8_to_unicode(const char *text) {
    const size_t room = strlen(text) + 1;
    wchar_t *wide = malloc(room * sizeof *wide);
    StringCchPrintfW(wide, room, u"%hs", text);
    return wide;
}

int MAIN_ZABBIX_ENTRY(int flags) {
    if (flags != 0) zbx_error("agent in the foreground");
    while (flags == 0 && application_status != 0) {
        Sleep(10);
    }
    return 0;
}

int main(int argc, char *argv[]) {
    const char *task = "";
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--config") == 0 && i + 1 < argc) {
            CONFIG_FILE = argv[++i];
        } else {
            task = argv[i];
        }
    }
    if (strcmp(task, "--install") == 0) return ZabbixCreateService(argv[0], 0) != SUCCEED;
    if (strcmp(task, "--uninstall") == 0) return ZabbixRemoveService() != SUCCEED;
    if (strcmp(task, "--start") == 0) return ZabbixStartService() != SUCCEED;
    if (strcmp(task, "--stop") == 0) return ZabbixStopService() != SUCCEED;
    service_start(strcmp(task, "--foreground") == 0 ? ZBX_TASK_FLAG_FOREGROUND : 0);
    return 0;
}
