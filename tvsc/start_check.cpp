// SPDX-License-Identifier: MIT
// start_check: start type and account tell.
#include "tvsc/start_check.h"

#include "svcapi/client.h"
#include "tvsc/mask.h"
#include "tvsc/report.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

bool IsKeptFromStarting(Session &session, SC_HANDLE service, const std::string &name, const char *action, bool force) {
    ServiceConfig config;
    if (QueryConfig(service, &config) != ERROR_SUCCESS) return false;
    const bool isMasked = IsMasked(config.account);
    if (!isMasked && (force || config.startType != SERVICE_DISABLED)) return false;
    Failed(session, name, action, ERROR_SERVICE_DISABLED,
           fmt::format("not {}ed{}", action, isMasked ? ": it is masked" : ""));
    Note(session, isMasked ? fmt::format("  try: tvsc unmask {}", NameArgument(name))
                           : fmt::format("  try: tvsc enable {0}, or once only: tvsc {1} --force {0}",
                                         NameArgument(name), action));
    return true;
}
