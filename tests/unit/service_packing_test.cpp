// SPDX-License-Identifier: MIT
// How answers are laid out in the buffers of Win32 callers, and what is worked out from them.
#include "svcapi/dependents.h"
#include "svcapi/packing.h"
#include "svcapi/runtime.h"

#include <gmock/gmock.h>

#include <cstring>

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr DWORD recordBytes = sizeof(ENUM_SERVICE_STATUSA);

std::vector<ListedService> ThreeServices() {
    return {{"one", "First", {0x10, SERVICE_RUNNING, 3, 0, 0, 0, 0}, true},
            {"two", "Second", {0x10, SERVICE_STOPPED, 0, 1067, 0, 0, 0}, true},
            {"three", "Third", {}, true}};
}

// Bytes that the first `count` of the services above take.
DWORD BytesOf(std::size_t count) {
    DWORD bytes = 0;
    for (const ListedService &service : ThreeServices()) {
        if (count-- == 0) break;
        bytes += recordBytes + static_cast<DWORD>(service.name.size() + service.displayName.size() + 2);
    }
    return bytes;
}

struct Packed {
    DWORD code;
    DWORD bytesNeeded = 0;
    DWORD returned = 0;
    std::vector<ENUM_SERVICE_STATUSA> buffer;
};

Packed Pack(std::size_t first, DWORD bytes) {
    Packed packed = {};
    packed.buffer.resize(bytes / recordBytes + 1);
    std::memset(packed.buffer.data(), 0x55, packed.buffer.size() * recordBytes);
    packed.code = PackServices(ListOf(ThreeServices()), first, packed.buffer.data(), bytes, &packed.bytesNeeded,
                               &packed.returned);
    return packed;
}

} // namespace

// A process that has listed many services once must not hold their room for good.
TEST(ServiceLists, an_emptied_list_keeps_room_of_usual_size_only) {
    ServiceList few = ListOf(ThreeServices());
    const char *const room = few.texts.data();
    Empty(&few);
    EXPECT_THAT(few.places, IsEmpty());
    EXPECT_EQ(few.textBytes, 0u);
    EXPECT_EQ(few.texts.data(), room) << "kept for the next time";
    ServiceList many = ListOf(std::vector<ListedService>(20000, {std::string(100, 'n'), std::string(100, 'd')}));
    Empty(&many);
    EXPECT_EQ(many.places.capacity(), 0u);
    EXPECT_LT(many.texts.capacity(), 100u);
    EXPECT_EQ(many.textBytes, 0u);
}

TEST(PackServices, exactly_enough_room_holds_all) {
    const Packed packed = Pack(0, BytesOf(3));
    EXPECT_EQ(packed.code, ERROR_SUCCESS);
    EXPECT_EQ(packed.returned, 3u);
    EXPECT_EQ(packed.bytesNeeded, 0u);
    EXPECT_STREQ(packed.buffer[1].lpServiceName, "two");
    EXPECT_STREQ(packed.buffer[2].lpDisplayName, "Third");
    EXPECT_EQ(packed.buffer[1].ServiceStatus.dwWin32ExitCode, 1067u);
}

TEST(PackServices, one_byte_too_little_leaves_the_last_out) {
    const Packed packed = Pack(0, BytesOf(3) - 1);
    EXPECT_EQ(packed.code, ERROR_MORE_DATA);
    EXPECT_EQ(packed.returned, 2u);
    EXPECT_EQ(packed.bytesNeeded, BytesOf(3));
}

TEST(PackServices, no_room_tells_the_bytes_needed) {
    const Packed packed = Pack(0, 0);
    EXPECT_EQ(packed.code, ERROR_MORE_DATA);
    EXPECT_EQ(packed.returned, 0u);
    EXPECT_EQ(packed.bytesNeeded, BytesOf(3));
}

TEST(PackServices, going_on_needs_room_for_the_rest_only) {
    const Packed packed = Pack(2, BytesOf(3) - BytesOf(2));
    EXPECT_EQ(packed.code, ERROR_SUCCESS);
    EXPECT_EQ(packed.returned, 1u);
    EXPECT_STREQ(packed.buffer[0].lpServiceName, "three");
}

