// SPDX-License-Identifier: MIT
// scripted_client: the operations of a client handle that plays a script.
#include "tests/support/scripted_client.h"

#include <stdexcept>

namespace {

constexpr unsigned largestArgumentBytes = 1 << 20;

Bytes Encode(xdrproc_t routine, void *record) {
    Bytes buffer(largestArgumentBytes);
    XDR xdrs;
    xdrmem_create(&xdrs, reinterpret_cast<char *>(buffer.data()), largestArgumentBytes, XDR_ENCODE);
    if (!routine(&xdrs, record)) throw std::runtime_error("an argument record does not encode");
    buffer.resize(xdr_getpos(&xdrs));
    return buffer;
}

bool Decode(const Bytes &bytes, xdrproc_t routine, void *record) {
    XDR xdrs;
    xdrmem_create(&xdrs, reinterpret_cast<char *>(const_cast<std::uint8_t *>(bytes.data())),
                  static_cast<u_int>(bytes.size()), XDR_DECODE);
    return routine(&xdrs, record) != FALSE;
}

Script *ScriptOf(CLIENT *client) { return reinterpret_cast<Script *>(client->cl_private); }

clnt_stat Call(CLIENT *client, rpcproc_t procedure, xdrproc_t codeArgument, void *argument, xdrproc_t codeResult,
               void *result, timeval timeout) {
    Script *script = ScriptOf(client);
    script->calls.push_back({static_cast<std::uint32_t>(procedure), Encode(codeArgument, argument), timeout});
    ScriptedAnswer answer = {RPC_SYSTEMERROR, {}};
    if (!script->answers.empty()) {
        answer = script->answers.front();
        script->answers.pop_front();
    }
    if (answer.status == RPC_SUCCESS && !Decode(answer.result, codeResult, result)) answer.status = RPC_CANTDECODERES;
    script->lastError.re_status = answer.status;
    return answer.status;
}

void GetError(CLIENT *client, rpc_err *error) { *error = ScriptOf(client)->lastError; }

bool_t FreeResult(CLIENT *, xdrproc_t routine, void *result) {
    xdr_free(routine, result);
    return TRUE;
}

void Destroy(CLIENT *client) {
    --ScriptOf(client)->clientsAlive;
    delete client;
}

bool_t Control(CLIENT *, u_int, void *) { return FALSE; }

CLIENT::clnt_ops operations = {
    .cl_call = Call,
    .cl_abort = [](CLIENT *) {},
    .cl_geterr = GetError,
    .cl_freeres = FreeResult,
    .cl_destroy = Destroy,
    .cl_control = Control,
};

} // namespace

Bytes Hex(std::string_view digits) {
    Bytes bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit == ' ') continue;
        pair += digit;
        if (pair.size() < 2) continue;
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
        pair.clear();
    }
    if (!pair.empty()) throw std::runtime_error("half a byte in hexadecimal digits");
    return bytes;
}

std::string InHex(const Bytes &bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0 && i % 4 == 0) text += ' ';
        text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    }
    return text;
}

CLIENT *MakeScriptedClient(Script *script) {
    CLIENT *client = new CLIENT{};
    client->cl_ops = &operations;
    client->cl_private = script;
    ++script->clientsAlive;
    return client;
}
