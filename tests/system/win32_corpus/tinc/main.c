/* SPDX-License-Identifier: MIT */
/* Stands in for tincd: its ways in, and a loop that runs until it is told to end. */
#include "system.h"

#include "process.h"

#include <stdarg.h>

volatile bool running = true;
int debug_level;
char *identname = "tinc.vpn";
char *pidfilename = "";
char *program_name;
char **g_argv;
bool use_logfile;

void logger(int priority, const char *format, ...) {
    va_list values;
    (void)priority;
    va_start(values, format);
    vprintf(format, values);
    va_end(values);
    printf("\n");
    fflush(stdout);
}

void openlogger(const char *ident, int mode) {
    (void)ident;
    (void)mode;
}

const char *winerror(int code) {
    static char text[32];
    snprintf(text, sizeof text, "%d", code);
    return text;
}

int main2(int argc, char **argv) {
    (void)argc;
    (void)argv;
    if (!detach()) return 1;
    while (running) {
        Sleep(10);
    }
    return 0;
}

int main(int argc, char **argv) {
    program_name = argv[0];
    g_argv = argv;
    if (argc > 1 && strcmp(argv[1], "-k") == 0) return !kill_other(0);
    return init_service() ? 0 : main2(argc, argv);
}
