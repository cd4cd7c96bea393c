/* SPDX-License-Identifier: MIT */
/* Stands in for Subversion's own errors, which need all of APR. */
typedef struct svn_error_t {
    apr_status_t apr_err;
    const char *message;
} svn_error_t;
typedef int svn_boolean_t;
#define SVN_NO_ERROR NULL
svn_error_t *svn_error_wrap_apr(apr_status_t status, const char *message, ...);
