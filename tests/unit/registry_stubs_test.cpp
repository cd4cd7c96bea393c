// SPDX-License-Identifier: MIT
// The client stubs: procedure numbers, static results, the growing time-out, results without a body, packet version 1.
#include "tests/support/registry_fixture.h"

#include "util/ktl_strings.h"

#include <cstdlib>
#include <cstring>

namespace {

using RegistryStubs = RegistryTest;

CLIENT *LocalClient() { return clntArray[0]->client; }

template <typename Result, typename Argument>
std::uint32_t NumberSent(Result *(*stub)(Argument *, CLIENT *), Script &script) {
    script.calls.clear();
    Argument argument = {};
    (void)stub(&argument, LocalClient());
    return script.calls.at(0).procedure;
}

regd_BASIC_RES *Flush() {
    regd_REG_FLUSH_KEY argument = {};
    return reg_flush_key_2(&argument, LocalClient());
}

std::vector<long> SecondsWaited(const Script &script) {
    std::vector<long> seconds;
    for (const RecordedCall &call : script.calls) {
        EXPECT_EQ(call.timeout.tv_usec, 0);
        seconds.push_back(call.timeout.tv_sec);
    }
    return seconds;
}

void TimeOut(Script &script, int times) {
    for (int i = 0; i < times; ++i) {
        script.Fail(RPC_TIMEDOUT);
    }
}

} // namespace

TEST_F(RegistryStubs, call_the_26_procedures_and_never_0_or_17) {
    EXPECT_EQ(NumberSent(reg_close_key_2, daemon), 1u);
    EXPECT_EQ(NumberSent(reg_create_key_2, daemon), 2u);
    EXPECT_EQ(NumberSent(reg_create_key_ex_2, daemon), 3u);
    EXPECT_EQ(NumberSent(reg_delete_key_2, daemon), 4u);
    EXPECT_EQ(NumberSent(reg_delete_value_2, daemon), 5u);
    EXPECT_EQ(NumberSent(reg_enum_key_2, daemon), 6u);
    EXPECT_EQ(NumberSent(reg_enum_key_ex_2, daemon), 7u);
    EXPECT_EQ(NumberSent(reg_enum_value_2, daemon), 8u);
    EXPECT_EQ(NumberSent(reg_flush_key_2, daemon), 9u);
    EXPECT_EQ(NumberSent(reg_get_key_security_2, daemon), 10u);
    EXPECT_EQ(NumberSent(reg_load_key_2, daemon), 11u);
    EXPECT_EQ(NumberSent(reg_notify_change_key_value_2, daemon), 12u);
    EXPECT_EQ(NumberSent(reg_open_key_2, daemon), 13u);
    EXPECT_EQ(NumberSent(reg_open_key_ex_2, daemon), 14u);
    EXPECT_EQ(NumberSent(reg_query_info_key_2, daemon), 15u);
    EXPECT_EQ(NumberSent(reg_query_value_2, daemon), 16u);
    EXPECT_EQ(NumberSent(reg_query_value_ex_2, daemon), 18u);
    EXPECT_EQ(NumberSent(reg_replace_key_2, daemon), 19u);
    EXPECT_EQ(NumberSent(reg_restore_key_2, daemon), 20u);
    EXPECT_EQ(NumberSent(reg_save_key_2, daemon), 21u);
    EXPECT_EQ(NumberSent(reg_set_key_security_2, daemon), 22u);
    EXPECT_EQ(NumberSent(reg_set_value_2, daemon), 23u);
    EXPECT_EQ(NumberSent(reg_set_value_ex_2, daemon), 24u);
    EXPECT_EQ(NumberSent(reg_unload_key_2, daemon), 25u);
    EXPECT_EQ(NumberSent(reg_query_version_2, daemon), 26u);
    EXPECT_EQ(NumberSent(reg_ping_daemon_2, daemon), 27u);
}

TEST_F(RegistryStubs, return_their_own_static_result) {
    daemon.Answer("00000001 00000002");
    regd_BASIC_RES *first = Flush();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->body.status, 2u);
    daemon.Answer("00000001 00000005");
    EXPECT_EQ(Flush(), first);
    EXPECT_EQ(first->body.status, 5u);
}

TEST_F(RegistryStubs, a_discriminant_other_than_1_leaves_a_body_of_zeros) {
    daemon.Answer("00000001 00000005");
    (void)Flush();
    for (const char *discriminant : {"00000000", "00000002", "ffffffff"}) {
        daemon.Answer(discriminant);
        regd_BASIC_RES *result = Flush();
        ASSERT_NE(result, nullptr) << discriminant;
        EXPECT_EQ(result->body.status, 0u) << discriminant;
    }
}