TEST(PackServices, texts_stand_behind_the_records_the_first_service_last_and_nothing_behind_them) {
    for (const std::size_t count : {3, 2, 1}) {
        const DWORD bytes = count == 3 ? BytesOf(3) + 50 : BytesOf(count + 1) - 1;
        const Packed packed = Pack(0, bytes);
        ASSERT_EQ(packed.returned, count);
        const std::string texts =
            std::string(count > 2 ? "three\0Third\0"s : ""s) + (count > 1 ? "two\0Second\0"s : ""s) + "one\0First\0"s;
        const auto *const behind = reinterpret_cast<const char *>(packed.buffer.data() + count);
        const auto *const end = reinterpret_cast<const char *>(packed.buffer.data() + packed.buffer.size());
        EXPECT_EQ(std::string(behind, texts.size()), texts);
        EXPECT_EQ(std::string(behind + texts.size(), end), std::string(end - behind - texts.size(), '\x55'));
    }
}

TEST(PackServices, the_texts_of_wide_records_are_utf_16) {
    const ServiceList services = ListOf({{"d\xC3\xBC", "\xE2\x82", {}, true}, {"e", "", {}, true}});
    std::vector<ENUM_SERVICE_STATUS_PROCESSW> buffer(3);
    const DWORD bytes = 2 * sizeof buffer[0] + (2 + 1 + 2 + 1 + 1 + 1 + 1) * sizeof(WCHAR);
    DWORD bytesNeeded = 0;
    DWORD returned = 0;
    EXPECT_EQ(PackServices(services, 0, buffer.data(), bytes - 1, &bytesNeeded, &returned), ERROR_MORE_DATA);
    EXPECT_EQ(bytesNeeded, bytes);
    EXPECT_EQ(returned, 1u);
    EXPECT_EQ(PackServices(services, 0, buffer.data(), bytes, &bytesNeeded, &returned), ERROR_SUCCESS);
    EXPECT_EQ(returned, 2u);
    EXPECT_EQ(buffer[0].lpServiceName, u"d\u00FC"s);
    EXPECT_EQ(buffer[0].lpDisplayName, u"\uFFFD\uFFFD"s);
    EXPECT_EQ(buffer[1].lpServiceName, u"e"s);
    EXPECT_EQ(buffer[1].lpDisplayName, u""s);
    EXPECT_EQ(reinterpret_cast<const char *>(buffer[0].lpDisplayName + 3),
              reinterpret_cast<const char *>(buffer.data()) + bytes);
}

TEST(PackServices, nothing_to_list_needs_nothing) {
    DWORD bytesNeeded = 9;
    DWORD returned = 9;
    EXPECT_EQ(PackServices<ENUM_SERVICE_STATUSA>(ServiceList{}, 0, nullptr, 0, &bytesNeeded, &returned), ERROR_SUCCESS);
    EXPECT_EQ(bytesNeeded, 0u);
    EXPECT_EQ(returned, 0u);
}

TEST(PackConfig, room_for_all_strings_is_needed_and_used) {
    const ServiceConfig config = {0x10, 2, 1, "/image", "group", 7, {"one", "+two"}, "user", "Display"};
    DWORD bytesNeeded = 0;
    EXPECT_EQ(PackConfig<QUERY_SERVICE_CONFIGA>(config, nullptr, 0, &bytesNeeded), ERROR_INSUFFICIENT_BUFFER);
    std::vector<QUERY_SERVICE_CONFIGA> buffer(bytesNeeded / sizeof(QUERY_SERVICE_CONFIGA) + 1);
    EXPECT_EQ(PackConfig(config, buffer.data(), bytesNeeded - 1, &bytesNeeded), ERROR_INSUFFICIENT_BUFFER);
    ASSERT_EQ(PackConfig(config, buffer.data(), bytesNeeded, &bytesNeeded), ERROR_SUCCESS);
    EXPECT_STREQ(buffer[0].lpBinaryPathName, "/image");
    EXPECT_EQ(std::string(buffer[0].lpDependencies, 10), std::string("one\0+two\0\0", 10));
    EXPECT_STREQ(buffer[0].lpServiceStartName, "user");
    EXPECT_EQ(buffer[0].dwTagId, 7u);
}

TEST(PackLockStatus, a_free_database_has_an_empty_owner) {
    QUERY_SERVICE_LOCK_STATUSA buffer[2];
    DWORD bytesNeeded = 0;
    ASSERT_EQ(PackLockStatus({}, buffer, sizeof buffer, &bytesNeeded), ERROR_SUCCESS);
    EXPECT_EQ(buffer[0].fIsLocked, 0u);
    EXPECT_STREQ(buffer[0].lpLockOwner, "");
}

namespace {

std::vector<std::string> Dependents(const std::vector<ServiceNode> &nodes, const std::string &name) {
    std::vector<std::string> names;
    for (const std::size_t i : DependentsInStopOrder(nodes, name)) {
        names.push_back(nodes[i].name);
    }
    return names;
}

} // namespace

