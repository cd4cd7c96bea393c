/* SPDX-License-Identifier: MIT */
/* Stands in for the broker: the service code calls main again for it, with a configuration. */
#include "config.h"

#include <windows.h>

#include "memory_mosq.h"

int run = 1;
void service_install(void);
void service_uninstall(void);
void service_run(void);

void *mosquitto__malloc(size_t size) { return malloc(size); }
void mosquitto__free(void *memory) { free(memory); }

static int broker(const char *configuration) {
    FILE *file = fopen(configuration, "r");
    if (file == NULL) return 1;
    fclose(file);
    while (run) {
        Sleep(10);
    }
    return 0;
}

int main(int argc, char *argv[]) {
    if (argc == 3) return broker(argv[2]);
    if (argc != 2) return 2;
    if (strcmp(argv[1], "run") == 0) service_run();
    if (strcmp(argv[1], "install") == 0) service_install();
    if (strcmp(argv[1], "uninstall") == 0) service_uninstall();
    return 0;
}
