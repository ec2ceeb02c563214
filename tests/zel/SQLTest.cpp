// The SQL layer over each engine: queries with parameters return their rows
// inside a transaction, two live queries of one text keep their own rows, a
// misused parameter fails with SQLException, and values at the edges of their
// kinds come back exactly.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "support/Catalogue.h"
#include "support/ReportCapture.h"

using namespace testsupport;
using namespace ZELd;
using namespace std::string_literals;

namespace {

const String kInsertDir = L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS) VALUES (:ID, :PATH, :TS, :TS)";

std::vector<int> ids(SQLQuery& q)
{
    std::vector<int> got;
    while (q.fetch()) got.push_back(q.fields()[0].asInt32());
    return got;
}

class SQLLayer : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        if (catalogue.database().empty()) GTEST_SKIP() << catalogue.unreachable();
    }
    Catalogue catalogue{GetParam()};
};

TEST_P(SQLLayer, QueriesOfOneTextKeepTheirOwnRowsInsideATransaction)
{
    SQLConnection c(fromNativePath(catalogue.engine().driver.c_str()));
    c.open(fromNativePath(catalogue.database().c_str()));
    c.startTrans();
    SQLQuery insert(&c);
    insert.prepare(kInsertDir);
    for (int id : {1, 2, 3}) {
        insert.params().byName(L"ID")->setValue(id);
        insert.params().byName(L"PATH")->setValue(String(L"/d/"), SQL::Text);
        insert.params().byName(L"TS")->setValue(DateTime(), SQL::TimestampWithoutZone);
        insert.execute();
    }
    // A misused parameter fails, naming itself and the statement.
    const std::wstring in = L" [" + kInsertDir.str() + L"]";
    const std::pair<std::function<void()>, std::wstring> misuses[] = {
        {[&] { insert.params().byName(L"DIR_ID")->setValue(1); }, L"No parameter [DIR_ID] in" + in},
        {[&] { insert.params()[3].setValue(1); }, L"No parameter 3 in" + in + L": it has 3"},
        {[&] { insert.params()[1].setValue(String(L"x"), SQL::Bytes); },
         L"Parameter [PATH] of" + in + L": text cannot be bound as data type 14"},
        {[&] { insert.params()[1].setValue(ByteString("x", 1), SQL::Text); },
         L"Parameter [PATH] of" + in + L": bytes cannot be bound as data type 13"},
        {[&] { insert.params()[2].setValue(DateTime(), 0); }, L"Parameter [TS] of" + in + L": a time cannot be bound with flags 0"},
    };
    for (const auto& [misuse, message] : misuses) EXPECT_EQ(thrown<SQLException>(misuse), message);
    auto above = [](SQLQuery& q, int id) {
        q.prepare(L"SELECT DIR_ID FROM STOR_DIR WHERE DIR_ID > :ID ORDER BY DIR_ID");
        q.params()[0].setValue(id);
        q.execute();
    };
    {
        SQLQuery once(&c); // its handle goes back to the connection for the next query of the text
        above(once, 1);
        EXPECT_EQ(ids(once), (std::vector<int>{2, 3})) << "a query with parameters";
    }
    SQLQuery all(&c), last(&c);
    above(all, 0);
    ASSERT_TRUE(all.fetch());
    above(last, 2);
    EXPECT_EQ(ids(last), std::vector<int>{3});
    EXPECT_EQ(ids(all), (std::vector<int>{2, 3})) << "the second query moved the first one's rows";
    c.rollbackTrans();
}

