// SPDX-License-Identifier: MIT
// The kinds of fields: same bytes as libtirpc's routines, and no trust in lengths that a peer declares.
#include "rpc/record.h"

#include "tests/support/allocations.h"
#include "tests/support/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

template <typename Field>
std::string EncodeField(Field field) {
    std::vector<char> room(1 << 20);
    XDR xdrs = {};
    xdrmem_create(&xdrs, room.data(), static_cast<u_int>(room.size()), XDR_ENCODE);
    EXPECT_TRUE(CodeField(&xdrs, field));
    return {room.data(), XDR_GETPOS(&xdrs)};
}

template <typename Field>
bool DecodeField(std::string bytes, Field &field) {
    XDR xdrs = {};
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    return CodeField(&xdrs, field) && XDR_GETPOS(&xdrs) == bytes.size();
}

template <typename Field>
void ReleaseField(Field &field) {
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    EXPECT_TRUE(CodeField(&xdrs, field));
}

// The same through libtirpc: an array of char, coded by xdr_char.
std::string EncodeWithLibrary(std::string chars) {
    std::vector<char> room(1 << 20);
    XDR xdrs = {};
    xdrmem_create(&xdrs, room.data(), static_cast<u_int>(room.size()), XDR_ENCODE);
    char *at = chars.data();
    u_int count = static_cast<u_int>(chars.size());
    EXPECT_TRUE(xdr_array(&xdrs, &at, &count, ~0u, 1, reinterpret_cast<xdrproc_t>(xdr_char)));
    return {room.data(), XDR_GETPOS(&xdrs)};
}

std::string DecodeWithLibrary(std::string bytes) {
    XDR xdrs = {};
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    char *chars = nullptr;
    u_int count = 0;
    EXPECT_TRUE(xdr_array(&xdrs, &chars, &count, ~0u, 1, reinterpret_cast<xdrproc_t>(xdr_char)));
    std::string result(chars, count);
    free(chars);
    return result;
}

