// SPDX-License-Identifier: MIT
// key_path: the roots, and the text behind them.
#include "tvreg/key_path.h"

#include "util/ktl_strings.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::string_view hostMark = R"(\\)";

struct RootName {
    HKEY root;
    const char *name;
    const char *shortName;
};

constexpr RootName roots[] = {
    {HKEY_CLASSES_ROOT, "HKEY_CLASSES_ROOT", "HKCR"},
    {HKEY_CURRENT_USER, "HKEY_CURRENT_USER", "HKCU"},
    {HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE", "HKLM"},
    {HKEY_USERS, "HKEY_USERS", "HKU"},
    {HKEY_PERFORMANCE_DATA, "HKEY_PERFORMANCE_DATA", "HKPD"},
    {HKEY_CURRENT_CONFIG, "HKEY_CURRENT_CONFIG", "HKCC"},
    {HKEY_DYN_DATA, "HKEY_DYN_DATA", "HKDD"},
};

} // namespace

bool ParseKeyPath(std::string_view text, KeyPath *key) {
    std::string path(text);
    if (path.find('\\') == std::string::npos) std::replace(path.begin(), path.end(), '/', '\\');
    if (!path.empty() && path.back() == '\\') path.pop_back();
    const std::string root = path.substr(0, path.find('\\'));
    path.erase(0, std::min(root.size() + 1, path.size()));
    const bool hasEmptyName = !path.empty() && (path.front() == '\\' || path.back() == '\\');
    if (hasEmptyName || path.find("\\\\") != std::string::npos) return false;
    for (const RootName &known : roots) {
        if (_ktl_strcasecmp(root.c_str(), known.name) != 0 && _ktl_strcasecmp(root.c_str(), known.shortName) != 0) {
            continue;
        }
        *key = {.root = known.root, .path = std::move(path)};
        return true;
    }
    return false;
}

bool ParseKeyOfHost(std::string_view text, KeyPath *key) {
    if (!text.starts_with(hostMark)) return ParseKeyPath(text, key);
    const std::string_view rest = text.substr(hostMark.size());
    const std::size_t length = rest.find('\\');
    if (length == 0 || length == std::string_view::npos || !ParseKeyPath(rest.substr(length + 1), key)) return false;
    key->host = rest.substr(0, length);
    return true;
}

std::string KeyPathText(const KeyPath &key) {
    std::string text;
    if (!key.host.empty()) text = fmt::format("{}{}\\", hostMark, key.host);
    text += roots[key.root - HKEY_CLASSES_ROOT].name;
    if (!key.path.empty()) text += '\\' + key.path;
    return text;
}

KeyPath Below(const KeyPath &key, std::string_view name) {
    KeyPath below = key;
    if (!below.path.empty()) below.path += '\\';
    below.path += name;
    return below;
}
