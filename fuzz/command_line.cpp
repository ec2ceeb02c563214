// A command line made of the input (arguments between NUL bytes, the
// program's name first) parsed into the options; then its --database value
// split into settings and, as a statement text, its placeholders translated.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "media/MainArguments.h"
#include "zel/Exception.h"
#include "zel/SQLConnectionString.h"
#include "zel/SQLDriver.h"
#include "zel/SQLPlaceholders.h"

using namespace ZELd;

namespace {

// A driver whose placeholders are "?N".
struct Driver : sqldriver::Connection {
    size_t placeholders = 0;
    bool open(const sqldriver::OpenRequest&, sqldriver::DriverError&) override { return true; }
    std::string serverInfo() override { return ""; }
    bool connected() override { return true; }
    bool begin(sqldriver::DriverError&) override { return true; }
    bool commit(sqldriver::DriverError&) override { return true; }
    bool rollback(sqldriver::DriverError&) override { return true; }
    std::string placeholder(size_t index) override
    {
        ++placeholders;
        return std::string(1, '?').append(std::to_string(index));
    }
    sqldriver::Statement* prepare(const std::string&, size_t, sqldriver::DriverError&) override { return nullptr; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    std::vector<std::string> pieces(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i]) pieces.back() += static_cast<char>(data[i]);
        else pieces.emplace_back();
    }
    std::vector<char*> argv;
    for (std::string& piece : pieces) argv.push_back(piece.data());
    argv.push_back(nullptr);
    try {
        MainArguments arguments(fuzzsupport::devNull(), fuzzsupport::devNull());
        if (arguments.parse(static_cast<int>(pieces.size()), argv.data(), true))
            FUZZ_CHECK(!arguments.values().isEmpty() && arguments.values().size() < pieces.size());
        arguments.toString();
        for (const auto& [key, value] : parseConnectionString(arguments.database())) {
            FUZZ_CHECK(!key.empty() && key.find_first_of("abcdefghijklmnopqrstuvwxyz;=") == std::string::npos);
            FUZZ_CHECK(static_cast<unsigned char>(key.front()) > 0x20 && static_cast<unsigned char>(key.back()) > 0x20 &&
                       value.find(';') == std::string::npos);
        }
        Driver driver;
        const std::vector<String> names = translatePlaceholders(arguments.database(), driver).names;
        // One placeholder for each "?" and each use of a name; a name is listed once.
        FUZZ_CHECK(driver.placeholders >= names.size());
        for (size_t i = 0; i < names.size(); ++i)
            for (size_t k = i + 1; k < names.size(); ++k) FUZZ_CHECK(names[i].isEmpty() || names[i] != names[k]);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
