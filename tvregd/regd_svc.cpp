// SPDX-License-Identifier: MIT
// regd_svc: the dispatcher and the handlers of the registry service.
//
// The handler of a procedure is the overload of Serve that takes its argument. It fills the body of the result, in
// which names and data are borrowed from the tree: they are encoded before anything can change. Every result goes out
// with the discriminant 1.
//
// Sizes. Buffer sizes for names and classes count the terminator, lengths that are answered do not. What does not fit
// its buffer answers 234 with the length needed and without the name; a class of size 0 was not asked for. Data that
// does not fit answers 234 with the size needed; the data query leaves the data out then, the enumeration sends as many
// bytes as the buffer holds, since its caller copies that many.
#include "tvregd/regd_svc.h"

#include "registry/regd_xdr.h"
#include "rpc/door.h"
#include "tv/winreg.h"
#include "tvregd/graveyard.h"
#include "tvregd/hives.h"
#include "tvregd/port_entry.h"
#include "tvregd/writers.h"
#include "util/printable.h"

#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <thread>
#include <type_traits>

namespace {

// Much more than the largest value, so that one that is too large is answered, and does not look like a daemon that
// cannot be reached.
constexpr std::size_t maxRegistryRequestBytes = 4 * maxValueBytes;

constexpr std::uint32_t versionMajor = 2, versionMinor = 3, versionPatch = 0;

// What a ping says.
enum PingMode : std::uint32_t { connected = 0, leaving = 1, stillThere = 2 };

Registry *served = nullptr;

std::string_view Text(const char *text) { return text != nullptr ? text : ""; }

// The name of an argument whose flag says whether it was given.
std::string_view Name(const char *text, std::uint16_t isNull) { return isNull != 0 ? std::string_view() : Text(text); }

// The encoders do not write into strings and bytes.
char *Wire(const std::string &text) { return const_cast<char *>(text.c_str()); }

std::uint32_t Length(const std::string &text) { return static_cast<std::uint32_t>(text.size()); }

CountedBytes Bytes(const std::string &data, std::uint32_t count) { return {count, Wire(data)}; }

regd_FILETIME FileTime(std::uint64_t time) {
    return {static_cast<std::uint32_t>(time), static_cast<std::uint32_t>(time >> 32)};
}

void Serve(Registry &registry, const regd_REG_CLOSE_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = CloseKey(registry, call.key);
}

void Serve(Registry &registry, const regd_REG_OPEN_KEY &call, regd_REG_OPEN_KEY_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, Text(call.subKey), &key);
    if (answer->status == 0) answer->key = HandleOf(*key);
}

void Serve(Registry &registry, const regd_REG_OPEN_KEY_EX &call, regd_REG_OPEN_KEY_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, Name(call.subKey, call.subKeyIsNull), &key);
    if (answer->status == 0) answer->key = HandleOf(*key);
}

void Create(Registry &registry, std::uint32_t handle, std::string_view path, const std::optional<std::string> &keyClass,
            std::uint32_t options, regd_REG_CREATE_KEY_RETURN *answer) {
    Key *key = nullptr;
    if (!MayWrite()) { // what is there may be opened this way, too
        answer->status = OpenKey(registry, handle, path, &key);
        if (answer->status == ERROR_FILE_NOT_FOUND) answer->status = ERROR_ACCESS_DENIED; // 2, 5
        if (answer->status == 0) answer->key = HandleOf(*key);
        answer->disposition = REG_OPENED_EXISTING_KEY;
        return;
    }
    answer->status = CreateKey(registry, handle, path, keyClass, options, &key, &answer->disposition);
    if (answer->status == 0) answer->key = HandleOf(*key);
}

void Serve(Registry &registry, const regd_REG_CREATE_KEY &call, regd_REG_CREATE_KEY_RETURN *answer) {
    Create(registry, call.key, Name(call.subKey, call.subKeyIsNull), std::nullopt, REG_OPTION_NON_VOLATILE, answer);
}

void Serve(Registry &registry, const regd_REG_CREATE_KEY_EX &call, regd_REG_CREATE_KEY_RETURN *answer) {
    std::optional<std::string> keyClass;
    if (call.classIsNull == 0) keyClass = Text(call.keyClass);
    Create(registry, call.key, Name(call.subKey, call.subKeyIsNull), keyClass, call.options, answer);
}

void Serve(Registry &registry, const regd_REG_DELETE_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = DeleteKey(registry, call.key, Text(call.subKey));
}

void Serve(Registry &registry, const regd_REG_DELETE_VALUE &call, regd_BASIC_RETURN *answer) {
    answer->status = DeleteValue(registry, call.key, Name(call.valueName, call.nameIsNull));
}

