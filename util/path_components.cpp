// SPDX-License-Identifier: MIT
// path_components: taking paths apart, putting them together, and environment references in them.
//
// Reentrant; every result is a heap string. A VMS path is dev:[dir.dir]name.type;version, each part but the name
// optional.
#include "util/path_util.h"

#include "util/growing_text.h"
#include "util/ktl_strings.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// A stretch of characters inside a path.
struct Part {
    const char *start;
    std::size_t length;
};

struct PathParts {
    Part device;
    Part directory; // without brackets
    bool hasDirectory;
    Part name;
    Part type;    // with its "."
    Part version; // without its ";"
};

Part PartBetween(const char *start, const char *end) { return {start, static_cast<std::size_t>(end - start)}; }

char *CopyOf(Part part) {
    GrowingText text = {};
    return Append(text, part.start, part.length) ? Release(text) : nullptr;
}

bool IsKnownStyle(unsigned style) { return style >= TV_UNIX_STYLE_PATH && style <= TV_NOTSURE_STYLE_PATH; }

bool IsVmsPath(const char *path, unsigned style) {
    if (style == TV_UNIX_STYLE_PATH) return false;
    return style == TV_VMS_STYLE_PATH || std::strpbrk(path, "[];") != nullptr;
}

// Splits a last component at its last ".", unless that begins it.
void SplitName(const char *start, const char *end, PathParts &parts) {
    const char *dot = end;
    for (const char *at = start + 1; at < end; ++at) {
        if (*at == '.') dot = at;
    }
    parts.name = PartBetween(start, dot);
    parts.type = PartBetween(dot, end);
}

PathParts SplitUnixPath(const char *path) {
    const char *end = path + std::strlen(path);
    PathParts parts = {{end, 0}, {end, 0}, false, {}, {}, {end, 0}};
    const std::size_t offset = _ktlGetComponentsOffsetFromPath(path);
    if (offset > 0) {
        parts.hasDirectory = true;
        parts.directory = {path, offset > 1 ? offset - 1 : 1};
    }
    SplitName(path + offset, end, parts);
    return parts;
}

PathParts SplitVmsPath(const char *path) {
    const char *end = path + std::strlen(path);
    PathParts parts = {{end, 0}, {end, 0}, false, {}, {}, {end, 0}};
    const char *at = path;
    const char *open = std::strchr(path, '[');
    const char *colon = std::strchr(path, ':');
    if (colon != nullptr && (open == nullptr || colon < open)) {
        parts.device = PartBetween(path, colon);
        at = colon + 1;
    }
    const char *close = *at == '[' ? std::strchr(at, ']') : nullptr;
    if (close != nullptr) {
        parts.hasDirectory = true;
        parts.directory = PartBetween(at + 1, close);
        at = close + 1;
    }
    const char *semicolon = std::strchr(at, ';');
    if (semicolon != nullptr) parts.version = PartBetween(semicolon + 1, end);
    SplitName(at, semicolon != nullptr ? semicolon : end, parts);
    return parts;
}

// A directory in its brackets.
char *BracketedCopyOf(Part directory) {
    const HeapText inner(CopyOf(directory));
    if (!inner) return nullptr;
    const std::size_t roomBytes = directory.length + sizeof "[]";
    HeapText text(static_cast<char *>(std::malloc(roomBytes)));
    if (!text) return nullptr;
    (void)std::snprintf(text.get(), roomBytes, "%c%s%c", '[', inner.get(), ']');
    return text.release();
}

// A version in its shortest form; empty when it is no number. Numbers beyond the range of long become its ends.
char *NumberCopyOf(Part version) {
    char number[24] = "";
    char *end = nullptr;
    const long value = std::strtol(version.start, &end, 10);
    if (version.length > 0 && end != version.start) (void)std::snprintf(number, sizeof number, "%ld", value);
    return _ktl_strdup(number);
}

