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
constexpr std::size_t mostRequestBytes = std::size_t{1} << 20;

struct Pipeline {
    CLIENT *client;
    int clientNum;
    RegistryWrite *writes;
    std::size_t count;
    std::size_t sent;
    std::size_t answered;
    std::size_t bytesOnTheirWay;
    bool isFull; // nothing is sent before few are left
};

template <typename Argument>
bool Send(const Pipeline &pipeline, HKEY key, Argument argument) {
    argument.user = g_userData;
    argument.key = key & ~clientNumberBits;
    return SendCall(pipeline.client, ProcedureOf<Argument>::number, RoutineOf<Argument>(), &argument, TIMEOUT) ==
           RPC_SUCCESS;
}

bool SendNext(Pipeline &pipeline) {
    const RegistryWrite &write = pipeline.writes[pipeline.sent];
    bool isSent = false;
    switch (write.kind) {
    case RegistryWrite::createKey: isSent = Send(pipeline, write.key, CreateKeyRequest(write.name, nullptr, 0)); break;
    case RegistryWrite::setValue:
        isSent = Send(pipeline, write.key, SetValueRequest(write.name, write.type, write.data, write.dataBytes));
        break;
    case RegistryWrite::deleteValue: isSent = Send(pipeline, write.key, DeleteValueRequest(write.name)); break;
    case RegistryWrite::closeKey: isSent = Send(pipeline, write.key, regd_REG_CLOSE_KEY{}); break;
    }
    if (!isSent) return false;
    ++pipeline.sent;
    pipeline.bytesOnTheirWay += write.dataBytes;
    return true;
}

template <typename Result, typename Store>
bool Receive(const Pipeline &pipeline, Store store) {
    Result reply = {};
    const auto callsAgo = static_cast<std::uint32_t>(pipeline.sent - pipeline.answered - 1);
    const clnt_stat status = ReceiveAnswer(pipeline.client, callsAgo, RoutineOf<Result>(), &reply, TIMEOUT);
    if (status == RPC_SUCCESS) store(reply.body);
    FreeRecord(&reply);
    return status == RPC_SUCCESS;
}

bool ReceiveNext(Pipeline &pipeline) {
    RegistryWrite &write = pipeline.writes[pipeline.answered];
    const bool isAnswered =
        write.kind == RegistryWrite::createKey
            ? Receive<regd_REG_CREATE_KEY_RES>(pipeline,
                                               [&](const regd_REG_CREATE_KEY_RETURN &reply) {
                                                   write.code = static_cast<LONG>(reply.status);
                                                   write.created = WithClientNumber(reply.key, pipeline.clientNum);
                                               })
            : Receive<regd_BASIC_RES>(
                  pipeline, [&](const regd_BASIC_RETURN &reply) { write.code = static_cast<LONG>(reply.status); });
    if (!isAnswered) return false;
    ++pipeline.answered;
    if (pipeline.sent - pipeline.answered <= fewRequests) pipeline.isFull = false;
    pipeline.bytesOnTheirWay -= write.dataBytes;
    return true;
}

// Whether the next request is to be sent now, instead of waiting for an answer.
bool IsNextToBeSent(Pipeline &pipeline) {
    if (pipeline.sent == pipeline.count) return false;
    if (pipeline.sent == pipeline.answered) return true;
    if (pipeline.sent - pipeline.answered == mostRequests) pipeline.isFull = true;
    return !pipeline.isFull && pipeline.bytesOnTheirWay + pipeline.writes[pipeline.sent].dataBytes <= mostRequestBytes;
}

} // namespace

std::size_t WriteTogether(RegistryWrite *writes, std::size_t count) {
    if (count == 0) return 0;
    LockRegistryMutex();
    HKEY key = writes[0].key;
    int clientNum = 0;
    CLIENT *client = tvConnectRegistryDaemon(nullptr, &key, &clientNum);
    Pipeline pipeline = {.client = client,
                         .clientNum = clientNum,
                         .writes = writes,
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