void Enumerate(Registry &registry, std::uint32_t handle, std::uint32_t index, std::uint32_t nameBytes,
               std::uint32_t classBytes, regd_REG_ENUM_KEY_RETURN *answer) {
    const Key *subKey = nullptr;
    answer->status = SubKeyAt(registry, handle, index, &subKey);
    if (answer->status != 0) return;
    answer->lastWriteTime = FileTime(subKey->written);
    answer->nameLength = Length(subKey->name);
    if (answer->nameLength < nameBytes) {
        answer->name = Wire(subKey->name);
    } else {
        answer->status = ERROR_MORE_DATA; // 234
    }
    if (!subKey->keyClass) return;
    answer->classLength = Length(*subKey->keyClass);
    if (answer->classLength < classBytes) {
        answer->keyClass = Wire(*subKey->keyClass);
    } else if (classBytes != 0) {
        answer->status = ERROR_MORE_DATA;
    }
}

void Serve(Registry &registry, const regd_REG_ENUM_KEY &call, regd_REG_ENUM_KEY_RETURN *answer) {
    Enumerate(registry, call.key, call.index, call.nameBytes, 0, answer);
}

void Serve(Registry &registry, const regd_REG_ENUM_KEY_EX &call, regd_REG_ENUM_KEY_RETURN *answer) {
    Enumerate(registry, call.key, call.index, call.nameBytes, call.classBytes, answer);
}

void Serve(Registry &registry, const regd_REG_ENUM_VALUE &call, regd_REG_ENUM_VALUE_RETURN *answer) {
    const Value *value = nullptr;
    answer->status = ValueAt(registry, call.key, call.index, &value);
    if (answer->status != 0) return;
    answer->type = value->type;
    answer->nameLength = Length(value->name);
    answer->dataBytes = Length(value->data);
    answer->data = Bytes(value->data, std::min(answer->dataBytes, call.dataBytes));
    if (answer->nameLength < call.nameBytes) {
        answer->name = Wire(value->name);
    } else {
        answer->status = ERROR_MORE_DATA;
    }
    if (call.dataBytes != 0 && answer->dataBytes > call.dataBytes) answer->status = ERROR_MORE_DATA;
}

// The caller of the class wants all of it and cuts it to its buffer itself.
void Serve(Registry &registry, const regd_REG_QUERY_INFO_KEY &call, regd_REG_QUERY_INFO_KEY_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, {}, &key);
    answer->classIsNull = 1;
    if (answer->status != 0) return;
    if (key->keyClass) {
        answer->keyClass = Wire(*key->keyClass);
        answer->classLength = Length(*key->keyClass);
        answer->classIsNull = 0;
    }
    answer->subKeys = static_cast<std::uint32_t>(key->subKeys.inOrder.size());
    for (const auto &subKey : key->subKeys.inOrder) {
        answer->maxSubKeyLength = std::max(answer->maxSubKeyLength, Length(subKey->name));
        if (subKey->keyClass) answer->maxClassLength = std::max(answer->maxClassLength, Length(*subKey->keyClass));
    }
    answer->values = static_cast<std::uint32_t>(key->values.inOrder.size());
    for (const auto &value : key->values.inOrder) {
        answer->maxValueNameLength = std::max(answer->maxValueNameLength, Length(value->name));
        answer->maxValueBytes = std::max(answer->maxValueBytes, Length(value->data));
    }
    answer->lastWriteTime = FileTime(key->written);
}

void AnswerData(const Value &value, std::uint32_t dataBytes, bool dataIsNull, regd_REG_QUERY_VALUE_RETURN *answer) {
    answer->type = value.type;
    answer->dataBytes = Length(value.data);
    if (dataIsNull) return;
    if (answer->dataBytes > dataBytes) {
        answer->status = ERROR_MORE_DATA;
    } else {
        answer->data = Bytes(value.data, answer->dataBytes);
    }
}

// The unnamed value of a subkey, which must be a string.
void Serve(Registry &registry, const regd_REG_QUERY_VALUE &call, regd_REG_QUERY_VALUE_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, Name(call.subKey, call.subKeyIsNull), &key);
    if (answer->status != 0) return;
    const Value *value = FindValue(*key, {});
    if (value == nullptr) {
        answer->status = ERROR_FILE_NOT_FOUND; // 2
    } else if (value->type != REG_SZ && value->type != REG_EXPAND_SZ) {
        answer->status = ERROR_INVALID_DATA; // 13
    } else {
        AnswerData(*value, call.dataBytes, call.dataIsNull != 0, answer);
    }
}

void Serve(Registry &registry, const regd_REG_QUERY_VALUE_EX &call, regd_REG_QUERY_VALUE_RETURN *answer) {
    const Value *value = nullptr;
    answer->status = QueryValue(registry, call.key, Name(call.valueName, call.nameIsNull), &value);
    if (answer->status == 0) AnswerData(*value, call.dataBytes, call.dataIsNull != 0, answer);
}

