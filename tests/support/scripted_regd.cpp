// SPDX-License-Identifier: MIT
// scripted_regd: sockets, records and the thread that plays the daemon.
#include "tests/support/scripted_regd.h"

#include "registry/regd_xdr.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace {

constexpr char version230[] = "00000001 00000000 00000002 00000003 00000000";
constexpr char ok[] = "00000001 00000000";

struct Client {
    int descriptor;
    Bytes received = {};
    Bytes heldBack = {}; // replies to be sent before the next one
};

} // namespace

struct ScriptedRegd::State {
    WireHandler handler;
    Bytes version = Hex(version230);
    int listener = -1;
    int wakeUp = -1;
    mutable std::mutex mutex; // over what follows
    std::vector<WireCall> calls = {};
    int connections = 0;
};

namespace {

std::uint32_t WordAt(const Bytes &bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes.at(at)) << 24 | static_cast<std::uint32_t>(bytes.at(at + 1)) << 16 |
           static_cast<std::uint32_t>(bytes.at(at + 2)) << 8 | bytes.at(at + 3);
}

void PutWord(Bytes &bytes, std::uint32_t word) {
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }
}

// The length of the authentication at a place of a message.
std::size_t AuthBytes(const Bytes &message, std::size_t at) { return 8 + (WordAt(message, at + 4) + 3) / 4 * 4; }

// A reply of one fragment: accepted, no authentication, success.
Bytes ReplyRecord(std::uint32_t xid, const Bytes &result) {
    Bytes record;
    PutWord(record, 0x80000000u | static_cast<std::uint32_t>(24 + result.size()));
    PutWord(record, xid);
    for (const std::uint32_t word : std::initializer_list<std::uint32_t>{REPLY, MSG_ACCEPTED, 0, 0, 0}) {
        PutWord(record, word);
    }
    record.insert(record.end(), result.begin(), result.end());
    return record;
}

bool Send(int descriptor, const Bytes &bytes, std::size_t count) {
    return send(descriptor, bytes.data(), count, MSG_NOSIGNAL) == static_cast<ssize_t>(count);
}

WireAnswer AnswerTo(ScriptedRegd::State &state, const WireCall &call) {
    {
        const std::lock_guard guard(state.mutex);
        state.calls.push_back(call);
    }
    if (call.procedure == REG_QUERY_VERSION) return {state.version};
    if (call.procedure == REG_PING_DAEMON) return {Hex(ok)};
    return state.handler(call);
}

// Serves one whole message. Returns false when the connection is to be closed.
bool Serve(ScriptedRegd::State &state, Client &client, const Bytes &message) {
    const std::size_t verifier = 24 + AuthBytes(message, 24);
    const std::size_t argument = verifier + AuthBytes(message, verifier);
    const WireCall call = {WordAt(message, 20),
                           Bytes(message.begin() + static_cast<std::ptrdiff_t>(argument), message.end())};
    const WireAnswer answer = AnswerTo(state, call);
    const Bytes record = ReplyRecord(WordAt(message, 0) + answer.xidOffset, answer.result);
    if (answer.late) {
        client.heldBack.insert(client.heldBack.end(), record.begin(), record.end());
        return true;
    }
    const bool before = Send(client.descriptor, client.heldBack, client.heldBack.size());
    client.heldBack.clear();
    const bool whole = answer.cutAfter >= record.size();
    return before && Send(client.descriptor, record, whole ? record.size() : answer.cutAfter) && whole;
}

// Serves what has come in whole; the client sends its calls in one fragment each. Returns false at the end.
bool Receive(ScriptedRegd::State &state, Client &client) {
    std::uint8_t block[65536];
    const ssize_t now = recv(client.descriptor, block, sizeof block, 0);
    if (now <= 0) return false;
    client.received.insert(client.received.end(), block, block + now);
    while (client.received.size() >= 4) {
        const std::size_t size = WordAt(client.received, 0) & 0x7FFFFFFF;
        if (client.received.size() < 4 + size) break;
        const auto begin = client.received.begin() + 4;
        const Bytes message(begin, begin + static_cast<std::ptrdiff_t>(size));
        client.received.erase(client.received.begin(), begin + static_cast<std::ptrdiff_t>(size));
        if (!Serve(state, client, message)) return false;
    }
    return true;
}

void Accept(ScriptedRegd::State &state, std::vector<Client> &clients) {
    const int descriptor = accept4(state.listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) return;
    clients.push_back({descriptor});
    const std::lock_guard guard(state.mutex);
    ++state.connections;
}

void Run(ScriptedRegd::State &state) {
    std::vector<Client> clients;
    for (;;) {
        std::vector<pollfd> waiting = {{state.wakeUp, POLLIN, 0}, {state.listener, POLLIN, 0}};
        for (const Client &client : clients) {
            waiting.push_back({client.descriptor, POLLIN, 0});
        }
        (void)poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0) break;
        std::vector<Client> kept;
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if (waiting[i + 2].revents == 0 || Receive(state, clients[i])) {
                kept.push_back(clients[i]);
            } else {
                close(clients[i].descriptor);
            }
        }
        clients = kept;
        if (waiting[1].revents != 0) Accept(state, clients);
    }
    for (const Client &client : clients) {
        close(client.descriptor);
    }
    close(state.listener);
}

int Listen(const char *address) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    (void)setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in here = {};
    here.sin_family = AF_INET;
    here.sin_port = htons(scriptedRegdPort);
    here.sin_addr.s_addr = inet_addr(address);
    if (bind(descriptor, reinterpret_cast<sockaddr *>(&here), sizeof here) != 0 || listen(descriptor, 64) != 0) {
        throw std::runtime_error(std::string("no listening at ") + address);
    }
    return descriptor;
}

} // namespace

// Leaks that are kept, by the function that allocates: the registry client's host names outlive their connections on
// purpose, and libtirpc loses an address at each registration.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() { return "leak:TakeSlot\nleak:__rpc_uaddr2taddr_af\n"; }

ScriptedRegd::ScriptedRegd(const char *address, WireHandler handler, Bytes version) : state(std::make_unique<State>()) {
    state->handler = std::move(handler);
    if (!version.empty()) state->version = std::move(version);
    state->listener = Listen(address);
    state->wakeUp = eventfd(0, EFD_CLOEXEC);
    thread = std::thread(Run, std::ref(*state));
}

ScriptedRegd::~ScriptedRegd() {
    const std::uint64_t one = 1;
    (void)!write(state->wakeUp, &one, sizeof one);
    thread.join();
    close(state->wakeUp);
}

std::vector<WireCall> ScriptedRegd::Calls() const {
    const std::lock_guard guard(state->mutex);
    return state->calls;
}

int ScriptedRegd::Connections() const {
    const std::lock_guard guard(state->mutex);
    return state->connections;
}

void RegisterRegistryDaemon() {
    UnregisterRegistryDaemon();
    if (!pmap_set(REGDAEMONPROG, REGDAEMONVERS, IPPROTO_TCP, scriptedRegdPort)) {
        throw std::runtime_error("the port mapper takes no registration");
    }
}

void UnregisterRegistryDaemon() { (void)pmap_unset(REGDAEMONPROG, REGDAEMONVERS); }
