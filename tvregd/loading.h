// SPDX-License-Identifier: MIT
// loading: everything in the database comes into memory, once, at start.
//
// Volatile keys of an earlier daemon, and deleted ones whose rows it had not erased, are buried. Entries of one key
// that have the same name, which an earlier version told apart by the case of letters beyond ASCII, are told apart by a
// number behind the name of all but the first: "Ärger", "ärger (2)". A line on stderr tells of each. What lies below a
// root that shows other keys (views.h) is moved to them.
#pragma once

#include "tvregd/store.h"

// Keys that have hives (hives.h) are noted as such.
//
// Reads everything into a fresh tree (MakeTree). Throws SQLite::Exception, and std::runtime_error when the content is
// not that of a registry.
void LoadTree(Store &store, Tree &tree);
