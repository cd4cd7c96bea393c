// SPDX-License-Identifier: MIT
// sc_call: what the verbs of sc work with, and share.
#pragma once

#include "svcapi/packing.h"
#include "tvsc/session.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct ScCall {
    Session &session;
    std::vector<std::string> names;             // what stands without a sign of equality
    std::map<std::string, std::string> options; // by their names in small letters: "start= auto" and "start=auto"
};

// --- telling (sc_layout.cpp) ---------------------------------------------------------------------------------------

// "[SC] OpenService FAILED 1060:" and the words of the code. Returns the exit status.
int ScFailed(const std::string &function, DWORD code);
// "[SC] OpenService SUCCESS".
void ScDone(const std::string &function);

void PrintScStatus(const ListedService &service, bool withDisplayName, bool withProcess);
void PrintScConfig(const std::string &name, const ServiceConfig &config);

// --- verbs ---------------------------------------------------------------------------------------------------------

using ScVerb = int (*)(ScCall &);

int ScQuery(ScCall &call); // sc_look.cpp
int ScQueryEx(ScCall &call);
int ScQueryConfig(ScCall &call);
int ScQueryDescription(ScCall &call);
int ScQueryFailure(ScCall &call);
int ScEnumDepend(ScCall &call);
int ScGetDisplayName(ScCall &call);
int ScGetKeyName(ScCall &call);
int ScQueryLock(ScCall &call);

int ScCreate(ScCall &call); // sc_change.cpp
int ScConfig(ScCall &call);
int ScDescription(ScCall &call);
int ScFailure(ScCall &call);
int ScDelete(ScCall &call);

int ScStart(ScCall &call); // sc_control.cpp
int ScStop(ScCall &call);
int ScPause(ScCall &call);
int ScContinue(ScCall &call);
int ScInterrogate(ScCall &call);
int ScControl(ScCall &call);
int ScLock(ScCall &call);

// --- what they share -----------------------------------------------------------------------------------------------

// Opens the service that is named first. Null, and *status, when that fails, which is told.
[[nodiscard]] ServiceHandle OpenNamed(ScCall &call, const std::string &function, int *status);

// Calls a function that changes something, and tells of it; with --dry-run tells that it would be called.
int ScChange(const ScCall &call, const std::string &function, const std::function<BOOL()> &act);

// An option's text; nothing where it is not said.
[[nodiscard]] const char *ScOption(const ScCall &call, const std::string &name);

// The number that an option's word stands for; left as it is where the option is not said. Returns whether the word is
// one of them.
[[nodiscard]] bool ReadNumberWord(const ScCall &call, const std::string &option,
                                  const std::map<std::string, DWORD> &words, DWORD *number);

// Adds what a status lacks: the type, of a service that has never reported, and the process.
void FillIn(const ScCall &call, ListedService *service);
