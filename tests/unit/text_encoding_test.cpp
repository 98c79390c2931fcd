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

void ExpectRefused(std::initializer_list<std::string_view> texts) {
  for (const std::string_view text : texts) EXPECT_EQ(ErrorOf(Utf8ToWide, text), "bad conversion");
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
  ExpectRefused({"a\x80",
                 "\xBF"
                 "a"});
}

TEST(Utf8ToWide, RefusesAContinuationByteInTheLead) {
  ExpectRefused({"\x80\x90\x80\x80", "\xBF\xBF"});
}

TEST(Utf8ToWide, RefusesBytesThatNeverLead) {
  ExpectRefused({"\xF8\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80",
                 "\xFC\x84\x80\x80\x80\x80", "\xFE", "\xFF"});
}

TEST(Utf8ToWide, RefusesOverlongSequences) {
  ExpectRefused({"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80",
                 "\xF0\x8F\xBF\xBF"});
}

TEST(Utf8ToWide, RefusesSequencesCutByTheEnd) {
  ExpectRefused({"a\xC3", "\xE2\x82", "\xE2", "\xF0\x9F\x98", "\xF0\x9F", "\xF0"});
}

TEST(Utf8ToWide, DoesNotLookBehindTheEnd) {
  ExpectRefused({std::string_view("a\xE2\x82\xAC", 3), std::string_view("ab\xF0\x9F\x92\xBE", 5)});
}

TEST(Utf8ToWide, RefusesSequencesCutByAnotherCharacter) {
  ExpectRefused(
      {"\xC3"
       "A",
       "\xE2\x82"
       "A",
       "\xE2\xC3\xBC",
       "\xF0\x9F\x98"
       "A"});
}

TEST(Utf8ToWide, RefusesSurrogates) {
  ExpectRefused({"\xED\xA0\x80", "\xED\xBF\xBF", "\xED\xA0\x80\xED\xB0\x80"});
}

TEST(Utf8ToWide, RefusesValuesAboveTheHighestCodePoint) {
  ExpectRefused({"\xF4\x90\x80\x80"});
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
