// SPDX-License-Identifier: MIT
// regd_clnt: the client stubs of the registry daemon's protocol, one a procedure.
//
// Each sends its argument and returns the stub's own static result, valid until its next call, or null when the call
// failed. The caller releases what was decoded with xdr_free. A result whose discriminant is not 1 has a body of zeros.
// Blocks for as long as the time-out rule below allows.
// Thread: under tvRegistryMutex only; results and time-out are shared and unguarded.
#pragma once

#include "registry/regd_xdr.h"

// The time-out of a call, shared by all stubs: 25 s in a fresh process. A call that times out adds 25 s for good and is
// repeated while the sum is at most 180 s: seven attempts at 25 to 175 s the first time; at 200 s and more a call is
// attempted once. Deliberate: the time-out grows for the life of the process and is never set back.
extern timeval TIMEOUT;

regd_BASIC_RES *reg_close_key_2(regd_REG_CLOSE_KEY *argument, CLIENT *client);
regd_REG_CREATE_KEY_RES *reg_create_key_2(regd_REG_CREATE_KEY *argument, CLIENT *client);
regd_REG_CREATE_KEY_RES *reg_create_key_ex_2(regd_REG_CREATE_KEY_EX *argument, CLIENT *client);
regd_BASIC_RES *reg_delete_key_2(regd_REG_DELETE_KEY *argument, CLIENT *client);
regd_BASIC_RES *reg_delete_value_2(regd_REG_DELETE_VALUE *argument, CLIENT *client);
regd_REG_ENUM_KEY_RES *reg_enum_key_2(regd_REG_ENUM_KEY *argument, CLIENT *client);
regd_REG_ENUM_KEY_RES *reg_enum_key_ex_2(regd_REG_ENUM_KEY_EX *argument, CLIENT *client);
regd_REG_ENUM_VALUE_RES *reg_enum_value_2(regd_REG_ENUM_VALUE *argument, CLIENT *client);
regd_BASIC_RES *reg_flush_key_2(regd_REG_FLUSH_KEY *argument, CLIENT *client);
regd_REG_GET_KEY_SEC_RES *reg_get_key_security_2(regd_REG_GET_KEY_SEC *argument, CLIENT *client);
regd_BASIC_RES *reg_load_key_2(regd_REG_LOAD_KEY *argument, CLIENT *client);
regd_BASIC_RES *reg_notify_change_key_value_2(regd_REG_NOTIFY_CHANGE_KEY_VALUE *argument, CLIENT *client);
regd_REG_OPEN_KEY_RES *reg_open_key_2(regd_REG_OPEN_KEY *argument, CLIENT *client);
regd_REG_OPEN_KEY_RES *reg_open_key_ex_2(regd_REG_OPEN_KEY_EX *argument, CLIENT *client);
regd_REG_QUERY_INFO_KEY_RES *reg_query_info_key_2(regd_REG_QUERY_INFO_KEY *argument, CLIENT *client);
regd_REG_QUERY_VALUE_RES *reg_query_value_2(regd_REG_QUERY_VALUE *argument, CLIENT *client);
regd_REG_QUERY_VALUE_RES *reg_query_value_ex_2(regd_REG_QUERY_VALUE_EX *argument, CLIENT *client);
regd_BASIC_RES *reg_replace_key_2(regd_REG_REPLACE_KEY *argument, CLIENT *client);
regd_BASIC_RES *reg_restore_key_2(regd_REG_RESTORE_KEY *argument, CLIENT *client);
regd_BASIC_RES *reg_save_key_2(regd_REG_SAVE_KEY *argument, CLIENT *client);
regd_BASIC_RES *reg_set_key_security_2(regd_REG_SET_KEY_SEC *argument, CLIENT *client);
regd_BASIC_RES *reg_set_value_2(regd_REG_SET_VALUE *argument, CLIENT *client);
regd_BASIC_RES *reg_set_value_ex_2(regd_REG_SET_VALUE_EX *argument, CLIENT *client);
regd_BASIC_RES *reg_unload_key_2(regd_REG_UNLOAD_KEY *argument, CLIENT *client);
regd_REG_QUERY_VERSION_RES *reg_query_version_2(regd_REG_QUERY_VERSION *argument, CLIENT *client);
regd_BASIC_RES *reg_ping_daemon_2(regd_REG_PING_DAEMON *argument, CLIENT *client);
