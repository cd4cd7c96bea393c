/* SPDX-License-Identifier: MIT */
/* Stands in for the pooler: its configuration is the name that it goes by, its work to wait for the end. */
#include "bouncer.h"

#include "win32support.h"

volatile int cf_shutdown;
int cf_quiet;
char *cf_config_file, *cf_jobname;

void init_objects(void) {}

void load_config(void) {
    static char name[100];
    FILE *file = fopen(cf_config_file, "r");
    if (file == NULL || fscanf(file, "job_name = %99s", name) != 1) die("%s: no name in it", cf_config_file);
    fclose(file);
    cf_jobname = name;
}

void die(const char *format, ...) {
    va_list values;
    va_start(values, format);
    vprintf(format, values);
    va_end(values);
    printf("\n");
    exit(1);
}

int main(int argc, char *argv[]) {
    if (argc != 2) return 2;
    cf_config_file = argv[1];
    load_config();
    printf("pooling for %s\n", cf_jobname);
    while (cf_shutdown == 0) {
        Sleep(10);
    }
    return 0;
}
