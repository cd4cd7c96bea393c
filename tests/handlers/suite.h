// SPDX-License-Identifier: MIT
// suite: what the cases of the handlers share. They run twice, see tests/support/procedures.h.
#pragma once

#include "servd/servd_svc_proc/database.h"
#include "servd/service_keys.h"
#include "tests/support/procedures.h"
#include "tests/support/service_registry.h"
#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Names = std::vector<std::string>;

constexpr std::int32_t enoughBytes = 1000000; // a buffer in which everything fits
// The status of a service just loaded, but for its state.
constexpr svd_status_t InState(std::int32_t state) { return {0, state, 0, 0, 0, 0, 0}; }
constexpr svd_status_t stopped = {0x10, SERVICE_STOPPED, 0, 0, 0, 0, 0};
constexpr svd_status_t running = {0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE, 0, 0, 0,
                                  0};

// A report whose deadline has passed by the time anybody asks.
inline svd_status_t Overdue(svd_status_t status) {
    status.dwWaitHint = -60000;
    return status;
}

// An empty registry, and after Load a daemon that has read what was put into it.
class Handlers : public ::testing::Test {
protected:
    void SetUp() override { ClearRegistry(); }

    // Services a, b, c ... named as given, each with its name as display name; record 1 and up.
    static void Load(const Names &names) {
        for (const std::string &name : names) {
            PutService(name, name);
        }
        StartDaemon();
    }
};

// What a status enumeration shows of one service, which unlike a status query changes nothing. The state is -1 where
// it is not listed.
inline svd_status_t ShownStatus(const std::string &name) {
    const auto reply = EnumStatus(0, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes);
    for (const Listed &entry : EntriesOf(reply->services)) {
        if (entry.name == name) return entry.status;
    }
    return InState(-1);
}

// The names of the services that this one depends on, in the order of the reply.
inline Names Dependencies(std::int32_t handle) {
    return NamesOf(EnumDepend(handle, SERVICE_STATE_ALL, enoughBytes)->services);
}