bool BeginsName(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool ContinuesName(char c) { return BeginsName(c) || std::isdigit(static_cast<unsigned char>(c)) != 0; }

// The name in a reference that begins at `dollar`; *end: behind the reference. An empty part when it is none.
Part NameOfReference(const char *dollar, const char **end) {
    const bool braced = dollar[1] == '{';
    const char *start = dollar + (braced ? 2 : 1);
    const char *at = start;
    if (BeginsName(*at)) {
        while (ContinuesName(*at)) {
            ++at;
        }
    }
    if (braced && *at != '}') at = start;
    *end = braced && at > start ? at + 1 : at;
    return PartBetween(start, at);
}

} // namespace

const char *GetNextSubPath(const char *path, size_t *length, const char **rest) {
    *length = 0;
    *rest = path;
    if (path == nullptr || path[0] == '\0') return nullptr;
    *length = path[0] == '/' ? 1 : std::strcspn(path, "/");
    *rest = path + *length;
    *rest += std::strspn(*rest, "/");
    return path;
}

size_t _ktlGetComponentsOffsetFromPath(const char *path) {
    const char *slash = path != nullptr ? std::strrchr(path, '/') : nullptr;
    return slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0;
}

char *_ktlGetComponentsFromPath(const char *path, unsigned style, const char *component) {
    if (path == nullptr || component == nullptr || !IsKnownStyle(style)) return nullptr;
    const bool isVms = IsVmsPath(path, style);
    const PathParts parts = isVms ? SplitVmsPath(path) : SplitUnixPath(path);
    if (_ktl_strcasecmp(component, "dev") == 0) return CopyOf(parts.device);
    if (_ktl_strcasecmp(component, "dir") == 0) {
        return isVms && parts.hasDirectory ? BracketedCopyOf(parts.directory) : CopyOf(parts.directory);
    }
    if (_ktl_strcasecmp(component, "name") == 0) return CopyOf(parts.name);
    if (_ktl_strcasecmp(component, "type") == 0) return CopyOf(parts.type);
    if (_ktl_strcasecmp(component, "version") == 0) return NumberCopyOf(parts.version);
    return nullptr;
}

int _ktlGetComponentsFromPathW(const unsigned short * /*path*/, unsigned /*style*/,
                               const unsigned short * /*component*/) {
    return 0;
}

char *_ktlCreatePathFromComponents(const char *directory, const char *name, unsigned style) {
    if (name == nullptr || !IsKnownStyle(style)) return nullptr;
    const bool isVms = style == TV_VMS_STYLE_PATH;
    const bool hasDirectory = directory != nullptr && directory[0] != '\0';
    const char *front = hasDirectory ? directory : isVms ? "" : "./";
    GrowingText path = {};
    const GrowingTextGuard guard(&path);
    if (!Append(path, front)) return nullptr;
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): only in VMS style the front may be empty
    if (!isVms && path.chars[path.length - 1] != '/' && !Append(path, "/")) return nullptr;
    return Append(path, name) ? Release(path) : nullptr;
}

// The remainder behind each expansion is expanded in turn, in a loop, so that any number of references is fine.
char *_ktlExpandEnvVarIfAny(const char *path) {
    if (path == nullptr) return nullptr;
    GrowingText expanded = {};
    const GrowingTextGuard guard(&expanded);
    const char *remainder = path;
    while (const char *dollar = std::strchr(remainder, '$')) {
        const char *end = nullptr;
        const Part reference = NameOfReference(dollar, &end);
        const HeapText name(CopyOf(reference));
        if (!name || !Append(expanded, remainder, static_cast<std::size_t>(dollar - remainder))) return nullptr;
        const char *value = reference.length > 0 ? std::getenv(name.get()) : nullptr;
        // The "$" alone is taken over when there is nothing to expand: what follows may be a reference again.
        const bool appended = value != nullptr ? Append(expanded, value) : Append(expanded, "$");
        if (!appended) return nullptr;
        remainder = value != nullptr ? end : dollar + 1;
    }
    return Append(expanded, remainder) ? Release(expanded) : nullptr;
}
