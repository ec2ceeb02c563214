// The command-line parser: option forms, refusals and the usage screen.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Arguments.h"

using namespace ZELd;
using List = std::vector<std::wstring>;

namespace {

const Arguments::Option kOptions[] = {
    {nullptr, 0, nullptr, nullptr, L"Scanning:"},
    {L"verbose", 'v', nullptr, nullptr, L"say more"},
    {L"sort", 's', nullptr, nullptr, L"sort the entries"},
    {L"database", 'd', L"DSN", L"tags.db", L"where the tags go"},
    {L"limit", 0x100, L"N", nullptr, L"stop after N files"},
    {nullptr, 0, nullptr, nullptr, L"Output:"},
    {L"extremely-long-option", 'L', L"VALUE", nullptr, L"a label too wide for its column"},
    {nullptr, 0, nullptr, nullptr, nullptr},
};

// Records each option it is handed as "v", "d=VALUE", ...; keeps the last database.
class TestArguments : public Arguments {
public:
    TestArguments(Writer& out, Writer& err)
        : Arguments(out, err, L"sonarcat 1.1.2", L"tags@example.org", L"FILE...", L"Collects the tags of MP3 files.",
                    kOptions) {}
    List seen;
    std::wstring database;
    bool valid = true;

protected:
    void onOption(int id, const String& value) override
    {
        if (id == 'd') database = value.str();
        std::wstring key = id == 0x100 ? L"limit" : std::wstring(1, static_cast<wchar_t>(id));
        seen.push_back(value.isEmpty() && id != 'd' ? key : key + L"=" + value.str());
    }
    bool onValidate() override { return valid; }
};

struct Outcome {
    bool ok;
    List seen, values;
    std::wstring database, out, err;
};

// Parses the arguments after the program's name.
Outcome run(std::vector<std::string> args, bool valuesRequired = true, bool valid = true, std::string argv0 = "sonarcat")
{
    zeltest::Capture out, err;
    FileWriter outWriter(out.fd(), nullptr), errWriter(err.fd(), nullptr);
    TestArguments parser(outWriter, errWriter);
    parser.valid = valid;
    std::vector<char*> argv{argv0.data()};
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    Outcome r;
    r.ok = parser.parse(static_cast<int>(argv.size() - 1), argv.data(), valuesRequired);
    r.seen = parser.seen;
    r.database = parser.database;
    for (size_t i = 0; i < parser.values().size(); ++i) r.values.push_back(parser.values()[i].str());
    outWriter.flush();
    errWriter.flush();
    r.out = zeltest::name(out.bytes()).str();
    r.err = zeltest::name(err.bytes()).str();
    return r;
}

TEST(Arguments, AcceptedForms)
{
    struct { std::vector<std::string> args; List seen, values; } cases[] = {
        {{"--verbose", "a.mp3"}, {L"v"}, {L"a.mp3"}},          {{"--database=x.db", "d"}, {L"d=x.db"}, {L"d"}},
        {{"--database", "x.db", "d"}, {L"d=x.db"}, {L"d"}},    {{"--database=a=b", "d"}, {L"d=a=b"}, {L"d"}},
        {{"--database=", "d"}, {L"d="}, {L"d"}},               {{"--limit", "5", "d"}, {L"limit=5"}, {L"d"}},
        {{"-sv", "d"}, {L"s", L"v"}, {L"d"}},                  {{"-dfoo.db", "d"}, {L"d=foo.db"}, {L"d"}},
        {{"-d", "foo.db", "d"}, {L"d=foo.db"}, {L"d"}},        {{"-vdfoo", "d"}, {L"v", L"d=foo"}, {L"d"}},
        {{"-vd", "foo", "d"}, {L"v", L"d=foo"}, {L"d"}},       {{"a", "-v", "b"}, {L"v"}, {L"a", L"b"}},
        {{"-", "d"}, {}, {L"-", L"d"}},                        {{"bad\xFF.mp3"}, {}, {L"bad\xDCFF.mp3"}},
        {{"-v", "--", "--verbose", "-x"}, {L"v"}, {L"--verbose", L"-x"}},
    };
    for (const auto& c : cases) {
        Outcome r = run(c.args);
        EXPECT_TRUE(r.ok) << c.args[0] << ": " << r.err;
        EXPECT_EQ(r.seen, c.seen) << c.args[0];
        EXPECT_EQ(r.values, c.values) << c.args[0];
        EXPECT_EQ(r.err, L"");
    }
    EXPECT_EQ(run({"-d", "first.db", "--database=second.db", "d"}).database, L"second.db");
}

TEST(Arguments, RefusalsExplainAndPointToHelp)
{
    struct { std::vector<std::string> args; const wchar_t* why; } cases[] = {
        {{"--bogus", "x"}, L"'--bogus'"},
        {{"--verbose=yes", "x"}, L"'--verbose' doesn't allow an argument"},
        {{"x", "--database"}, L"'--database' requires an argument"},
        {{"x", "-d"}, L"requires an argument -- 'd'"},
        {{"-vk", "x"}, L"invalid option -- 'k'"},
        {{"--help=x"}, L"'--help'"},
        {{"-v"}, L"FILE..."},
        {{}, L"FILE..."},
    };
    for (const auto& c : cases) {
        Outcome r = run(c.args);
        EXPECT_FALSE(r.ok) << r.out;
        EXPECT_NE(r.err.find(c.why), std::wstring::npos) << r.err;
        EXPECT_NE(r.err.find(L"\nTry 'sonarcat --help' for more information.\n"), std::wstring::npos) << r.err;
        EXPECT_EQ(r.out, L"");
    }
    // The program is named as it was started.
    EXPECT_NE(run({"--bogus"}, true, true, "tools/mp3scan").err.find(L"Try 'mp3scan --help'"), std::wstring::npos);
    EXPECT_TRUE(run({"-v"}, false).ok);            // no value needed
    EXPECT_FALSE(run({"-v", "x"}, true, false).ok); // refused by onValidate

    // Text the output writer still holds comes out before the refusal.
    zeltest::Capture shared;
    FileWriter out(shared.fd(), nullptr), err(shared.fd(), nullptr);
    TestArguments parser(out, err);
    out << L"pending\n";
    std::string a0 = "sonarcat", a1 = "--bogus";
    char* argv[] = {a0.data(), a1.data(), nullptr};
    EXPECT_FALSE(parser.parse(2, argv, true));
    err.flush();
    EXPECT_EQ(shared.bytes().rfind("pending\nsonarcat: ", 0), 0u) << shared.bytes();
}

TEST(Arguments, HelpAndVersionPrintOnTheOutputAndRunNothing)
{
    // A label, then its help from column 28 on after at least two blanks; a
    // wider label puts the help on the next line.
    auto row = [](const std::wstring& label, const std::wstring& help) {
        std::wstring line = L"\n" + label;
        if (label.size() <= 26) line.append(28 - label.size(), L' ');
        else line += L"\n" + std::wstring(28, L' ');
        return line + help + L"\n";
    };
    const std::wstring expected[] = {
        L"sonarcat 1.1.2\nCollects the tags of MP3 files.\n",
        L"Usage: sonarcat [OPTION]... FILE...\n",
        L"\nScanning:\n",
        row(L"  -v, --verbose", L"say more"),
        row(L"  -s, --sort", L"sort the entries"),
        row(L"  -d, --database=DSN", L"where the tags go (default: tags.db)"),
        row(L"      --limit=N", L"stop after N files"),
        L"\nOutput:\n",
        row(L"  -L, --extremely-long-option=VALUE", L"a label too wide for its column"),
        row(L"      --help", L"display this help and exit"),
        row(L"      --version", L"output version information and exit"),
        L"\nReport bugs to <tags@example.org>.\n",
    };
    Outcome help = run({"-v", "--help", "dir"}, true, true, "/usr/bin/sonarcat");
    EXPECT_FALSE(help.ok);
    EXPECT_EQ(help.err, L"");
    size_t at = 0;
    for (const std::wstring& part : expected) {
        size_t found = help.out.find(part, at);
        EXPECT_NE(found, std::wstring::npos) << "missing or out of order: " << part << "\nin:\n" << help.out;
        if (found != std::wstring::npos) at = found;
    }
    Outcome version = run({"--version", "dir"});
    EXPECT_FALSE(version.ok);
    EXPECT_EQ(version.out, L"sonarcat 1.1.2\n");
    EXPECT_EQ(version.err, L"");
}

} // namespace
