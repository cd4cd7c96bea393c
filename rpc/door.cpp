// SPDX-License-Identifier: MIT
// door: accepted connections that never block the server loop.
//
// Why: one thread serves everybody. A plain libtirpc connection that sends half a request, or does not read its reply,
// holds that thread for up to 35 seconds or for ever; and svc_run polls every descriptor that it knows, so that a
// thousand idle connections make each call ten times as long.
//
// How: the listener's descriptor number is given to an epoll set that watches the real listening socket and every
// accepted connection. svc_run thus knows one descriptor; when it is ready the library asks the listener's transport
// for a request (DoorReceive), and gets the next whole one of any connection. Arguments and reply of the request in
// hand belong to `present`. Where the door itself waits for requests, the library always has another to ask for, and
// svc_run never gets its turn again (DoorWait).
//
//   bytes arrive     read at most once a turn; a request goes on only when whole (message.h)
//   one request a turn: connections that have some are served in turn, and every 50 microseconds all that are ready
//                    are read from, written to and accepted, so that a connection with many requests waiting does not
//                    keep the others waiting
//   a reply          is sent at once as far as the peer takes it; the rest waits in the connection and goes out as the
//                    peer reads; a peer with much unread gets no further request read
//   a reply is held  it waits, encoded, in one row with all others that are held, until they are released or replaced
//   peer closes      its requests are answered first, then its connection is closed
//
// Bounds (limits.h): maxRequestBytes for one request, maxHeldBytes for all unfinished requests and unread replies
// together, and the descriptor limit less a reserve for the number of connections; the same, of the limit at
// ShareDescriptors, for connections and what the process keeps beside them together. Past a bound the connection that
// has been silent longest makes room; those that never sent a byte go first, but for an eighth of the places, in which
// newcomers have the time to speak. Credentials: AUTH_NONE and whole ones of AUTH_SYS are let through; anything else is
// refused here, before the library looks at it. Thread: the thread of svc_run only.
#include "rpc/door.h"

#include "rpc/codec.h"
#include "rpc/limits.h"
#include "rpc/message.h"
#include "rpc/record.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <type_traits>
#include <utility>