std::string EveryByte() {
    std::string all;
    for (int c = 0; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    return all;
}

std::string Repeated(const std::string &text, std::size_t size) {
    std::string result;
    while (result.size() < size) {
        result += text;
    }
    result.resize(size);
    return result;
}

constexpr std::uint32_t lyingLengths[] = {0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFFF0, 0x80000000, 0x7FFFFFFF, 0x10000000, 5000};
constexpr std::size_t firstStep = 4096 + 1;

TEST(counting, sees_what_the_codec_takes) {
    char *text = nullptr;
    StartCounting();
    ASSERT_TRUE(DecodeField(XdrString("abc"), text));
    const Allocations taken = StopCounting();
    EXPECT_EQ(taken.live, 1);
    EXPECT_EQ(taken.requests, 1);
    EXPECT_EQ(taken.largest, 4u);
    ReleaseField(text);
}

// --- integers

TEST(integer, the_extremes_are_four_bytes) {
    EXPECT_EQ(EncodeField(std::uint32_t{0}), Words({0}));
    EXPECT_EQ(EncodeField(std::uint32_t{0xFFFFFFFF}), Words({0xFFFFFFFF}));
    EXPECT_EQ(EncodeField(std::int32_t{-1}), Words({0xFFFFFFFF}));
    EXPECT_EQ(EncodeField(std::int32_t{INT32_MIN}), Words({0x80000000}));
    EXPECT_EQ(EncodeField(std::int32_t{INT32_MAX}), Words({0x7FFFFFFF}));
    EXPECT_EQ(EncodeField(std::uint16_t{0xFFFF}), Words({0x0000FFFF}));
}

TEST(integer, decoding_touches_its_own_four_bytes_only) {
    struct {
        std::uint32_t before, field, after;
    } words = {1, 2, 3};
    ASSERT_TRUE(DecodeField(Words({0xFFFFFFFF}), words.field));
    EXPECT_EQ(words.before, 1u);
    EXPECT_EQ(words.field, 0xFFFFFFFFu);
    EXPECT_EQ(words.after, 3u);
}

TEST(integer, negative_numbers_come_back) {
    std::int32_t number = 0;
    ASSERT_TRUE(DecodeField(Words({0x80000000}), number));
    EXPECT_EQ(number, INT32_MIN);
}

TEST(integer, sixteen_bits_drop_the_upper_half) {
    std::uint16_t number = 0;
    ASSERT_TRUE(DecodeField(Words({0xABCD1234}), number));
    EXPECT_EQ(number, 0x1234);
}

TEST(integer, a_cut_word_is_refused) {
    std::uint32_t number = 0;
    EXPECT_FALSE(DecodeField(std::string(3, '\0'), number));
}

// --- strings

TEST(text, is_a_length_the_characters_and_padding) {
    EXPECT_EQ(EncodeField(Text("")), Words({0}));
    EXPECT_EQ(EncodeField(Text("a")), std::string("\0\0\0\1a\0\0\0", 8));
    EXPECT_EQ(EncodeField(Text("abcd")), std::string("\0\0\0\4abcd", 8));
}

TEST(text, null_travels_as_the_empty_string) {
    char *null = nullptr;
    EXPECT_EQ(EncodeField(null), Words({0}));
}

TEST(text, an_empty_string_decodes_to_memory_of_its_own) {
    char *text = nullptr;
    ASSERT_TRUE(DecodeField(Words({0}), text));
    EXPECT_STREQ(text, "");
    ReleaseField(text);
    EXPECT_EQ(text, nullptr);
}

TEST(text, is_terminated_after_decoding_whatever_its_length) {
    for (const std::size_t size : {1u, 3u, 4u, 5u, 4095u, 4096u, 4097u, 8192u, 8193u, 20000u}) {
        const std::string sent = Repeated("service", size);
        char *text = nullptr;
        ASSERT_TRUE(DecodeField(XdrString(sent), text)) << size;
        EXPECT_EQ(sent, text);
        EXPECT_EQ(EncodeField(text), XdrString(sent));
        ReleaseField(text);
    }
}

TEST(text, missing_padding_is_refused) {
    char *text = nullptr;
    EXPECT_FALSE(DecodeField(std::string("\0\0\0\1a\0\0", 7), text));
    EXPECT_EQ(text, nullptr);
}

TEST(text, declared_lengths_without_data_take_no_memory_in_advance) {
    for (const std::uint32_t length : lyingLengths) {
        char *text = nullptr;
        StartCounting();
        EXPECT_FALSE(DecodeField(Words({length}) + "few bytes", text)) << length;
        const Allocations allocations = StopCounting();
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(allocations.live, 0);
        EXPECT_LE(allocations.largest, firstStep);
    }
}

TEST(text, memory_follows_the_bytes_that_came) {
    char *text = nullptr;
    StartCounting();
    EXPECT_FALSE(DecodeField(Words({0x7FFFFFFF}) + std::string(100000, 'x'), text));
    const Allocations allocations = StopCounting();
    EXPECT_EQ(allocations.live, 0);
    EXPECT_LE(allocations.largest, 3 * 100000u);
}

// --- bytes

TEST(bytes, are_a_length_the_bytes_and_padding) {
    char data[] = "\0\1\xff"
                  "45";
    EXPECT_EQ(EncodeField(CountedBytes{5, data}), std::string("\0\0\0\5\0\1\xff"
                                                              "45\0\0\0",
                                                              12));
    EXPECT_EQ(EncodeField(CountedBytes{0, nullptr}), Words({0}));
}

TEST(bytes, decode_with_their_count) {
    CountedBytes bytes = {};
    ASSERT_TRUE(DecodeField(XdrString(EveryByte()), bytes));
    EXPECT_EQ(std::string(bytes.bytes, bytes.count), EveryByte());
    ReleaseField(bytes);
    EXPECT_EQ(bytes.count, 0u);
    EXPECT_EQ(bytes.bytes, nullptr);
}

TEST(bytes, a_count_of_0_leaves_the_pointer_null) {
    CountedBytes bytes = {};
    ASSERT_TRUE(DecodeField(Words({0}), bytes));
    EXPECT_EQ(bytes.bytes, nullptr);
}

TEST(bytes, declared_lengths_without_data_take_no_memory_in_advance) {
    for (const std::uint32_t length : lyingLengths) {
        CountedBytes bytes = {};
        StartCounting();
        EXPECT_FALSE(DecodeField(Words({length}) + "few bytes", bytes)) << length;
        const Allocations allocations = StopCounting();
        EXPECT_EQ(bytes.count, 0u);
        EXPECT_EQ(bytes.bytes, nullptr);
        EXPECT_EQ(allocations.live, 0);
        EXPECT_LE(allocations.largest, firstStep);
    }
}

// --- character arrays

TEST(char_array, is_a_count_and_one_integer_a_character) {
    char chars[] = "ab";
    EXPECT_EQ(EncodeField(CharArray{3, chars}), Words({3, 'a', 'b', 0}));
    EXPECT_EQ(EncodeField(CharArray{0, nullptr}), Words({0}));
}

TEST(char_array, n_characters_take_4_and_4_n_bytes) {
    for (const std::size_t size : {0u, 1u, 255u, 256u, 257u, 5000u}) {
        std::string chars = Repeated("x", size);
        EXPECT_EQ(EncodeField(CharArray{static_cast<std::uint32_t>(size), chars.data()}).size(), 4 + 4 * size);
    }
}

TEST(char_array, characters_above_127_are_sign_extended) {
    char chars[] = "\x7f\x80\xff";
    EXPECT_EQ(EncodeField(CharArray{3, chars}), Words({3, 0x7F, 0xFFFFFF80, 0xFFFFFFFF}));
}

TEST(char_array, every_byte_value_travels_as_the_library_sends_it) {
    for (const std::size_t size : {256u, 257u, 4097u, 10000u}) {
        std::string chars = Repeated(EveryByte(), size);
        EXPECT_EQ(EncodeField(CharArray{static_cast<std::uint32_t>(size), chars.data()}), EncodeWithLibrary(chars));
    }
}

TEST(char_array, any_integers_decode_as_the_library_takes_them) {
    const std::string sent = Words({7, 0x41, 0xFF, 0xFFFFFFFF, 0x80, 0x100, 0x12345678, 0x80000000});
    CharArray array = {};
    ASSERT_TRUE(DecodeField(sent, array));
    EXPECT_EQ(std::string(array.chars, array.count), DecodeWithLibrary(sent));
    EXPECT_EQ(std::string(array.chars, array.count), std::string("A\xff\xff\x80\0\x78\0", 7));
    ReleaseField(array);
}

TEST(char_array, encoding_does_not_write_to_the_characters) {
    static const char constant[] = "in read-only memory";
    EXPECT_EQ(EncodeField(CharArray{sizeof constant, const_cast<char *>(constant)}).size(), 4 + 4 * sizeof constant);
}

TEST(char_array, a_count_of_0_leaves_the_pointer_null) {
    CharArray array = {};
    ASSERT_TRUE(DecodeField(Words({0}), array));
    EXPECT_EQ(array.chars, nullptr);
    EXPECT_EQ(array.count, 0u);
}

TEST(char_array, declared_counts_without_data_take_no_memory_in_advance) {
    for (const std::uint32_t count : lyingLengths) {
        CharArray array = {};
        StartCounting();
        EXPECT_FALSE(DecodeField(Words({count, 'a', 'b', 'c'}), array)) << count;
        const Allocations allocations = StopCounting();
        EXPECT_EQ(array.count, 0u);
        EXPECT_EQ(array.chars, nullptr);
        EXPECT_EQ(allocations.live, 0);
        EXPECT_LE(allocations.largest, firstStep);
    }
}

} // namespace
