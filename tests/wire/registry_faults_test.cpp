// SPDX-License-Identifier: MIT
// The fault cases of the handlers over TCP: a real daemon whose registry answers through a proxy that refuses one call,
// or breaks off in the middle of it.
#include "tests/handlers/suite.h"
#include "tests/support/real_daemon.h"
#include "tests/support/registry_faults.h"
#include "tests/support/service_image.h"

namespace {

using testing::Contains;

// Its initialisation: only a whole daemon has one.
class StartUpFaults : public Handlers {
protected:
    const std::string startQuery = std::string("query ") + servicesKeyPath + "\\alerter " + startTypeValue;
    const ServiceImage image = MakeServiceImage("alerter");

    // One service that is started at once, in an ordered group that has a tag vector.
    void SetUp() override {
        Handlers::SetUp();
        WatchRegistry();
        PutKey(groupOrderKeyPath, {{"List", AsMulti({"net"})}});
        PutKey(TagOrderPath(), {{"net", AsBinary(Words({1, 1}))}});
        PutService("alerter", "alerter",
                   {{"Group", AsText("net")}, {"ImagePath", AsText(image.path)}, {"Start", AsNumber(2)}});
    }

    // Starts the daemon with its n-th call failing, 0 for none. Returns the calls that it made.
    static Names CallsOfStart(int n) {
        ForgetRegistryCalls();
        if (n != 0) FailRegistryCall(n, ERROR_ACCESS_DENIED);
        StartDaemon();
        return RegistryCallsMade();
    }
};

TEST_F(StartUpFaults, a_step_that_fails_gives_1065_and_ends_the_initialisation) {
    const Names calls = CallsOfStart(0);
    ASSERT_THAT(calls, Contains(startQuery));
    EXPECT_EQ(Connect(""), ERROR_SUCCESS);
    EXPECT_EQ(ShownStatus("alerter").dwCurrentState, SERVICE_START_PENDING);

    // The automatic start, which cannot fail, begins by opening the services key.
    const auto automaticStart = std::find(calls.begin(), calls.end(), std::string("open ") + servicesKeyPath);
    const Names steps(calls.begin(), automaticStart);
    for (std::size_t n = 0; n < steps.size(); ++n) {
        SCOPED_TRACE("failing call " + std::to_string(n + 1) + ": " + steps[n]);
        const Names made = CallsOfStart(static_cast<int>(n) + 1);
        if (steps[n].starts_with("close ")) { // nobody looks at that
            EXPECT_EQ(Connect(""), ERROR_SUCCESS);
            continue;
        }
        EXPECT_EQ(Connect(""), ERROR_DATABASE_DOES_NOT_EXIST);
        // A failing step closes its key at most; no later step begins.
        for (std::size_t later = n + 1; later < made.size(); ++later) {
            EXPECT_TRUE(made[later].starts_with("close ")) << made[later];
        }
    }
}

} // namespace
