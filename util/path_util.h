/* SPDX-License-Identifier: MIT */
/*
 * path_util: routines for Unix path names, and a little for VMS ones. For C and C++.
 *
 * Names are bytes; only "/" and the terminating zero mean something everywhere. No routine has a limit on the length of
 * a name. Results come in three kinds, as each routine tells:
 *   - a pointer into the argument;
 *   - "a module buffer": memory of the routine, valid until its next call, not to be freed. A routine may be handed its
 *     own last result. Routines with module buffers are not reentrant: serialise their calls;
 *   - "a heap string": malloc memory that the caller frees with free().
 * Null also stands for a null argument and for exhausted memory unless told otherwise.
 */
#ifndef TV_PATH_UTIL_H
#define TV_PATH_UTIL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* In which style a path is written. With the last two, each path is looked at: "[", "]" or ";" makes it a VMS one. */
extern const unsigned TV_UNIX_STYLE_PATH;    /* 1: dir/name.type */
extern const unsigned TV_VMS_STYLE_PATH;     /* 2: dev:[dir.dir]name.type;version */
extern const unsigned TV_MIXED_STYLE_PATH;   /* 3 */
extern const unsigned TV_NOTSURE_STYLE_PATH; /* 4 */

/* --- What a name is; all reentrant ------------------------------------------------------------------------------ */

/* Tells a path from a bare name. Returns 1 when name begins with "/" or, unless absoluteOnly is non-zero, holds a "/"
 * anywhere; 0 otherwise and for null. */
int _ktlIsPathSpec(const char *name, int absoluteOnly);

/* The part after the last "/", as a pointer into path: empty when path ends in "/", path itself when it holds none. */
char *_ktlBasename(char *path);

/* 1 when name contains "*" or "?"; 0 otherwise, and for null. */
int has_wildcard(const char *name);

/* 1 when name may be a file name: not null, not empty, without "[" and "]", not ending in ":", and without wildcards
 * unless allowWildcards is non-zero. Else 0. Deliberate: "/", control characters and any length are allowed. */
int _ktlValidFilename(const char *name, int allowWildcards);

/* Deliberate: the very same rules. */
int _ktlValidPathname(const char *name, int allowWildcards);

/* --- Taking paths apart and putting them together ---------------------------------------------------------------- */

/* The directory of a path: what stands before the last "/"; "/" when that is the first character; an empty string when
 * path holds no "/" or is null. Returns a module buffer or a constant empty string; null when out of memory. */
const char *_ktlDirname(const char *path);

/* Takes the first component off a path. Returns its first character inside path and its length in bytes, not
 * terminated; null when there is none left. A "/" in front of the path is a component of its own; between and behind
 * components any number of "/" counts as one.
 *   length  set to the component's length; 0 with null
 *   rest    set to what follows the component and its "/": hand it in as path to get the next
 * Reentrant. */
const char *GetNextSubPath(const char *path, size_t *length, const char **rest);

/* The offset in bytes of the last component: one behind the last "/", 0 when path holds none or is null. Reentrant. */
size_t _ktlGetComponentsOffsetFromPath(const char *path);

/* One component of a path, by its name without regard to case:
 *   "dev"      VMS: what stands before the first ":" in front of the directory; Unix: empty
 *   "dir"      Unix: the directory as _ktlDirname gives it; VMS: the directory in its brackets
 *   "name"     the last component up to its last "."; a "." that begins it belongs to the name
 *   "type"     the rest of the last component, with the "."
 *   "version"  VMS: the number behind ";" in its shortest form; Unix: empty
 * Returns a heap string, empty when the path has no such component; null for an unknown component or style, too.
 * Reentrant. */
char *_ktlGetComponentsFromPath(const char *path, unsigned style, const char *component);

/* Answers 0 for every path: paths are bytes here. */
int _ktlGetComponentsFromPathW(const unsigned short *path, unsigned style, const unsigned short *component);

/* A path from a directory and a name: directory, "/" unless it ends in one, name; "./" and name when directory is null
 * or empty. In VMS style directory and name are put side by side, and nothing stands for a missing directory.
 * Returns a heap string; null for an unknown style, too. Reentrant. */
char *_ktlCreatePathFromComponents(const char *directory, const char *name, unsigned style);

/* Replaces references to environment variables, $NAME or ${NAME}, by their values. NAME is made of letters, digits and
 * "_" and does not begin with a digit. What is no reference, or refers to a variable that is not set, stays as it
 * stands; values are not searched for references again. Returns a heap string. */
char *_ktlExpandEnvVarIfAny(const char *path);

/* --- Asking the file system -------------------------------------------------------------------------------------- */

/* Makes a path full: white space around it is dropped, a relative path is put behind the current directory, then ".",
 * ".." and repeated or trailing "/" are folded by text alone (".." after a symbolic link goes where the text says;
 * above "/" stays "/"). The path need not exist. Returns a module buffer; null also for a blank path and when the
 * current directory has no name any more. */
const char *_ktlFullpath(const char *path);

/* Finds the spelling of an existing path: each component becomes the directory entry that equals it or, failing that,
 * the first one that equals it without regard to case (_ktl_strncasecmp). Does not go back when a later component is
 * missing. Repeated and trailing "/" are dropped. Returns a module buffer; null also when a component is missing or a
 * directory on the way cannot be read or entered.
 * Changes the current directory as it walks, of the whole process; at the end it is what it was. */
const char *_ktlConvertPathCase(const char *path);

/* Looks for a file. A name with "/" in it is looked for as it stands; a bare name in each directory of the list, in
 * order. Directories are separated by ":"; empty ones are skipped.
 *   name        what to look for; anything that exists will do, whatever its kind
 *   variable    the environment variable that holds the list; not set: an empty list
 *   style       must not be TV_VMS_STYLE_PATH
 *   ignoreCase  non-zero: the spelling is found as by _ktlConvertPathCase, with its effect on the process
 * Returns the full path, as of _ktlFullpath, in a module buffer; null when nothing is found. */
const char *_ktlCaseSearchenv(const char *name, const char *variable, unsigned style, int ignoreCase);

/* The same with ignoreCase 0; both share one module buffer. */
const char *_ktlSearchenv(const char *name, const char *variable, unsigned style);

#ifdef __cplusplus
}
#endif

#endif
