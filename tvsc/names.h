// SPDX-License-Identifier: MIT
// names: from what was typed to the services that are meant.
#pragma once

#include "svcapi/packing.h"
#include "tvsc/session.h"

// Everything that can be seen without touching anything. Where that fails it is told and noted, and false returned.
[[nodiscard]] bool ListServicesFor(Session &session, const std::string &action, std::vector<ListedService> *services);

// Whether an argument is a pattern: with * ? [ in it.
[[nodiscard]] bool IsPattern(const std::string &text);

// The services that one argument means, as below, borrowed from those given; empty for none.
using MeantServices = std::vector<const ListedService *>;
[[nodiscard]] MeantServices ServicesMeant(const std::string &wanted, const std::vector<ListedService> &services);

// The services that patterns mean, as they stand: an exact name, else the one name that differs in case only, else the
// key of a display name; a pattern with * ? [ stands for all that match. What means nothing is told and noted as
// failed. Services that had to be opened for it are closed again, or stay open in *kept.
[[nodiscard]] std::vector<ListedService> ResolveServices(Session &session, const std::vector<std::string> &patterns,
                                                         const std::string &action, OpenServices *kept = nullptr);
// The same of services that are known already: each that is meant once, borrowed from those given. Hidden ones may look
// just like another one; only their place tells them apart.
[[nodiscard]] MeantServices ResolveAmong(Session &session, const std::vector<std::string> &patterns,
                                         const std::string &action, const std::vector<ListedService> &services);
[[nodiscard]] std::vector<std::string> NamesOf(const std::vector<ListedService> &services);

// Tells those of a service's dependencies that are nobody's name; groups, with a leading +, are none. The daemon passes
// over them at every start.
//   known  the names of services that are there
void NoteUnknownDependencies(const Session &session, const std::vector<std::string> &dependencies,
                             const std::vector<std::string> &known);

// The names of those that patterns mean.
[[nodiscard]] std::vector<std::string> ResolveNames(Session &session, const std::vector<std::string> &patterns,
                                                    const std::string &action, OpenServices *kept = nullptr);
