// SPDX-License-Identifier: MIT
// Our codec of every record against the one that rpcgen makes from protocol/: the same values give the same bytes, and
// each decodes what the other has encoded.
#include "tests/support/records.h"

// As our headers have them, before rpcgen's macros of the same names hide them.
static constexpr std::uint32_t ourPrograms[] = {SERVDAEMONPROG, SERVDAEMONVERS, REGDAEMONPROG, REGDAEMONVERS};
#define TV_NAME(number, name, ...) name,
static constexpr std::uint32_t ourServdProcedures[] = {SERVD_PROCEDURES(TV_NAME)};
static constexpr std::uint32_t ourServiceProcedures[] = {SERVICE_PROCEDURES(TV_NAME)};
static constexpr std::uint32_t ourRegdProcedures[] = {REGD_PROCEDURES(TV_NAME)};

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
        for (std::uint32_t i = 0; i < count; ++i) {
            bytes[i] = static_cast<char>(smallest + random() % (256 - smallest));
        }
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
        while (record.discriminant != 1) {
            VisitFields(record, filler);
        }
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
    static const std::unique_ptr<char[]> room(new char[roomBytes]); // kept: a sanitizer takes long to map so much
    XDR xdrs = {};
    xdrmem_create(&xdrs, room.get(), roomBytes, XDR_ENCODE);
    EXPECT_TRUE(routineOf<Record>(&xdrs, &record));
    return {room.get(), XDR_GETPOS(&xdrs)};
}

// Decodes all of the bytes.
template <typename Record>
void Decode(std::string bytes, Record &record) {
    XDR xdrs = {};
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    EXPECT_TRUE(routineOf<Record>(&xdrs, &record));
    EXPECT_EQ(XDR_GETPOS(&xdrs), bytes.size());
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
    FreeRecord(&ours);
    FreeRecord(&theirs);
    FreeRecord(&fromTheirs);
    FreeRecord(&fromOurs);
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

#define TV_RECORD(Record)                                                                                              \
    TEST(both_codecs_agree, Record) { CompareCodecs<Record, oracle_##Record>(); }
SERVD_RECORDS
SERVICE_RECORDS
REGD_RECORDS
#undef TV_RECORD

// --- word sizes

// FNV-1a
void Digest(const std::string &bytes, std::uint64_t *digest) {
    for (const char byte : bytes) {
        *digest = (*digest ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
    }
}

template <typename Record>
void DigestSamples(std::uint64_t *digest) {
    for (unsigned seed = 0; seed < samples; ++seed) {
        Record record = {};
        Fill(record, {std::mt19937(seed), -1});
        Digest(Encode(record), digest);
        FreeRecord(&record);
    }
}

// The digest was taken once; builds for 32 and for 64 bits both have to meet it.
TEST(every_record, has_the_same_bytes_whatever_the_word_size) {
    std::uint64_t digest = 0xCBF29CE484222325U;
#define TV_RECORD(Record) DigestSamples<Record>(&digest);
    SERVD_RECORDS
    SERVICE_RECORDS
    REGD_RECORDS
#undef TV_RECORD
    EXPECT_EQ(digest, 0xB641C8ACCFEFCB4DU);
}

// --- numbers

TEST(program_numbers, are_those_of_the_protocol_files) {
    const std::uint32_t theirs[] = {SERVDAEMONPROG, SERVDAEMONVERS, REGDAEMONPROG, REGDAEMONVERS};
    EXPECT_THAT(ourPrograms, ElementsAreArray(theirs));
    EXPECT_EQ(SERVICEPROCESSPROG, SERVDAEMONPROG);
    EXPECT_EQ(SERVICEPROCESSVERS, 1);
}

TEST(servd_procedure_numbers, are_those_of_the_protocol_file) {
#define TV_THEIRS(number, name, handler, Record) SERV_##name,
    const std::uint32_t theirs[] = {SERVD_PROCEDURES(TV_THEIRS)};
    EXPECT_THAT(ourServdProcedures, ElementsAreArray(theirs));
}

TEST(service_procedure_numbers, are_those_of_the_protocol_file) {
    const std::uint32_t theirs[] = {SERVICE_PROCEDURES(TV_NAME)}; // rpcgen's macros by now
    EXPECT_THAT(ourServiceProcedures, ElementsAreArray(theirs));
}

TEST(regd_procedure_numbers, are_those_of_the_protocol_file) {
    const std::uint32_t theirs[] = {REGD_PROCEDURES(TV_NAME)}; // likewise
    EXPECT_THAT(ourRegdProcedures, ElementsAreArray(theirs));
}

} // namespace