// Values at the edges of their kinds come back exactly: the largest numbers
// of each kind the program binds (an unsigned 32-bit value is no -1, as
// SQLite's ODBC driver stores unsigned C types; a signed one keeps its sign;
// an unsigned 64-bit value in the signed range keeps every digit), and a text
// longer than any buffer a driver reads it in, with characters of four UTF-8
// bytes (two UTF-16 units) where such a buffer would cut one in two.
TEST_P(SQLLayer, ValuesAtTheEdgesOfTheirKindsComeBackExactly)
{
    std::wstring report;
    for (size_t units = 0; report.size() < 70000; units += 6) { // UTF-16 units: 🎵 takes two, the blank and 日本語 four
        const size_t fill = 8190 - units % 8191;                // 🎵 starts on the last unit of a piece of 8191 units
        report.append(fill, L'a').append(L"\U0001F3B5 日本語");
        units += fill;
    }
    SQLConnection c(fromNativePath(catalogue.engine().driver.c_str()));
    c.open(fromNativePath(catalogue.database().c_str()));
    c.startTrans();
    SQLQuery q(&c);
    q.execute(L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS) VALUES (1, '/d/', CURRENT_TIMESTAMP, CURRENT_TIMESTAMP)");
    q.prepare(
        L"INSERT INTO STOR_FILE (FILE_ID, NAME, USER_ID, STOR_ID, TYPE_ID, DIR_ID, FILE_NM, FILE_SZ, FILE_AT, FILE_MT, FILE_CT, FILE_ER, "
        L"MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, MEDI_NF, READ_CO, CREA_TS, MODI_TS) VALUES (:ID, '', :INT, 0, 0, 1, '', :SIZE, :TS, :TS, "
        L":TS, '', '', :WIDTH, 0, 0, :REPORT, 0, :TS, :TS)");
    const std::tuple<long long, int, unsigned long long, unsigned int, std::wstring> rows[] = {
        // ID, INT, SIZE, WIDTH, REPORT
        {INT64_MAX, INT32_MIN, INT64_MAX, UINT32_MAX, report},
        {1, INT32_MAX, 0, 0x80000000u, L""},
    };
    for (const auto& [id, signed32, size, width, text] : rows) {
        q.params().byName(L"ID")->setValue(id);
        q.params().byName(L"INT")->setValue(signed32);
        q.params().byName(L"SIZE")->setValue(size);
        q.params().byName(L"WIDTH")->setValue(width);
        q.params().byName(L"REPORT")->setValue(String(text), SQL::Text);
        q.params().byName(L"TS")->setValue(DateTime(), SQL::TimestampWithoutZone);
        q.execute();
    }
    q.execute(L"SELECT FILE_ID, USER_ID, FILE_SZ, MEDI_WI, MEDI_NF FROM STOR_FILE ORDER BY FILE_ID");
    for (const std::vector<std::wstring>& expected :
         {std::vector<std::wstring>{L"1", L"2147483647", L"0", L"2147483648", L""},
          {L"9223372036854775807", L"-2147483648", L"9223372036854775807", L"4294967295", report}}) {
        ASSERT_TRUE(q.fetch());
        for (size_t i = 0; i < 5; ++i) {
            const std::wstring got = q.fields()[i].asString().str();
            EXPECT_TRUE(got == expected[i]) << "column " << i << ": " << got.size() << " characters: " << toUtf8(got.substr(0, 40));
        }
    }
    EXPECT_FALSE(q.fetch());
    c.rollbackTrans();
}

// The column types of the engine's database for bytes and for text of any length.
std::pair<std::string, std::string> longColumns(const Engine& engine)
{
    if (engine.create.find("postgresql.sql") != std::string::npos) return {"BYTEA", "TEXT"};
    if (engine.create.find("mariadb.sql") != std::string::npos) return {"LONGBLOB", "LONGTEXT"};
    if (engine.create.find("firebird.sql") != std::string::npos) return {"BLOB SUB_TYPE BINARY", "BLOB SUB_TYPE TEXT CHARACTER SET UTF8"};
    return {"BLOB", "TEXT"};
}

// One statement run again and again stores each value with exactly its own
// bytes: a value shorter than the one before it (a driver that keeps the
// length of the value it was first run with stores the earlier value's tail),
// an empty one, and one of 64 KB.
TEST_P(SQLLayer, EachValueOfAStatementRunAgainKeepsExactlyItsBytes)
{
    const auto [bytesType, textType] = longColumns(catalogue.engine());
    catalogue.rows("CREATE TABLE VALUES_ (NO_ INTEGER NOT NULL PRIMARY KEY, B " + bytesType + ", T " + textType + ")");
    std::string large;
    for (int i = 0; i < 65536; ++i) large += static_cast<char>(i * 7 % 256);
    const std::pair<std::string, std::wstring> values[] = {
        {"\0app/x\0some long payload"s, L"a longer text, then shorter ones"},
        {"\0\0\0\x63"s, L"Caf\u00E9"},
        {"", L""},
        {large, std::wstring(30000, L'\u65E5')},
        {"ID-123", L"x"},
        {"\x01", L"\U0001F3B5"},
    };
    SQLConnection c(fromNativePath(catalogue.engine().driver.c_str()));
    c.open(fromNativePath(catalogue.database().c_str()));
    c.startTrans();
    SQLQuery q(&c);
    q.prepare(L"INSERT INTO VALUES_ (NO_, B, T) VALUES (:NO, :B, :T)");
    for (int no = 0; no < static_cast<int>(std::size(values)); ++no) {
        q.params()[0].setValue(no);
        q.params()[1].setValue(ByteString(values[no].first.data(), values[no].first.size()), SQL::Bytes);
        q.params()[2].setValue(String(values[no].second), SQL::Text);
        q.execute();
    }
    c.commitTrans();
    q.execute(L"SELECT NO_, B, T FROM VALUES_ ORDER BY NO_");
    for (const auto& [bytes, text] : values) {
        ASSERT_TRUE(q.fetch());
        SCOPED_TRACE(q.fields()[0].asString().str());
        EXPECT_FALSE(q.fields()[1].isNull() || q.fields()[2].isNull()) << "an empty value is no NULL";
        const ByteString got = q.fields()[1].asBytes();
        EXPECT_TRUE(std::string(got.data(), got.length()) == bytes) << got.length() << " bytes, not " << bytes.size();
        EXPECT_TRUE(q.fields()[2].asString().str() == text) << toUtf8(q.fields()[2].asString().str().substr(0, 40));
    }
    EXPECT_FALSE(q.fetch());
}

INSTANTIATE_TEST_SUITE_P(Engines, SQLLayer, ::testing::ValuesIn(engineNames()), testName);

} // namespace
