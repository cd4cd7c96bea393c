// SPDX-License-Identifier: MIT
// path_search: full paths, the spelling of existing paths, and the search along a list of directories.
//
// Owns:   the module buffers of the three.
// Thread: none of it is reentrant; _ktlConvertPathCase moves the whole process.
#include "util/path_util.h"

#include "util/file_status.h"
#include "util/growing_text.h"
#include "util/ktl_strings.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

inline void CloseDirectory(DIR *directory) { (void)closedir(directory); }
using DirectoryGuard = std::unique_ptr<DIR, Calls<&CloseDirectory>>;

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool IsComponent(const char *component, std::size_t length, const char *name) {
    return length == std::strlen(name) && std::strncmp(component, name, length) == 0;
}

// Puts a new text in a module buffer, in the place of the old one, which the new one may have been made from.
const char *Keep(GrowingText &moduleBuffer, GrowingText &text) {
    std::free(moduleBuffer.chars);
    moduleBuffer = text;
    text = {};
    return moduleBuffer.chars;
}

// Appends a component behind a "/", unless it is the first.
bool AppendComponent(GrowingText &path, const char *component, std::size_t length) {
    const bool separated = path.length == 0 || path.chars[path.length - 1] == '/';
    return (separated || Append(path, "/")) && Append(path, component, length);
}

void RemoveLastComponent(GrowingText &path) {
    while (path.length > 1 && path.chars[--path.length] != '/') {
    }
    path.chars[path.length] = '\0';
}

// Goes from the full path `full` along `path`, by text alone.
bool Follow(GrowingText &full, const char *path) {
    std::size_t length = 0;
    while (const char *component = GetNextSubPath(path, &length, &path)) {
        if (IsComponent(component, length, "/") || IsComponent(component, length, ".")) continue;
        if (IsComponent(component, length, "..")) {
            RemoveLastComponent(full);
        } else if (!AppendComponent(full, component, length)) {
            return false;
        }
    }
    return true;
}

// A copy without the white space around it; null also when nothing is left.
char *TrimmedCopyOf(const char *path) {
    while (IsSpace(*path)) {
        ++path;
    }
    std::size_t length = std::strlen(path);
    while (length > 0 && IsSpace(path[length - 1])) {
        --length;
    }
    GrowingText copy = {};
    return length > 0 && Append(copy, path, length) ? Release(copy) : nullptr;
}

// --- the current directory

// Where the process was. By descriptor, which leads back even when the directory has been renamed or its name has
// become too long for the system; by name for want of one.
struct Place {
    int descriptor;
    char *name;
};

Place CurrentPlace() { return {open(".", O_PATH | O_DIRECTORY | O_CLOEXEC), getcwd(nullptr, 0)}; }

bool IsKnown(const Place &place) { return place.descriptor >= 0 || place.name != nullptr; }

void ReturnTo(Place *place) {
    const bool returned = place->descriptor >= 0 && fchdir(place->descriptor) == 0;
    // A directory that has been taken away meanwhile, under both its handles, leaves nowhere to return to.
    if (!returned && place->name != nullptr) (void)!chdir(place->name);
    if (place->descriptor >= 0) (void)close(place->descriptor);
    std::free(place->name);
}
using ReturnGuard = std::unique_ptr<Place, Calls<&ReturnTo>>;

// The entry of the current directory that spells a component: the equal one, else the first that is equal without
// regard to case. A heap string; null when there is none.
char *FindEntry(const char *component, std::size_t length) {
    const DirectoryGuard directory(opendir("."));
    if (!directory) return nullptr;
    HeapText found;
    while (const dirent *entry = readdir(directory.get())) {
        if (std::strlen(entry->d_name) != length) continue;
        if (std::strncmp(entry->d_name, component, length) == 0) return _ktl_strdup(entry->d_name);
        if (!found && _ktl_strncasecmp(entry->d_name, component, static_cast<unsigned>(length)) == 0) {
            found.reset(_ktl_strdup(entry->d_name));
        }
    }
    return found.release();
}

