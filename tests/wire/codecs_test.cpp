// SPDX-License-Identifier: MIT
// Our codec of every record against the one that rpcgen makes from protocol/: the same values give the same bytes, and
// each decodes what the other has encoded.
#include "tests/support/records.h"

// As our headers have them, before rpcgen's macros of the same names hide them.
static constexpr std::uint32_t ourPrograms[] = {SERVDAEMONPROG, SERVDAEMONVERS, REGDAEMONPROG, REGDAEMONVERS};
static constexpr std::uint32_t ourRegdProcedures[] = {
    REG_CLOSE_KEY,        REG_CREATE_KEY,       REG_CREATE_KEY_EX,  REG_DELETE_KEY,
    REG_DELETE_VALUE,     REG_ENUM_KEY,         REG_ENUM_KEY_EX,    REG_ENUM_VALUE,
    REG_FLUSH_KEY,        REG_GET_KEY_SECURITY, REG_LOAD_KEY,       REG_NOTIFY_CHANGE_KEY_VALUE,
    REG_OPEN_KEY,         REG_OPEN_KEY_EX,      REG_QUERY_INFO_KEY, REG_QUERY_VALUE,
    REG_QUERY_VALUE_EX,   REG_REPLACE_KEY,      REG_RESTORE_KEY,    REG_SAVE_KEY,
    REG_SET_KEY_SECURITY, REG_SET_VALUE,        REG_SET_VALUE_EX,   REG_UNLOAD_KEY,
    REG_QUERY_VERSION,    REG_PING_DAEMON};

#include "tests/wire/record_fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using ::testing::ElementsAreArray;

constexpr int samples = 100;
constexpr int longList = 2000;

template <typename Record>
inline constexpr bool isGenerated = false;
template <typename Record>
inline constexpr bool_t (*oracleOf)(XDR *, Record *) = nullptr;

