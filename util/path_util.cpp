// SPDX-License-Identifier: MIT
// path_util: what a name is, its directory and its last component.
//
// Owns: the module buffer of _ktlDirname, which grows and is reused.
#include "util/path_util.h"

#include "util/growing_text.h"

#include <cstring>

const unsigned TV_UNIX_STYLE_PATH = 1;
const unsigned TV_VMS_STYLE_PATH = 2;
const unsigned TV_MIXED_STYLE_PATH = 3;
const unsigned TV_NOTSURE_STYLE_PATH = 4;

static const char *const wild_card_chars = "*?";
static const char *const invalid = "[]";     // nowhere in a name
static const char *const invalid_start = ""; // no first character is refused
static const char *const invalid_end = ":";

int _ktlIsPathSpec(const char *name, int absoluteOnly) {
    if (name == nullptr) return 0;
    if (absoluteOnly != 0) return name[0] == '/' ? 1 : 0;
    return std::strchr(name, '/') != nullptr ? 1 : 0;
}

char *_ktlBasename(char *path) {
    char *slash = path != nullptr ? std::strrchr(path, '/') : nullptr;
    return slash != nullptr ? slash + 1 : path;
}

const char *_ktlDirname(const char *path) {
    static GrowingText buf;
    const char *slash = path != nullptr ? std::strrchr(path, '/') : nullptr;
    if (slash == nullptr) return "";
    const std::size_t length = slash == path ? 1 : static_cast<std::size_t>(slash - path);
    // A path that is the last result fits as it is, so that the buffer does not move away from under it.
    if (!Reserve(buf, length)) return nullptr;
    std::memmove(buf.chars, path, length);
    buf.chars[length] = '\0';
    return buf.chars;
}

int has_wildcard(const char *name) { return name != nullptr && std::strpbrk(name, wild_card_chars) != nullptr ? 1 : 0; }

static bool IsOneOf(char c, const char *set) { return c != '\0' && std::strchr(set, c) != nullptr; }

int _ktlValidFilename(const char *name, int allowWildcards) {
    if (name == nullptr || name[0] == '\0') return 0;
    if (allowWildcards == 0 && has_wildcard(name) != 0) return 0;
    if (IsOneOf(name[0], invalid_start)) return 0;
    if (std::strpbrk(name, invalid) != nullptr) return 0;
    return IsOneOf(name[std::strlen(name) - 1], invalid_end) ? 0 : 1;
}

int _ktlValidPathname(const char *name, int allowWildcards) { return _ktlValidFilename(name, allowWildcards); }