// The spelling of one component in the current directory, a heap string.
char *SpellComponent(const char *component, std::size_t length) {
    if (IsComponent(component, length, "/")) return _ktl_strdup("/");
    if (IsComponent(component, length, ".")) return _ktl_strdup(".");
    return FindEntry(component, length);
}

// Walks along a path, from the current directory on, and spells it. Leaves the process where it got to.
bool WalkAndSpell(const char *path, GrowingText &spelled) {
    std::size_t length = 0;
    while (const char *component = GetNextSubPath(path, &length, &path)) {
        const HeapText spelling(SpellComponent(component, length));
        if (!spelling || !AppendComponent(spelled, spelling.get(), std::strlen(spelling.get()))) return false;
        if (*path != '\0' && chdir(spelling.get()) != 0) return false;
    }
    return spelled.length > 0;
}

// --- the search

bool Exists(const char *path) {
    FileStatus status;
    return LookAtPath(path, &status);
}

// The full path of a candidate that exists; null when it does not. A module buffer of the routines it calls.
const char *TryCandidate(const char *candidate, int ignoreCase) {
    if (ignoreCase != 0) candidate = _ktlConvertPathCase(candidate);
    return candidate != nullptr && Exists(candidate) ? _ktlFullpath(candidate) : nullptr;
}

// Tries the name in each directory of a list, which is cut up. Null when none has it.
const char *TryDirectories(char *list, const char *name, unsigned style, int ignoreCase) {
    for (const char *directory = std::strtok(list, ":"); directory != nullptr; directory = std::strtok(nullptr, ":")) {
        const HeapText candidate(_ktlCreatePathFromComponents(directory, name, style));
        const char *found = candidate ? TryCandidate(candidate.get(), ignoreCase) : nullptr;
        if (found != nullptr) return found;
    }
    return nullptr;
}

} // namespace

const char *_ktlFullpath(const char *path) {
    static GrowingText static_buf;
    const HeapText trimmed(path != nullptr ? TrimmedCopyOf(path) : nullptr);
    if (!trimmed) return nullptr;
    GrowingText full = {};
    const GrowingTextGuard guard(&full);
    if (!Append(full, "/")) return nullptr;
    if (_ktlIsPathSpec(trimmed.get(), 1) == 0) {
        // A current directory outside of the process's root has no path that begins with "/".
        const HeapText current(getcwd(nullptr, 0));
        if (!current || current.get()[0] != '/' || !Follow(full, current.get())) return nullptr;
    }
    return Follow(full, trimmed.get()) ? Keep(static_buf, full) : nullptr;
}

const char *_ktlConvertPathCase(const char *path) {
    static GrowingText converted;
    if (path == nullptr || path[0] == '\0') return nullptr;
    Place start = CurrentPlace();
    const ReturnGuard guard(&start);
    if (!IsKnown(start)) return nullptr;
    GrowingText spelled = {};
    const GrowingTextGuard textGuard(&spelled);
    return WalkAndSpell(path, spelled) ? Keep(converted, spelled) : nullptr;
}

const char *_ktlCaseSearchenv(const char *name, const char *variable, unsigned style, int ignoreCase) {
    static GrowingText tmp_path;
    const bool isUnix = style == TV_UNIX_STYLE_PATH || style == TV_MIXED_STYLE_PATH || style == TV_NOTSURE_STYLE_PATH;
    if (name == nullptr || name[0] == '\0' || variable == nullptr || !isUnix) return nullptr;
    const char *found = nullptr;
    if (_ktlIsPathSpec(name, 0) != 0) {
        found = TryCandidate(name, ignoreCase);
    } else {
        const HeapText list(_ktl_strdup(std::getenv(variable))); // cut up by the search; the environment is not
        found = list ? TryDirectories(list.get(), name, style, ignoreCase) : nullptr;
    }
    GrowingText copy = {};
    return found != nullptr && Append(copy, found) ? Keep(tmp_path, copy) : nullptr;
}

const char *_ktlSearchenv(const char *name, const char *variable, unsigned style) {
    return _ktlCaseSearchenv(name, variable, style, 0);
}
