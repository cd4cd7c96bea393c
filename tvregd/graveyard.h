// SPDX-License-Identifier: MIT
// graveyard: keys that are deleted go to it at once; their rows and their memory go later, in pieces.
//
//   state of a key   event                       next state
//   living           DeleteKey                   buried: its group erases its rows, when they are few, or marks it
//   buried           its group is given up       living
//   buried           EraseSome, piece by piece   gone: from the last values of the last keys upwards
//
// A daemon that ends before everything is erased finds what is marked at its next start. Thread: the only one.
#pragma once

#include "tvregd/group.h"

// Erases the rows of a key and all below it, when they are few, or marks it as deleted. Returns whether they are
// erased.
bool StoreDeleted(Store &store, const Key &key);

// Erases a piece of what is buried, in a transaction of its own: some milliseconds. Nothing while a group is open, nor
// in the second after the database failed.
// Returns whether there is another piece to erase.
bool EraseSome(Registry &registry);

bool IsAnythingBuried(const Registry &registry);
// Whether no piece has been erased for so long that one is due even when there is other work.
bool IsEraseDue(const Registry &registry);
