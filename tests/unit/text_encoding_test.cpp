#include "tools/text_encoding.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using velkora::Utf8ToWide;
using velkora::WideToUtf8;

// The text of the range error that a conversion ends with, or "" when it succeeds.
template <typename Conversion, typename Text>
std::string ErrorOf(Conversion convert, const Text& text) {
  try {
    convert(text);
  } catch (const std::range_error& error) {
    return error.what();
  }
  return "";
}

std::string Utf8Error(std::string_view text) {
  return ErrorOf(Utf8ToWide, text);
}
std::string WideError(const WideString& text) {
  return ErrorOf(WideToUtf8, text);
}

WideString Units(std::initializer_list<unsigned> units) {
  WideString text;
  for (const unsigned unit : units) text.push_back(static_cast<WCHAR>(unit));
  return text;
}

void ExpectSame(std::string_view narrow, const WideString& wide) {
  EXPECT_EQ(Utf8ToWide(narrow), wide);
  EXPECT_EQ(WideToUtf8(wide), narrow);
}

TEST(TextEncoding, EmptyTextStaysEmpty) {
  ExpectSame("", WideString());
}

TEST(TextEncoding, AsciiKeepsItsValues) {
  ExpectSame("/c \"X:\\a b\"\x7F", WIDE("/c \"X:\\a b\"\x7F"));
}

TEST(TextEncoding, EmbeddedNulIsACharacter) {
  ExpectSame(std::string_view("a\0b\0", 4), Units({'a', 0, 'b', 0}));
}

TEST(TextEncoding, LengthsChangeAtTheirBounds) {
  ExpectSame("\xC2\x80", Units({0x80}));
  ExpectSame("\xDF\xBF", Units({0x7FF}));
  ExpectSame("\xE0\xA0\x80", Units({0x800}));
  ExpectSame("\xEF\xBF\xBF", Units({0xFFFF}));
}

TEST(TextEncoding, NeighboursOfTheSurrogatesAreCharacters) {
  ExpectSame("\xED\x9F\xBF", Units({0xD7FF}));
  ExpectSame("\xEE\x80\x80", Units({0xE000}));
}

TEST(TextEncoding, CharactersAboveTheBasicPlaneBecomeSurrogatePairs) {
  ExpectSame("\xF0\x90\x80\x80", Units({0xD800, 0xDC00}));
  ExpectSame("\xF0\x9F\x92\xBE", Units({0xD83D, 0xDCBE}));
}

TEST(TextEncoding, HighestCodePointIsLegal) {
  ExpectSame("\xF4\x8F\xBF\xBF", Units({0xDBFF, 0xDFFF}));
}

TEST(TextEncoding, ByteOrderMarkIsAnOrdinaryCharacter) {
  ExpectSame(
      "\xEF\xBB\xBF"
      "a",
      Units({0xFEFF, 'a'}));
}

TEST(Utf8ToWide, RefusesAContinuationByteAlone) {
  EXPECT_EQ(Utf8Error("a\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xBF"
                      "a"),
            "bad conversion");
}

TEST(Utf8ToWide, RefusesAContinuationByteInTheLead) {
  EXPECT_EQ(Utf8Error("\x80\x90\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xBF\xBF"), "bad conversion");
}

TEST(Utf8ToWide, RefusesBytesThatNeverLead) {
  EXPECT_EQ(Utf8Error("\xF8\x90\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF5\x80\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF8\x88\x80\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xFC\x84\x80\x80\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xFE"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xFF"), "bad conversion");
}

TEST(Utf8ToWide, RefusesOverlongSequences) {
  EXPECT_EQ(Utf8Error("\xC0\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xC1\xBF"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xE0\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xE0\x9F\xBF"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0\x80\x80\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0\x8F\xBF\xBF"), "bad conversion");
}

TEST(Utf8ToWide, RefusesSequencesCutByTheEnd) {
  EXPECT_EQ(Utf8Error("a\xC3"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xE2\x82"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xE2"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0\x9F\x98"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0\x9F"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0"), "bad conversion");
}

TEST(Utf8ToWide, DoesNotLookBehindTheEnd) {
  EXPECT_EQ(Utf8Error(std::string_view("a\xE2\x82\xAC", 3)), "bad conversion");
  EXPECT_EQ(Utf8Error(std::string_view("ab\xF0\x9F\x92\xBE", 5)), "bad conversion");
}

TEST(Utf8ToWide, RefusesSequencesCutByAnotherCharacter) {
  EXPECT_EQ(Utf8Error("\xC3"
                      "A"),
            "bad conversion");
  EXPECT_EQ(Utf8Error("\xE2\x82"
                      "A"),
            "bad conversion");
  EXPECT_EQ(Utf8Error("\xE2\xC3\xBC"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xF0\x9F\x98"
                      "A"),
            "bad conversion");
}

TEST(Utf8ToWide, RefusesSurrogates) {
  EXPECT_EQ(Utf8Error("\xED\xA0\x80"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xED\xBF\xBF"), "bad conversion");
  EXPECT_EQ(Utf8Error("\xED\xA0\x80\xED\xB0\x80"), "bad conversion");
}

TEST(Utf8ToWide, RefusesValuesAboveTheHighestCodePoint) {
  EXPECT_EQ(Utf8Error("\xF4\x90\x80\x80"), "bad conversion");
}

TEST(WideToUtf8, RefusesAHighSurrogateAlone) {
  EXPECT_EQ(WideError(Units({'a', 0xD800})), "bad conversion");
  EXPECT_EQ(WideError(Units({0xDBFF, 'a'})), "bad conversion");
  EXPECT_EQ(WideError(Units({0xD800, 0xD800, 0xDC00})), "bad conversion");
}

TEST(WideToUtf8, RefusesALowSurrogateAlone) {
  EXPECT_EQ(WideError(Units({0xDC00})), "bad conversion");
  EXPECT_EQ(WideError(Units({'a', 0xDFFF, 'b'})), "bad conversion");
}

TEST(WideToUtf8, RefusesAPairInTheWrongOrder) {
  EXPECT_EQ(WideError(Units({0xDC00, 0xD800})), "bad conversion");
}

}  // namespace
