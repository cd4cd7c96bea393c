// SPDX-License-Identifier: MIT
// sc: finding the verb and taking its words apart.
#include "tvsc/sc.h"

#include "tvsc/report.h"
#include "tvsc/sc_call.h"
#include "util/printable.h"
#include "util/similar_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

struct NamedVerb {
    const char *name;
    ScVerb run;
    std::size_t least, most; // names
    const char *usage;
    const char *options = ""; // behind it, each "[NAME= VALUE]"
};

constexpr std::size_t any = SIZE_MAX;

// The answer comes in one piece here, whatever the room for it.
constexpr char queryOptions[] =
    " [type= driver|service|all] [state= active|inactive|all] [group= GROUP] [bufsize= BYTES]";
constexpr char serviceOptions[] =
    " [binPath= IMAGE] [type= own|share|kernel|filesys|interact] [start= boot|system|auto|demand|disabled|delayed-auto]"
    " [error= normal|severe|critical|ignore] [group= GROUP] [tag= yes|no] [depend= A/B/+GROUP] [obj= USER]"
    " [DisplayName= TEXT] [password= TEXT]";
constexpr char failureOptions[] = " [reset= SECONDS] [reboot= TEXT] [command= COMMAND]"
                                  " [actions= none|restart|reboot|run/MILLISECONDS/...]";

constexpr NamedVerb verbs[] = {
    {"query", ScQuery, 0, 1, "[NAME]", queryOptions},
    {"queryex", ScQueryEx, 0, 1, "[NAME]", queryOptions},
    {"qc", ScQueryConfig, 1, 2, "NAME"},
    {"qdescription", ScQueryDescription, 1, 2, "NAME"},
    {"qfailure", ScQueryFailure, 1, 2, "NAME"},
    {"enumdepend", ScEnumDepend, 1, 2, "NAME"},
    {"getdisplayname", ScGetDisplayName, 1, 2, "NAME"},
    {"getkeyname", ScGetKeyName, 1, 2, "DISPLAYNAME"},
    {"querylock", ScQueryLock, 0, 0, ""},
    {"create", ScCreate, 1, 1, "NAME", serviceOptions}, // binPath is needed
    {"config", ScConfig, 1, 1, "NAME", serviceOptions},
    {"description", ScDescription, 1, 2, "NAME [TEXT]"},
    {"failure", ScFailure, 1, 1, "NAME", failureOptions},
    {"delete", ScDelete, 1, 1, "NAME"},
    {"start", ScStart, 1, any, "NAME [ARGUMENT...]"},
    {"stop", ScStop, 1, 1, "NAME"},
    {"pause", ScPause, 1, 1, "NAME"},
    {"continue", ScContinue, 1, 1, "NAME"},
    {"interrogate", ScInterrogate, 1, 1, "NAME"},
    {"control", ScControl, 2, 2, "NAME paramchange|netbindadd|netbindremove|netbindenable|netbinddisable|NUMBER"},
    {"lock", ScLock, 0, 0, ", which holds the lock until standard input ends or has a line \"u\""},
};

std::string InSmallLetters(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

// "start= auto" is two words, "start=auto" one.
void TakeWords(ScCall &call, const std::vector<std::string> &words, bool takesOptions) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::size_t sign = words[i].find('=');
        if (!takesOptions || sign == std::string::npos || sign == 0) {
            call.names.push_back(words[i]);
            continue;
        }
        const std::string option = InSmallLetters(words[i].substr(0, sign));
        const bool isNext = sign + 1 == words[i].size() && i + 1 < words.size();
        call.options[option] = isNext ? words[++i] : words[i].substr(sign + 1);
    }
}

// The names of a verb's options, in small letters.
std::vector<std::string> OptionsOf(const NamedVerb &verb) {
    std::vector<std::string> names;
    std::istringstream words(verb.options);
    for (std::string word; words >> word;) {
        if (word.starts_with('[')) names.push_back(InSmallLetters(word.substr(1, word.find('=') - 1)));
    }
    return names;
}

