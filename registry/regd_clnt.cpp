// SPDX-License-Identifier: MIT
// regd_clnt: one call to the registry daemon, its answer in a static result.
#include "registry/regd_clnt.h"

timeval TIMEOUT = {25, 0};

namespace {

constexpr time_t TIMEOUTSTEP = 25; // seconds
constexpr time_t retryLimitSec = 180;

template <typename Argument, typename Result>
Result *CallRegd(CLIENT *client, RegdProcedure procedure, bool_t (*codeArgument)(XDR *, Argument *), Argument *argument,
                 bool_t (*codeResult)(XDR *, Result *), Result *result) {
    *result = {};
    for (;;) {
        const clnt_stat status = clnt_call(client, procedure, reinterpret_cast<xdrproc_t>(codeArgument), argument,
                                           reinterpret_cast<xdrproc_t>(codeResult), result, TIMEOUT);
        if (status == RPC_SUCCESS) return result;
        xdr_free(reinterpret_cast<xdrproc_t>(codeResult), result); // what an undecodable reply has left
        if (status != RPC_TIMEDOUT) return nullptr;
        TIMEOUT.tv_sec += TIMEOUTSTEP;
        if (TIMEOUT.tv_sec > retryLimitSec) return nullptr;
    }
}

} // namespace

regd_BASIC_RES *reg_close_key_2(regd_REG_CLOSE_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_CLOSE_KEY, xdr_regd_REG_CLOSE_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_REG_CREATE_KEY_RES *reg_create_key_2(regd_REG_CREATE_KEY *argument, CLIENT *client) {
    static regd_REG_CREATE_KEY_RES res;
    return CallRegd(client, REG_CREATE_KEY, xdr_regd_REG_CREATE_KEY, argument, xdr_regd_REG_CREATE_KEY_RES, &res);
}

regd_REG_CREATE_KEY_RES *reg_create_key_ex_2(regd_REG_CREATE_KEY_EX *argument, CLIENT *client) {
    static regd_REG_CREATE_KEY_RES res;
    return CallRegd(client, REG_CREATE_KEY_EX, xdr_regd_REG_CREATE_KEY_EX, argument, xdr_regd_REG_CREATE_KEY_RES, &res);
}

regd_BASIC_RES *reg_delete_key_2(regd_REG_DELETE_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_DELETE_KEY, xdr_regd_REG_DELETE_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_delete_value_2(regd_REG_DELETE_VALUE *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_DELETE_VALUE, xdr_regd_REG_DELETE_VALUE, argument, xdr_regd_BASIC_RES, &res);
}

regd_REG_ENUM_KEY_RES *reg_enum_key_2(regd_REG_ENUM_KEY *argument, CLIENT *client) {
    static regd_REG_ENUM_KEY_RES res;
    return CallRegd(client, REG_ENUM_KEY, xdr_regd_REG_ENUM_KEY, argument, xdr_regd_REG_ENUM_KEY_RES, &res);
}

regd_REG_ENUM_KEY_RES *reg_enum_key_ex_2(regd_REG_ENUM_KEY_EX *argument, CLIENT *client) {
    static regd_REG_ENUM_KEY_RES res;
    return CallRegd(client, REG_ENUM_KEY_EX, xdr_regd_REG_ENUM_KEY_EX, argument, xdr_regd_REG_ENUM_KEY_RES, &res);
}

regd_REG_ENUM_VALUE_RES *reg_enum_value_2(regd_REG_ENUM_VALUE *argument, CLIENT *client) {
    static regd_REG_ENUM_VALUE_RES res;
    return CallRegd(client, REG_ENUM_VALUE, xdr_regd_REG_ENUM_VALUE, argument, xdr_regd_REG_ENUM_VALUE_RES, &res);
}

regd_BASIC_RES *reg_flush_key_2(regd_REG_FLUSH_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_FLUSH_KEY, xdr_regd_REG_FLUSH_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_REG_GET_KEY_SEC_RES *reg_get_key_security_2(regd_REG_GET_KEY_SEC *argument, CLIENT *client) {
    static regd_REG_GET_KEY_SEC_RES res;
    return CallRegd(client, REG_GET_KEY_SECURITY, xdr_regd_REG_GET_KEY_SEC, argument, xdr_regd_REG_GET_KEY_SEC_RES,
                    &res);
}

regd_BASIC_RES *reg_load_key_2(regd_REG_LOAD_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_LOAD_KEY, xdr_regd_REG_LOAD_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_notify_change_key_value_2(regd_REG_NOTIFY_CHANGE_KEY_VALUE *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_NOTIFY_CHANGE_KEY_VALUE, xdr_regd_REG_NOTIFY_CHANGE_KEY_VALUE, argument,
                    xdr_regd_BASIC_RES, &res);
}

regd_REG_OPEN_KEY_RES *reg_open_key_2(regd_REG_OPEN_KEY *argument, CLIENT *client) {
    static regd_REG_OPEN_KEY_RES res;
    return CallRegd(client, REG_OPEN_KEY, xdr_regd_REG_OPEN_KEY, argument, xdr_regd_REG_OPEN_KEY_RES, &res);
}

regd_REG_OPEN_KEY_RES *reg_open_key_ex_2(regd_REG_OPEN_KEY_EX *argument, CLIENT *client) {
    static regd_REG_OPEN_KEY_RES res;
    return CallRegd(client, REG_OPEN_KEY_EX, xdr_regd_REG_OPEN_KEY_EX, argument, xdr_regd_REG_OPEN_KEY_RES, &res);
}

regd_REG_QUERY_INFO_KEY_RES *reg_query_info_key_2(regd_REG_QUERY_INFO_KEY *argument, CLIENT *client) {
    static regd_REG_QUERY_INFO_KEY_RES res;
    return CallRegd(client, REG_QUERY_INFO_KEY, xdr_regd_REG_QUERY_INFO_KEY, argument, xdr_regd_REG_QUERY_INFO_KEY_RES,
                    &res);
}

regd_REG_QUERY_VALUE_RES *reg_query_value_2(regd_REG_QUERY_VALUE *argument, CLIENT *client) {
    static regd_REG_QUERY_VALUE_RES res;
    return CallRegd(client, REG_QUERY_VALUE, xdr_regd_REG_QUERY_VALUE, argument, xdr_regd_REG_QUERY_VALUE_RES, &res);
}

regd_REG_QUERY_VALUE_RES *reg_query_value_ex_2(regd_REG_QUERY_VALUE_EX *argument, CLIENT *client) {
    static regd_REG_QUERY_VALUE_RES res;
    return CallRegd(client, REG_QUERY_VALUE_EX, xdr_regd_REG_QUERY_VALUE_EX, argument, xdr_regd_REG_QUERY_VALUE_RES,
                    &res);
}

regd_BASIC_RES *reg_replace_key_2(regd_REG_REPLACE_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_REPLACE_KEY, xdr_regd_REG_REPLACE_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_restore_key_2(regd_REG_RESTORE_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_RESTORE_KEY, xdr_regd_REG_RESTORE_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_save_key_2(regd_REG_SAVE_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_SAVE_KEY, xdr_regd_REG_SAVE_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_set_key_security_2(regd_REG_SET_KEY_SEC *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_SET_KEY_SECURITY, xdr_regd_REG_SET_KEY_SEC, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_set_value_2(regd_REG_SET_VALUE *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_SET_VALUE, xdr_regd_REG_SET_VALUE, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_set_value_ex_2(regd_REG_SET_VALUE_EX *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_SET_VALUE_EX, xdr_regd_REG_SET_VALUE_EX, argument, xdr_regd_BASIC_RES, &res);
}

regd_BASIC_RES *reg_unload_key_2(regd_REG_UNLOAD_KEY *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_UNLOAD_KEY, xdr_regd_REG_UNLOAD_KEY, argument, xdr_regd_BASIC_RES, &res);
}

regd_REG_QUERY_VERSION_RES *reg_query_version_2(regd_REG_QUERY_VERSION *argument, CLIENT *client) {
    static regd_REG_QUERY_VERSION_RES res;
    return CallRegd(client, REG_QUERY_VERSION, xdr_regd_REG_QUERY_VERSION, argument, xdr_regd_REG_QUERY_VERSION_RES,
                    &res);
}

regd_BASIC_RES *reg_ping_daemon_2(regd_REG_PING_DAEMON *argument, CLIENT *client) {
    static regd_BASIC_RES res;
    return CallRegd(client, REG_PING_DAEMON, xdr_regd_REG_PING_DAEMON, argument, xdr_regd_BASIC_RES, &res);
}
