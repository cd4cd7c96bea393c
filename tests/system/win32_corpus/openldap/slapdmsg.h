/* SPDX-License-Identifier: MIT */
/* Numbers of messages. */
#define MSG_SVC_STARTED 0x40000001u
#define MSG_SVC_STOPPED 0x40000002u