int SayUsage(Session &session, const std::string &wrong, const NamedVerb *verb,
             const std::vector<std::string> &similar = {}) {
    fmt::print(stderr, "tvsc: sc: {}\n", Printable(wrong));
    if (!similar.empty()) fmt::print(stderr, "  did you mean {}?\n", fmt::join(similar, ", "));
    if (verb != nullptr) fmt::print(stderr, "  tvsc sc {} {}{}\n", verb->name, verb->usage, verb->options);
    session.results.push_back({"sc", "usage", ERROR_INVALID_PARAMETER, EXIT_USAGE, wrong, similar});
    return Finish(session);
}

} // namespace

ServiceHandle OpenNamed(ScCall &call, const std::string &function, int *status) {
    ServiceHandle service(OpenServiceA(call.session.manager.get(), call.names.front().c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) *status = ScFailed(function, GetLastError());
    return service;
}

int ScChange(const ScCall &call, const std::string &function, const std::function<BOOL()> &act) {
    if (call.session.options.dryRun) {
        fmt::print("[SC] {} would be called\n", function);
        return EXIT_DONE;
    }
    if (!act()) return ScFailed(function, GetLastError());
    ScDone(function);
    return EXIT_DONE;
}

const char *ScOption(const ScCall &call, const std::string &name) {
    const auto found = call.options.find(name);
    return found != call.options.end() ? found->second.c_str() : nullptr;
}

bool ReadNumberWord(const ScCall &call, const std::string &option, const std::map<std::string, DWORD> &words,
                    DWORD *number) {
    const char *said = ScOption(call, option);
    if (said == nullptr) return true;
    const auto found = words.find(said);
    if (found != words.end()) *number = found->second;
    return found != words.end();
}

bool IsScLock(const std::vector<std::string> &words) {
    const bool hasHost = !words.empty() && words.front().starts_with("\\\\");
    return words.size() > (hasHost ? 1U : 0U) && InSmallLetters(words[hasHost ? 1 : 0]) == "lock";
}

std::vector<ScVerbWords> ScVerbs() {
    std::vector<ScVerbWords> words;
    for (const NamedVerb &verb : verbs) {
        words.push_back({verb.name, OptionsOf(verb)});
    }
    return words;
}

int RunSc(const Options &options, const std::vector<std::string> &words) {
    Session session;
    session.options = options;
    auto word = words.begin();
    if (word != words.end() && word->starts_with("\\\\")) session.options.host = word++->substr(2);
    std::vector<std::string> known;
    for (const NamedVerb &verb : verbs) {
        known.emplace_back(verb.name);
    }
    if (word == words.end())
        return SayUsage(session, fmt::format("one of {} is needed", fmt::join(known, ", ")), nullptr);
    const std::string name = InSmallLetters(*word++);
    const auto *const verb =
        std::find_if(std::begin(verbs), std::end(verbs), [&](const NamedVerb &one) { return one.name == name; });
    if (verb == std::end(verbs)) {
        return SayUsage(session, name + ": no such verb", nullptr, SimilarNames(name, known));
    }
    if (options.json)
        return SayUsage(session, "its layout is that of the Win32 tool; every other command has JSON", nullptr);
    ScCall call = {.session = session, .names = {}, .options = {}};
    TakeWords(call, {word, words.end()}, verb->run != ScStart && verb->run != ScDescription);
    const bool fits = call.names.size() >= verb->least && call.names.size() <= verb->most;
    if (!fits) return SayUsage(session, fmt::format("{}: wrong number of arguments", name), verb);
    const std::vector<std::string> knownOptions = OptionsOf(*verb);
    for (const auto &[option, value] : call.options) {
        if (std::find(knownOptions.begin(), knownOptions.end(), option) != knownOptions.end()) continue;
        return SayUsage(session, fmt::format("{}: {}= is no option of it", name, option), verb,
                        SimilarNames(option, knownOptions));
    }
    if (OpenSession(session, true) != EXIT_DONE) return session.results.back().exitStatus;
    return verb->run(call);
}
