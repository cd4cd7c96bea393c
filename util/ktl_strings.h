/* SPDX-License-Identifier: MIT */
/* ktl_strings: string routines whose behaviour does not depend on the platform. For C and C++. */
#ifndef TV_KTL_STRINGS_H
#define TV_KTL_STRINGS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Copies a string to the heap. Returns malloc memory that the caller frees with free(); null for null, or when out of
 * memory. */
char *_ktl_strdup(const char *s);

/* Compares two strings without regard to case, through libc's table of lower-case forms. Returns the difference of the
 * lower-case forms of the first two characters that differ (a terminator counts as 0), 0 when the strings are equal. */
int _ktl_strcasecmp(const char *a, const char *b);

/* The same for at most n characters; 0 when n is 0. */
int _ktl_strncasecmp(const char *a, const char *b, unsigned n);

/* Removes trailing white space in place. Null and the empty string are left alone. Deliberate: the first character is
 * never removed, so that "   " becomes " ". */
void _ktl_rmtrailingspaces(char *s);

#ifdef __cplusplus
}
#endif

#endif
