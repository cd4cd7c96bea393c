// SPDX-License-Identifier: MIT
// parameters: reading and writing a service's "Parameters" subkey, one value after the other.
#include "tvhost/parameters.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "servd/service_keys.h"
#include "tv/winreg.h"
#include "tvhost/named_value.h"
#include "util/string_list.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

std::string ServiceKeyOf(const std::string &serviceName) { return std::string(servicesKeyPath) + '\\' + serviceName; }

std::string ParametersKeyOf(const std::string &serviceName) { return ServiceKeyOf(serviceName) + '\\' + parametersKey; }

// --- reading ---

// Where the values are read from, and the first failure; what follows it is left alone.
struct Reading {
    HKEY key;
    HostParameters *parameters;
    std::string *problem;
    DWORD rc = ERROR_SUCCESS;
};

void Fail(Reading &reading, DWORD rc, const char *name, const std::string &why) {
    reading.rc = rc;
    *reading.problem = std::string(name) + ": " + why;
}

// A whole value. Returns false when it is missing, or after a failure.
bool ReadValue(Reading &reading, const char *name, DWORD wantedType, std::string *data) {
    if (reading.rc != ERROR_SUCCESS) return false;
    const DWORD rc = ReadNamedValue(reading.key, name, wantedType, data, reading.problem);
    if (rc != ERROR_FILE_NOT_FOUND) reading.rc = rc;
    return rc == ERROR_SUCCESS;
}

void ReadMember(Reading &reading, const char *name, std::string *text) {
    std::string data;
    if (ReadValue(reading, name, REG_SZ, &data)) text->assign(data, 0, strnlen(data.data(), data.size()));
}

void ReadMember(Reading &reading, const char *name, std::vector<std::string> *strings) {
    std::string data;
    if (ReadValue(reading, name, REG_MULTI_SZ, &data)) *strings = SplitMultiString(data);
}

void ReadMember(Reading &reading, const char *name, DWORD *number, DWORD most = unlimited) {
    std::string data;
    if (!ReadValue(reading, name, REG_DWORD, &data)) return;
    if (data.size() != sizeof *number) {
        Fail(reading, ERROR_INVALID_DATA, name, std::to_string(data.size()) + " bytes are no REG_DWORD");
        return;
    }
    std::memcpy(number, data.data(), sizeof *number);
    *number = std::min(*number, most);
}

void ReadMember(Reading &reading, const char *name, std::int32_t *number) {
    auto word = static_cast<DWORD>(*number);
    ReadMember(reading, name, &word);
    *number = static_cast<std::int32_t>(word);
}

// Reads one of several words. Returns why it is none of them, empty when it is one.
template <typename Word>
std::string ParseWord(const std::string &text, Word *word) {
    constexpr auto words = WordsOf(Word{});
    const auto found = std::find(words.begin(), words.end(), text);
    if (found != words.end()) {
        *word = static_cast<Word>(found - words.begin());
        return "";
    }
    std::string known;
    for (const char *one : words) {
        if (*one != '\0') known += (known.empty() ? "" : ", ") + std::string(one);
    }
    return text + " is none of " + known;
}

template <typename Word>
requires std::is_enum_v<Word>
void ReadMember(Reading &reading, const char *name, Word *word) {
    std::string text;
    ReadMember(reading, name, &text);
    if (text.empty()) return;
    const std::string why = ParseWord(text, word);
    if (!why.empty()) Fail(reading, ERROR_INVALID_DATA, name, why);
}

// --- from a person ---

// Each returns why the text is no value of this kind, empty when it is.
std::string ParseMember(const std::string &text, std::string *member) {
    *member = text;
    return "";
}

std::string ParseMember(const std::string &text, std::vector<std::string> *member) {
    if (text.empty()) return "an empty string would end the list";
    member->push_back(text);
    return "";
}

std::string ParseMember(const std::string &text, DWORD *member, DWORD most = unlimited) {
    char *end = nullptr;
    errno = 0;
    const long long number = text == "unlimited" ? unlimited : std::strtoll(text.c_str(), &end, 0);
    const bool isNumber = end == nullptr || (end != text.c_str() && *end == '\0');
    const bool fits = errno == 0 && number >= 0 && number <= static_cast<long long>(most);
    if (!isNumber || !fits) return text + " is no number up to " + std::to_string(most);
    *member = static_cast<DWORD>(number);
    return "";
}

