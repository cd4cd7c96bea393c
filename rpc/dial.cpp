// SPDX-License-Identifier: MIT
// dial: client handles over TCP whose every wait is bounded.
//
// A handle is one record: the CLIENT that libtirpc's macros know, the connection, and what has been received on it.
// Its sockets are non-blocking and close-on-exec; sends raise no SIGPIPE. A connection on which something went wrong in
// the middle of a message is lost: it is shut down, and later calls fail at once.
// Thread: a handle serves one call at a time; nothing is shared between handles.
#include "rpc/dial.h"

#include "rpc/message.h"
#include "rpc/record.h"
#include "util/monotonic_ms.h"

#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <rpc/pmap_prot.h>
#include <rpc/rpcb_prot.h>
#include <strings.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// Between calls, so that a call need not allocate: the answer to one piece of a long list.
constexpr std::size_t keptInputBytes = std::size_t{512} << 10;

using Milliseconds = std::int64_t; // a moment on the monotonic clock

struct Connection {
    CLIENT client;
    int descriptor;
    sockaddr_in server;
    std::uint32_t program;
    std::uint32_t version;
    std::uint32_t xid;           // of the last call
    std::uint32_t callsTimedOut; // in a row: their answers may still come
    std::size_t replyLimit;      // in bytes
    bool lost;
    rpc_err error; // of the last call
    MessageInput input;
    MessageOutput output;
};

Connection *ConnectionOf(CLIENT *client) { return static_cast<Connection *>(client->cl_private); }

// What a step may take: its own bound, or what is left of a budget that ends earlier.
int Within(int boundMs, Milliseconds budgetEnd) {
    return static_cast<int>(std::clamp<Milliseconds>(budgetEnd - MonotonicMs(), 0, boundMs));
}

Milliseconds After(const timeval &wait) {
    return MonotonicMs() + Milliseconds{wait.tv_sec} * 1000 + wait.tv_usec / 1000;
}

