// SPDX-License-Identifier: MIT
// hives: keys as files of the registry daemon's machine, which the daemon itself writes and reads.
#include "registry/key.h"
#include "tvreg/commands.h"
#include "tvreg/output.h"
#include "tvreg/registry_access.h"
#include "util/json_text.h"

#include <fmt/format.h>

#include <climits>
#include <cstdlib>

namespace {

// The daemon has a working directory of its own.
std::string WholeName(const std::string &file) {
    if (file.starts_with('/')) return file;
    char *here = realpath(".", nullptr);
    if (here == nullptr) return file;
    std::string whole = fmt::format("{}/{}", here, file);
    std::free(here);
    return whole;
}

int Done(const Options &options, const char *what, const KeyPath &key, LONG code) {
    const std::string file = options.file.value_or("");
    if (code == ERROR_CALL_NOT_IMPLEMENTED) {
        throw Failure(EXIT_FAILED, fmt::format("{}: {}; use export and import", KeyPathText(key), CodeText(code)),
                      static_cast<std::uint32_t>(code));
    }
    Check(code, file.empty() ? KeyPathText(key) : fmt::format("{}, {}", KeyPathText(key), file));
    if (!options.json) return 0;
    Json object = {{"schema", "tvreg.hive/1"}, {"done", what}};
    SetText(object, "key", KeyPathText(key));
    if (!file.empty()) SetText(object, "file", WholeName(file));
    PrintJson(object);
    return 0;
}

} // namespace

int SaveHive(const Options &options) {
    const KeyPath key = KeyOf(options);
    HKEY opened = OpenKey(key);
    const KeyGuard closed(&opened);
    return Done(options, "saved", key, RegSaveKeyA(opened, WholeName(*options.file).c_str(), nullptr));
}

int RestoreHive(const Options &options) {
    const KeyPath key = KeyOf(options);
    HKEY opened = OpenKey(key);
    const KeyGuard closed(&opened);
    return Done(options, "restored", key, RegRestoreKeyA(opened, WholeName(*options.file).c_str(), 0));
}

int LoadHive(const Options &options) {
    const KeyPath key = KeyOf(options);
    return Done(options, "loaded", key, RegLoadKeyA(RootOf(key), key.path.c_str(), WholeName(*options.file).c_str()));
}

int UnloadHive(const Options &options) {
    const KeyPath key = KeyOf(options);
    return Done(options, "unloaded", key, RegUnLoadKeyA(RootOf(key), key.path.c_str()));
}
