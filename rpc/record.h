// SPDX-License-Identifier: MIT
// record: records on the wire, each told by one list of its fields.
//
// Under a record's struct stands, with the fields in wire order,
//
//     constexpr auto Fields(As<svd_arglist_t> auto &r) { return std::tie(r.arg); }
//
// and everything that goes over a record goes over that list: encoding, decoding and freeing here, comparing and
// printing wherever that is wanted. A record that travels in a way of its own has an overload of CodeField instead.
// Thread: reentrant.
#pragma once

#include "rpc/codec.h"
#include "util/guard.h"

#include <cstdlib>
#include <tuple>
#include <type_traits>

// The record whose fields a type has: itself. A type with the same members can be made to stand for it.
template <typename Type>
struct StandsFor {
    using Record = Type;
};
template <typename Type, typename Record>
concept As = std::is_same_v<typename StandsFor<std::remove_const_t<Type>>::Record, Record>;

template <typename Record>
concept HasFields = requires(Record &record) {
    Fields(record);
};

// A link of a chain has a member `next`, null at the end, which is none of its fields.
template <typename Record>
concept Link = HasFields<Record> && std::is_same_v<decltype(Record::next), Record *>;

// Calls visit(field) for each field in wire order.
template <HasFields Record, typename Visit>
void VisitFields(Record &record, Visit &&visit) {
    std::apply([&visit](auto &...fields) { (visit(fields), ...); }, Fields(record));
}

// A record within a record, or a link without the rest of its chain. After a failed decode the fields before the
// failure hold what was decoded; freeing the record releases them.
template <HasFields Record>
bool_t CodeField(XDR *xdrs, Record &record) {
    return std::apply([xdrs](auto &...fields) { return CodeFields(xdrs, fields...); }, Fields(record));
}

// A chain of optional records (a boolean before each link, FALSE after the last), the bytes of xdr_pointer applied
// recursively, coded in a loop: the length of a list is never the depth of the stack. After a failed decode the head
// holds the links decoded so far; freeing releases them.
template <Link Record>
bool_t CodeField(XDR *xdrs, Record *&head) {
    if (xdrs->x_op == XDR_FREE) {
        while (head != nullptr) {
            Record *link = head;
            head = link->next;
            (void)CodeField(xdrs, *link);
            std::free(link);
        }
        return TRUE;
    }
    for (Record **next = &head;; next = &(*next)->next) {
        std::uint32_t more = *next != nullptr ? 1 : 0;
        if (!CodeField(xdrs, more)) return FALSE;
        if (more == 0) return TRUE;
        if (xdrs->x_op == XDR_DECODE) {
            *next = static_cast<Record *>(std::calloc(1, sizeof(Record)));
            if (*next == nullptr) return FALSE;
        }
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): where none has come, more is 0 and was left as it is
        if (!CodeField(xdrs, **next)) return FALSE;
    }
}

// A record by itself; a link with the rest of its chain.
template <typename Record>
bool_t CodeRecord(XDR *xdrs, Record &record) {
    if constexpr (Link<Record>) {
        return CodeField(xdrs, record) && CodeField(xdrs, record.next);
    } else {
        return CodeField(xdrs, record);
    }
}

// The same, except that a failed decode leaves nothing behind: what was decoded is released before FALSE is returned.
template <typename Record>
bool_t CodeWhole(XDR *xdrs, Record &record) {
    if (CodeRecord(xdrs, record)) return TRUE;
    if (xdrs->x_op == XDR_DECODE) {
        xdrs->x_op = XDR_FREE;
        (void)CodeRecord(xdrs, record);
        xdrs->x_op = XDR_DECODE;
    }
    return FALSE;
}

// --- routines, as the library takes them ---

// A routine without its types; the library passes it the record that it was given beside it.
template <typename Record>
xdrproc_t Untyped(bool_t (*routine)(XDR *, Record *)) {
    return reinterpret_cast<xdrproc_t>(routine);
}

// The routine of a record: xdr_ + its name. Null, and of another type, for what is no record.
template <typename Record>
inline constexpr auto routineOf = nullptr;

#define TV_ROUTINE(Record)                                                                                             \
    bool_t xdr_##Record(XDR *xdrs, Record *record);                                                                    \
    template <>                                                                                                        \
    inline constexpr auto routineOf<Record> = &xdr_##Record;

template <typename Record>
xdrproc_t RoutineOf() {
    static_assert(!std::is_null_pointer_v<decltype(routineOf<Record>)>);
    return Untyped(routineOf<Record>);
}

// The record without fields (xdr_void lacks the parameters that it is called with).
struct Nothing {};
inline bool_t xdr_nothing(XDR * /*xdrs*/, Nothing * /*record*/) { return TRUE; }
template <>
inline constexpr auto routineOf<Nothing> = &xdr_nothing;

// Releases what a record holds: decoded strings, bytes and links.
template <typename Record>
void FreeRecord(Record *record) {
    xdr_free(RoutineOf<Record>(), record);
}
template <typename Record>
using RecordGuard = std::unique_ptr<Record, Calls<&FreeRecord<Record>>>; // points at a local record
