// SPDX-License-Identifier: MIT
// planting: looks at the key that should have seeds, and writes those that are missing.
#include "tvregd/planting.h"

#include "tv/winreg.h"
#include "tvregd/operations.h"
#include "tvregd/seeds.h"

std::uint32_t PlantSeeds(Registry &registry) {
    Key *key = nullptr;
    std::uint32_t rc = OpenKey(registry, HKEY_LOCAL_MACHINE, SeededKeyPath(), &key);
    if (rc == ERROR_FILE_NOT_FOUND) return 0;
    if (rc != 0) return rc;
    for (const Value &value : MissingSeeds(*key)) {
        rc = SetValue(registry, HandleOf(*key), value.name, value.type, value.data);
        if (rc != 0) return rc;
    }
    return CommitGroup(registry);
}
