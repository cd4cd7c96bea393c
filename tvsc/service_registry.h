// SPDX-License-Identifier: MIT
// service_registry: the keys of services in the registry, whole.
//
// All return 0, or a code and a text that says what it is about: a code of the registry, 1016 when its daemon does not
// answer, 1012 for a key that cannot be read since it changes all the time.
#pragma once

#include "tvsc/service_text.h"

// The services that have a key, in the registry's order.
//   host  the daemon's machine, as --host tells it; here and below
[[nodiscard]] std::uint32_t ListServiceKeys(const std::string &host, std::vector<std::string> *names,
                                            std::string *problem);

// A service's key with all below it, at one moment; 2, and no keys, when it has none. The mark of a deletion that is
// due stands in the record, not in the tree.
[[nodiscard]] std::uint32_t ReadServiceKey(const std::string &name, const std::string &host, ServiceText *service,
                                           std::string *problem);

// Makes keys, sets and deletes values and keys, as they are marked. Keys without a host are of the daemon's machine.
[[nodiscard]] std::uint32_t WriteServiceKeys(const std::string &host, std::vector<RegKey> keys, std::string *problem);

// Sets the mark of a deletion that is due, or takes it away.
[[nodiscard]] std::uint32_t WriteDeletionMark(const std::string &name, const std::string &host, bool isMarked,
                                              std::string *problem);

// With all below it.
[[nodiscard]] std::uint32_t DeleteServiceKey(const std::string &name, const std::string &host, std::string *problem);
