// SPDX-License-Identifier: MIT
// port_mapper: version 4 of its protocol (RFC 1833), which tells owners, too.
#include "tvsc/port_mapper.h"

#include "rpc/dial.h"
#include "rpc/record.h"

#include <fmt/format.h>
#include <rpc/rpcb_prot.h>

#include <cstdio>

namespace {

constexpr std::uint16_t portMapperPort = 111;
constexpr timeval answerTimeout = {5, 0};

std::string TextOf(const char *text) { return text != nullptr ? text : ""; }

// An address as port mappers write it: four numbers of the host, or an IPv6 address, and two of the port behind it.
std::string WithPort(const std::string &universal) {
    const std::size_t low = universal.rfind('.');
    const std::size_t high = low == std::string::npos || low == 0 ? low : universal.rfind('.', low - 1);
    unsigned first = 0, second = 0;
    char rest = 0;
    if (high == std::string::npos || std::sscanf(universal.c_str() + high, ".%3u.%3u%c", &first, &second, &rest) != 2) {
        return universal;
    }
    const std::string host = universal.substr(0, high);
    const bool isVersion6 = host.find(':') != std::string::npos;
    return fmt::format("{}{}{}:{}", isVersion6 ? "[" : "", host, isVersion6 ? "]" : "", first * 256 + second);
}

} // namespace

std::optional<std::vector<Registration>> ReadRegistrations(in_addr address) {
    const RpcClient mapper(DialPort(address, portMapperPort, RPCBPROG, RPCBVERS4));
    rpcblist_ptr list = nullptr;
    Nothing nothing;
    if (mapper == nullptr || clnt_call(mapper.get(), RPCBPROC_DUMP, RoutineOf<Nothing>(), &nothing,
                                       Untyped(xdr_rpcblist_ptr), &list, answerTimeout) != RPC_SUCCESS) {
        return std::nullopt;
    }
    std::vector<Registration> all;
    for (const rpcblist *one = list; one != nullptr; one = one->rpcb_next) {
        const rpcb &entry = one->rpcb_map;
        all.push_back({static_cast<std::uint32_t>(entry.r_prog), static_cast<std::uint32_t>(entry.r_vers),
                       TextOf(entry.r_netid), WithPort(TextOf(entry.r_addr)), TextOf(entry.r_owner)});
    }
    xdr_free(Untyped(xdr_rpcblist_ptr), &list);
    return all;
}

void RemoveRegistration(std::uint32_t program, std::uint32_t version) {
    const RpcClient mapper(DialOwnPortMapper());
    if (mapper == nullptr) return;
    char every[] = ""; // all transports at once, whatever the address
    rpcb entry = {};
    entry.r_prog = program;
    entry.r_vers = version;
    entry.r_netid = every;
    entry.r_addr = every;
    entry.r_owner = every; // the port mapper sees for itself who asks
    bool_t removed = FALSE;
    (void)clnt_call(mapper.get(), RPCBPROC_UNSET, Untyped(xdr_rpcb), &entry, Untyped(xdr_bool), &removed,
                    answerTimeout); // true in any case
}
