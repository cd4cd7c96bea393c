// SPDX-License-Identifier: MIT
// registry_proxy: stands between servd and tvregd on a private host, tells the calls and fails those that it is told
// to (registry_faults.h).
//
// It takes tvregd's place in the port mapper. Only servd finds it: the test's own registry client has found tvregd
// before. Calls that are not to fail are handed on byte by byte. Runs on the thread of the scripted registry daemon.
#include "registry/regd_xdr.h"
#include "tests/support/host.h"
#include "tests/support/registry_faults.h"
#include "tests/support/scripted_regd.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <stdexcept>

namespace {

struct Proxy {
    std::mutex mutex;
    std::vector<std::string> calls;
    int failIn = 0;       // the call that is to fail, counted from 1; 0 for none
    std::string failLike; // those that are shown so; empty for none
    LONG code = 0;
    std::map<std::uint32_t, std::string> paths = {{HKEY_LOCAL_MACHINE, ""}}; // of the keys that were opened
    std::size_t opened = 0;
    std::size_t closed = 0;
    int registry = -1; // the connection to tvregd
};

Proxy proxy;

// --- the connection to tvregd ---

void ConnectToRegistry() {
    const RpcClient portMapper(DialPortMapper({htonl(INADDR_LOOPBACK)}));
    sockaddr_in there = {};
    there.sin_family = AF_INET;
    there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    there.sin_port = htons(PortOfProgram(portMapper.get(), REGDAEMONPROG, REGDAEMONVERS));
    proxy.registry = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(proxy.registry, reinterpret_cast<sockaddr *>(&there), sizeof there) != 0) {
        throw std::runtime_error("tvregd cannot be reached");
    }
}

void PutWord(Bytes *bytes, std::uint32_t word) {
    const std::uint32_t sent = htonl(word);
    const auto *first = reinterpret_cast<const std::uint8_t *>(&sent);
    bytes->insert(bytes->end(), first, first + sizeof sent);
}

std::uint32_t WordAt(const Bytes &bytes, std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return ntohl(word);
}

Bytes Receive(std::size_t count) {
    Bytes bytes(count);
    if (recv(proxy.registry, bytes.data(), count, MSG_WAITALL) != static_cast<ssize_t>(count)) {
        throw std::runtime_error("tvregd broke off");
    }
    return bytes;
}

// The result of a call, as it came.
Bytes AskRegistry(const WireCall &call) {
    constexpr std::size_t headerBytes = 24; // transaction id to success, without authentication
    constexpr std::uint32_t lastFragment = 0x80000000;
    Bytes message;
    PutWord(&message, lastFragment | static_cast<std::uint32_t>(40 + call.argument.size()));
    for (std::uint32_t word : {1u, 0u, 2u, REGDAEMONPROG, REGDAEMONVERS, call.procedure, 0u, 0u, 0u, 0u}) {
        PutWord(&message, word);
    }
    message.insert(message.end(), call.argument.begin(), call.argument.end());
    if (send(proxy.registry, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size())) {
        throw std::runtime_error("tvregd takes nothing");
    }
    Bytes reply;
    for (std::uint32_t mark = 0; (mark & lastFragment) == 0;) {
        mark = WordAt(Receive(4), 0);
        const Bytes fragment = Receive(mark & ~lastFragment);
        reply.insert(reply.end(), fragment.begin(), fragment.end());
    }
    return Bytes(reply.begin() + headerBytes, reply.end());
}

// --- what a call says ---

std::string PathOf(std::uint32_t key) {
    const auto found = proxy.paths.find(key);
    return found == proxy.paths.end() ? "?" : found->second;
}

std::string PathBelow(std::uint32_t key, const std::string &name) {
    const std::string path = PathOf(key);
    return path.empty() || name.empty() ? path + name : path + '\\' + name;
}

template <typename Record>
Decoded<Record> Decode(const Bytes &bytes) {
    Decoded<Record> record;
    XDR stream;
    xdrmem_create(&stream, reinterpret_cast<char *>(const_cast<std::uint8_t *>(bytes.data())),
                  static_cast<u_int>(bytes.size()), XDR_DECODE);
    if (!routineOf<Record>(&stream, &*record)) throw std::runtime_error("a call that cannot be decoded");
    return record;
}

// A result that says nothing but its status.
template <typename Result>
Bytes Failure(LONG code) {
    Result result = {};
    result.discriminant = 1;
    result.body.status = static_cast<std::uint32_t>(code);
    char bytes[1024];
    XDR stream;
    xdrmem_create(&stream, bytes, sizeof bytes, XDR_ENCODE);
    if (!routineOf<Result>(&stream, &result)) throw std::runtime_error("a result that cannot be encoded");
    return Bytes(bytes, bytes + xdr_getpos(&stream));
}

