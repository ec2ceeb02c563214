// The SQL layer over each engine: queries with parameters return their rows
// inside a transaction, and two live queries of one text keep their own rows.
#include <gtest/gtest.h>

#include "support/Catalogue.h"

using namespace testsupport;
using namespace ZELd;

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

} // namespace