// The unnamed value of a subkey, which is made when it is not there. Stored with its terminator; the length beside the
// string is ignored, as Win32 does.
void Serve(Registry &registry, const regd_REG_SET_VALUE &call, regd_BASIC_RETURN *answer) {
    answer->status = ERROR_INVALID_PARAMETER; // 87
    if (call.type != REG_SZ) return;
    Key *key = nullptr;
    std::uint32_t disposition = 0;
    answer->status = CreateKey(registry, call.key, Name(call.subKey, call.subKeyIsNull), std::nullopt,
                               REG_OPTION_NON_VOLATILE, &key, &disposition);
    if (answer->status != 0) return;
    std::string data(Text(call.data));
    data.push_back('\0');
    answer->status = SetValue(registry, HandleOf(*key), {}, REG_SZ, data);
}

// With the size 0 the bytes are a placeholder for no data.
void Serve(Registry &registry, const regd_REG_SET_VALUE_EX &call, regd_BASIC_RETURN *answer) {
    answer->status = ERROR_INVALID_PARAMETER;
    if (call.dataBytes > call.data.count) return;
    const std::string_view data(call.dataBytes != 0 ? call.data.bytes : "", call.dataBytes);
    answer->status = SetValue(registry, call.key, Name(call.valueName, call.nameIsNull), call.type, data);
}

void Serve(Registry &registry, const regd_REG_FLUSH_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = FlushKey(registry, call.key);
}

void Serve(Registry &, const regd_REG_QUERY_VERSION &, regd_REG_QUERY_VERSION_RETURN *answer) {
    *answer = {0, versionMajor, versionMinor, versionPatch};
}

// Nothing is kept for a client, so nothing is done when it comes or goes.
void Serve(Registry &, const regd_REG_PING_DAEMON &call, regd_BASIC_RETURN *answer) {
    answer->status = call.mode <= stillThere ? 0 : ERROR_INVALID_PARAMETER;
}

// Keys have no security descriptors: everybody who reaches the daemon may do everything, and so says the one that all
// of them answer: revision 1, self-relative, no owner and group, a DACL that is null.
void Serve(Registry &registry, const regd_REG_GET_KEY_SEC &call, regd_REG_GET_KEY_SEC_RETURN *answer) {
    static std::string everybody("\x01\x00\x04\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, {}, &key);
    if (answer->status != 0) return;
    answer->descriptorBytes = Length(everybody);
    if (call.descriptorBytes < answer->descriptorBytes) {
        answer->status = ERROR_INSUFFICIENT_BUFFER; // 122
    } else {
        answer->descriptor = Bytes(everybody, answer->descriptorBytes);
    }
}

// The protocol carries nothing that could be set.
void Serve(Registry &registry, const regd_REG_SET_KEY_SEC &call, regd_BASIC_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, {}, &key);
}

// What is answered, in place of what was, when the database fails.
template <typename Result>
bool_t CodeFailure(XDR *xdrs, std::uint32_t *status) {
    Result result{};
    result.discriminant = 1;
    result.body.status = *status;
    return routineOf<Result>(xdrs, &result);
}

// Answers those whose writes, or reads of such, were in a group that has ended.
void TellEnd(Registry &registry) {
    if (!registry.ended) return;
    if (*registry.ended == 0) {
        ReleaseReplies();
    } else {
        ReplaceReplies(*registry.ended);
    }
    registry.ended.reset();
}

// What all operations on hives have in common: they stand between groups. Files are opened as the daemon's user: only
// that user and root, who could open them themselves, may have that done. Asked once the handle is known to be good.
template <typename Operation>
std::uint32_t WithHives(Registry &registry, std::uint32_t handle, Operation operation) {
    Key *key = nullptr;
    if (const std::uint32_t rc = OpenKey(registry, handle, {}, &key); rc != 0) return rc;
    if (!IsDaemonsOwn()) return ERROR_ACCESS_DENIED; // 5
    const std::uint32_t rc = CommitGroup(registry);
    TellEnd(registry);
    return rc != 0 ? rc : operation();
}

void Serve(Registry &registry, const regd_REG_SAVE_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status =
        WithHives(registry, call.key, [&] { return SaveKey(registry, call.key, std::string(Text(call.file))); });
}

void Serve(Registry &registry, const regd_REG_RESTORE_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = WithHives(
        registry, call.key, [&] { return RestoreKey(registry, call.key, std::string(Text(call.file)), call.flags); });
}

void Serve(Registry &registry, const regd_REG_LOAD_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = WithHives(registry, call.key, [&] {
        return LoadHive(registry, call.key, Text(call.subKey), std::string(Text(call.file)));
    });
}

