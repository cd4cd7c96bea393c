// SPDX-License-Identifier: MIT
// Fuzz target over all path routines: no input may crash them, and what they promise holds for every one.
//
// Input: up to four texts, separated by zero bytes: a path, a second path or name, the value of an environment
// variable, and the name of a component. The process works in a small tree of its own.
#include "util/path_util.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr unsigned styles[] = {0, 1, 2, 3, 4, 5};

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

std::string Taken(char *text) {
    Require(text != nullptr, "a heap string");
    const std::string copy = text;
    free(text);
    return copy;
}

void RemoveTree();

// The tree that searches run in; made once.
ino_t EnterTree() {
    static std::string root = (fs::temp_directory_path() / "path_util_fuzz.XXXXXX").string();
    static bool entered = false;
    if (!entered) {
        entered = true;
        Require(mkdtemp(root.data()) != nullptr, "a scratch folder");
        fs::current_path(root);
        fs::create_directories("Bin/Deep");
        for (const char *file : {"Bin/Tool", "Bin/tool", "Bin/Deep/x", "a"}) {
            std::ofstream(file) << file;
        }
        (void)std::atexit(RemoveTree);
    }
    struct stat here = {};
    Require(stat(".", &here) == 0, "a current directory");
    return here.st_ino;
}

void RemoveTree() {
    std::error_code ignored;
    const fs::path root = fs::current_path(ignored);
    fs::remove_all(root, ignored);
}

void CheckNames(const std::string &path, bool absolute) {
    std::string writable = path;
    const char *base = _ktlBasename(writable.data());
    const std::size_t offset = _ktlGetComponentsOffsetFromPath(path.c_str());
    Require(base == writable.data() + offset, "base name and offset agree");
    Require(std::strchr(base, '/') == nullptr, "no slash in a base name");
    Require((_ktlIsPathSpec(path.c_str(), 0) != 0) == (offset > 0), "a path is what has a slash");
    Require(_ktlIsPathSpec(path.c_str(), 1) == (absolute ? 1 : 0), "absolute paths begin with a slash");
    const std::string directory = _ktlDirname(path.c_str());
    Require(path.compare(0, directory.size(), directory) == 0, "a directory begins its path");
    Require(offset > 0 || directory.empty(), "no directory without a slash");
    Require(_ktlValidFilename(path.c_str(), 0) == _ktlValidPathname(path.c_str(), 0), "the same rules");
    Require(_ktlValidFilename(path.c_str(), 0) <= _ktlValidFilename(path.c_str(), 1), "wildcards only allow more");
    Require(has_wildcard(path.c_str()) == (path.find_first_of("*?") != std::string::npos ? 1 : 0), "wildcards");
}

void CheckComponents(const std::string &path, const std::string &name, const std::string &component) {
    for (const unsigned style : styles) {
        free(_ktlGetComponentsFromPath(path.c_str(), style, component.c_str()));
        for (const char *known : {"dev", "dir", "name", "type", "version"}) {
            free(_ktlGetComponentsFromPath(path.c_str(), style, known));
        }
        free(_ktlCreatePathFromComponents(path.c_str(), name.c_str(), style));
    }
    const auto componentOf = [&path](const char *which) {
        return Taken(_ktlGetComponentsFromPath(path.c_str(), TV_UNIX_STYLE_PATH, which));
    };
    const std::string last = componentOf("name") + componentOf("type");
    Require(last == path.substr(_ktlGetComponentsOffsetFromPath(path.c_str())), "name and type make the base name");
    Require(componentOf("dir") == _ktlDirname(path.c_str()), "one directory");
    const std::string joined = Taken(_ktlCreatePathFromComponents(path.c_str(), name.c_str(), TV_UNIX_STYLE_PATH));
    Require(joined.ends_with("/" + name), "a created path ends in the name");
}

void CheckSubPaths(const std::string &path) {
    std::size_t total = 0, length = 0;
    const char *rest = path.c_str();
    while (const char *component = GetNextSubPath(rest, &length, &rest)) {
        Require(length > 0 && component + length <= rest, "components move on");
        Require(length == 1 || std::memchr(component, '/', length) == nullptr, "no slash in a component");
        total += length;
    }
    Require(*rest == '\0' && total <= path.size(), "all components were there");
}

void CheckFullPath(const std::string &path) {
    const char *answer = _ktlFullpath(path.c_str());
    if (answer == nullptr) return;
    const std::string full = answer;
    Require(full[0] == '/', "a full path begins with a slash");
    Require((full + "/").find("/../") == std::string::npos, "no \"..\" in a full path");
    Require((full + "/").find("/./") == std::string::npos, "no \".\" in a full path");
    Require(full.find("//") == std::string::npos, "no repeated slash in a full path");
    Require(full.size() == 1 || full.back() != '/', "no slash at the end of a full path");
    if (std::strchr(" \t\n\v\f\r", full.back()) == nullptr) Require(_ktlFullpath(answer) == full, "full is full");
}

void CheckExpansion(const std::string &path) {
    const std::string expanded = Taken(_ktlExpandEnvVarIfAny(path.c_str()));
    if (path.find('$') == std::string::npos) Require(expanded == path, "nothing to expand");
}

void CheckSearches(const std::string &path, const std::string &name) {
    const ino_t before = EnterTree();
    (void)_ktlConvertPathCase(path.c_str());
    for (const int ignoreCase : {0, 1}) {
        for (const std::string &each : {path, name}) {
            const char *answer = _ktlCaseSearchenv(each.c_str(), "TV_FUZZ", TV_UNIX_STYLE_PATH, ignoreCase);
            Require(answer == nullptr || answer[0] == '/', "what is found is a full path");
        }
    }
    Require(EnterTree() == before, "the current directory stays");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string texts[4];
    std::size_t text = 0;
    for (std::size_t i = 0; i < size && text < std::size(texts); ++i) {
        if (data[i] == 0) {
            ++text;
        } else {
            texts[text] += static_cast<char>(data[i]);
        }
    }
    const auto &[path, name, value, component] = texts;
    (void)EnterTree();
    (void)setenv("TV_FUZZ", value.c_str(), 1);
    CheckNames(path, path.starts_with('/'));
    CheckComponents(path, name, component);
    CheckSubPaths(path);
    CheckFullPath(path);
    CheckExpansion(path);
    CheckSearches(path, name);
    return 0;
}
