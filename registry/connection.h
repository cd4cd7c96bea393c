// SPDX-License-Identifier: MIT
// connection: the connections to registry daemons, and who we are to them.
//
// Thread: under tvRegistryMutex only (tvpthread.h).
#pragma once

#include "registry/regd_xdr.h"
#include "tv/winreg.h"

// A connection in a slot of clntArray. The slot number stands in bits 20 to 27 of every key of that connection.
//
//   state       event                                  next state
//   no entry    an operation, or RegConnectRegistry    connected (or no entry, when it fails)
//   connected   send or receive fails                  broken: the client is null, host name and slot are kept
//   broken      next operation on the slot             connected (or broken, when it fails)
//   any         tear-down                              no entry
struct RegistryConnectionEntry {
    char *hostName; // heap copy; null for the local daemon in slot 0
    CLIENT *client; // null when broken
};

extern RegistryConnectionEntry **clntArray; // by client number, null when free; null before the first connection
extern int connectionSlots;                 // slots that clntArray has room for
extern int numConnections;                  // connections made since the table was last emptied
extern int nextClientNum;                   // client number of the next remote connection
extern int connectionTableDestroyed;        // 1 after a tear-down: nothing is connected any more

constexpr std::uint32_t tarvoVersion = 6; // our own protocol level
extern regd_USER_DATA g_userData;         // who we are; filled on the first connection attempt
extern int userDataSet;                   // 1 once g_userData is filled

constexpr HKEY clientNumberBits = 0x0FF00000;

// A daemon's key as the caller gets it: with the number of its connection.
constexpr HKEY WithClientNumber(HKEY key, int clientNumber) {
    return (static_cast<HKEY>(clientNumber) << 20 & clientNumberBits) | key;
}

// Gives the connection that a key belongs to, making it when there is none: address, handshake, ping with mode 0.
//   host        the machine of a new connection, null for the local daemon; not looked at when the slot is taken
//   key         on return without its client number, as the daemon knows it
//   clientNum   on return the number of the connection; left alone on failure
// Returns the connection's client handle, borrowed; null when there is none. Blocks while connecting.
[[nodiscard]] CLIENT *tvConnectRegistryDaemon(const char *host, HKEY *key, int *clientNum);

// To be called when a call over a connection brought no reply. A connection that broke (as opposed to a daemon that
// is silent, or an answer that made no sense) is closed and keeps its slot for the next operation to connect anew.
void DropConnectionIfBroken(int clientNum);

// Closes the entry's connection, where it has one; the entry keeps its slot.
void CloseConnection(RegistryConnectionEntry *entry);

// Leaves a table without connections behind. What the old one held is not released and not told.
void ForgetConnections();