std::string ParseMember(const std::string &text, std::int32_t *member) {
    char *end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 0);
    const bool isNumber = errno == 0 && end != text.c_str() && *end == '\0';
    if (!isNumber || number < INT32_MIN || number > INT32_MAX) return text + " is no number";
    *member = static_cast<std::int32_t>(number);
    return "";
}

template <typename Word>
requires std::is_enum_v<Word> std::string ParseMember(const std::string &text, Word *member) {
    return ParseWord(text, member);
}

// --- writing ---

struct Writing {
    HKEY key;
    DWORD rc = ERROR_SUCCESS;
};

void WriteValue(Writing &writing, const char *name, DWORD type, const std::string &data) {
    if (writing.rc != ERROR_SUCCESS) return;
    writing.rc = static_cast<DWORD>(RegSetValueExA(
        writing.key, name, 0, type, reinterpret_cast<const BYTE *>(data.data()), static_cast<DWORD>(data.size())));
}

void WriteMember(Writing &writing, const char *name, const std::string &text) {
    WriteValue(writing, name, REG_SZ, std::string(text.c_str(), text.size() + 1));
}

void WriteMember(Writing &writing, const char *name, const std::vector<std::string> &strings) {
    WriteValue(writing, name, REG_MULTI_SZ, JoinMultiString(strings));
}

void WriteMember(Writing &writing, const char *name, DWORD number) {
    WriteValue(writing, name, REG_DWORD, std::string(reinterpret_cast<const char *>(&number), sizeof number));
}

void WriteMember(Writing &writing, const char *name, std::int32_t number) {
    WriteMember(writing, name, static_cast<DWORD>(number));
}

template <typename Word>
requires std::is_enum_v<Word>
void WriteMember(Writing &writing, const char *name, Word word) {
    WriteMember(writing, name, std::string(WordsOf(word).at(static_cast<std::size_t>(word))));
}

} // namespace

DWORD ReadHostParameters(const std::string &serviceName, HostParameters *parameters, std::string *problem) {
    HKEY key = 0;
    problem->clear();
    const auto rc = static_cast<DWORD>(
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, ParametersKeyOf(serviceName).c_str(), 0, KEY_ALL_ACCESS, &key));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    Reading reading = {key, parameters, problem};
    VisitHostParameters([&](const char *name, auto member, auto... most) {
        ReadMember(reading, name, &(parameters->*member), most...);
    });
    if (reading.rc == ERROR_SUCCESS && parameters->application.empty()) {
        Fail(reading, ERROR_FILE_NOT_FOUND, "Application", "missing or empty");
    }
    return reading.rc;
}

DWORD SetHostParameter(const std::string &setting, HostParameters *parameters, std::string *problem) {
    const std::size_t sign = setting.find('=');
    const std::string wanted = setting.substr(0, sign);
    const std::string text = sign != std::string::npos ? setting.substr(sign + 1) : "";
    *problem = wanted + ": tvhost has no such parameter";
    DWORD rc = ERROR_FILE_NOT_FOUND;
    VisitHostParameters([&](const char *name, auto member, auto... most) {
        if (wanted != name) return;
        const std::string why = ParseMember(text, &(parameters->*member), most...);
        *problem = wanted + ": " + why;
        rc = why.empty() ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    });
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

DWORD WriteHostParameters(const std::string &serviceName, const HostParameters &parameters,
                          const HostParameters *present) {
    HKEY key = 0;
    DWORD disposition = 0;
    const auto rc =
        static_cast<DWORD>(RegCreateKeyExA(HKEY_LOCAL_MACHINE, ParametersKeyOf(serviceName).c_str(), 0, nullptr,
                                           REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, &disposition));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    Writing writing = {key};
    const HostParameters asItIs;
    VisitHostParameters([&](const char *name, auto member, auto...) {
        if (parameters.*member != asItIs.*member) return WriteMember(writing, name, parameters.*member);
        const bool stands = present != nullptr && present->*member != asItIs.*member;
        if (stands && writing.rc == ERROR_SUCCESS) writing.rc = static_cast<DWORD>(RegDeleteValueA(key, name));
    });
    return writing.rc;
}
