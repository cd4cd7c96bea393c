/* SPDX-License-Identifier: MIT */
/* Stands in for a part of Zabbix that its service code names and does not use. */