namespace {

constexpr std::size_t keptReplyBytes = std::size_t{1} << 20;  // of the shared buffers between replies
constexpr std::size_t keptInputBytes = std::size_t{64} << 10; // of the buffer that is lent to the next request
constexpr rlim_t reservedDescriptors = 48; // for the listener, service processes, the registry, pipes, the C library
constexpr std::size_t readBytes = std::size_t{64} << 10; // at most, a turn
constexpr std::size_t newcomersShare = 8; // one in so many places is for connections that have not spoken yet
constexpr int eventsPerTurn = 64;
constexpr std::int64_t lookEveryNs = 50'000; // while requests wait: a look costs as much as half a short request
constexpr int acceptsPerTurn = 64;

struct Connection {
    int descriptor;
    sockaddr_in peer;
    MessageInput input;
    char *unread; // malloc memory: the part of the replies that the peer has not taken yet
    std::size_t unreadBytes;
    std::size_t unreadSent;
    std::size_t heldReplies;    // held back by the server
    std::uint32_t awaitedSince; // the release since which it is awaited; 0: it is not
    std::uint32_t watched;      // events asked of epoll
    bool hasSpoken;
    bool inputEnded;
    bool broken;       // to be closed as soon as nobody uses it
    bool isReady;      // stands in the queue of connections that may hold a whole request
    Connection *older; // in the order of silence
    Connection *newer;
    Connection *nextReady;
};

// A reply that the server holds back.
struct HeldReply {
    Connection *connection; // null: it has gone
    std::uint32_t xid;
    DoorSubstitute substitute;
    std::size_t bytes; // of its message
};

// Connections in the order in which they were last heard of.
struct SilenceList {
    Connection *oldest;
    Connection *newest;
};

struct Door {
    DoorAdmits admits;
    DoorTurn turn;
    std::size_t requestBytes; // of one request at most
    int waitMs;               // for events while there is no request: 0, or -1 when the door itself waits
    int epoll;
    int listener;
    std::size_t (*kept)(); // descriptors beside the connections; null where there are none
    void (*giveUp)();
    std::size_t maxDescriptors; // of both together
    int spare;                  // given up to accept, and refuse, a connection when no descriptor is left
    std::size_t connections;
    std::size_t maxConnections;
    std::size_t muteConnections; // never sent a byte
    std::size_t heldBytes;
    SilenceList mute;
    SilenceList spoken;
    Connection *firstReady;
    Connection *lastReady;
    epoll_event events[eventsPerTurn];
    int eventCount;
    int nextEvent;
    std::int64_t lookedNs; // when events were asked for last, by the monotonic clock
    Connection *present;   // whose request is in hand
    std::uint32_t presentXid;
    bool holdsPresent; // the reply of the request in hand is to be held
    DoorSubstitute presentSubstitute;
    XDR arguments;          // over the request in hand
    MessageInput idleInput; // an empty buffer, for the next connection that has none
    MessageOutput reply;
    std::uint32_t substitute; // the number for the substitutes
    std::uint32_t release;    // number of the last time that held replies were sent
    std::size_t awaited;      // peers that had one of them and have not been heard of since
    HeldReply *held;          // malloc memory: the replies held, in the order of their requests
    std::size_t heldCount;
    std::size_t heldCapacity;
    char *heldMessages; // malloc memory: their messages, one behind the other
    std::size_t heldMessageBytes;
    std::size_t heldMessageCapacity;
};

Door door;

// --- the order of silence ---

SilenceList *ListOf(const Connection *connection) { return connection->hasSpoken ? &door.spoken : &door.mute; }

void Unlink(Connection *connection) {
    SilenceList *list = ListOf(connection);
    if (!connection->hasSpoken) --door.muteConnections;
    (connection->older != nullptr ? connection->older->newer : list->oldest) = connection->newer;
    (connection->newer != nullptr ? connection->newer->older : list->newest) = connection->older;
}

void LinkAsNewest(Connection *connection) {
    SilenceList *list = ListOf(connection);
    if (!connection->hasSpoken) ++door.muteConnections;
    connection->older = list->newest;
    connection->newer = nullptr;
    (list->newest != nullptr ? list->newest->newer : list->oldest) = connection;
    list->newest = connection;
}

void NoteHeard(Connection *connection) {
    Unlink(connection);
    connection->hasSpoken = true;
    LinkAsNewest(connection);
}

// --- the queue of connections that may hold a whole request ---

void QueueReady(Connection *connection) {
    if (connection->isReady) return;
    connection->isReady = true;
    connection->nextReady = nullptr;
    (door.lastReady != nullptr ? door.lastReady->nextReady : door.firstReady) = connection;
    door.lastReady = connection;
}

Connection *TakeReady() {
    Connection *connection = door.firstReady;
    if (connection == nullptr) return nullptr;
    door.firstReady = connection->nextReady;
    if (door.firstReady == nullptr) door.lastReady = nullptr;
    connection->isReady = false;
    return connection;
}

void RemoveReady(Connection *connection) {
    if (!connection->isReady) return;
    Connection *before = nullptr;
    for (Connection *at = door.firstReady; at != connection; at = at->nextReady) {
        before = at;
    }
    (before != nullptr ? before->nextReady : door.firstReady) = connection->nextReady;
    if (door.lastReady == connection) door.lastReady = before;
    connection->isReady = false;
}

// --- closing ---

// Events of this turn that name a connection which is no more.
void ForgetEvents(const Connection *connection) {
    for (int i = door.nextEvent; i < door.eventCount; ++i) {
        if (door.events[i].data.ptr == connection) door.events[i].data.ptr = nullptr;
    }
}

std::size_t HeldBytes(const Connection *connection) { return connection->input.capacity + connection->unreadBytes; }

void ForgetHeldReplies(const Connection *connection) {
    for (std::size_t i = 0; i < door.heldCount; ++i) {
        if (door.held[i].connection == connection) door.held[i].connection = nullptr;
    }
}

void AwaitNoMore(Connection *connection) {
    if (connection->awaitedSince != 0 && connection->awaitedSince == door.release) --door.awaited;
    connection->awaitedSince = 0;
}

void CloseConnection(Connection *connection) {
    AwaitNoMore(connection);
    Unlink(connection);
    RemoveReady(connection);
    ForgetHeldReplies(connection);
    ForgetEvents(connection);
    door.heldBytes -= HeldBytes(connection);
    --door.connections;
    // A child that has not come to its exec yet may hold the descriptor too: closing it would leave it in the set.
    (void)epoll_ctl(door.epoll, EPOLL_CTL_DEL, connection->descriptor, nullptr);
    (void)close(connection->descriptor);
    ReleaseInput(&connection->input);
    std::free(connection->unread);
    std::free(connection);
}

// The longest-silent connection of a list that holds at least so many bytes, but never `spared` or the one in hand.
Connection *FindSilent(const SilenceList &list, const Connection *spared, std::size_t holding) {
    for (Connection *connection = list.oldest; connection != nullptr; connection = connection->newer) {
        if (connection != spared && connection != door.present && HeldBytes(connection) >= holding) return connection;
    }
    return nullptr;
}

// Makes room at the expense of the longest-silent connection, as FindSilent has it. False when there is none.
bool CloseSilentConnection(const Connection *spared, std::size_t holding) {
    const bool muteFirst = door.muteConnections > door.maxConnections / newcomersShare;
    Connection *mute = FindSilent(door.mute, spared, holding);
    Connection *spoken = FindSilent(door.spoken, spared, holding);
    Connection *found = mute != nullptr && (muteFirst || spoken == nullptr) ? mute : spoken;
    if (found != nullptr) CloseConnection(found);
    return found != nullptr;
}

// Accounts for a change of what the connection holds. False when the connection itself has to go, since it alone holds
// what is too much.
bool AccountFor(Connection *connection, std::size_t heldBefore) {
    door.heldBytes += HeldBytes(connection) - heldBefore;
    while (door.heldBytes > maxHeldBytes) {
        if (!CloseSilentConnection(connection, 1)) return false;
    }
    return true;
}

// --- what epoll watches ---

bool MayAskMore(const Connection *connection) {
    return connection->unreadBytes - connection->unreadSent <= maxUnreadReplyBytes;
}

void Watch(Connection *connection) {
    std::uint32_t wanted = 0;
    if (!connection->inputEnded && MayAskMore(connection)) wanted |= EPOLLIN;
    if (connection->unread != nullptr) wanted |= EPOLLOUT;
    if (wanted == connection->watched) return;
    epoll_event event = {};
    event.events = wanted;
    event.data.ptr = connection;
    if (epoll_ctl(door.epoll, EPOLL_CTL_MOD, connection->descriptor, &event) != 0) connection->broken = true;
    connection->watched = wanted;
}

// --- accepting ---

bool Register(int descriptor, const sockaddr_in &peer) {
    Connection *connection = static_cast<Connection *>(std::calloc(1, sizeof(Connection)));
    if (connection == nullptr) return false;
    connection->descriptor = descriptor;
    connection->peer = peer;
    connection->watched = EPOLLIN;
    epoll_event event = {};
    event.events = connection->watched;
    event.data.ptr = connection;
    if (epoll_ctl(door.epoll, EPOLL_CTL_ADD, descriptor, &event) != 0) {
        std::free(connection);
        return false;
    }
    const int on = 1;
    (void)setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // slower without it, but not wrong
    LinkAsNewest(connection);
    ++door.connections;
    return true;
}

bool FindLocalAddress(int descriptor, sockaddr_in *local) {
    *local = {};
    socklen_t length = sizeof *local;
    return getsockname(descriptor, reinterpret_cast<sockaddr *>(local), &length) == 0;
}

bool IsAdmitted(int descriptor, const sockaddr_in &peer) {
    sockaddr_in local = {};
    return door.admits == nullptr || (FindLocalAddress(descriptor, &local) && door.admits(peer, local));
}

// No descriptor, or no memory for one, is left: what the process can do without goes, then a silent connection; without
// any, the waiting peer is refused with the spare descriptor, so that it does not wait for ever while the loop turns
// idly.
void MakeRoomToAccept() {
    if (door.kept != nullptr && door.kept() > 0) {
        door.giveUp();
        return;
    }
    if (CloseSilentConnection(nullptr, 0)) return;
    (void)close(door.spare);
    const int refused = accept4(door.listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (refused >= 0) (void)close(refused);
    door.spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// A full descriptor table fails accept even when nobody waits.
bool IsPeerWaiting() {
    pollfd waiting = {door.listener, POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

void AcceptConnections() {
    for (int i = 0; i < acceptsPerTurn; ++i) {
        sockaddr_in peer = {};
        socklen_t length = sizeof peer;
        const int descriptor =
            accept4(door.listener, reinterpret_cast<sockaddr *>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor < 0) {
            const bool passes = errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
            if (!passes && IsPeerWaiting()) MakeRoomToAccept();
            return;
        }
        if (!IsAdmitted(descriptor, peer) || !Register(descriptor, peer)) {
            (void)close(descriptor);
            continue;
        }
        if (door.connections > door.maxConnections) (void)CloseSilentConnection(nullptr, 0);
        GiveUpWhatIsTooMany();
    }
}

// --- bytes in and out ---

void SendUnread(Connection *connection) {
    while (connection->unreadSent < connection->unreadBytes) {
        const ssize_t sent = send(connection->descriptor, connection->unread + connection->unreadSent,
                                  connection->unreadBytes - connection->unreadSent, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) connection->broken = true;
            return;
        }
        connection->unreadSent += static_cast<std::size_t>(sent);
    }
    door.heldBytes -= connection->unreadBytes;
    std::free(connection->unread);
    connection->unread = nullptr;
    connection->unreadBytes = connection->unreadSent = 0;
    if (connection->input.bytes != nullptr) QueueReady(connection); // requests may have waited for this
}

// Forgets what the peer has taken: a peer that reads all the time, but never all there is, would let it pile up.
void DropTaken(Connection *connection) {
    door.heldBytes -= connection->unreadSent;
    connection->unreadBytes -= connection->unreadSent;
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): what was sent is a part of what is there
    std::memmove(connection->unread, connection->unread + connection->unreadSent, connection->unreadBytes);
    connection->unreadSent = 0;
}

// Keeps what the peer did not take.
bool KeepUnread(Connection *connection, const char *bytes, std::size_t count) {
    if (connection->unreadSent != 0) DropTaken(connection);
    const std::size_t held = HeldBytes(connection);
    char *unread = static_cast<char *>(std::realloc(connection->unread, connection->unreadBytes + count));
    if (unread == nullptr) return false;
    std::memcpy(unread + connection->unreadBytes, bytes, count);
    connection->unread = unread;
    connection->unreadBytes += count;
    return AccountFor(connection, held);
}

void SendReply(Connection *connection, const char *bytes, std::size_t count) {
    std::size_t sent = 0;
    while (sent < count && connection->unread == nullptr) {
        const ssize_t now = send(connection->descriptor, bytes + sent, count - sent, MSG_NOSIGNAL);
        if (now < 0 && errno == EINTR) continue;
        if (now < 0 && errno != EAGAIN) {
            connection->broken = true;
            return;
        }
        if (now < 0) break;
        sent += static_cast<std::size_t>(now);
    }
    if (sent < count && !KeepUnread(connection, bytes + sent, count - sent)) connection->broken = true;
}

// --- replies held back ---

template <typename Element>
bool Reserve(Element *&elements, std::size_t count, std::size_t *capacity) {
    if (count <= *capacity) return true;
    const std::size_t wanted = std::max(count, *capacity * 2);
    Element *grown = static_cast<Element *>(std::realloc(elements, wanted * sizeof(Element)));
    if (grown == nullptr) return false;
    elements = grown;
    *capacity = wanted;
    return true;
}

bool KeepHeld(Connection *connection, DoorSubstitute substitute, const MessageOutput &reply) {
    if (!Reserve(door.held, door.heldCount + 1, &door.heldCapacity) ||
        !Reserve(door.heldMessages, door.heldMessageBytes + reply.size, &door.heldMessageCapacity)) {
        return false;
    }
    std::memcpy(door.heldMessages + door.heldMessageBytes, reply.bytes, reply.size);
    door.heldMessageBytes += reply.size;
    door.held[door.heldCount++] = {connection, door.presentXid, substitute, reply.size};
    ++connection->heldReplies;
    return true;
}

// The reply to the request in hand, which has been encoded.
void SendOrHold(Connection *connection) {
    if (!door.holdsPresent && connection->heldReplies == 0) {
        SendReply(connection, door.reply.bytes, door.reply.size);
    } else if (!KeepHeld(connection, door.holdsPresent ? door.presentSubstitute : nullptr, door.reply)) {
        connection->broken = true; // no memory: sent now, it would tell what is not certain yet, or come out of turn
    }
}

// There may be many connections, nearly all of them waiting: a buffer stays with one only while it holds something.
void LendInput(MessageInput *input) {
    if (input->bytes == nullptr) std::swap(*input, door.idleInput);
}

void ReturnInput(MessageInput *input) {
    if (input->received != 0) return;
    if (door.idleInput.bytes == nullptr && input->capacity <= keptInputBytes) {
        std::swap(*input, door.idleInput);
    } else {
        ReleaseInput(input);
    }
}

// Takes bytes. Returns their number, 0 at the end of the input, -1 when there are none now or the connection is broken.
ssize_t Receive(Connection *connection) {
    const std::size_t held = HeldBytes(connection);
    MessageInput *input = &connection->input;
    LendInput(input);
    const std::size_t room = std::min(MakeRoom(input), readBytes);
    ssize_t got = -1;
    if (room != 0) got = recv(connection->descriptor, input->bytes + input->received, room, 0);
    if (got < 0 && (room == 0 || (errno != EAGAIN && errno != EINTR))) connection->broken = true;
    if (got > 0) input->received += static_cast<std::size_t>(got);
    if (!AccountFor(connection, held)) connection->broken = true;
    return got;
}

// Reads once: a connection that sends much has its turn again after the others.
void ReadBytes(Connection *connection) {
    const ssize_t got = Receive(connection);
    if (got == 0) connection->inputEnded = true;
    if (got <= 0) return;
    NoteHeard(connection);
    QueueReady(connection);
}

// Closes the connection when it is of no further use, else has epoll watch what it waits for now.
void Settle(Connection *connection) {
    if (!connection->broken) Watch(connection);
    const bool owes = connection->unread != nullptr || connection->heldReplies != 0;
    const bool done = connection->inputEnded && !connection->isReady && !owes;
    if (connection->broken || done) CloseConnection(connection);
}

void HandleEvent(const epoll_event &event) {
    Connection *connection = static_cast<Connection *>(event.data.ptr);
    if (connection == nullptr) return;
    if ((event.events & EPOLLOUT) != 0) SendUnread(connection);
    if (connection->isReady) return; // no more is read, and no end seen, before what has come is answered
    const bool reads = (connection->watched & EPOLLIN) != 0;
    if (reads && (event.events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) ReadBytes(connection);
    if (!reads && (event.events & (EPOLLERR | EPOLLHUP)) != 0) connection->broken = true;
    Settle(connection);
}

// Replies of one connection that lie one behind the other go out together.
void SendHeldMessages() {
    const char *message = door.heldMessages;
    for (std::size_t next = 0; next < door.heldCount;) {
        Connection *connection = door.held[next].connection;
        std::size_t bytes = 0, replies = 0;
        for (; next < door.heldCount && door.held[next].connection == connection; ++next, ++replies) {
            bytes += door.held[next].bytes;
        }
        if (connection != nullptr) {
            connection->heldReplies -= replies;
            if (!connection->broken) SendReply(connection, message, bytes);
        }
        message += bytes;
    }
}

bool_t CodeSubstitute(XDR *xdrs, HeldReply *held) { return held->substitute(xdrs, &door.substitute); }

// Writes the message that is answered in place of a held reply into the shared reply. False when it cannot be encoded.
bool EncodeSubstitute(HeldReply *held) {
    rpc_msg message = {};
    message.rm_xid = held->xid;
    message.rm_direction = REPLY;
    message.rm_reply.rp_stat = MSG_ACCEPTED;
    message.acpted_rply.ar_verf = _null_auth;
    message.acpted_rply.ar_stat = SUCCESS;
    message.acpted_rply.ar_results.where = reinterpret_cast<char *>(held);
    message.acpted_rply.ar_results.proc = Untyped(CodeSubstitute);
    XDR xdrs;
    return BeginMessage(&door.reply, &xdrs) && xdr_replymsg(&xdrs, &message) && FinishMessage(&door.reply);
}

void SendSubstitutes() {
    const char *message = door.heldMessages;
    for (HeldReply *held = door.held; held != door.held + door.heldCount; message += held++->bytes) {
        Connection *connection = held->connection;
        if (connection == nullptr) continue;
        --connection->heldReplies;
        if (held->substitute == nullptr) {
            SendReply(connection, message, held->bytes);
        } else if (EncodeSubstitute(held)) {
            SendReply(connection, door.reply.bytes, door.reply.size);
        } else {
            connection->broken = true;
        }
    }
}

void Await(Connection *connection) {
    if (connection->awaitedSince == door.release) return;
    connection->awaitedSince = door.release;
    ++door.awaited;
}

// What the connections wait for has changed; the one whose request is in hand is settled when that ends.
void SettleHeld() {
    if (++door.release == 0) ++door.release;
    door.awaited = 0;
    for (std::size_t i = 0; i < door.heldCount; ++i) {
        Connection *connection = door.held[i].connection;
        if (connection != nullptr) Await(connection);
        if (connection != nullptr && connection != door.present) Settle(connection);
    }
    door.heldCount = door.heldMessageBytes = 0;
    if (door.heldMessageCapacity <= keptReplyBytes) return;
    std::free(door.heldMessages);
    door.heldMessages = nullptr;
    door.heldMessageCapacity = 0;
}

std::int64_t NowNs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool IsLookDue() { return door.firstReady == nullptr || NowNs() - door.lookedNs >= lookEveryNs; }

// Everything that is ready, once. Waits where that is the door's own to do.
void HandleEvents() {
    const int waitMs = door.firstReady != nullptr || door.heldCount != 0 ? 0 : door.waitMs;
    door.eventCount = std::max(epoll_wait(door.epoll, door.events, eventsPerTurn, waitMs), 0);
    door.lookedNs = NowNs();
    for (door.nextEvent = 0; door.nextEvent < door.eventCount;) {
        const epoll_event event = door.events[door.nextEvent++];
        if (event.data.ptr == &door) {
            AcceptConnections();
        } else {
            HandleEvent(event);
        }
    }
}

// Has the server do what its requests share, waiting for more of them where it wants to.
void TakeTurn() {
    if (door.turn == nullptr) return;
    for (int waitUs = 1; waitUs > 0;) {
        const bool isTooMuch = door.heldMessageBytes > maxHeldReplyBytes;
        const DoorMoment moment = isTooMuch                    ? DoorMoment::TooMuchHeld
                                  : door.firstReady != nullptr ? DoorMoment::MoreToServe
                                                               : DoorMoment::Idle;
        waitUs = door.turn(moment);
        if (moment != DoorMoment::Idle || waitUs <= 0) return;
        pollfd events = {door.epoll, POLLIN, 0};
        const timespec timeout = {waitUs / 1'000'000, waitUs % 1'000'000 * 1000L};
        if (ppoll(&events, 1, &timeout, nullptr) > 0) HandleEvents();
    }
}

// --- requests ---

// Whether an AUTH_SYS credential (RFC 5531, appendix A: stamp, machine name, user, group, further groups) is one that
// the library takes. More bytes than it needs are no fault.
bool IsSystemCredentialWhole(const opaque_auth &credential) {
    const std::size_t bytes = credential.oa_length;
    std::size_t needed = std::size_t{5} * BYTES_PER_XDR_UNIT;
    if (bytes < needed) return false;
    const std::uint32_t nameBytes = WordAt(credential.oa_base + BYTES_PER_XDR_UNIT);
    if (nameBytes > MAX_MACHINE_NAME) return false;
    needed += RNDUP(nameBytes);
    if (bytes < needed) return false;
    const std::uint32_t groups = WordAt(credential.oa_base + needed - BYTES_PER_XDR_UNIT);
    return groups <= NGRPS && bytes >= needed + groups * std::size_t{BYTES_PER_XDR_UNIT};
}

// What the library must not see: a flavour that it would ask other machines about, and a credential whose refusal it
// tells with a line on standard output, which nobody may be reading.
auth_stat CheckCredential(const opaque_auth &credential) {
    if (credential.oa_flavor == AUTH_NONE) return AUTH_OK;
    if (credential.oa_flavor != AUTH_SYS) return AUTH_REJECTEDCRED;
    return IsSystemCredentialWhole(credential) ? AUTH_OK : AUTH_BADCRED;
}

// Takes the request that the connection holds in hand. False when it holds no whole one, or one that is no request.
bool TakeRequest(Connection *connection, rpc_msg *message) {
    MessageInput *input = &connection->input;
    const MessageState state = AssembleMessage(input, door.requestBytes);
    if (state == MessageState::Incomplete) return false;
    if (state == MessageState::Whole) {
        xdrmem_create(&door.arguments, input->bytes + input->begin, static_cast<u_int>(input->end - input->begin),
                      XDR_DECODE);
        if (xdr_callmsg(&door.arguments, message)) {
            AwaitNoMore(connection);
            door.present = connection;
            door.presentXid = message->rm_xid;
            door.holdsPresent = false;
            return true;
        }
    }
    connection->broken = true;
    return false;
}

// Ends the request in hand. What its connection received behind it waits for its next turn.
void EndRequest() {
    Connection *connection = door.present;
    if (connection == nullptr) return;
    door.present = nullptr;
    door.heldBytes -= connection->input.capacity;
    DropMessage(&connection->input);
    ReturnInput(&connection->input);
    door.heldBytes += connection->input.capacity;
    if (connection->input.bytes != nullptr && MayAskMore(connection)) QueueReady(connection);
    Settle(connection);
}

bool TakeNextRequest(rpc_msg *message) {
    while (Connection *connection = TakeReady()) {
        if (TakeRequest(connection, message)) return true;
        Settle(connection);
    }
    return false;
}

// --- the operations of the transport, as the library calls them ---

// Gives the next whole request of any connection, each in its turn.
bool_t DoorReceive(SVCXPRT *transport, rpc_msg *message) {
    if (IsLookDue()) HandleEvents();
    TakeTurn();
    if (!TakeNextRequest(message)) return FALSE;
    transport->xp_rtaddr.buf = &door.present->peer;
    transport->xp_rtaddr.len = transport->xp_rtaddr.maxlen = sizeof door.present->peer;
    const auth_stat refusal = CheckCredential(message->rm_call.cb_cred);
    if (refusal == AUTH_OK) return TRUE;
    svcerr_auth(transport, refusal);
    return FALSE;
}

// Called after each request, which ends here. Whether the library is to ask for another before its loop waits again:
// where several connections were ready at once there are probably more by now; where it was one, a look is in vain.
xprt_stat DoorState(SVCXPRT * /*transport*/) {
    EndRequest();
    const bool asksAgain = door.waitMs != 0 || door.firstReady != nullptr || door.heldCount != 0 || door.eventCount > 1;
    return asksAgain ? XPRT_MOREREQS : XPRT_IDLE;
}

bool_t DoorGetArguments(SVCXPRT * /*transport*/, xdrproc_t codeArguments, void *arguments) {
    return codeArguments(&door.arguments, arguments);
}

bool_t DoorFreeArguments(SVCXPRT * /*transport*/, xdrproc_t codeArguments, void *arguments) {
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    return codeArguments(&xdrs, arguments);
}

// False only when the reply cannot be encoded, so that the dispatcher can answer with an error instead: nothing of it
// has been sent then. A peer that is gone is no failure of the reply.
bool_t DoorReply(SVCXPRT * /*transport*/, rpc_msg *message) {
    message->rm_xid = door.presentXid;
    XDR xdrs;
    const bool encoded = BeginMessage(&door.reply, &xdrs) && xdr_replymsg(&xdrs, message) && FinishMessage(&door.reply);
    if (encoded && !door.present->broken) SendOrHold(door.present);
    if (door.reply.capacity > keptReplyBytes) ReleaseOutput(&door.reply);
    return encoded ? TRUE : FALSE;
}

void DoorDestroy(SVCXPRT * /*transport*/) {} // it lives as long as the process

std::remove_pointer_t<decltype(SVCXPRT::xp_ops)> doorOps = {
    .xp_recv = DoorReceive,
    .xp_stat = DoorState,
    .xp_getargs = DoorGetArguments,
    .xp_reply = DoorReply,
    .xp_freeargs = DoorFreeArguments,
    .xp_destroy = DoorDestroy,
};

// --- opening ---

std::size_t ConnectionLimit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= 2 * reservedDescriptors) return reservedDescriptors;
    return static_cast<std::size_t>(limit.rlim_cur - reservedDescriptors);
}

bool PrepareDescriptors(int listenerNumber) {
    door.listener = fcntl(listenerNumber, F_DUPFD_CLOEXEC, 3);
    door.epoll = epoll_create1(EPOLL_CLOEXEC);
    door.spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (door.listener < 0 || door.epoll < 0 || door.spare < 0) return false;
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = &door;
    if (fcntl(door.listener, F_SETFL, O_NONBLOCK) != 0 ||
        epoll_ctl(door.epoll, EPOLL_CTL_ADD, door.listener, &event) != 0 ||
        dup3(door.epoll, listenerNumber, O_CLOEXEC) < 0) {
        return false;
    }
    (void)close(door.epoll);
    door.epoll = listenerNumber;
    return true;
}

} // namespace

bool OpenDoor(SVCXPRT *listener, DoorAdmits admits, DoorWait wait, DoorTurn turn, std::size_t requestBytes) {
    door.admits = admits;
    door.turn = turn;
    door.requestBytes = requestBytes;
    door.waitMs = wait == DoorWait::Inside ? -1 : 0;
    door.maxConnections = ConnectionLimit();
    if (!PrepareDescriptors(listener->xp_fd)) {
        for (const int descriptor : {door.listener, door.epoll, door.spare}) {
            if (descriptor >= 0) (void)close(descriptor);
        }
        return false;
    }
    listener->xp_ops = &doorOps;
    return true;
}

void ShareDescriptors(std::size_t (*kept)(), void (*giveUp)()) {
    door.kept = kept;
    door.giveUp = giveUp;
    door.maxDescriptors = ConnectionLimit();
}

void GiveUpWhatIsTooMany() {
    while (door.kept != nullptr && door.kept() > 0 && door.connections + door.kept() > door.maxDescriptors) {
        door.giveUp();
    }
}

bool AddressesOfRequest(sockaddr_in *peer, sockaddr_in *local) {
    *peer = door.present->peer;
    return FindLocalAddress(door.present->descriptor, local);
}

void HoldReply(DoorSubstitute substitute) {
    door.holdsPresent = true;
    door.presentSubstitute = substitute;
}

void ReleaseReplies() {
    SendHeldMessages();
    SettleHeld();
}

std::size_t PeersAwaited() { return door.awaited; }

void ReplaceReplies(std::uint32_t number) {
    door.substitute = number;
    SendSubstitutes();
    SettleHeld();
}

bool IsLocalPeer(const sockaddr_in &peer, const sockaddr_in &local) {
    return ntohl(peer.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET || peer.sin_addr.s_addr == local.sin_addr.s_addr;
}

// The door's set stands for the listener and all connections: there is nothing else that the library could wait for.
bool ServeNextRequests(int wake, const sigset_t *waitingMask, int timeoutMs) {
    pollfd waited[] = {{door.epoll, POLLIN, 0}, {wake, POLLIN, 0}};
    const timespec timeout = {timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
    (void)ppoll(waited, std::size(waited), timeoutMs >= 0 ? &timeout : nullptr, waitingMask);
    if (waited[1].revents != 0) return false;
    if (waited[0].revents != 0) svc_getreq_poll(waited, 1);
    return true;
}
