// A probe's result on the pipe from a helper: every field crosses whole, a
// message cut anywhere waits for the rest, and bytes that are no message are
// refused.
#define ZEL_SOURCE "tests/media/ProbeResultTest"
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "media/ProbeResult.h"
#include "support/ReportCapture.h"

using namespace ZELd;

namespace {

auto fieldsOf(const ProbeResult& r)
{
    return std::tuple(r.seen.size, r.seen.modification, r.seen.known, r.facts.inform.str(), r.facts.format.str(), r.facts.width,
                      r.facts.height, r.facts.duration, r.failed, r.reason.str(), r.systemError, r.traces, r.hasTagBytes, r.tagBytes.size,
                      r.tagBytes.modification, r.tagBytes.head, r.tagBytes.tailAt, r.tagBytes.tail, r.properties,
                      r.propertiesFailure.str());
}

// Where the fields of a message lie: its length, its flags, and the count of its first text.
constexpr size_t kFlagsAt = 4, kFormatCountAt = 37;

} // namespace

TEST(ProbeResult, EveryFieldCrossesAndACutMessageWaitsForTheRest)
{
    ProbeResult sent;
    sent.seen = {12345678901234ULL, -1234567890123LL, true};
    sent.facts = {String(L"General\nFormat: MPEG Audio \U0001F3B5\n"), String(L"MPEG Audio"), 640, 480, 4000000000u};
    sent.failed = true;
    sent.reason = String(L"MediaInfo Open Failed");
    sent.systemError = ENOENT;
    sent.traces = L"media/MediaInfo(1): trace \u65E5\n";
    sent.hasTagBytes = true;
    sent.tagBytes.size = 5000000000ULL;
    sent.tagBytes.modification = -1234567890123LL;
    sent.tagBytes.head = std::string("ID3\x04\0\0\0\0\0\x01", 10) + '\xFF';
    sent.tagBytes.tailAt = 4999999000ULL;
    sent.tagBytes.tail = std::string(1000, '\0') + "TAG";
    sent.properties = {{L"Xiph", L"ARTIST", L"Bj\u00F6rk"}, {L"Xiph", L"ARTIST", L"\u65E5\U0001F3B5"}, {L"ID3v1", L"TITLE", L""}};
    sent.propertiesFailure = String(L"TagLib Read Failed");
    std::string bytes;
    sent.encode(bytes);
    const size_t length = bytes.size();
    ProbeResult().encode(bytes); // a second message right behind it
    ProbeResult got;
    ASSERT_EQ(ProbeResult::decode(bytes.data(), bytes.size(), got), length);
    EXPECT_EQ(fieldsOf(got), fieldsOf(sent));
    ASSERT_EQ(ProbeResult::decode(bytes.data() + length, bytes.size() - length, got), bytes.size() - length);
    EXPECT_EQ(fieldsOf(got), fieldsOf(ProbeResult()));
    // Each cut in a buffer of its own size: a read past it is the sanitizer's to see.
    for (size_t n = 0; n < length; ++n) {
        const std::vector<char> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(ProbeResult::decode(cut.data(), n, got), 0u) << n;
    }
}

TEST(ProbeResult, BytesThatAreNoMessageAreRefused)
{
    std::string message;
    ProbeResult().encode(message);
    const auto withLength = [](std::string bytes) {
        const auto length = static_cast<uint32_t>(bytes.size() - 4);
        std::memcpy(bytes.data(), &length, sizeof length);
        return bytes;
    };
    std::string tooLong = message, flagged = message, tooMany;
    std::memcpy(&tooLong[kFormatCountAt], "\xFF\xFF\xFF\x0F", 4);
    flagged[kFlagsAt] = '\x10';
    ProbeResult withProperties;
    withProperties.propertiesFailure = String(L"x");
    withProperties.encode(tooMany);
    std::memcpy(&tooMany[tooMany.size() - 4], "\xFF\xFF\xFF\x0F", 4); // the count of properties, last
    const struct {
        const char* what;
        std::string bytes;
    } damaged[] = {
        {"its length leaves out the last field", withLength(message.substr(0, message.size() - 1))},
        {"a byte after the last field", withLength(message + "x")},
        {"a text longer than the message", tooLong},
        {"a flag that no result sets", flagged},
        {"more properties than the message holds", tooMany},
    };
    for (const auto& [what, bytes] : damaged) {
        ProbeResult got;
        EXPECT_EQ(testsupport::thrown<Exception>([&] { ProbeResult::decode(bytes.data(), bytes.size(), got); }),
                  std::wstring(L"Reply Garbled [MediaInfo helper]"))
            << what;
    }
}
