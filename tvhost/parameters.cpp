// SPDX-License-Identifier: MIT
// parameters: a service's "Parameters" subkey, and the words of a command line.
#include "tvhost/parameters.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "servd/service_keys.h"
#include "tv/winreg.h"
#include "util/string_list.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

std::string ServiceKeyOf(const std::string &serviceName) { return std::string(servicesKeyPath) + '\\' + serviceName; }

std::string ParametersKeyOf(const std::string &serviceName) { return ServiceKeyOf(serviceName) + "\\Parameters"; }

// A whole value. A missing one is empty, and no failure.
DWORD ReadValue(HKEY key, const char *name, DWORD wantedType, std::string *data) {
    DWORD type = wantedType;
    const auto rc = static_cast<DWORD>(ReadValueData(key, name, &type, data));
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    return rc == ERROR_SUCCESS && type != wantedType ? DWORD{ERROR_INVALID_DATA} : rc;
}

DWORD ReadText(HKEY key, const char *name, std::string *text) {
    std::string data;
    const DWORD rc = ReadValue(key, name, REG_SZ, &data);
    if (rc == ERROR_SUCCESS) text->assign(data, 0, strnlen(data.data(), data.size()));
    return rc;
}

DWORD ReadStrings(HKEY key, const char *name, std::vector<std::string> *strings) {
    std::string data;
    const DWORD rc = ReadValue(key, name, REG_MULTI_SZ, &data);
    if (rc == ERROR_SUCCESS) *strings = SplitMultiString(data);
    return rc;
}

DWORD ReadNumber(HKEY key, const char *name, DWORD *number) {
    std::string data;
    const DWORD rc = ReadValue(key, name, REG_DWORD, &data);
    if (rc != ERROR_SUCCESS) return rc;
    if (data.size() == sizeof *number) std::memcpy(number, data.data(), sizeof *number);
    return data.empty() || data.size() == sizeof *number ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

DWORD WriteValue(HKEY key, const char *name, DWORD type, const std::string &data) {
    return static_cast<DWORD>(RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE *>(data.data()),
                                             static_cast<DWORD>(data.size())));
}

DWORD WriteText(HKEY key, const char *name, const std::string &text) {
    return text.empty() ? ERROR_SUCCESS : WriteValue(key, name, REG_SZ, std::string(text.c_str(), text.size() + 1));
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

std::size_t SkipBlanks(const std::string &line, std::size_t at) {
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    return at;
}

// Reads one word from *at on. Returns false when a quote is not closed.
bool ReadWord(const std::string &line, std::size_t *at, std::string *word) {
    bool quoted = false;
    for (; *at < line.size() && (quoted || !IsBlank(line[*at])); ++*at) {
        const char c = line[*at];
        const char next = *at + 1 < line.size() ? line[*at + 1] : '\0';
        if (c == '\\' && (next == '"' || next == '\\')) {
            word->push_back(next);
            ++*at;
        } else if (c == '"') {
            quoted = !quoted;
        } else {
            word->push_back(c);
        }
    }
    return !quoted;
}

} // namespace

DWORD ReadHostParameters(const std::string &serviceName, HostParameters *parameters) {
    HKEY key = 0;
    auto rc = static_cast<DWORD>(
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, ParametersKeyOf(serviceName).c_str(), 0, KEY_ALL_ACCESS, &key));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    rc = ReadText(key, "Application", &parameters->application);
    if (rc == ERROR_SUCCESS && parameters->application.empty()) rc = ERROR_FILE_NOT_FOUND;
    if (rc == ERROR_SUCCESS) rc = ReadText(key, "AppParameters", &parameters->arguments);
    if (rc == ERROR_SUCCESS) rc = ReadText(key, "AppDirectory", &parameters->directory);
    if (rc == ERROR_SUCCESS) rc = ReadStrings(key, "AppEnvironment", &parameters->environment);
    if (rc == ERROR_SUCCESS) rc = ReadText(key, "AppStdout", &parameters->standardOutput);
    if (rc == ERROR_SUCCESS) rc = ReadText(key, "AppStderr", &parameters->standardError);
    if (rc == ERROR_SUCCESS) rc = ReadNumber(key, "AppStopTimeout", &parameters->stopTimeoutMs);
    parameters->stopTimeoutMs = std::min(parameters->stopTimeoutMs, longestStopTimeoutMs);
    return rc;
}

DWORD CheckServiceAccount(const std::string &serviceName) {
    if (geteuid() != 0) return ERROR_SUCCESS;
    HKEY key = 0;
    auto rc = static_cast<DWORD>(
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, ServiceKeyOf(serviceName).c_str(), 0, KEY_ALL_ACCESS, &key));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    std::string account;
    DWORD type = 0; // the daemon does not look at it either
    rc = static_cast<DWORD>(ReadValueData(key, accountValue, &type, &account));
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS || *account.c_str() == '\0') return rc;
    const passwd *user = getpwnam(account.c_str());
    return user != nullptr && user->pw_uid == 0 ? ERROR_SUCCESS : ERROR_INVALID_SERVICE_ACCOUNT;
}

DWORD WriteHostParameters(const std::string &serviceName, const HostParameters &parameters) {
    HKEY key = 0;
    DWORD disposition = 0;
    auto rc = static_cast<DWORD>(RegCreateKeyExA(HKEY_LOCAL_MACHINE, ParametersKeyOf(serviceName).c_str(), 0, nullptr,
                                                 REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, &disposition));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    rc = WriteText(key, "Application", parameters.application);
    if (rc == ERROR_SUCCESS) rc = WriteText(key, "AppParameters", parameters.arguments);
    if (rc == ERROR_SUCCESS) rc = WriteText(key, "AppDirectory", parameters.directory);
    if (rc == ERROR_SUCCESS && !parameters.environment.empty()) {
        rc = WriteValue(key, "AppEnvironment", REG_MULTI_SZ, JoinMultiString(parameters.environment));
    }
    if (rc == ERROR_SUCCESS) rc = WriteText(key, "AppStdout", parameters.standardOutput);
    if (rc == ERROR_SUCCESS) rc = WriteText(key, "AppStderr", parameters.standardError);
    if (rc == ERROR_SUCCESS && parameters.stopTimeoutMs != defaultStopTimeoutMs) {
        const auto *bytes = reinterpret_cast<const char *>(&parameters.stopTimeoutMs);
        rc = WriteValue(key, "AppStopTimeout", REG_DWORD, std::string(bytes, sizeof parameters.stopTimeoutMs));
    }
    return rc;
}

std::optional<std::vector<std::string>> SplitCommandLine(const std::string &line) {
    std::vector<std::string> words;
    for (std::size_t at = SkipBlanks(line, 0); at < line.size(); at = SkipBlanks(line, at)) {
        words.emplace_back();
        if (!ReadWord(line, &at, &words.back())) return std::nullopt;
    }
    return words;
}

std::optional<std::string> FirstWord(const std::string &line, std::string *rest) {
    std::size_t at = SkipBlanks(line, 0);
    std::string word;
    if (!ReadWord(line, &at, &word)) return std::nullopt;
    *rest = line.substr(SkipBlanks(line, at));
    return word;
}
