// SPDX-License-Identifier: MIT
// What the service API takes from the answer to an enumeration, which it decodes where it stands: cut answers, lying
// lengths and marks, any place in memory. What holds is what the routine of the whole record makes of the same bytes.
#include "tests/support/allocations.h"
#include "tests/support/enumeration_answer.h"
#include "tests/support/xdr_bytes.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t offsets[] = {0, 1, 2, 3};

const std::string statusWords = Words({0x10, 4, 3, 1066, 0xFFFFFFFE, 0x7FFFFFFF, 2000});
const std::vector<std::uint32_t> status = {0x10, 4, 3, 1066, 0xFFFFFFFE, 0x7FFFFFFF, 2000};

std::string Service(std::string_view name, std::string_view displayName) {
    return Words({1}) + XdrString(name) + XdrString(displayName) + statusWords;
}

// Names of every length that a last word may have.
const std::string wholeAnswer = Words({0, 130, 5, 7}) + Service("", "a") + Service("ab", "abc") +
                                Service("abcd", "abcde") + Service("Alerter", "The alerter") +
                                Service(std::string(300, 'n'), std::string(5000, 'd')) + Words({0});

std::string WithWord(std::string bytes, std::size_t at, std::uint32_t word) {
    return bytes.replace(at, 4, Words({word}));
}

// Returns what both take.
TakenAnswer ExpectBothTake(std::string_view bytes) {
    const TakenAnswer expected = TakenAsRecord(bytes);
    for (const std::size_t offset : offsets) {
        EXPECT_TRUE(TakenByApi(bytes, offset) == expected) << bytes.size() << " bytes, " << offset << " off a word";
    }
    return expected;
}

} // namespace

TEST(enumeration_answer, is_taken_whole_wherever_it_stands) {
    const TakenAnswer taken = ExpectBothTake(wholeAnswer);
    EXPECT_TRUE(taken.isDecoded);
    EXPECT_EQ(taken.bytesUsed, wholeAnswer.size());
    EXPECT_EQ(taken.bytesNeeded, 130);
    EXPECT_EQ(taken.resumeIndex, 7);
    EXPECT_THAT(taken.services,
                ElementsAre(TakenService{"", "a", status}, TakenService{"ab", "abc", status},
                            TakenService{"abcd", "abcde", status}, TakenService{"Alerter", "The alerter", status},
                            TakenService{std::string(300, 'n'), std::string(5000, 'd'), status}));
}

TEST(enumeration_answer, is_refused_at_every_cut) {
    for (std::size_t size = 0; size < wholeAnswer.size(); ++size) {
        EXPECT_FALSE(ExpectBothTake(std::string_view(wholeAnswer).substr(0, size)).isDecoded) << size;
    }
}

TEST(enumeration_answer, any_word_may_lie) {
    const std::size_t firstBytes = (Words({0, 130, 5, 7}) + Service("", "a") + Service("ab", "abc")).size();
    for (const std::uint32_t lie : {0u, 1u, 2u, 3u, 5u, 0x10000000u, 0x7FFFFFFCu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u,
                                    0xFFFFFFFCu, 0xFFFFFFFDu, 0xFFFFFFFFu}) {
        for (std::size_t at = 0; at < firstBytes; at += 4) {
            (void)ExpectBothTake(WithWord(wholeAnswer, at, lie));
        }
    }
}

TEST(enumeration_answer, a_length_takes_no_memory_for_what_has_not_come) {
    for (const std::uint32_t lie : {0x10000000u, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        const std::string bytes = WithWord(wholeAnswer, 5 * 4, lie); // of the first name
        for (const std::size_t offset : offsets) {
            StartCounting();
            const TakenAnswer taken = TakenByApi(bytes, offset);
            const Allocations allocations = StopCounting();
            EXPECT_FALSE(taken.isDecoded) << lie << ", " << offset;
            EXPECT_LE(allocations.largest, 4 * bytes.size()) << lie << ", " << offset;
        }
    }
}

TEST(enumeration_answer, more_or_fewer_services_than_it_counts_are_taken_as_they_come) {
    for (const std::uint32_t count : {0u, 1u, 1000u, 0xFFFFFFFFu}) {
        const TakenAnswer taken = ExpectBothTake(WithWord(wholeAnswer, 2 * 4, count));
        EXPECT_TRUE(taken.isDecoded) << count;
        EXPECT_EQ(taken.services.size(), 5u) << count;
    }
}

TEST(enumeration_answer, a_name_ends_at_its_first_zero) {
    using namespace std::string_view_literals;
    const TakenAnswer taken =
        ExpectBothTake(Words({0, 0, 1, 0}) + Service("a\0b\0"sv, "\0hidden"sv) + Service("c", "\0"sv) + Words({0}));
    EXPECT_THAT(taken.services, ElementsAre(TakenService{"a", "", status}, TakenService{"c", "", status}));
}

TEST(enumeration_answer, any_mark_but_0_says_that_there_is_a_service) {
    const std::string answer = Words({0, 0, 1, 0}) + Service("a", "b") + Words({0});
    for (const std::uint32_t mark : {2u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_THAT(ExpectBothTake(WithWord(answer, 4 * 4, mark)).services, ElementsAre(TakenService{"a", "b", status}))
            << mark;
    }
}

TEST(enumeration_answer, padding_may_hold_anything) {
    std::string answer = Words({0, 0, 1, 0}) + Service("a", "bc") + Words({0});
    answer.replace(6 * 4 + 1, 3, "xyz");
    EXPECT_THAT(ExpectBothTake(answer).services, ElementsAre(TakenService{"a", "bc", status}));
}

TEST(enumeration_answer, bytes_behind_it_are_left_alone) {
    const TakenAnswer taken = ExpectBothTake(wholeAnswer + Words({1, 2, 3}));
    EXPECT_EQ(taken.bytesUsed, wholeAnswer.size());
}

TEST(enumeration_answer, a_refusal_hands_no_service_on_but_must_be_whole) {
    const std::string refusal = WithWord(wholeAnswer, 0, 87);
    const TakenAnswer taken = ExpectBothTake(refusal);
    EXPECT_TRUE(taken.isDecoded);
    EXPECT_EQ(taken.status, 87u);
    EXPECT_THAT(taken.services, IsEmpty());
    EXPECT_FALSE(ExpectBothTake(std::string_view(refusal).substr(0, refusal.size() - 4)).isDecoded);
}

TEST(enumeration_answer, comes_behind_the_services_that_are_there_which_outlast_a_failure) {
    const std::string another = Words({0, 0, 1, 0}) + Service("c", "d") + Words({0});
    const std::string refusal = WithWord(wholeAnswer, 0, 87);
    for (const std::size_t offset : offsets) {
        ServiceList services = ListOf({{"a", "b", {}, true}});
        for (std::size_t size = 0; size < wholeAnswer.size(); size += 4) {
            EXPECT_FALSE(TakenByApi(wholeAnswer.substr(0, size), offset, &services).isDecoded);
        }
        EXPECT_EQ(TakenByApi(refusal, offset, &services).status, 87u);
        EXPECT_TRUE(TakenByApi(another, offset, &services).isDecoded);
        ASSERT_EQ(services.places.size(), 2u);
        EXPECT_EQ(NameIn(services, services.places[0]), "a");
        EXPECT_EQ(DisplayNameIn(services, services.places[0]), "b");
        EXPECT_EQ(NameIn(services, services.places[1]), "c");
        EXPECT_EQ(DisplayNameIn(services, services.places[1]), "d");
    }
}
