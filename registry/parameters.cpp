// SPDX-License-Identifier: MIT
// parameters: the options that are kept for a registry daemon, and where such a daemon is expected.
//
// Owns: regdLocation and regdExecLocation (malloc). Of all options only regdSystemDaemon is read by this client.
#include "registry/parameters.h"

#include "registry/regd_xdr.h"
#include "registry/unused_state.h"
#include "tv/tvregistry.h"
#include "util/ktl_strings.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int regdSystemDaemon = 0;
int bAllowSystemDaemonConnect = 1;
std::uint32_t tvreg_prognum = 0;

namespace {

struct TextOption {
    const char *word;
    char **value;
};
const TextOption textOptions[] = {{"-d", &regdLocation}, {"-dir", &regdExecLocation}};

// A value below `minimum` or equal to 0 leaves the option as it is.
struct NumberOption {
    const char *word;
    int *value;
    int minimum;
};
const NumberOption numberOptions[] = {
    {"-i", &regdFlushInterval, 1},       {"-l", &regdLogLines, INT_MIN},          {"-m", &regdSemaphoreAccess, INT_MIN},
    {"-n", &regdSemaphoreProc, INT_MIN}, {"-p", &regdPingCheckInterval, INT_MIN}, {"-s", &regdSems, INT_MIN},
};

struct Switch {
    const char *word;
    int *value;
};
const Switch switches[] = {{"-k", &regdKeepBackup}, {"-system", &regdSystemDaemon}, {"-v", &regdVerbose}};

char *NextWord(char *text, char **rest) { return strtok_r(text, " ", rest); }

void ReplaceText(char **text, const char *value) {
    std::free(*text);
    *text = _ktl_strdup(value);
}

// A decimal number as a machine with 32-bit words reads it: one that has no room there becomes the nearest that has.
int DecimalOf(const char *text) {
    const long number = std::strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// Applies one word of the options, taking its value from the rest where it has one.
void ApplyOption(const char *word, char **rest) {
    for (const Switch &option : switches) {
        if (std::strcmp(word, option.word) == 0) *option.value = 1;
    }
    for (const TextOption &option : textOptions) {
        if (std::strcmp(word, option.word) != 0) continue;
        const char *value = NextWord(nullptr, rest);
        if (value != nullptr) ReplaceText(option.value, value);
    }
    for (const NumberOption &option : numberOptions) {
        if (std::strcmp(word, option.word) != 0) continue;
        const char *text = NextWord(nullptr, rest);
        const int value = text != nullptr ? DecimalOf(text) : 0;
        if (value != 0 && value >= option.minimum) *option.value = value;
    }
}

std::uint32_t ComputeProgramNumber() {
    const char *base = std::getenv("TARVO_REGISTRY_BASE");
    const std::uint32_t number = base != nullptr ? static_cast<std::uint32_t>(DecimalOf(base)) : REGDAEMONPROG;
    if (regdSystemDaemon != 0) return number;
    const uid_t uid = getuid();
    return number + ((uid != 0 ? uid : 1) & 0xFFFF);
}

} // namespace

// Deliberate: the text is cut up in place, the environment variable's own storage included, so that the next look at
// the variable finds its first word only.
void tvSetRegistryDaemonParamsEx(char *params) {
    char *text = params != nullptr ? params : std::getenv("TARVO_REGISTRY_PARAMS");
    if (text == nullptr) return;
    char *rest = nullptr;
    for (char *word = NextWord(text, &rest); word != nullptr; word = NextWord(nullptr, &rest)) {
        ApplyOption(word, &rest);
    }
}

void tvSetRegistryDaemonParams(char *location, int flushInterval, int keepBackup, int logLines, int pingCheckInterval,
                               int verbose, int systemDaemon) {
    if (location != nullptr) ReplaceText(&regdLocation, location);
    if (flushInterval > 0) regdFlushInterval = flushInterval;
    regdKeepBackup = keepBackup;
    if (logLines != 0) regdLogLines = logLines;
    if (pingCheckInterval > 0) regdPingCheckInterval = pingCheckInterval;
    regdVerbose = verbose;
    regdSystemDaemon = systemDaemon;
}

void tvDisableSystemRegistryConnect(void) { bAllowSystemDaemonConnect = 0; }

int tvIsSystemRegistryConnectDisabled(void) { return bAllowSystemDaemonConnect == 0 ? 1 : 0; }

void tvDisableLocalRegistryConnect(void) { bAllowLocalDaemonConnect = 0; }

int tvIsLocalRegistryConnectDisabled(void) { return bAllowLocalDaemonConnect == 0 ? 1 : 0; }

void CopyHostName(char *host, const char *name) { (void)std::snprintf(host, registryHostBytes, "%s", name); }

void tvGenRegistryONCAddr(char *host, unsigned *prognum, unsigned *version, char proto[4]) {
    if (host != nullptr && host[0] == '\0') {
        const char *named = std::getenv("TARVO_REGISTRY_HOST");
        if (named != nullptr) {
            CopyHostName(host, named);
        } else {
            (void)gethostname(host, registryHostBytes);
            host[registryHostBytes - 1] = '\0';
        }
    }
    if (tvreg_prognum == 0) tvreg_prognum = ComputeProgramNumber();
    if (prognum != nullptr) *prognum = tvreg_prognum;
    if (version != nullptr) *version = REGDAEMONVERS;
    if (proto != nullptr) std::memcpy(proto, "tcp", sizeof "tcp");
}

void tvGetPartialName(char *host) { host[std::strcspn(host, ".")] = '\0'; }

int tvVerifyRegistryVersion(unsigned major, unsigned minor, unsigned patch) {
    if (major > oldestRegistryMajor) return 1;
    if (major < oldestRegistryMajor) return -1;
    if (minor > oldestRegistryMinor) return 2;
    if (minor < oldestRegistryMinor) return -2;
    if (patch == 0) return 0;
    return 3;
}
