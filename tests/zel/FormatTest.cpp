// String::format: the swprintf conversions with typed arguments.
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zel/String.h"

using ZELd::String;

namespace {

struct Case {
    const wchar_t* expected;
    String actual;
};

void check(const std::vector<Case>& cases)
{
    for (size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].actual.str(), cases[i].expected) << "case " << i;
}

TEST(Format, IntegersKeepTheirWidthAfterPromotionAndPad)
{
    check({
        {L"-2147483648", String::format(L"%d", INT_MIN)},
        {L"4294967295", String::format(L"%u", UINT_MAX)},
        {L"-1", String::format(L"%d", UINT_MAX)}, // %d reads the 32 bits as signed
        {L"-9223372036854775808", String::format(L"%lld", LLONG_MIN)},
        {L"18446744073709551615", String::format(L"%llu", ULLONG_MAX)},
        {L"200", String::format(L"%d", static_cast<unsigned char>(200))},
        {L"65535", String::format(L"%d", static_cast<uint16_t>(0xFFFF))},
        {L"-56", String::format(L"%hhd", 200)},
        {L"2345", String::format(L"%hx", 0x12345)},
        {L"ffffff80", String::format(L"%x", static_cast<signed char>(-128))},
        {L"ffff8000", String::format(L"%x", static_cast<int16_t>(static_cast<uint16_t>(0x8000)))},
        {L"FFFFFFFF", String::format(L"%X", -1)},
        {L"ffffffffffffffff", String::format(L"%llx", -1LL)},
        {L"80", String::format(L"%x", static_cast<unsigned char>(0x80))},
        {L"+5", String::format(L"%+d", 5)},
        {L"0xff", String::format(L"%#x", 255)},
        {L"007", String::format(L"%03d", 7)},
        {L"-07", String::format(L"%03d", -7)},
        {L"1234", String::format(L"%03d", 1234)},
        {L"[   42]", String::format(L"[%5d]", 42)},
        {L"[42   ]", String::format(L"[%-05d]", 42)}, // left alignment wins over zeros
        {L"[  007]", String::format(L"[%05.3d]", 7)}, // a precision turns the zero flag off
        {L"AB", String::format(L"%02X", static_cast<unsigned char>(0xAB))},
        {L"123456789012", String::format(L"%zd", static_cast<size_t>(123456789012ULL))},
        {L"ABCDEF012", String::format(L"%zX", static_cast<size_t>(0xABCDEF012ULL))},
    });
}

TEST(Format, TextPercentAndMalformedDirectives)
{
    check({
        {L"[   ab]", String::format(L"[%5ls]", L"ab")},
        {L"[ab   ]", String::format(L"[%-5ls]", L"ab")},
        {L"[abc]", String::format(L"[%.3ls]", L"abcdef")},
        {L"[Ünï]", String::format(L"[%ls]", String(L"Ünï"))},
        {L"[é]", String::format(L"[%s]", "\xC3\xA9")},    // narrow text is UTF-8
        {L"[a\xDCFF]", String::format(L"[%s]", "a\xFF")}, // an invalid byte stays escaped
        {L"[(null)]", String::format(L"[%ls]", static_cast<const wchar_t*>(nullptr))},
        {L"[é]", String::format(L"[%c]", L'é')},
        {L"[\U0001F600]", String::format(L"[%lc]", static_cast<wchar_t>(0x1F600))},
        {L"% 5", String::format(L"%% %d", 5)},
        {L"50%", String::format(L"50%", 1)}, // a lone % at the end stays
        {L"x %-5", String::format(L"x %-5", 1)},
        {L"%k 5", String::format(L"%k %d", 5)},                 // unknown: kept, argument not used
        {L"a=5 b= c=", String::format(L"a=%d b=%ls c=%d", 5)}, // fewer arguments than conversions
    });
    std::wstring big(100000, L'x'); // no length limit
    EXPECT_EQ(String::format(L"<%ls>", big).length(), big.size() + 2);
}

} // namespace
