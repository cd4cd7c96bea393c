// SPDX-License-Identifier: MIT
// views: predefined roots that show a key below another root.
//
//   HKEY_CLASSES_ROOT   HKEY_LOCAL_MACHINE\Software\Classes
//   HKEY_CURRENT_USER   HKEY_USERS\.Default, for every user: nothing proves to the daemon who is asking
//
// Such a root has a key of its own, without content, which stands for the key shown as long as that is not there. It is
// made when something is written through the root. Thread: the only one.
#pragma once

#include "tvregd/group.h"

struct View {
    std::uint32_t root;
    std::uint32_t shownBelow; // another root
    const char *path;         // from there
};

// What a root shows; null for a key that is no such root.
const View *ViewOf(const Key &key);

// The key that a root shows, or the key itself: any other key, or a root whose key is not there. Looks at the keys on
// the way.
Key &Shown(Registry &registry, Key &key);

// Earlier versions kept content of their own below these roots: moves it to where they show it, in one transaction.
// Keys keep their numbers; those of one name become one, and a value whose name another has already gets a number
// behind it, which a line on stderr tells. Throws SQLite::Exception, and std::runtime_error when there are too many
// keys.
void MoveIntoViews(Store &store, Tree &tree);
