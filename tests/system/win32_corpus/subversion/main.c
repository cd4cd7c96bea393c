/* SPDX-License-Identifier: MIT */
/* Stands in for svnserve: begins, runs until it is told to stop, and exits in the middle of things as svnserve does. */
#include <windows.h>

#include <stdio.h>

#include "apr_errno.h"
#include "svn_error.h"
#include "winservice.h"

static volatile int stopping;

svn_error_t *svn_error_wrap_apr(apr_status_t status, const char *message, ...) {
    static svn_error_t error;
    error.apr_err = status;
    error.message = message;
    return &error;
}

void winservice_notify_stop(void) { stopping = 1; }

int main(void) {
    const svn_error_t *error = winservice_start();
    if (error != SVN_NO_ERROR) {
        printf("%s: %d\n", error->message, error->apr_err);
        return 1;
    }
    winservice_running();
    while (!stopping) {
        Sleep(10);
    }
    exit(winservice_is_stopping() ? 0 : 1);
}
