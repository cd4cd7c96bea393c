// SPDX-License-Identifier: MIT
// apply: services brought to what a text says of them.
#pragma once

#include "tvsc/service_text.h"
#include "tvsc/session.h"

struct ApplyRules {
    std::string action;   // as results name it
    bool isWhole = false; // what the text does not say of a service is taken away
    bool isAll = false;   // services of which the text says nothing are deleted behind it
    bool mayExist = true; // else a service that is there already is refused: 1073
};

enum class Change { none, created, changed, deleted };

// What became of one service, or would become of it.
struct AppliedService {
    std::string name;
    Change change = Change::none;
    KeyPath top;
    std::vector<Difference> differences;
};

// Connects where there is a daemon with a database. Where none runs, or it has none, the session has no manager, and
// services are written into the registry alone. Returns EXIT_DONE, or says why it cannot be told and returns the exit
// status.
[[nodiscard]] int OpenForApply(Session &session);

// What the daemon says of a service: 0 when it can be opened, 1072 when its deletion is due, 1060 when the daemon has
// none of that name, or none answers for any.
[[nodiscard]] DWORD AskForService(const Session &session, const std::string &name);

// Whether a service goes when the daemon starts again, so that what is written of it would go with it: as the daemon
// knows it, or as the registry has it, where another program may have put the mark. A marked key that a daemon does not
// know is not meant: it makes way for the service that is created.
[[nodiscard]] bool IsDeletionDue(const Session &session, const ServiceText &present);

// Creates and changes services; with --dry-run tells what would be done. All are checked before anything is written.
// Through the daemon where one is open, so that it holds at once. What comes of each is noted.
//   applied  gets a record of each but for those that failed, of whose changes a part may have been written
// Returns whether all of it worked.
bool ApplyServices(Session &session, const std::vector<ServiceText> &said, const ApplyRules &rules,
                   std::vector<AppliedService> *applied);
