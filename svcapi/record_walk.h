// SPDX-License-Identifier: MIT
// record_walk: the daemon's records one after the other, with those of services that no enumeration shows. All on a
// connected, locked link.
#pragma once

#include "svcapi/link.h"
#include "svcapi/packing.h"

#include <optional>
#include <set>

constexpr std::int32_t peek = 0; // a control that no service takes: it tells the state, and touches nothing

struct WalkedRecord {
    std::int32_t index;
    SERVICE_STATUS status; // state and accepted controls; the other words are 0
    ServiceConfig config;  // the display name is that of the record; the rest is the registry's, as far as it answers
};

// Looks at every record in use but those that are left out, without touching any service.
[[nodiscard]] DWORD WalkRecords(DaemonLink &link, const std::set<std::int32_t> &leftOut,
                                std::vector<WalkedRecord> *records);

// The two halves of it: which records are in use, in what state; and their configurations, a dozen reads of the
// registry for each.
[[nodiscard]] DWORD WalkStates(DaemonLink &link, const std::set<std::int32_t> &leftOut,
                               std::vector<WalkedRecord> *records);
[[nodiscard]] DWORD ReadWalkedConfigs(DaemonLink &link, std::vector<WalkedRecord> *records);

// Whether the service in a record is marked for deletion, which no procedure tells of one without a known name. Asks
// for a change to a display name that another record has: the daemon looks at the mark first (1072), then refuses the
// name out of its memory (52), before it asks the machine for an account or writes anything. Should the other one have
// gone meanwhile, the account is refused (1057), except by a machine that has a user of any name.
//   records  all that are in use, with their configurations
//   marked   nothing where no other record has a display name of its own: then nothing is asked
[[nodiscard]] DWORD AskIfRecordMarked(DaemonLink &link, const WalkedRecord &record,
                                      const std::vector<WalkedRecord> &records, std::optional<bool> *marked);

// The number of a record that can be opened by its name; nothing for another one, as one that is marked for deletion.
[[nodiscard]] std::optional<std::int32_t> IndexOfOpenable(DaemonLink &link, const std::string &name);
