// SPDX-License-Identifier: MIT
// startup: the steps of the daemon's initialisation that build its database.
#include "servd/servd_svc_proc/startup.h"

#include "servd/servd_svc_proc/autostart.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/kept_names.h"
#include "servd/servd_svc_proc/load.h"

std::int32_t binitializing;
Win32Code initstatus;
char scmhostname[256];

Win32Code BuildDatabase() {
    Win32Code rc = ReadGroupOrderList(&firstunorderedgroupindex);
    if (rc == 0) rc = ReadServiceDatabase();
    if (rc == 0) rc = SortServicesInGroups();
    if (rc == 0) rc = RunAutoStartServices();
    return rc;
}
