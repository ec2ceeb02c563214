// parseConnectionString and translatePlaceholders on text made of the input
// (decoded as the command line is), with a driver whose placeholders are "?N".
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "zel/Exception.h"
#include "zel/SQL.h"

using namespace ZELd;

namespace {

class FakeDriver : public sqldriver::Connection {
public:
    size_t calls = 0;
    bool open(const sqldriver::Settings&, const std::string&, sqldriver::DriverError&) override { return true; }
    std::string serverInfo() override { return "fake"; }
    bool connected() override { return true; }
    bool begin(sqldriver::DriverError&) override { return true; }
    bool commit(sqldriver::DriverError&) override { return true; }
    bool rollback(sqldriver::DriverError&) override { return true; }
    std::string placeholder(size_t index) override
    {
        ++calls;
        return "?" + std::to_string(index);
    }
    sqldriver::Statement* prepare(const std::string&, size_t, sqldriver::DriverError&) override { return nullptr; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    const String text = fromNativePath(reinterpret_cast<const char*>(data), size);
    try {
        for (const auto& [key, value] : parseConnectionString(text)) {
            FUZZ_CHECK(!key.empty() && key.find_first_of("abcdefghijklmnopqrstuvwxyz;=") == std::string::npos);
            FUZZ_CHECK(static_cast<unsigned char>(key.front()) > 0x20 && static_cast<unsigned char>(key.back()) > 0x20);
            FUZZ_CHECK(value.find(';') == std::string::npos);
        }
        FakeDriver driver;
        std::vector<String> names;
        const std::string sql = translatePlaceholders(text, driver, names);
        // One placeholder for each "?" and for each use of a name; a name is listed once.
        FUZZ_CHECK(driver.calls >= names.size());
        for (size_t i = 0; i < names.size(); ++i)
            for (size_t k = i + 1; k < names.size(); ++k) FUZZ_CHECK(names[i].isEmpty() || names[i] != names[k]);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
