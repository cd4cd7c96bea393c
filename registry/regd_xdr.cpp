// SPDX-License-Identifier: MIT
// regd_xdr: the routines of the registry daemon's records: the fields in wire order.
#include "registry/regd_xdr.h"

#include "util/ktl_strings.h"

std::int32_t g_packetVersion = 0;
char *g_userNameToFree = nullptr;

static bool_t CodeField(XDR *xdrs, regd_USER_DATA &user) { return xdr_regd_USER_DATA(xdrs, &user); }

static bool_t CodeField(XDR *xdrs, regd_FILETIME &time) { return CodeFields(xdrs, time.low, time.high); }

static bool_t CodeField(XDR *xdrs, regd_SECURITY_ATTR &attributes) {
    return CodeFields(xdrs, attributes.length, attributes.inheritHandle);
}

// Any discriminant other than 1 has no body. The client reads the body without asking, so it stays as it was.
template <typename Union, typename Body>
static bool_t CodeUnion(XDR *xdrs, Union *record, bool_t (*codeBody)(XDR *, Body *)) {
    if (!CodeField(xdrs, record->discriminant)) return FALSE;
    return record->discriminant == 1 ? codeBody(xdrs, &record->body) : TRUE;
}

// Packet version 1 sends no identity. Deliberate: only the first record gets the defaults, later ones keep whatever
// their memory held.
bool_t xdr_regd_USER_DATA(XDR *xdrs, regd_USER_DATA *record) {
    if (g_packetVersion == 1) {
        if (g_userNameToFree == nullptr) {
            g_userNameToFree = _ktl_strdup(".Default");
            *record = {30000, 123456, g_userNameToFree, 123456};
        }
        return TRUE;
    }
    return CodeFields(xdrs, record->version, record->uid, record->name, record->hostid);
}

bool_t xdr_regd_FILETIME(XDR *xdrs, regd_FILETIME *record) { return CodeField(xdrs, *record); }

bool_t xdr_regd_SECURITY_ATTR(XDR *xdrs, regd_SECURITY_ATTR *record) { return CodeField(xdrs, *record); }

bool_t xdr_regd_REGSAM(XDR *xdrs, regd_REGSAM *record) {
    return CodeFields(xdrs, record->first, record->second, record->third);
}

bool_t xdr_regd_REG_CLOSE_KEY(XDR *xdrs, regd_REG_CLOSE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key);
}

bool_t xdr_regd_REG_CREATE_KEY(XDR *xdrs, regd_REG_CREATE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->subKeyIsNull);
}

bool_t xdr_regd_REG_CREATE_KEY_EX(XDR *xdrs, regd_REG_CREATE_KEY_EX *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->keyClass, record->options,
                      record->subKeyIsNull, record->classIsNull);
}

bool_t xdr_regd_REG_DELETE_KEY(XDR *xdrs, regd_REG_DELETE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey);
}

bool_t xdr_regd_REG_DELETE_VALUE(XDR *xdrs, regd_REG_DELETE_VALUE *record) {
    return CodeFields(xdrs, record->user, record->key, record->valueName, record->nameIsNull);
}

bool_t xdr_regd_REG_ENUM_KEY(XDR *xdrs, regd_REG_ENUM_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->index, record->nameBytes);
}

bool_t xdr_regd_REG_ENUM_KEY_EX(XDR *xdrs, regd_REG_ENUM_KEY_EX *record) {
    return CodeFields(xdrs, record->user, record->key, record->index, record->nameBytes, record->classBytes);
}

bool_t xdr_regd_REG_ENUM_VALUE(XDR *xdrs, regd_REG_ENUM_VALUE *record) {
    return CodeFields(xdrs, record->user, record->key, record->index, record->nameBytes, record->dataBytes);
}

bool_t xdr_regd_REG_FLUSH_KEY(XDR *xdrs, regd_REG_FLUSH_KEY *record) {
    return CodeFields(xdrs, record->user, record->key);
}

bool_t xdr_regd_REG_GET_KEY_SEC(XDR *xdrs, regd_REG_GET_KEY_SEC *record) {
    return CodeFields(xdrs, record->user, record->key, record->securityInformation, record->descriptorBytes);
}

bool_t xdr_regd_REG_LOAD_KEY(XDR *xdrs, regd_REG_LOAD_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->file);
}

bool_t xdr_regd_REG_NOTIFY_CHANGE_KEY_VALUE(XDR *xdrs, regd_REG_NOTIFY_CHANGE_KEY_VALUE *record) {
    return CodeFields(xdrs, record->user, record->key, record->watchSubtree, record->notifyFilter, record->event,
                      record->asynchronous);
}

bool_t xdr_regd_REG_OPEN_KEY(XDR *xdrs, regd_REG_OPEN_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey);
}

bool_t xdr_regd_REG_OPEN_KEY_EX(XDR *xdrs, regd_REG_OPEN_KEY_EX *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->options, record->subKeyIsNull);
}

bool_t xdr_regd_REG_QUERY_INFO_KEY(XDR *xdrs, regd_REG_QUERY_INFO_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->classBytes);
}

bool_t xdr_regd_REG_QUERY_VALUE(XDR *xdrs, regd_REG_QUERY_VALUE *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->dataBytes, record->subKeyIsNull,
                      record->dataIsNull);
}

bool_t xdr_regd_REG_QUERY_VALUE_EX(XDR *xdrs, regd_REG_QUERY_VALUE_EX *record) {
    return CodeFields(xdrs, record->user, record->key, record->valueName, record->dataBytes, record->nameIsNull,
                      record->dataIsNull);
}

bool_t xdr_regd_REG_REPLACE_KEY(XDR *xdrs, regd_REG_REPLACE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->newFile, record->oldFile);
}