void Serve(Registry &registry, const regd_REG_UNLOAD_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = WithHives(registry, call.key, [&] { return UnloadHive(registry, call.key, Text(call.subKey)); });
}

void Serve(Registry &registry, const regd_REG_REPLACE_KEY &call, regd_BASIC_RETURN *answer) {
    answer->status = WithHives(registry, call.key, [&] {
        return ReplaceHive(registry, call.key, Text(call.subKey), std::string(Text(call.newFile)),
                           std::string(Text(call.oldFile)));
    });
}

// The registry functions never ask for it: a client has one connection, in which answers come in the order of the
// calls, so that one that waits for a change would hold up all others of its process. Clients look at last write times.
void Serve(Registry &registry, const regd_REG_NOTIFY_CHANGE_KEY_VALUE &call, regd_BASIC_RETURN *answer) {
    Key *key = nullptr;
    answer->status = OpenKey(registry, call.key, {}, &key);
    if (answer->status == 0) answer->status = ERROR_CALL_NOT_IMPLEMENTED; // 120
}

// Between two requests: those that were ready at the same time share a commit. Where requests never cease, what nobody
// waits for has its turn, too.
int EndTurn(DoorMoment moment) {
    if (moment == DoorMoment::MoreToServe && served->group.isOpen && !IsGroupFull(served->group)) return 0;
    if (moment == DoorMoment::Idle) {
        if (const int waitUs = PatienceOf(served->group, PeersAwaited()); waitUs > 0) return waitUs;
    }
    (void)CommitGroup(*served);
    TellEnd(*served);
    if (moment == DoorMoment::MoreToServe && IsEraseDue(*served)) (void)EraseSome(*served);
    return 0;
}

// The requests that change the registry, whatever they say. One that creates a key may only open one that is there.
template <typename Argument>
constexpr bool isChange =
    std::is_same_v<Argument, regd_REG_DELETE_KEY> || std::is_same_v<Argument, regd_REG_DELETE_VALUE> ||
    std::is_same_v<Argument, regd_REG_SET_VALUE> || std::is_same_v<Argument, regd_REG_SET_VALUE_EX> ||
    std::is_same_v<Argument, regd_REG_SET_KEY_SEC>;

template <typename Argument>
ResultOf<Argument> Answer(const Argument &argument) {
    ResultOf<Argument> result{};
    result.discriminant = 1;
    served->isProvisional = false;
    try {
        if (isChange<Argument> && !MayWrite()) {
            result.body.status = ERROR_ACCESS_DENIED; // 5
        } else {
            Serve(*served, argument, &result.body);
        }
    } catch (const std::exception &failure) {
        result.body = {};
        result.body.status = AbandonGroup(*served, failure);
    }
    TellEnd(*served);
    if (served->isProvisional && served->group.isOpen) HoldReply(CodeFailure<ResultOf<Argument>>);
    return result;
}

void Dispatch(svc_req *request, SVCXPRT *transport) {
    switch (request->rq_proc) {
    case NULLPROC: AnswerNullProcedure(transport); break;
#define ANSWER(number, name, stub, Argument, Result)                                                                   \
    case number: AnswerProcedure<Argument>(transport, Answer<Argument>); break;
        REGD_PROCEDURES(ANSWER)
    default: svcerr_noproc(transport); break;
    }
}

} // namespace

bool StartService(Registry &registry, bool allowRemote) {
    served = &registry;
    (void)pmap_unset(REGDAEMONPROG, REGDAEMONVERS);
    SVCXPRT *listener = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (listener == nullptr ||
        !OpenDoor(listener, allowRemote ? nullptr : IsLocalPeer, DoorWait::InLoop, EndTurn, maxRegistryRequestBytes)) {
        (void)std::fprintf(stderr, "tvregd: cannot listen\n");
        return false;
    }
    if (!svc_register(listener, REGDAEMONPROG, REGDAEMONVERS, Dispatch, IPPROTO_TCP)) {
        (void)std::fprintf(stderr,
                           "tvregd: cannot register program 0x%08X version %u with the port mapper: it does not "
                           "run, or another user holds the entry\n",
                           REGDAEMONPROG, REGDAEMONVERS);
        return false;
    }
    KeepPortEntry(REGDAEMONPROG, REGDAEMONVERS, listener->xp_port);
    return true;
}

int FinishTurn() {
    constexpr int triesAgainMs = 1000;
    (void)EndTurn(DoorMoment::TooMuchHeld);
    if (EraseSome(*served)) return 0;
    return IsAnythingBuried(*served) ? triesAgainMs : -1;
}

void StopService() {
    // Against a port mapper that hangs, the library waits for more than a minute, with all signals blocked.
    std::thread([] {
        (void)sleep(5);
        _exit(0);
    }).detach();
    StopKeepingPortEntry();
    svc_unregister(REGDAEMONPROG, REGDAEMONVERS);
}
