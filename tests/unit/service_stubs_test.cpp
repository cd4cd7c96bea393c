// SPDX-License-Identifier: MIT
// The client stubs for service processes: procedure numbers, the time-out, static results.
#include "servd/service_clnt.h"
#include "tests/support/scripted_client.h"

#include "rpc/dial.h"

#include <gtest/gtest.h>

namespace {

struct ServiceStubs : testing::Test {
    Script service;
    RpcClient client = RpcClient(MakeScriptedClient(&service));

    service_DUMMY_OUT *Dummy() {
        service_DUMMY_IN argument = {.dummy = 5};
        return service_dummy_service_1(&argument, client.get());
    }
    service_CONTROL_SERVICE_OUT *Control() {
        service_CONTROL_SERVICE_IN argument = {.servicecontext = 7, .control = 1};
        return service_control_service_1(&argument, client.get());
    }
    service_START_SERVICE_OUT *Start() {
        char name[] = "web";
        service_START_SERVICE_IN argument = {.servicename = name, .arglist = nullptr, .argc = 0, .serviceindex = 3};
        return service_start_service_1(&argument, client.get());
    }
    void ExpectCall(std::uint32_t procedure, const std::string &argument) const {
        ASSERT_EQ(service.calls.size(), 1u);
        EXPECT_EQ(service.calls[0].procedure, procedure);
        EXPECT_EQ(InHex(service.calls[0].argument), argument);
        EXPECT_EQ(service.calls[0].timeout.tv_sec, 25);
        EXPECT_EQ(service.calls[0].timeout.tv_usec, 0);
    }
};

TEST_F(ServiceStubs, start_is_procedure_1_with_25_seconds) {
    service.Answer("000004d2 00000063");
    const service_START_SERVICE_OUT *result = Start();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->status, 1234);
    EXPECT_EQ(result->servicecontext, 99);
    ExpectCall(1, "00000003 77656200 00000000 00000000 00000003");
}

TEST_F(ServiceStubs, control_is_procedure_2_with_25_seconds) {
    service.Answer("00000005 00000010 00000004 00000003 00000000 00000000 00000000 00000009");
    const service_CONTROL_SERVICE_OUT *result = Control();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->status, 5);
    EXPECT_EQ(result->svcstatus.dwServiceType, 0x10);
    EXPECT_EQ(result->svcstatus.dwWaitHint, 9);
    ExpectCall(2, "00000007 00000001");
}

TEST_F(ServiceStubs, dummy_is_procedure_3_with_25_seconds) {
    service.Answer("00000006");
    const service_DUMMY_OUT *result = Dummy();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->dummy, 6);
    ExpectCall(3, "00000005");
}

TEST_F(ServiceStubs, every_failure_is_null_after_one_call) {
    for (const clnt_stat status : {RPC_TIMEDOUT, RPC_CANTSEND, RPC_CANTRECV, RPC_PROGUNAVAIL, RPC_PROCUNAVAIL,
                                   RPC_CANTDECODEARGS, RPC_SYSTEMERROR, RPC_AUTHERROR}) {
        service.calls.clear();
        for (int i = 0; i < 3; ++i) {
            service.Fail(status);
        }
        EXPECT_EQ(Start(), nullptr) << status;
        EXPECT_EQ(Control(), nullptr) << status;
        EXPECT_EQ(Dummy(), nullptr) << status;
        EXPECT_EQ(service.calls.size(), 3u) << status;
    }
}

TEST_F(ServiceStubs, each_has_one_static_result_that_is_cleared_before_the_call) {
    service.Answer("00000001 00000002");
    service_START_SERVICE_OUT *first = Start();
    ASSERT_NE(first, nullptr);
    service.Fail(RPC_TIMEDOUT);
    EXPECT_EQ(Start(), nullptr);
    EXPECT_EQ(first->status, 0);
    EXPECT_EQ(first->servicecontext, 0);
    service.Answer("00000003 00000004");
    EXPECT_EQ(Start(), first);
    EXPECT_EQ(first->servicecontext, 4);
}

} // namespace