TEST_F(RegistryStubs, every_failure_but_a_time_out_is_null_at_once) {
    for (const clnt_stat status :
         {RPC_CANTENCODEARGS, RPC_CANTSEND, RPC_CANTRECV, RPC_PROGUNAVAIL, RPC_PROGVERSMISMATCH, RPC_PROCUNAVAIL,
          RPC_CANTDECODEARGS, RPC_SYSTEMERROR, RPC_AUTHERROR}) {
        daemon.calls.clear();
        daemon.Fail(status);
        EXPECT_EQ(Flush(), nullptr) << status;
        EXPECT_EQ(daemon.calls.size(), 1u) << status;
    }
    EXPECT_EQ(TIMEOUT.tv_sec, 25);
}

TEST_F(RegistryStubs, an_undecodable_reply_is_null_and_leaves_nothing_behind) {
    regd_REG_ENUM_KEY argument = {};
    daemon.Answer("00000001 00000000 00000004 6e616d65 00000004 00000003 636c7300"); // ends before the class length
    EXPECT_EQ(reg_enum_key_2(&argument, LocalClient()), nullptr);
    daemon.Answer("00000001 00000000 ffffffff 6e616d65"); // a name that never came
    EXPECT_EQ(reg_enum_key_2(&argument, LocalClient()), nullptr);
    daemon.Answer("");
    EXPECT_EQ(reg_enum_key_2(&argument, LocalClient()), nullptr);
}

TEST_F(RegistryStubs, a_silent_daemon_is_asked_seven_times_and_then_once_deliberate) {
    TimeOut(daemon, 8);
    EXPECT_EQ(Flush(), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{25, 50, 75, 100, 125, 150, 175}));

    daemon.calls.clear();
    EXPECT_EQ(Flush(), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{200}));

    daemon.calls.clear();
    TimeOut(daemon, 1);
    EXPECT_EQ(Flush(), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{225}));
}

TEST_F(RegistryStubs, a_time_out_of_180_seconds_is_the_last_that_is_repeated_with) {
    TIMEOUT = {155, 0};
    TimeOut(daemon, 3);
    EXPECT_EQ(Flush(), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{155, 180}));
    EXPECT_EQ(TIMEOUT.tv_sec, 205);
}

TEST_F(RegistryStubs, an_answer_after_time_outs_counts_and_the_time_out_stays_grown_deliberate) {
    TimeOut(daemon, 2);
    daemon.Answer("00000001 00000000");
    EXPECT_NE(Flush(), nullptr);
    daemon.Answer("00000001 00000000");
    EXPECT_NE(Flush(), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{25, 50, 75, 75}));
}

TEST_F(RegistryStubs, share_one_time_out) {
    TimeOut(daemon, 1);
    daemon.Answer("00000001 00000000");
    (void)Flush();
    daemon.calls.clear();
    regd_REG_CLOSE_KEY argument = {};
    daemon.Answer("00000001 00000000");
    EXPECT_NE(reg_close_key_2(&argument, LocalClient()), nullptr);
    EXPECT_EQ(SecondsWaited(daemon), (std::vector<long>{50}));
}

TEST_F(RegistryStubs, a_time_out_keeps_the_connection) {
    TimeOut(daemon, 7);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(daemon.clientsAlive, 1);
    daemon.Answer("00000001 00000000");
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

TEST(RegdUserData, packet_version_1_puts_nothing_on_the_wire_and_gives_the_first_record_defaults_deliberate) {
    g_packetVersion = 1;
    XDR xdrs;
    char nothing[4] = {};
    xdrmem_create(&xdrs, nothing, 0, XDR_DECODE);
    regd_USER_DATA first = {};
    regd_USER_DATA second = {7, 8, nullptr, 9};
    EXPECT_EQ(xdr_regd_USER_DATA(&xdrs, &first), TRUE);
    EXPECT_EQ(xdr_regd_USER_DATA(&xdrs, &second), TRUE);
    EXPECT_EQ(xdr_getpos(&xdrs), 0u);
    EXPECT_EQ(first.version, 30000u);
    EXPECT_EQ(first.uid, 123456u);
    EXPECT_STREQ(first.name, ".Default");
    EXPECT_EQ(first.name, g_userNameToFree);
    EXPECT_EQ(first.hostid, 123456u);
    EXPECT_EQ(second.version, 7u);
    EXPECT_EQ(second.uid, 8u);
    EXPECT_EQ(second.name, nullptr);
    EXPECT_EQ(second.hostid, 9u);

    std::free(g_userNameToFree);
    g_userNameToFree = nullptr;
    g_packetVersion = 0;
}

TEST_F(RegistryStubs, packet_version_1_sends_requests_without_identity) {
    g_packetVersion = 1;
    daemon.Answer("00000001 00000000");
    EXPECT_EQ(RegCloseKey(0x11), ERROR_SUCCESS);
    daemon.Answer("00000001 00000000");
    EXPECT_EQ(RegCloseKey(0x12), ERROR_SUCCESS);
    ASSERT_EQ(daemon.calls.size(), 2u);
    EXPECT_EQ(InHex(daemon.calls[0].argument), "00000011");
    EXPECT_EQ(InHex(daemon.calls[1].argument), "00000012");
    EXPECT_STREQ(g_userData.name, "ann");

    std::free(g_userNameToFree);
    g_userNameToFree = nullptr;
    g_packetVersion = 0;
}
