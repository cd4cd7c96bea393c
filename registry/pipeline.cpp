// SPDX-License-Identifier: MIT
// pipeline: requests sent ahead of their answers, bounded so that neither side waits for the other for ever.
//
// Owns:    nothing; names and data are borrowed from the caller.
// Thread:  takes tvRegistryMutex.
#include "registry/pipeline.h"

#include "registry/operation.h"
#include "registry/tvpthread.h"
#include "rpc/dial.h"

namespace {

// On their way at once. The answers to so many fit into the buffers of a connection, so that the daemon can always send
// them and goes on reading.
constexpr std::size_t mostRequests = 512;
constexpr std::size_t fewRequests = 128; // before more are sent: in crowds they share a commit
constexpr std::size_t mostDataBytes = std::size_t{1} << 20;

template <typename Request>
struct Pipeline {
    CLIENT *client;
    int clientNum;
    Request *requests;
    std::size_t count;
    std::size_t sent;
    std::size_t answered;
    std::size_t bytesOnTheirWay; // of data, either way
    bool isFull;                 // nothing is sent before few are left
};

template <typename Argument>
bool Send(CLIENT *client, HKEY key, Argument argument) {
    argument.user = g_userData;
    argument.key = key & ~clientNumberBits;
    return SendCall(client, ProcedureOf<Argument>::number, RoutineOf<Argument>(), &argument, TIMEOUT) == RPC_SUCCESS;
}

bool SendRequest(CLIENT *client, const RegistryWrite &write) {
    switch (write.kind) {
    case RegistryWrite::createKey: return Send(client, write.key, CreateKeyRequest(write.name, nullptr, 0));
    case RegistryWrite::setValue:
        return Send(client, write.key, SetValueRequest(write.name, write.type, write.data, write.dataBytes));
    case RegistryWrite::deleteValue: return Send(client, write.key, DeleteValueRequest(write.name));
    case RegistryWrite::closeKey: return Send(client, write.key, regd_REG_CLOSE_KEY{});
    }
    return false;
}

bool SendRequest(CLIENT *client, const RegistryRead &read) {
    switch (read.kind) {
    case RegistryRead::openKey: return Send(client, read.key, OpenKeyRequest(read.name, 0));
    case RegistryRead::enumKey:
        return Send(client, read.key, regd_REG_ENUM_KEY_EX{.index = read.index, .nameBytes = read.dataBytes});
    case RegistryRead::queryValue:
        return Send(client, read.key, QueryValueRequest(read.name, read.data, read.dataBytes));
    case RegistryRead::closeKey: return Send(client, read.key, regd_REG_CLOSE_KEY{});
    }
    return false;
}

// Takes the answer to the call that was made `callsAgo` calls before the last one, and stores what it says.
template <typename Result, typename Store>
bool Receive(CLIENT *client, std::uint32_t callsAgo, Store store) {
    Result reply = {};
    const clnt_stat status = ReceiveAnswer(client, callsAgo, RoutineOf<Result>(), &reply, TIMEOUT);
    if (status == RPC_SUCCESS) store(reply.body);
    FreeRecord(&reply);
    return status == RPC_SUCCESS;
}

template <typename Request>
bool ReceiveStatus(CLIENT *client, std::uint32_t callsAgo, Request *request) {
    return Receive<regd_BASIC_RES>(client, callsAgo, [request](const regd_BASIC_RETURN &reply) {
        request->code = static_cast<LONG>(reply.status);
    });
}

bool ReceiveFor(CLIENT *client, int clientNum, std::uint32_t callsAgo, RegistryWrite *write) {
    if (write->kind != RegistryWrite::createKey) return ReceiveStatus(client, callsAgo, write);
    return Receive<regd_REG_CREATE_KEY_RES>(client, callsAgo, [=](const regd_REG_CREATE_KEY_RETURN &reply) {
        write->code = static_cast<LONG>(reply.status);
        write->created = WithClientNumber(reply.key, clientNum);
    });
}

// As much of it as there is room for, whatever the daemon was told.
void StoreName(const regd_REG_ENUM_KEY_RETURN &reply, RegistryRead *read) {
    if (reply.status == ERROR_SUCCESS && read->dataBytes != 0) {
        const std::size_t length = strnlen(reply.name, read->dataBytes - 1);
        std::memcpy(read->data, reply.name, length);
        read->data[length] = '\0';
    }
    read->dataBytes = reply.nameLength;
}

bool ReceiveFor(CLIENT *client, int clientNum, std::uint32_t callsAgo, RegistryRead *read) {
    switch (read->kind) {
    case RegistryRead::openKey:
        return Receive<regd_REG_OPEN_KEY_RES>(client, callsAgo, [=](const regd_REG_OPEN_KEY_RETURN &reply) {
            read->code = static_cast<LONG>(reply.status);
            read->opened = WithClientNumber(reply.key, clientNum);
        });
    case RegistryRead::enumKey:
        return Receive<regd_REG_ENUM_KEY_RES>(client, callsAgo, [=](const regd_REG_ENUM_KEY_RETURN &reply) {
            read->code = static_cast<LONG>(reply.status);
            StoreName(reply, read);
        });
    case RegistryRead::queryValue:
        return Receive<regd_REG_QUERY_VALUE_RES>(client, callsAgo, [=](const regd_REG_QUERY_VALUE_RETURN &reply) {
            read->code = static_cast<LONG>(reply.status);
            StoreQueriedValue(reply, read->data, read->dataBytes, &read->type, &read->dataBytes);
        });
    case RegistryRead::closeKey: return ReceiveStatus(client, callsAgo, read);
    }
    return false;
}

template <typename Request>
bool SendNext(Pipeline<Request> &pipeline) {
    const Request &request = pipeline.requests[pipeline.sent];
    if (!SendRequest(pipeline.client, request)) return false;
    ++pipeline.sent;
    pipeline.bytesOnTheirWay += request.dataBytes;
    return true;
}

template <typename Request>
bool ReceiveNext(Pipeline<Request> &pipeline) {
    Request &request = pipeline.requests[pipeline.answered];
    const std::size_t dataBytes = request.dataBytes;
    const auto callsAgo = static_cast<std::uint32_t>(pipeline.sent - pipeline.answered - 1);
    if (!ReceiveFor(pipeline.client, pipeline.clientNum, callsAgo, &request)) return false;
    ++pipeline.answered;
    if (pipeline.sent - pipeline.answered <= fewRequests) pipeline.isFull = false;
    pipeline.bytesOnTheirWay -= dataBytes;
    return true;
}

// Whether the next request is to be sent now, instead of waiting for an answer.
template <typename Request>
bool IsNextToBeSent(Pipeline<Request> &pipeline) {
    if (pipeline.sent == pipeline.count) return false;
    if (pipeline.sent == pipeline.answered) return true;
    if (pipeline.sent - pipeline.answered == mostRequests) pipeline.isFull = true;
    return !pipeline.isFull && pipeline.bytesOnTheirWay + pipeline.requests[pipeline.sent].dataBytes <= mostDataBytes;
}

// Requests that travel by themselves pass the table by.
bool IsTableOurs() { return _tvRegistryAPISet[tvOSID].reg_query_value_ex_a == reg_query_value_ex_a; }

template <typename Request>
std::size_t AskTogether(Request *requests, std::size_t count) {
    if (count == 0 || !IsTableOurs()) return 0;
    LockRegistryMutex();
    HKEY key = requests[0].key;
    int clientNum = 0;
    CLIENT *client = tvConnectRegistryDaemon(nullptr, &key, &clientNum);
    Pipeline<Request> pipeline = {.client = client,
                                  .clientNum = clientNum,
                                  .requests = requests,
                                  .count = count,
                                  .sent = 0,
                                  .answered = 0,
                                  .bytesOnTheirWay = 0,
                                  .isFull = false};
    bool isWhole = client != nullptr;
    while (isWhole && pipeline.answered < count) {
        isWhole = IsNextToBeSent(pipeline) ? SendNext(pipeline) : ReceiveNext(pipeline);
    }
    // Answers may still be on their way: whoever asks next must not take them for his.
    if (client != nullptr && !isWhole) CloseConnection(clntArray[clientNum]);
    UnlockRegistryMutex();
    return pipeline.answered;
}

LONG AskAlone(RegistryRead *read) {
    auto *const name = reinterpret_cast<char *>(read->data);
    switch (read->kind) {
    case RegistryRead::openKey: return RegOpenKeyExA(read->key, read->name, 0, KEY_READ, &read->opened);
    case RegistryRead::enumKey:
        return RegEnumKeyExA(read->key, read->index, name, &read->dataBytes, nullptr, nullptr, nullptr, nullptr);
    case RegistryRead::queryValue:
        return RegQueryValueExA(read->key, read->name, nullptr, &read->type, read->data, &read->dataBytes);
    case RegistryRead::closeKey: return RegCloseKey(read->key);
    }
    return ERROR_INVALID_PARAMETER;
}

} // namespace

std::size_t WriteTogether(RegistryWrite *writes, std::size_t count) { return AskTogether(writes, count); }
std::size_t ReadTogether(RegistryRead *reads, std::size_t count) { return AskTogether(reads, count); }

void ReadInTurn(RegistryRead *reads, std::size_t count) {
    bool isAnswered = true;
    for (RegistryRead *read = reads; read != reads + count; ++read) {
        read->code = isAnswered ? AskAlone(read) : ERROR_REGISTRY_IO_FAILED;
        isAnswered = read->code != ERROR_REGISTRY_IO_FAILED;
    }
}