#define TV_ORACLE_OF(Record)                                                                                           \
    template <>                                                                                                        \
    inline constexpr bool isGenerated<oracle_##Record> = true;                                                         \
    template <>                                                                                                        \
    inline constexpr bool_t (*oracleOf<oracle_##Record>)(XDR *, oracle_##Record *) = xdr_oracle_##Record;
SERVD_RECORDS(TV_ORACLE_OF)
SERVICE_RECORDS(TV_ORACLE_OF)
REGD_RECORDS(TV_ORACLE_OF)

template <typename Record>
constexpr auto RoutineOf() {
    if constexpr (isGenerated<Record>) {
        return oracleOf<Record>;
    } else {
        return routineOf<Record>;
    }
}

// --- values

// Fills the fields of a record with values that depend on nothing but the seed: often the smallest and the largest.
struct Filler {
    std::mt19937 random;
    int nextListLength = -1; // for the next list; -1: short, as it comes

    std::uint32_t Random() { return static_cast<std::uint32_t>(random()); }

    std::uint32_t Number() {
        static constexpr std::uint32_t extremes[] = {0,       1,          0x7F,       0x80,      0xFFFF,
                                                     0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        const std::size_t choice = random() % (2 * std::size(extremes));
        return choice < std::size(extremes) ? extremes[choice] : Random();
    }

    std::uint32_t Length() {
        static constexpr std::uint32_t lengths[] = {0, 1, 2, 3, 4, 5, 255, 256, 257, 4095, 4096, 4097, 9001};
        const std::size_t choice = random() % (4 * std::size(lengths));
        return choice < std::size(lengths) ? lengths[choice] : Random() % 20;
    }

    char *Bytes(std::uint32_t count, unsigned smallest) {
        char *bytes = static_cast<char *>(std::malloc(std::size_t{count} + 1));
        for (std::uint32_t i = 0; i < count; ++i)
            bytes[i] = static_cast<char>(smallest + random() % (256 - smallest));
        bytes[count] = '\0';
        return bytes;
    }

    template <typename Field>
    void operator()(Field &field) {
        if constexpr (std::is_integral_v<Field>) {
            field = static_cast<Field>(Number());
        } else if constexpr (std::is_same_v<Field, char *>) {
            field = Bytes(Length(), 1); // a string ends with its first NUL
        } else if constexpr (std::is_pointer_v<Field>) {
            const int length = nextListLength >= 0 ? nextListLength : static_cast<int>(random() % 4);
            for (int i = 0; i < length; ++i) {
                auto *link = static_cast<Field>(std::calloc(1, sizeof *field));
                VisitFields(*link, *this);
                link->next = field;
                field = link;
            }
        } else if constexpr (requires { VisitFields(field, *this); }) {
            VisitFields(field, *this);
        } else {
            auto &[count, bytes] = field;
            count = Length();
            bytes = Bytes(count, 0);
        }
    }
};

// Every value of a record as text, in order, whatever type holds it.
struct Reader {
    std::vector<std::string> values;

    template <typename Field>
    void operator()(Field &field) {
        if constexpr (std::is_integral_v<Field>) {
            values.push_back(std::to_string(field));
        } else if constexpr (std::is_same_v<Field, char *>) {
            values.push_back(field != nullptr ? "string " + std::string(field) : "null");
        } else if constexpr (std::is_pointer_v<Field>) {
            for (auto *link = field; link != nullptr; link = link->next) {
                values.emplace_back("link");
                VisitFields(*link, *this);
            }
            values.emplace_back("end of list");
        } else if constexpr (requires { VisitFields(field, *this); }) {
            VisitFields(field, *this);
        } else {
            auto &[count, bytes] = field;
            values.push_back("bytes " + std::string(bytes, count));
        }
    }
};

// A record that is a link has its rest filled too, and one union in two has a body.
template <typename Record>
void Fill(Record &record, Filler filler) {
    VisitFields(record, filler);
    if constexpr (requires { record.next; }) filler(record.next);
    if constexpr (requires { record.discriminant; }) {
        if (filler.Random() % 2 == 0) return;
        while (record.discriminant != 1)
            VisitFields(record, filler);
    }
}

template <typename Record>
std::vector<std::string> ValuesOf(Record &record) {
    Reader reader;
    VisitFields(record, reader);
    if constexpr (requires { record.next; }) reader(record.next);
    return reader.values;
}

// --- codecs

template <typename Record>
std::string Encode(Record &record) {
    constexpr u_int roomBytes = 1 << 24;
    const std::unique_ptr<char[]> room(new char[roomBytes]);
    XDR xdrs = {};
    xdrmem_create(&xdrs, room.get(), roomBytes, XDR_ENCODE);
    EXPECT_TRUE(RoutineOf<Record>()(&xdrs, &record));
    return {room.get(), XDR_GETPOS(&xdrs)};
}

// Decodes all of the bytes.
template <typename Record>
void Decode(std::string bytes, Record &record) {
    XDR xdrs = {};
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    EXPECT_TRUE(RoutineOf<Record>()(&xdrs, &record));
    EXPECT_EQ(XDR_GETPOS(&xdrs), bytes.size());
}

template <typename Record>
void Release(Record &record) {
    xdr_free(reinterpret_cast<xdrproc_t>(RoutineOf<Record>()), &record);
}

template <typename Ours, typename Theirs>
void CompareOnce(const Filler &filler) {
    Ours ours = {};
    Theirs theirs = {};
    Fill(ours, filler);
    Fill(theirs, filler);
    const std::vector<std::string> values = ValuesOf(ours);
    ASSERT_EQ(values, ValuesOf(theirs));

    const std::string bytes = Encode(ours);
    ASSERT_EQ(bytes, Encode(theirs));

    Ours fromTheirs = {};
    Theirs fromOurs = {};
    Decode(Encode(theirs), fromTheirs);
    Decode(bytes, fromOurs);
    EXPECT_EQ(values, ValuesOf(fromTheirs));
    EXPECT_EQ(values, ValuesOf(fromOurs));
    Release(ours);
    Release(theirs);
    Release(fromTheirs);
    Release(fromOurs);
}

template <typename Ours, typename Theirs>
void CompareCodecs() {
    for (unsigned seed = 0; seed < samples && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        CompareOnce<Ours, Theirs>({std::mt19937(seed), -1});
    }
    CompareOnce<Ours, Theirs>({std::mt19937(samples), 0});
    CompareOnce<Ours, Theirs>({std::mt19937(samples), longList});
}

#define TV_COMPARE_TEST(Record)                                                                                        \
    TEST(both_codecs_agree, Record) { CompareCodecs<Record, oracle_##Record>(); }
SERVD_RECORDS(TV_COMPARE_TEST)
SERVICE_RECORDS(TV_COMPARE_TEST)
REGD_RECORDS(TV_COMPARE_TEST)

// --- word sizes

// FNV-1a
void Digest(const std::string &bytes, std::uint64_t *digest) {
    for (const char byte : bytes)
        *digest = (*digest ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
}

template <typename Record>
void DigestSamples(std::uint64_t *digest) {
    for (unsigned seed = 0; seed < samples; ++seed) {
        Record record = {};
        Fill(record, {std::mt19937(seed), -1});
        Digest(Encode(record), digest);
        Release(record);
    }
}

// The digest was taken once; builds for 32 and for 64 bits both have to meet it.
TEST(every_record, has_the_same_bytes_whatever_the_word_size) {
    std::uint64_t digest = 0xCBF29CE484222325U;
#define TV_DIGEST(Record) DigestSamples<Record>(&digest);
    SERVD_RECORDS(TV_DIGEST)
    SERVICE_RECORDS(TV_DIGEST)
    REGD_RECORDS(TV_DIGEST)
#undef TV_DIGEST
    EXPECT_EQ(digest, 0xBA2648C788256495U);
}

// --- numbers

TEST(program_numbers, are_those_of_the_protocol_files) {
    const std::uint32_t theirs[] = {SERVDAEMONPROG, SERVDAEMONVERS, REGDAEMONPROG, REGDAEMONVERS};
    EXPECT_THAT(ourPrograms, ElementsAreArray(theirs));
    EXPECT_EQ(SERVICEPROCESSPROG, SERVDAEMONPROG);
    EXPECT_EQ(SERVICEPROCESSVERS, 1);
}

TEST(servd_procedure_numbers, are_those_of_the_protocol_file) {
    const std::uint32_t ours[] = {
        CONNECT_SERVICE,    CREATE_SERVICE,      OPEN_SERVICE,         DELETE_SERVICE,        CLOSE_SERVICE,
        LOCK_SERVICE,       UNLOCK_SERVICE,      QUERY_LOCK_SERVICE,   START_SERVICE,         CONTROL_SERVICE,
        SET_STATUS_SERVICE, DUMMY_SERVICE,       QUERY_STATUS_SERVICE, ENUM_STATUS_SERVICE,   GET_DISPLAY_SERVICE,
        GET_KEY_SERVICE,    ENUM_DEPEND_SERVICE, QUERY_CONFIG_SERVICE, CHANGE_CONFIG_SERVICE, STOP_DAEMON_SERVICE};
    const std::uint32_t theirs[] = {
        SERV_CONNECT_SERVICE,      SERV_CREATE_SERVICE,       SERV_OPEN_SERVICE,          SERV_DELETE_SERVICE,
        SERV_CLOSE_SERVICE,        SERV_LOCK_SERVICE,         SERV_UNLOCK_SERVICE,        SERV_QUERY_LOCK_SERVICE,
        SERV_START_SERVICE,        SERV_CONTROL_SERVICE,      SERV_SET_STATUS_SERVICE,    SERV_DUMMY_SERVICE,
        SERV_QUERY_STATUS_SERVICE, SERV_ENUM_STATUS_SERVICE,  SERV_GET_DISPLAY_SERVICE,   SERV_GET_KEY_SERVICE,
        SERV_ENUM_DEPEND_SERVICE,  SERV_QUERY_CONFIG_SERVICE, SERV_CHANGE_CONFIG_SERVICE, SERV_STOP_DAEMON_SERVICE};
    EXPECT_THAT(ours, ElementsAreArray(theirs));
}

TEST(service_procedure_numbers, are_those_of_the_protocol_file) {
    const std::uint32_t ours[] = {SERVICE_PROC_START, SERVICE_PROC_CONTROL, SERVICE_PROC_DUMMY};
    const std::uint32_t theirs[] = {SERVICE_START_SERVICE, SERVICE_CONTROL_SERVICE, SERVICE_DUMMY_SERVICE};
    EXPECT_THAT(ours, ElementsAreArray(theirs));
}

TEST(regd_procedure_numbers, are_those_of_the_protocol_file) {
    const std::uint32_t theirs[] = {
        REG_CLOSE_KEY,        REG_CREATE_KEY,       REG_CREATE_KEY_EX,  REG_DELETE_KEY,
        REG_DELETE_VALUE,     REG_ENUM_KEY,         REG_ENUM_KEY_EX,    REG_ENUM_VALUE,
        REG_FLUSH_KEY,        REG_GET_KEY_SECURITY, REG_LOAD_KEY,       REG_NOTIFY_CHANGE_KEY_VALUE,
        REG_OPEN_KEY,         REG_OPEN_KEY_EX,      REG_QUERY_INFO_KEY, REG_QUERY_VALUE,
        REG_QUERY_VALUE_EX,   REG_REPLACE_KEY,      REG_RESTORE_KEY,    REG_SAVE_KEY,
        REG_SET_KEY_SECURITY, REG_SET_VALUE,        REG_SET_VALUE_EX,   REG_UNLOAD_KEY,
        REG_QUERY_VERSION,    REG_PING_DAEMON};
    EXPECT_THAT(ourRegdProcedures, ElementsAreArray(theirs));
}

} // namespace