TEST(DependentsInStopOrder, the_farthest_comes_first) {
    const std::vector<ServiceNode> nodes = {{"base", "", {}}, {"middle", "", {"base"}}, {"top", "", {"middle"}}};
    EXPECT_THAT(Dependents(nodes, "base"), ElementsAre("top", "middle"));
    EXPECT_THAT(Dependents(nodes, "top"), IsEmpty());
}

TEST(DependentsInStopOrder, one_that_is_met_twice_comes_once_and_before_both) {
    const std::vector<ServiceNode> nodes = {
        {"base", "", {}}, {"left", "", {"base"}}, {"right", "", {"base"}}, {"top", "", {"left", "right"}}};
    EXPECT_THAT(Dependents(nodes, "base"), ElementsAre("top", "left", "right"));
}

TEST(DependentsInStopOrder, a_dependency_on_its_group_counts) {
    const std::vector<ServiceNode> nodes = {{"base", "net", {}}, {"user", "", {"+net"}}, {"other", "", {"+disk"}}};
    EXPECT_THAT(Dependents(nodes, "base"), ElementsAre("user"));
}

TEST(DependentsInStopOrder, a_ring_ends) {
    const std::vector<ServiceNode> nodes = {{"a", "", {"b"}}, {"b", "", {"a"}}};
    EXPECT_THAT(Dependents(nodes, "a"), ElementsAre("b"));
}

TEST(DependentsInStopOrder, those_by_name_and_those_by_group_come_in_the_order_of_the_services) {
    const std::vector<ServiceNode> nodes = {{"by group", "", {"+net"}},
                                            {"by name", "", {"base"}},
                                            {"base", "net", {}},
                                            {"by both", "", {"base", "+net"}},
                                            {"sibling", "net", {"by group"}}};
    EXPECT_THAT(Dependents(nodes, "base"), ElementsAre("by both", "sibling", "by group", "by name"));
}

// A walk that calls itself has no stack for this, and one that looks at all services in each step does not end.
TEST(DependentsInStopOrder, a_chain_of_two_hundred_thousand_is_walked) {
    constexpr std::size_t length = 200000;
    std::vector<ServiceNode> nodes(length);
    for (std::size_t i = 0; i < length; ++i) {
        nodes[i].name = std::to_string(i);
        if (i > 0) nodes[i].dependencies = {std::to_string(i - 1)};
    }
    const std::vector<std::size_t> order = DependentsInStopOrder(nodes, "0");
    ASSERT_EQ(order.size(), length - 1);
    EXPECT_EQ(order.front(), length - 1);
    EXPECT_EQ(order.back(), 1u);
}

// Everybody in one group, and everybody depending on it.
TEST(DependentsInStopOrder, a_group_of_two_hundred_thousand_is_walked) {
    constexpr std::size_t size = 200000;
    std::vector<ServiceNode> nodes(size, {"", "all", {"+all"}});
    for (std::size_t i = 0; i < size; ++i) {
        nodes[i].name = std::to_string(i);
    }
    EXPECT_EQ(DependentsInStopOrder(nodes, "0").size(), size - 1);
}

TEST(DependentsInStopOrder, an_unknown_service_has_none) { EXPECT_THAT(Dependents({}, "a"), IsEmpty()); }

namespace {

DWORD SafeHint(DWORD state, DWORD hintMs) {
    SERVICE_STATUS status = {};
    status.dwCurrentState = state;
    status.dwWaitHint = hintMs;
    return WithSafeWaitHint(status).dwWaitHint;
}

} // namespace

TEST(WithSafeWaitHint, a_pending_hint_is_rounded_up_to_whole_seconds) {
    EXPECT_EQ(SafeHint(SERVICE_START_PENDING, 0), 0u);
    EXPECT_EQ(SafeHint(SERVICE_START_PENDING, 1), 1000u);
    EXPECT_EQ(SafeHint(SERVICE_STOP_PENDING, 2000), 2000u);
    EXPECT_EQ(SafeHint(SERVICE_CONTINUE_PENDING, 2001), 3000u);
}

TEST(WithSafeWaitHint, a_state_that_lasts_announces_no_wait) {
    EXPECT_EQ(SafeHint(SERVICE_RUNNING, 5000), 0u);
    EXPECT_EQ(SafeHint(SERVICE_PAUSED, 5000), 0u);
    EXPECT_EQ(SafeHint(SERVICE_STOPPED, 5000), 0u);
}

TEST(WithSafeWaitHint, the_longest_hint_stays_positive_on_the_wire) {
    EXPECT_EQ(SafeHint(SERVICE_PAUSE_PENDING, 0xFFFFFFFF), 2147483000u);
}