bool_t xdr_regd_REG_RESTORE_KEY(XDR *xdrs, regd_REG_RESTORE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->file, record->flags);
}

bool_t xdr_regd_REG_SAVE_KEY(XDR *xdrs, regd_REG_SAVE_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->file, record->securityAttributes);
}

bool_t xdr_regd_REG_SET_KEY_SEC(XDR *xdrs, regd_REG_SET_KEY_SEC *record) {
    return CodeFields(xdrs, record->user, record->key, record->securityInformation, record->descriptorBytes);
}

bool_t xdr_regd_REG_SET_VALUE(XDR *xdrs, regd_REG_SET_VALUE *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey, record->type, record->data, record->dataBytes,
                      record->subKeyIsNull);
}

bool_t xdr_regd_REG_SET_VALUE_EX(XDR *xdrs, regd_REG_SET_VALUE_EX *record) {
    return CodeFields(xdrs, record->user, record->key, record->valueName, record->type, record->data, record->dataBytes,
                      record->nameIsNull);
}

bool_t xdr_regd_REG_UNLOAD_KEY(XDR *xdrs, regd_REG_UNLOAD_KEY *record) {
    return CodeFields(xdrs, record->user, record->key, record->subKey);
}

bool_t xdr_regd_REG_PING_DAEMON(XDR *xdrs, regd_REG_PING_DAEMON *record) {
    return CodeFields(xdrs, record->user, record->processId, record->mode);
}

bool_t xdr_regd_REG_QUERY_VERSION(XDR *xdrs, regd_REG_QUERY_VERSION *record) { return CodeFields(xdrs, record->user); }

bool_t xdr_regd_BASIC_RETURN(XDR *xdrs, regd_BASIC_RETURN *record) { return CodeFields(xdrs, record->status); }

bool_t xdr_regd_BASIC_RES(XDR *xdrs, regd_BASIC_RES *record) { return CodeUnion(xdrs, record, xdr_regd_BASIC_RETURN); }

bool_t xdr_regd_REG_CREATE_KEY_RETURN(XDR *xdrs, regd_REG_CREATE_KEY_RETURN *record) {
    return CodeFields(xdrs, record->status, record->key, record->disposition);
}

bool_t xdr_regd_REG_CREATE_KEY_RES(XDR *xdrs, regd_REG_CREATE_KEY_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_CREATE_KEY_RETURN);
}

bool_t xdr_regd_REG_OPEN_KEY_RETURN(XDR *xdrs, regd_REG_OPEN_KEY_RETURN *record) {
    return CodeFields(xdrs, record->status, record->key);
}

bool_t xdr_regd_REG_OPEN_KEY_RES(XDR *xdrs, regd_REG_OPEN_KEY_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_OPEN_KEY_RETURN);
}

bool_t xdr_regd_REG_ENUM_KEY_RETURN(XDR *xdrs, regd_REG_ENUM_KEY_RETURN *record) {
    return CodeFields(xdrs, record->status, record->name, record->nameLength, record->keyClass, record->classLength,
                      record->lastWriteTime);
}

bool_t xdr_regd_REG_ENUM_KEY_RES(XDR *xdrs, regd_REG_ENUM_KEY_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_ENUM_KEY_RETURN);
}

bool_t xdr_regd_REG_ENUM_VALUE_RETURN(XDR *xdrs, regd_REG_ENUM_VALUE_RETURN *record) {
    return CodeFields(xdrs, record->status, record->name, record->nameLength, record->type, record->data,
                      record->dataBytes);
}

bool_t xdr_regd_REG_ENUM_VALUE_RES(XDR *xdrs, regd_REG_ENUM_VALUE_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_ENUM_VALUE_RETURN);
}

bool_t xdr_regd_REG_GET_KEY_SEC_RETURN(XDR *xdrs, regd_REG_GET_KEY_SEC_RETURN *record) {
    return CodeFields(xdrs, record->status, record->descriptor, record->descriptorBytes);
}

bool_t xdr_regd_REG_GET_KEY_SEC_RES(XDR *xdrs, regd_REG_GET_KEY_SEC_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_GET_KEY_SEC_RETURN);
}

bool_t xdr_regd_REG_QUERY_INFO_KEY_RETURN(XDR *xdrs, regd_REG_QUERY_INFO_KEY_RETURN *record) {
    return CodeFields(xdrs, record->status, record->keyClass, record->classLength, record->reserved, record->subKeys,
                      record->maxSubKeyLength, record->maxClassLength, record->values, record->maxValueNameLength,
                      record->maxValueBytes, record->securityDescriptorBytes, record->lastWriteTime,
                      record->classIsNull);
}

bool_t xdr_regd_REG_QUERY_INFO_KEY_RES(XDR *xdrs, regd_REG_QUERY_INFO_KEY_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_QUERY_INFO_KEY_RETURN);
}

bool_t xdr_regd_REG_QUERY_VALUE_RETURN(XDR *xdrs, regd_REG_QUERY_VALUE_RETURN *record) {
    return CodeFields(xdrs, record->status, record->type, record->data, record->dataBytes);
}

bool_t xdr_regd_REG_QUERY_VALUE_RES(XDR *xdrs, regd_REG_QUERY_VALUE_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_QUERY_VALUE_RETURN);
}

bool_t xdr_regd_REG_QUERY_VERSION_RETURN(XDR *xdrs, regd_REG_QUERY_VERSION_RETURN *record) {
    return CodeFields(xdrs, record->status, record->major, record->minor, record->patch);
}

bool_t xdr_regd_REG_QUERY_VERSION_RES(XDR *xdrs, regd_REG_QUERY_VERSION_RES *record) {
    return CodeUnion(xdrs, record, xdr_regd_REG_QUERY_VERSION_RETURN);
}