struct Told {
    std::string text; // as registry_faults.h has it
    std::string path; // of the key that comes of it, if any
    Bytes failure;    // the result that says that it failed
};

// "set PATH VALUE" and the like.
template <typename Record>
std::string WithValue(const char *verb, const Record &record) {
    return verb + PathOf(record.key) + ' ' + (record.nameIsNull != 0 ? "" : record.valueName);
}

Told Tell(const WireCall &call, LONG code) {
    switch (call.procedure) {
    case REG_OPEN_KEY_EX: {
        auto open = Decode<regd_REG_OPEN_KEY_EX>(call.argument);
        const std::string path = PathBelow(open->key, open->subKeyIsNull != 0 ? "" : open->subKey);
        return {"open " + path, path, Failure<regd_REG_OPEN_KEY_RES>(code)};
    }
    case REG_CREATE_KEY_EX: {
        auto create = Decode<regd_REG_CREATE_KEY_EX>(call.argument);
        const std::string path = PathBelow(create->key, create->subKeyIsNull != 0 ? "" : create->subKey);
        return {"create " + path, path, Failure<regd_REG_CREATE_KEY_RES>(code)};
    }
    case REG_CLOSE_KEY: {
        auto close = Decode<regd_REG_CLOSE_KEY>(call.argument);
        return {"close " + PathOf(close->key), "", Failure<regd_BASIC_RES>(code)};
    }
    case REG_DELETE_KEY: {
        auto remove = Decode<regd_REG_DELETE_KEY>(call.argument);
        return {"delete " + PathBelow(remove->key, remove->subKey), "", Failure<regd_BASIC_RES>(code)};
    }
    case REG_ENUM_KEY_EX: {
        auto list = Decode<regd_REG_ENUM_KEY_EX>(call.argument);
        return {"enum " + PathOf(list->key) + ' ' + std::to_string(list->index), "",
                Failure<regd_REG_ENUM_KEY_RES>(code)};
    }
    case REG_QUERY_VALUE_EX: {
        auto query = Decode<regd_REG_QUERY_VALUE_EX>(call.argument);
        return {WithValue(query->dataIsNull != 0 ? "size " : "query ", *query), "",
                Failure<regd_REG_QUERY_VALUE_RES>(code)};
    }
    case REG_SET_VALUE_EX: {
        auto set = Decode<regd_REG_SET_VALUE_EX>(call.argument);
        return {WithValue("set ", *set), "", Failure<regd_BASIC_RES>(code)};
    }
    case REG_DELETE_VALUE: {
        auto unset = Decode<regd_REG_DELETE_VALUE>(call.argument);
        return {WithValue("unset ", *unset), "", Failure<regd_BASIC_RES>(code)};
    }
    default: throw std::runtime_error("a call that the daemon never makes: " + std::to_string(call.procedure));
    }
}

// Counts keys, and remembers which key a number names. Every result begins with a mark and the status.
void Remember(const Told &told, const Bytes &result) {
    const bool succeeded = WordAt(result, 4) == ERROR_SUCCESS;
    if (!succeeded) return;
    if (told.text.starts_with("close ")) ++proxy.closed;
    if (told.path.empty()) return;
    ++proxy.opened;
    proxy.paths[WordAt(result, 8)] = told.path;
}

WireAnswer Serve(const WireCall &call) {
    const std::lock_guard guard(proxy.mutex);
    const Told told = Tell(call, proxy.code);
    proxy.calls.push_back(told.text);
    const bool isCounted = proxy.failIn != 0 && --proxy.failIn == 0;
    if (isCounted || (!proxy.failLike.empty() && told.text == proxy.failLike)) {
        if (proxy.code == ERROR_REGISTRY_IO_FAILED) return {.cutAfter = 0};
        return {.result = told.failure};
    }
    const Bytes result = AskRegistry(call);
    Remember(told, result);
    return {.result = result};
}

} // namespace

void WatchRegistry() {
    if (proxy.registry >= 0) return;
    ConnectToRegistry();
    static const ScriptedRegd stand("127.0.0.1", Serve);
    RegisterRegistryDaemon();
}

void ForgetRegistryCalls() {
    const std::lock_guard guard(proxy.mutex);
    proxy.calls.clear();
    proxy.failIn = 0;
    proxy.failLike.clear();
}

std::vector<std::string> RegistryCallsMade() {
    const std::lock_guard guard(proxy.mutex);
    return proxy.calls;
}

void FailRegistryCall(int n, LONG code) {
    const std::lock_guard guard(proxy.mutex);
    proxy.failIn = n;
    proxy.code = code;
}

void FailRegistryCallsLike(const std::string &call, LONG code) {
    const std::lock_guard guard(proxy.mutex);
    proxy.failLike = call;
    proxy.code = code;
}

std::size_t KeysOpen() {
    const std::lock_guard guard(proxy.mutex);
    return proxy.opened - proxy.closed;
}
