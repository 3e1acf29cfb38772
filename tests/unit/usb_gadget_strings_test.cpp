// String descriptors: the table's look-up, and the texts on the wire.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "usb/usb-gadget/usb-gadget-internal.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kRefused = -22;

struct Reply {
    int result;
    Bytes bytes;
    bool operator==(const Reply&) const = default;
};

Reply get_string(const UsbGadgetStrings* strings, int index) {
    Bytes reply(kStringReplySize, 0xAA);
    const int result = usb_gadget_get_string(strings, index, reply.data());
    reply.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
    return {result, reply};
}

Reply get_text(const std::string& text) {
    const UsbGadgetString table[] = {{7, text.c_str()}, {0, nullptr}};
    const UsbGadgetStrings strings{0x0409, table};
    return get_string(&strings, 7);
}

void PrintTo(const Reply& reply, std::ostream* out) {
    *out << reply.result << ": " << testing::PrintToString(reply.bytes);
}

TEST(UsbGadgetStrings, IndexZeroIsTheLanguage) {
    const UsbGadgetString table[] = {{7, "x"}, {0, nullptr}};
    const UsbGadgetStrings strings{0x0409, table};
    EXPECT_EQ(get_string(&strings, 0), (Reply{4, {0x04, 0x03, 0x09, 0x04}}));
}

TEST(UsbGadgetStrings, IndexZeroIsTheLanguageThoughTheTableIsEmpty) {
    const UsbGadgetString table[] = {{0, nullptr}};
    const UsbGadgetStrings strings{0x1234, table};
    EXPECT_EQ(get_string(&strings, 0), (Reply{4, {0x04, 0x03, 0x34, 0x12}}));
}

TEST(UsbGadgetStrings, AsciiTextBecomesUtf16) {
    EXPECT_EQ(get_text("Osmo"), (Reply{10, {0x0A, 0x03, 'O', 0, 's', 0, 'm', 0, 'o', 0}}));
}

TEST(UsbGadgetStrings, EmptyTextIsTheHeaderAlone) {
    EXPECT_EQ(get_text(""), (Reply{2, {0x02, 0x03}}));
}

TEST(UsbGadgetStrings, UnknownIndexIsRefused) {
    const UsbGadgetString table[] = {{7, "x"}, {0, nullptr}};
    const UsbGadgetStrings strings{0x0409, table};
    EXPECT_EQ(get_string(&strings, 8).result, kRefused);
}

TEST(UsbGadgetStrings, EntryBehindTheNullTextIsNotFound) {
    const UsbGadgetString table[] = {{7, nullptr}, {8, "x"}};
    const UsbGadgetStrings strings{0x0409, table};
    EXPECT_EQ(get_string(&strings, 7).result, kRefused);
    EXPECT_EQ(get_string(&strings, 8).result, kRefused);
}

TEST(UsbGadgetStrings, FirstOfTwoEntriesWins) {
    const UsbGadgetString table[] = {{7, "a"}, {7, "b"}, {0, nullptr}};
    const UsbGadgetStrings strings{0x0409, table};
    EXPECT_EQ(get_string(&strings, 7), (Reply{4, {0x04, 0x03, 'a', 0}}));
}

TEST(UsbGadgetStrings, NoTableIsRefused) {
    const UsbGadgetStrings strings{0x0409, nullptr};
    EXPECT_EQ(get_string(&strings, 7).result, kRefused);
    EXPECT_EQ(get_string(nullptr, 7).result, kRefused);
}

struct TextCase {
    const char* name;
    std::string text;
    Reply expected;
};

// clang-format off
const TextCase kTexts[] = {
    {"LastOneByteCharacter",           "\x7F",         {4, {4, 3, 0x7F, 0x00}}},
    // Continuation bytes with both top bits set are the ones that are taken.
    {"TwoByteForm",                    "\xC3\xE9",     {4, {4, 3, 0xE9, 0x00}}},
    {"LargestTwoByteForm",             "\xDF\xFF",     {4, {4, 3, 0xFF, 0x07}}},
    {"ThreeByteForm",                  "\xE2\xC2\xEC", {4, {4, 3, 0xAC, 0x20}}},
    {"LargestThreeByteForm",           "\xEF\xFF\xFF", {4, {4, 3, 0xFF, 0xFF}}},
    {"MixedForms",                     "a\xC3\xE9z",   {8, {8, 3, 'a', 0, 0xE9, 0, 'z', 0}}},
    {"LastBeforeTheSurrogates",        "\xED\xDF\xFF", {4, {4, 3, 0xFF, 0xD7}}},
    {"FirstSurrogate",                 "\xED\xE0\xC0", {kRefused, {}}},
    {"LastSurrogate",                  "\xED\xFF\xFF", {kRefused, {}}},
    {"FirstBehindTheSurrogates",       "\xEE\xC0\xC0", {4, {4, 3, 0x00, 0xE0}}},
    {"OrdinaryUtf8TwoBytes",           "\xC3\xA9",     {kRefused, {}}},
    {"OrdinaryUtf8ThreeBytes",         "\xE2\x82\xAC", {kRefused, {}}},
    {"OrdinaryThirdByte",              "\xE2\xC2\xAC", {kRefused, {}}},
    {"ContinuationWithOneTopBit",      "\xC3\x69",     {kRefused, {}}},
    {"ContinuationAsLead",             "\x80",         {kRefused, {}}},
    {"FourByteForm",                   "\xF0\xDF\xD8\xC0", {kRefused, {}}},
    {"TextEndsInTwoByteForm",          "a\xC3",        {kRefused, {}}},
    {"TextEndsInThreeByteForm",        "a\xE2\xC2",    {kRefused, {}}},
};
// clang-format on

class UsbGadgetText : public testing::TestWithParam<TextCase> {};

TEST_P(UsbGadgetText, Converts) {
    EXPECT_EQ(get_text(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, UsbGadgetText, testing::ValuesIn(kTexts),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(UsbGadgetStrings, TextOf126CharactersFillsTheDescriptor) {
    const Reply reply = get_text(std::string(126, 'x'));
    EXPECT_EQ(reply.result, 254);
    EXPECT_EQ(reply.bytes[0], 254);
    EXPECT_EQ(reply.bytes[252], 'x');
}

TEST(UsbGadgetStrings, LongerTextIsCutTo126Characters) {
    const Reply reply = get_text(std::string(125, 'x') + "yz");
    EXPECT_EQ(reply.result, 254);
    EXPECT_EQ(reply.bytes[0], 254);
    EXPECT_EQ(reply.bytes[252], 'y');
}

}  // namespace
