// SPDX-License-Identifier: MIT
// handlers: the answers to the daemon's procedures, one for each.
#pragma once

#include "servd/servd_xdr.h"

// The argument is borrowed for the call; the request is not looked at. Returns a static reply, valid until the next
// call of the same handler, which releases what it owns; null sends no reply.

servd_SERV_CONNECT_SERVICE_RETURN *serv_connect_service_1(servd_SERV_CONNECT_SERVICE *argument, svc_req *request);
servd_SERV_CREATE_SERVICE_RETURN *serv_create_service_1(servd_SERV_CREATE_SERVICE *argument, svc_req *request);
servd_SERV_OPEN_SERVICE_RETURN *serv_open_service_1(servd_SERV_OPEN_SERVICE *argument, svc_req *request);
servd_SERV_DELETE_SERVICE_RETURN *serv_delete_service_1(servd_SERV_DELETE_SERVICE *argument, svc_req *request);
servd_SERV_CLOSE_SERVICE_RETURN *serv_close_service_1(servd_SERV_CLOSE_SERVICE *argument, svc_req *request);
servd_SERV_LOCK_SERVICE_RETURN *serv_lock_service_1(servd_SERV_LOCK_SERVICE *argument, svc_req *request);
servd_SERV_UNLOCK_SERVICE_RETURN *serv_unlock_service_1(servd_SERV_UNLOCK_SERVICE *argument, svc_req *request);
servd_SERV_QUERY_LOCK_SERVICE_RETURN *serv_query_lock_service_1(servd_SERV_QUERY_LOCK_SERVICE *argument,
                                                                svc_req *request);
servd_SERV_START_SERVICE_RETURN *serv_start_service_1(servd_SERV_START_SERVICE *argument, svc_req *request);
servd_SERV_CONTROL_SERVICE_RETURN *serv_control_service_1(servd_SERV_CONTROL_SERVICE *argument, svc_req *request);
servd_SERV_SET_STATUS_SERVICE_RETURN *serv_set_status_service_1(servd_SERV_SET_STATUS_SERVICE *argument,
                                                                svc_req *request);
servd_SERV_DUMMY_RETURN *serv_dummy_service_1(servd_SERV_DUMMY *argument, svc_req *request);
servd_SERV_QUERY_STATUS_SERVICE_RETURN *serv_query_status_service_1(servd_SERV_QUERY_STATUS_SERVICE *argument,
                                                                    svc_req *request);
servd_SERV_ENUM_STATUS_SERVICE_RETURN *serv_enum_status_service_1(servd_SERV_ENUM_STATUS_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_GET_DISPLAY_SERVICE_RETURN *serv_get_display_service_1(servd_SERV_GET_DISPLAY_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_GET_KEY_SERVICE_RETURN *serv_get_key_service_1(servd_SERV_GET_KEY_SERVICE *argument, svc_req *request);
servd_SERV_ENUM_DEPEND_SERVICE_RETURN *serv_enum_depend_service_1(servd_SERV_ENUM_DEPEND_SERVICE *argument,
                                                                  svc_req *request);
servd_SERV_QUERY_CONFIG_SERVICE_RETURN *serv_query_config_service_1(servd_SERV_QUERY_CONFIG_SERVICE *argument,
                                                                    svc_req *request);
servd_SERV_CHANGE_CONFIG_SERVICE_RETURN *serv_change_config_service_1(servd_SERV_CHANGE_CONFIG_SERVICE *argument,
                                                                      svc_req *request);
servd_STOP_DAEMON_SERVICE_RETURN *serv_stop_daemon_service_1(servd_STOP_DAEMON_SERVICE *argument, svc_req *request);
