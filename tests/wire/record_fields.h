// SPDX-License-Identifier: MIT
// record_fields: the named fields of every record, for our own records and for those that rpcgen generates from
// protocol/ (same names after the prefix oracle_).
//
// VisitFields(record, visit) calls visit(field) for each field in wire order. A union's body is visited when its
// discriminant is 1. Of a link, `next` is not visited: a list is one field of the record that holds its head.
#pragma once

#include "tests/support/records.h"

#define clientVersion version // "version" is a keyword of rpcgen
#include "oracle_regd.h"
#include "oracle_servd.h"
#include "oracle_service.h"
#undef clientVersion

#define TV_FIELDS_OF(Record, ...)                                                                                      \
    template <typename Visit>                                                                                          \
    void VisitFields(Record &r, Visit &v) {                                                                            \
        __VA_ARGS__;                                                                                                   \
    }
#define TV_FIELDS(Record, ...)                                                                                         \
    TV_FIELDS_OF(Record, __VA_ARGS__)                                                                                  \
    TV_FIELDS_OF(oracle_##Record, __VA_ARGS__)
#define TV_UNION(Record)                                                                                               \
    template <typename Visit>                                                                                          \
    void VisitFields(Record &r, Visit &v) {                                                                            \
        v(r.discriminant);                                                                                             \
        if (r.discriminant == 1) v(r.body);                                                                            \
    }                                                                                                                  \
    template <typename Visit>                                                                                          \
    void VisitFields(oracle_##Record &r, Visit &v) {                                                                   \
        v(r.discriminant);                                                                                             \
        if (r.discriminant == 1) v(r.oracle_##Record##_u.body);                                                        \
    }

// clang-format off
// service daemon
TV_FIELDS(svd_arglist_t, v(r.arg))
TV_FIELDS(svd_status_t, v(r.dwServiceType), v(r.dwCurrentState), v(r.dwControlsAccepted), v(r.dwWin32ExitCode), v(r.dwServiceSpecificExitCode), v(r.dwCheckPoint), v(r.dwWaitHint))
TV_FIELDS(svd_enum_status_list_t, v(r.name), v(r.displayName), v(r.status))
TV_FIELDS(servd_SERV_CONNECT_SERVICE, v(r.machineName))
TV_FIELDS(servd_SERV_CONNECT_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_CREATE_SERVICE, v(r.name), v(r.displayName), v(r.serviceType), v(r.startType), v(r.errorControl), v(r.imagePath), v(r.group), v(r.dependencies), v(r.account), v(r.tagWanted))
TV_FIELDS(servd_SERV_CREATE_SERVICE_RETURN, v(r.status), v(r.handle), v(r.tag))
TV_FIELDS(servd_SERV_OPEN_SERVICE, v(r.name), v(r.desiredAccess))
TV_FIELDS(servd_SERV_OPEN_SERVICE_RETURN, v(r.status), v(r.handle))
TV_FIELDS(servd_SERV_DELETE_SERVICE, v(r.handle))
TV_FIELDS(servd_SERV_DELETE_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_CLOSE_SERVICE, v(r.handle))
TV_FIELDS(servd_SERV_CLOSE_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_LOCK_SERVICE, v(r.lockId), v(r.owner))
TV_FIELDS(servd_SERV_LOCK_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_UNLOCK_SERVICE, v(r.lockId))
TV_FIELDS(servd_SERV_UNLOCK_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_QUERY_LOCK_SERVICE, v(r.unused))
TV_FIELDS(servd_SERV_QUERY_LOCK_SERVICE_RETURN, v(r.status), v(r.isLocked), v(r.owner), v(r.lockDurationSec))
TV_FIELDS(servd_SERV_START_SERVICE, v(r.handle), v(r.arglist), v(r.argc))
TV_FIELDS(servd_SERV_START_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_CONTROL_SERVICE, v(r.handle), v(r.control))
TV_FIELDS(servd_SERV_CONTROL_SERVICE_RETURN, v(r.status), v(r.serviceStatus))
TV_FIELDS(servd_SERV_SET_STATUS_SERVICE, v(r.handle), v(r.serviceStatus))
TV_FIELDS(servd_SERV_SET_STATUS_SERVICE_RETURN, v(r.status))
TV_FIELDS(servd_SERV_DUMMY, v(r.dummy))
TV_FIELDS(servd_SERV_DUMMY_RETURN, v(r.dummy))
TV_FIELDS(servd_SERV_QUERY_STATUS_SERVICE, v(r.handle))
TV_FIELDS(servd_SERV_QUERY_STATUS_SERVICE_RETURN, v(r.status), v(r.serviceStatus))
TV_FIELDS(servd_SERV_ENUM_STATUS_SERVICE, v(r.resumeIndex), v(r.typeFilter), v(r.stateFilter), v(r.bufferBytes))
TV_FIELDS(servd_SERV_ENUM_STATUS_SERVICE_RETURN, v(r.status), v(r.bytesNeeded), v(r.servicesReturned), v(r.resumeIndex), v(r.services))
TV_FIELDS(servd_SERV_GET_DISPLAY_SERVICE, v(r.name))
TV_FIELDS(servd_SERV_GET_DISPLAY_SERVICE_RETURN, v(r.status), v(r.displayName))
TV_FIELDS(servd_SERV_GET_KEY_SERVICE, v(r.displayName))
TV_FIELDS(servd_SERV_GET_KEY_SERVICE_RETURN, v(r.status), v(r.name))
TV_FIELDS(servd_SERV_ENUM_DEPEND_SERVICE, v(r.handle), v(r.stateFilter), v(r.bufferBytes))
TV_FIELDS(servd_SERV_ENUM_DEPEND_SERVICE_RETURN, v(r.status), v(r.bytesNeeded), v(r.servicesReturned), v(r.services))
TV_FIELDS(servd_SERV_QUERY_CONFIG_SERVICE, v(r.handle))
TV_FIELDS(servd_SERV_QUERY_CONFIG_SERVICE_RETURN, v(r.status), v(r.serviceType), v(r.startType), v(r.errorControl), v(r.imagePath), v(r.group), v(r.tag), v(r.dependencies), v(r.account), v(r.displayName))
TV_FIELDS(servd_SERV_CHANGE_CONFIG_SERVICE, v(r.handle), v(r.serviceType), v(r.startType), v(r.errorControl), v(r.imagePath), v(r.group), v(r.dependencies), v(r.account), v(r.password), v(r.displayName), v(r.tagWanted))
TV_FIELDS(servd_SERV_CHANGE_CONFIG_SERVICE_RETURN, v(r.status), v(r.tag))
TV_FIELDS(servd_STOP_DAEMON_SERVICE, v(r.unused))
TV_FIELDS(servd_STOP_DAEMON_SERVICE_RETURN, v(r.unused))

// service process; its links and its status are the service daemon's in our records
TV_FIELDS_OF(oracle_svc_arglist_t, v(r.arg))
TV_FIELDS_OF(oracle_svc_status_t, v(r.dwServiceType), v(r.dwCurrentState), v(r.dwControlsAccepted), v(r.dwWin32ExitCode), v(r.dwServiceSpecificExitCode), v(r.dwCheckPoint), v(r.dwWaitHint))
TV_FIELDS(service_START_SERVICE_IN, v(r.servicename), v(r.arglist), v(r.argc), v(r.serviceindex))
TV_FIELDS(service_START_SERVICE_OUT, v(r.status), v(r.servicecontext))
TV_FIELDS(service_CONTROL_SERVICE_IN, v(r.servicecontext), v(r.control))
TV_FIELDS(service_CONTROL_SERVICE_OUT, v(r.status), v(r.svcstatus))
TV_FIELDS(service_DUMMY_IN, v(r.dummy))
TV_FIELDS(service_DUMMY_OUT, v(r.dummy))

// registry daemon
TV_FIELDS(regd_USER_DATA, v(r.version), v(r.uid), v(r.name), v(r.hostid))
TV_FIELDS(regd_FILETIME, v(r.low), v(r.high))
TV_FIELDS(regd_SECURITY_ATTR, v(r.length), v(r.inheritHandle))
TV_FIELDS(regd_REGSAM, v(r.first), v(r.second), v(r.third))
TV_FIELDS(regd_REG_CLOSE_KEY, v(r.user), v(r.key))
TV_FIELDS(regd_REG_CREATE_KEY, v(r.user), v(r.key), v(r.subKey), v(r.subKeyIsNull))
TV_FIELDS(regd_REG_CREATE_KEY_EX, v(r.user), v(r.key), v(r.subKey), v(r.keyClass), v(r.options), v(r.subKeyIsNull), v(r.classIsNull))
TV_FIELDS(regd_REG_DELETE_KEY, v(r.user), v(r.key), v(r.subKey))
TV_FIELDS(regd_REG_DELETE_VALUE, v(r.user), v(r.key), v(r.valueName), v(r.nameIsNull))
TV_FIELDS(regd_REG_ENUM_KEY, v(r.user), v(r.key), v(r.index), v(r.nameBytes))
TV_FIELDS(regd_REG_ENUM_KEY_EX, v(r.user), v(r.key), v(r.index), v(r.nameBytes), v(r.classBytes))
TV_FIELDS(regd_REG_ENUM_VALUE, v(r.user), v(r.key), v(r.index), v(r.nameBytes), v(r.dataBytes))
TV_FIELDS(regd_REG_FLUSH_KEY, v(r.user), v(r.key))
TV_FIELDS(regd_REG_GET_KEY_SEC, v(r.user), v(r.key), v(r.securityInformation), v(r.descriptorBytes))
TV_FIELDS(regd_REG_LOAD_KEY, v(r.user), v(r.key), v(r.subKey), v(r.file))
TV_FIELDS(regd_REG_NOTIFY_CHANGE_KEY_VALUE, v(r.user), v(r.key), v(r.watchSubtree), v(r.notifyFilter), v(r.event), v(r.asynchronous))
TV_FIELDS(regd_REG_OPEN_KEY, v(r.user), v(r.key), v(r.subKey))
TV_FIELDS(regd_REG_OPEN_KEY_EX, v(r.user), v(r.key), v(r.subKey), v(r.options), v(r.subKeyIsNull))
TV_FIELDS(regd_REG_QUERY_INFO_KEY, v(r.user), v(r.key), v(r.classBytes))
TV_FIELDS(regd_REG_QUERY_VALUE, v(r.user), v(r.key), v(r.subKey), v(r.dataBytes), v(r.subKeyIsNull), v(r.dataIsNull))
TV_FIELDS(regd_REG_QUERY_VALUE_EX, v(r.user), v(r.key), v(r.valueName), v(r.dataBytes), v(r.nameIsNull), v(r.dataIsNull))
TV_FIELDS(regd_REG_REPLACE_KEY, v(r.user), v(r.key), v(r.subKey), v(r.newFile), v(r.oldFile))
TV_FIELDS(regd_REG_RESTORE_KEY, v(r.user), v(r.key), v(r.file), v(r.flags))
TV_FIELDS(regd_REG_SAVE_KEY, v(r.user), v(r.key), v(r.file), v(r.securityAttributes))
TV_FIELDS(regd_REG_SET_KEY_SEC, v(r.user), v(r.key), v(r.securityInformation), v(r.descriptorBytes))
TV_FIELDS(regd_REG_SET_VALUE, v(r.user), v(r.key), v(r.subKey), v(r.type), v(r.data), v(r.dataBytes), v(r.subKeyIsNull))
TV_FIELDS(regd_REG_SET_VALUE_EX, v(r.user), v(r.key), v(r.valueName), v(r.type), v(r.data), v(r.dataBytes), v(r.nameIsNull))
TV_FIELDS(regd_REG_UNLOAD_KEY, v(r.user), v(r.key), v(r.subKey))
TV_FIELDS(regd_REG_PING_DAEMON, v(r.user), v(r.processId), v(r.mode))
TV_FIELDS(regd_REG_QUERY_VERSION, v(r.user))
TV_FIELDS(regd_BASIC_RETURN, v(r.status))
TV_UNION(regd_BASIC_RES)
TV_FIELDS(regd_REG_CREATE_KEY_RETURN, v(r.status), v(r.key), v(r.disposition))
TV_UNION(regd_REG_CREATE_KEY_RES)
TV_FIELDS(regd_REG_OPEN_KEY_RETURN, v(r.status), v(r.key))
TV_UNION(regd_REG_OPEN_KEY_RES)
TV_FIELDS(regd_REG_ENUM_KEY_RETURN, v(r.status), v(r.name), v(r.nameLength), v(r.keyClass), v(r.classLength), v(r.lastWriteTime))
TV_UNION(regd_REG_ENUM_KEY_RES)
TV_FIELDS(regd_REG_ENUM_VALUE_RETURN, v(r.status), v(r.name), v(r.nameLength), v(r.type), v(r.data), v(r.dataBytes))
TV_UNION(regd_REG_ENUM_VALUE_RES)
TV_FIELDS(regd_REG_GET_KEY_SEC_RETURN, v(r.status), v(r.descriptor), v(r.descriptorBytes))
TV_UNION(regd_REG_GET_KEY_SEC_RES)
TV_FIELDS(regd_REG_QUERY_INFO_KEY_RETURN, v(r.status), v(r.keyClass), v(r.classLength), v(r.reserved), v(r.subKeys), v(r.maxSubKeyLength), v(r.maxClassLength), v(r.values), v(r.maxValueNameLength), v(r.maxValueBytes), v(r.securityDescriptorBytes), v(r.lastWriteTime), v(r.classIsNull))
TV_UNION(regd_REG_QUERY_INFO_KEY_RES)
TV_FIELDS(regd_REG_QUERY_VALUE_RETURN, v(r.status), v(r.type), v(r.data), v(r.dataBytes))
TV_UNION(regd_REG_QUERY_VALUE_RES)
TV_FIELDS(regd_REG_QUERY_VERSION_RETURN, v(r.status), v(r.major), v(r.minor), v(r.patch))
TV_UNION(regd_REG_QUERY_VERSION_RES)

// clang-format on
#undef TV_FIELDS
#undef TV_FIELDS_OF
#undef TV_UNION