// Waits until the descriptor is ready for `events`. False once the deadline has passed, ready or not: a peer that is
// always ready, with a byte at a time, must not outlast it.
bool WaitFor(int descriptor, short events, Milliseconds deadline) {
    for (Milliseconds left = deadline - MonotonicMs(); left > 0; left = deadline - MonotonicMs()) {
        pollfd waiting = {descriptor, events, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(left));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
    return false;
}

clnt_stat Fail(Connection *connection, clnt_stat status, int systemError) {
    connection->error.re_status = status;
    connection->error.re_errno = systemError;
    return status;
}

clnt_stat Lose(Connection *connection, clnt_stat status, int systemError) {
    connection->lost = true;
    (void)shutdown(connection->descriptor, SHUT_RDWR);
    return Fail(connection, status, systemError);
}

// --- one call ---

bool EncodeCall(Connection *connection, rpcproc_t procedure, xdrproc_t codeArguments, void *arguments) {
    XDR xdrs;
    if (!BeginMessage(&connection->output, &xdrs)) return false;
    rpc_msg call = {};
    call.rm_xid = ++connection->xid;
    call.rm_direction = CALL;
    call.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    call.rm_call.cb_prog = connection->program;
    call.rm_call.cb_vers = connection->version;
    u_int32_t number = procedure;
    AUTH *auth = connection->client.cl_auth;
    return xdr_callhdr(&xdrs, &call) && xdr_u_int32_t(&xdrs, &number) && AUTH_MARSHALL(auth, &xdrs) &&
           AUTH_WRAP(auth, &xdrs, codeArguments, static_cast<caddr_t>(arguments)) && FinishMessage(&connection->output);
}

// Sends the whole message. Returns 0 or the system error.
int SendMessage(Connection *connection, Milliseconds deadline) {
    const MessageOutput &output = connection->output;
    for (std::size_t sent = 0; sent < output.size;) {
        const ssize_t now = send(connection->descriptor, output.bytes + sent, output.size - sent, MSG_NOSIGNAL);
        if (now >= 0) {
            sent += static_cast<std::size_t>(now);
        } else if (errno == EAGAIN) {
            if (!WaitFor(connection->descriptor, POLLOUT, deadline)) return ETIMEDOUT;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Receives until a whole message is there. *heard tells whether any byte came. Returns 0 or the system error.
int ReceiveMessage(Connection *connection, Milliseconds deadline, bool *heard) {
    MessageInput *input = &connection->input;
    for (;;) {
        const MessageState state = AssembleMessage(input, connection->replyLimit);
        if (state == MessageState::Whole) return 0;
        if (state == MessageState::TooLong) return EMSGSIZE;
        const std::size_t room = MakeRoom(input);
        if (room == 0) return ENOMEM;
        if (!WaitFor(connection->descriptor, POLLIN, deadline)) return ETIMEDOUT;
        const ssize_t now = recv(connection->descriptor, input->bytes + input->received, room, 0);
        if (now == 0) return ECONNRESET;
        if (now > 0) {
            input->received += static_cast<std::size_t>(now);
            *heard = true;
        } else if (errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
}

// How many calls ago the message's call was made: 0 for the present one.
std::uint32_t CallsAgo(const Connection *connection) {
    const MessageInput &input = connection->input;
    if (input.end - input.begin < sizeof connection->xid) return UINT32_MAX;
    return connection->xid - WordAt(input.bytes + input.begin);
}

clnt_stat DecodeReply(Connection *connection, xdrproc_t codeResults, void *results) {
    const MessageInput &input = connection->input;
    XDR xdrs;
    xdrmem_create(&xdrs, input.bytes + input.begin, static_cast<u_int>(input.end - input.begin), XDR_DECODE);
    rpc_msg reply = {};
    char verifier[MAX_AUTH_BYTES];
    reply.acpted_rply.ar_verf.oa_base = verifier; // else the library allocates it, and loses it when decoding fails
    reply.acpted_rply.ar_results.proc = RoutineOf<Nothing>();
    if (!xdr_replymsg(&xdrs, &reply)) return Fail(connection, RPC_CANTDECODERES, EIO);
    _seterr_reply(&reply, &connection->error);
    if (connection->error.re_status == RPC_SUCCESS) {
        AUTH *auth = connection->client.cl_auth;
        if (!AUTH_VALIDATE(auth, &reply.acpted_rply.ar_verf)) {
            connection->error.re_status = RPC_AUTHERROR;
            connection->error.re_why = AUTH_INVALIDRESP;
        } else if (!AUTH_UNWRAP(auth, &xdrs, codeResults, static_cast<caddr_t>(results))) {
            connection->error.re_status = RPC_CANTDECODERES;
        }
    }
    return connection->error.re_status;
}

clnt_stat Send(Connection *connection, rpcproc_t procedure, xdrproc_t codeArguments, void *arguments,
               Milliseconds deadline) {
    connection->error = {};
    if (connection->lost) return Fail(connection, RPC_CANTSEND, EPIPE);
    if (!EncodeCall(connection, procedure, codeArguments, arguments)) {
        return Fail(connection, RPC_CANTENCODEARGS, 0);
    }
    const int sendError = SendMessage(connection, deadline);
    return sendError == 0 ? RPC_SUCCESS : Lose(connection, RPC_CANTSEND, sendError);
}

clnt_stat DecodeAndDrop(Connection *connection, xdrproc_t codeResults, void *results) {
    const clnt_stat status = DecodeReply(connection, codeResults, results);
    DropMessage(&connection->input);
    if (connection->input.capacity > keptInputBytes) ReleaseIfEmpty(&connection->input);
    return status;
}

clnt_stat Call(CLIENT *client, rpcproc_t procedure, xdrproc_t codeArguments, void *arguments, xdrproc_t codeResults,
               void *results, timeval timeout) {
    Connection *connection = ConnectionOf(client);
    const Milliseconds deadline = After(timeout);
    const clnt_stat sent = Send(connection, procedure, codeArguments, arguments, deadline);
    if (sent != RPC_SUCCESS) return sent;
    for (bool heard = false;;) {
        const int receiveError = ReceiveMessage(connection, deadline, &heard);
        if (receiveError == ETIMEDOUT && !heard) {
            ++connection->callsTimedOut;
            return Fail(connection, RPC_TIMEDOUT, 0);
        }
        if (receiveError != 0) return Lose(connection, RPC_CANTRECV, receiveError);
        const std::uint32_t callsAgo = CallsAgo(connection);
        if (callsAgo == 0) break;
        // An answer to a call that timed out earlier is the mark of a slow peer, not of a broken one.
        if (callsAgo <= connection->callsTimedOut) heard = false;
        DropMessage(&connection->input);
    }
    connection->callsTimedOut = 0;
    return DecodeAndDrop(connection, codeResults, results);
}

// --- the other operations of a handle ---

void Abort(CLIENT * /*client*/) {}

void GetError(CLIENT *client, rpc_err *error) { *error = ConnectionOf(client)->error; }

bool_t FreeResults(CLIENT * /*client*/, xdrproc_t codeResults, void *results) {
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    return codeResults(&xdrs, results);
}

void Destroy(CLIENT *client) {
    Connection *connection = ConnectionOf(client);
    (void)close(connection->descriptor);
    ReleaseInput(&connection->input);
    ReleaseOutput(&connection->output);
    AUTH_DESTROY(client->cl_auth);
    std::free(connection);
}

bool_t Control(CLIENT *client, u_int request, void *info) {
    Connection *connection = ConnectionOf(client);
    switch (request) {
    case CLGET_FD: *static_cast<int *>(info) = connection->descriptor; return TRUE;
    case CLGET_SERVER_ADDR: std::memcpy(info, &connection->server, sizeof connection->server); return TRUE;
    default: return FALSE;
    }
}

CLIENT::clnt_ops connectionOps = {
    .cl_call = Call,
    .cl_abort = Abort,
    .cl_geterr = GetError,
    .cl_freeres = FreeResults,
    .cl_destroy = Destroy,
    .cl_control = Control,
};

char netid[] = "tcp";
char device[] = "-";

// Transaction ids begin anywhere, so that two processes with one connection each do not answer each other's calls.
std::uint32_t FirstXid() {
    std::uint32_t xid = 0;
    if (getrandom(&xid, sizeof xid, GRND_NONBLOCK) != sizeof xid) xid = static_cast<std::uint32_t>(MonotonicMs());
    return xid;
}

CLIENT *NewHandle(int descriptor, const sockaddr_in &server, std::uint32_t program, std::uint32_t version) {
    Connection *connection = static_cast<Connection *>(std::calloc(1, sizeof(Connection)));
    if (connection == nullptr) return nullptr;
    connection->client.cl_auth = authnone_create();
    connection->client.cl_ops = &connectionOps;
    connection->client.cl_private = connection;
    connection->client.cl_netid = netid;
    connection->client.cl_tp = device;
    connection->descriptor = descriptor;
    connection->server = server;
    connection->program = program;
    connection->version = version;
    connection->xid = FirstXid();
    connection->replyLimit = maxReplyBytes;
    return &connection->client;
}

// --- connecting ---

constexpr int streamSocket = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;

// On failure errno tells why.
bool Connect(int descriptor, const sockaddr *server, socklen_t bytes, int timeoutMs) {
    if (connect(descriptor, server, bytes) == 0) return true;
    if (errno != EINPROGRESS && errno != EINTR) return false;
    int error = ETIMEDOUT;
    socklen_t length = sizeof error;
    if (WaitFor(descriptor, POLLOUT, MonotonicMs() + timeoutMs)) {
        (void)getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
    }
    errno = error;
    return error == 0;
}

void SendWithoutDelay(int descriptor) {
    const int on = 1;
    (void)setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // slower without it, but not wrong
}

// Takes the socket over, -1 for none.
CLIENT *DialPortFrom(int descriptor, in_addr address, std::uint16_t port, std::uint32_t program, std::uint32_t version,
                     int budgetMs) {
    if (descriptor < 0) return nullptr;
    DescriptorGuard guard(&descriptor);
    const int timeoutMs = std::min(budgetMs, connectTimeoutMs);
    errno = ETIMEDOUT;
    if (timeoutMs <= 0) return nullptr;
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr = address;
    if (!Connect(descriptor, reinterpret_cast<const sockaddr *>(&server), sizeof server, timeoutMs)) return nullptr;
    SendWithoutDelay(descriptor);
    CLIENT *client = NewHandle(descriptor, server, program, version);
    if (client != nullptr) (void)guard.release();
    return client;
}

// A listener whose queue is full is not waited for (EAGAIN).
CLIENT *DialPortMapperLocally(int budgetMs) {
    errno = ETIMEDOUT;
    if (budgetMs <= 0) return nullptr;
    int descriptor = socket(AF_UNIX, streamSocket, 0);
    if (descriptor < 0) return nullptr;
    DescriptorGuard guard(&descriptor);
    const sockaddr_un local = {AF_UNIX, _PATH_RPCBINDSOCK};
    if (!Connect(descriptor, reinterpret_cast<const sockaddr *>(&local), sizeof local, budgetMs)) return nullptr;
    CLIENT *client = NewHandle(descriptor, {}, RPCBPROG, RPCBVERS);
    if (client != nullptr) (void)guard.release();
    return client;
}

// From a port that only root can have, where the caller can have one.
CLIENT *DialPortMapperAsRoot(int budgetMs) {
    const int descriptor = socket(AF_INET, streamSocket, 0);
    if (descriptor >= 0) (void)bindresvport(descriptor, nullptr);
    return DialPortFrom(descriptor, {htonl(INADDR_LOOPBACK)}, PMAPPORT, RPCBPROG, RPCBVERS, budgetMs);
}

} // namespace

bool ResolveHost(const char *host, in_addr *address) {
    // Looking it up reads half a dozen files, and there is but one answer (RFC 6761 section 6.3).
    if (strcasecmp(host, "localhost") == 0) {
        address->s_addr = htonl(INADDR_LOOPBACK);
        return true;
    }
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0) return false;
    *address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr;
    freeaddrinfo(found);
    return true;
}

CLIENT *DialPort(in_addr address, std::uint16_t port, std::uint32_t program, std::uint32_t version, int budgetMs) {
    return DialPortFrom(socket(AF_INET, streamSocket, 0), address, port, program, version, budgetMs);
}

CLIENT *DialPortMapper(in_addr address, int budgetMs) {
    return WithReplyLimit(DialPort(address, PMAPPORT, PMAPPROG, PMAPVERS, budgetMs), maxShortReplyBytes);
}

CLIENT *DialOwnPortMapper(int budgetMs) {
    CLIENT *client = DialPortMapperLocally(budgetMs);
    if (client == nullptr) client = DialPortMapperAsRoot(budgetMs);
    return WithReplyLimit(client, maxShortReplyBytes);
}

std::uint16_t PortOfProgram(CLIENT *portMapper, std::uint32_t program, std::uint32_t version, int budgetMs) {
    const int timeoutMs = std::min(budgetMs, portMapperTimeoutMs);
    if (timeoutMs <= 0) return 0;
    pmap wanted = {};
    wanted.pm_prog = program;
    wanted.pm_vers = version;
    wanted.pm_prot = IPPROTO_TCP;
    u_short port = 0;
    const timeval timeout = {timeoutMs / 1000, suseconds_t{timeoutMs % 1000} * 1000};
    const clnt_stat status =
        clnt_call(portMapper, PMAPPROC_GETPORT, Untyped(xdr_pmap), &wanted, Untyped(xdr_u_short), &port, timeout);
    return status == RPC_SUCCESS ? port : std::uint16_t{0};
}

CLIENT *DialProgram(in_addr address, std::uint32_t program, std::uint32_t version, int budgetMs) {
    const Milliseconds end = MonotonicMs() + budgetMs;
    const RpcClient portMapper(DialPortMapper(address, budgetMs));
    if (portMapper == nullptr) return nullptr;
    const std::uint16_t port = PortOfProgram(portMapper.get(), program, version, Within(portMapperTimeoutMs, end));
    return port != 0 ? DialPort(address, port, program, version, Within(connectTimeoutMs, end)) : nullptr;
}

CLIENT *DialHost(const char *host, std::uint32_t program, std::uint32_t version) {
    in_addr address = {};
    return ResolveHost(host, &address) ? DialProgram(address, program, version) : nullptr;
}

CLIENT *WithReplyLimit(CLIENT *client, std::size_t bytes) {
    if (client != nullptr) ConnectionOf(client)->replyLimit = bytes;
    return client;
}

clnt_stat SendCall(CLIENT *client, rpcproc_t procedure, xdrproc_t codeArguments, void *arguments, timeval timeout) {
    return Send(ConnectionOf(client), procedure, codeArguments, arguments, After(timeout));
}

clnt_stat ReceiveAnswer(CLIENT *client, std::uint32_t callsAgo, xdrproc_t codeResults, void *results, timeval timeout) {
    Connection *connection = ConnectionOf(client);
    connection->error = {};
    if (connection->lost) return Fail(connection, RPC_CANTRECV, EPIPE);
    bool heard = false;
    const int receiveError = ReceiveMessage(connection, After(timeout), &heard);
    if (receiveError != 0) return Lose(connection, RPC_CANTRECV, receiveError);
    if (CallsAgo(connection) != callsAgo) return Lose(connection, RPC_CANTRECV, EPROTO);
    return DecodeAndDrop(connection, codeResults, results);
}
