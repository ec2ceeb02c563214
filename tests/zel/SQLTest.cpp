// The SQL layer over each engine: queries with parameters return their rows
// inside a transaction, two live queries of one text keep their own rows, and
// a misused parameter fails with SQLException instead of binding nothing.
#include <gtest/gtest.h>

#include <functional>

#include "support/Catalogue.h"

using namespace testsupport;
using namespace ZELd;

namespace {

const String kInsertDir = L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS) VALUES (:ID, :PATH, :TS, :TS)";

// The message of the SQLException that action throws; empty when it throws none.
std::wstring failure(const std::function<void()>& action)
{
    try {
        action();
    } catch (SQLException* e) {
        const std::wstring message = e->toString().str();
        e->destroy();
        return message;
    }
    return L"";
}

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

INSTANTIATE_TEST_SUITE_P(Engines, SQLLayer, ::testing::ValuesIn(engineNames()));

TEST(SQLParams, MisuseFailsNamingTheParameterAndTheStatement)
{
    Catalogue catalogue("SQLite");
    SQLConnection c(L"ZELSQLite3");
    c.open(fromNativePath(catalogue.database().c_str()));
    SQLQuery q(&c);
    q.prepare(kInsertDir);
    const std::wstring in = L" [" + kInsertDir.str() + L"]";
    const std::pair<std::function<void()>, std::wstring> cases[] = {
        {[&] { q.params().byName(L"DIR_ID")->setValue(1); }, L"No parameter [DIR_ID] in" + in},
        {[&] { q.params()[3].setValue(1); }, L"No parameter 3 in" + in + L": it has 3"},
        {[&] { q.params()[1].setValue(String(L"x"), SQL::Bytes); }, L"Parameter [PATH] of" + in + L": text cannot be bound as data type 14"},
        {[&] { q.params()[1].setValue(ByteString("x", 1), SQL::Text); }, L"Parameter [PATH] of" + in + L": bytes cannot be bound as data type 13"},
        {[&] { q.params()[2].setValue(DateTime(), 0); }, L"Parameter [TS] of" + in + L": a time cannot be bound with flags 0"},
    };
    for (const auto& [misuse, message] : cases) EXPECT_EQ(failure(misuse), message);
}

} // namespace
