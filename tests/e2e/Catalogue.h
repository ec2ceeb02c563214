// A fresh catalogue for a test, on SQLite or on the PostgreSQL server that
// .ci/run starts (its settings in SONARCAT_TEST_POSTGRES), and a way to read
// its rows back through the database's own command-line client.
#pragma once

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/RunProgram.h"
#include "support/TempDir.h"

namespace e2e {

using Row = std::vector<std::string>;
inline const std::string kNull = "<null>";

class Catalogue {
public:
    virtual ~Catalogue() = default;
    // The --database value of a new catalogue holding the tables; empty when
    // this kind of database is not reachable here.
    virtual std::string create() = 0;
    // Rows of a query; NULL reads as kNull.
    virtual std::vector<Row> rows(const std::string& sql) = 0;
    // The number of rows of a table, as the client prints it.
    std::string countOf(const std::string& table) { return rows("SELECT COUNT(*) FROM " + table).at(0).at(0); }
    virtual void exec(const std::string& sql) = 0;
    // The hexadecimal text of a bytes column, upper case.
    virtual std::string hex(const std::string& column) = 0;
    // A trigger that rejects the frame rows whose FRAME_ID is id.
    virtual std::string rejectFrameTrigger(const std::string& id) = 0;

protected:
    static std::vector<Row> split(const std::string& out)
    {
        std::vector<Row> rows;
        size_t start = 0;
        while (start < out.size()) {
            size_t end = out.find('\x1e', start);
            if (end == std::string::npos) end = out.size();
            std::string line = out.substr(start, end - start);
            if (!line.empty() && line.back() == '\n') line.pop_back();
            if (!(line.empty() && end == out.size())) {
                Row row;
                size_t f = 0;
                for (;;) {
                    size_t g = line.find('\x1f', f);
                    row.push_back(line.substr(f, g == std::string::npos ? std::string::npos : g - f));
                    if (g == std::string::npos) break;
                    f = g + 1;
                }
                rows.push_back(row);
            }
            start = end + 1;
        }
        return rows;
    }
};

class SQLiteCatalogue : public Catalogue {
public:
    std::string create() override
    {
        file_ = dir_ / "music.sqlite3";
        run({"/usr/bin/sqlite3", file_, ".read " + std::string(SONARCAT_SCHEMA_DIR) + "/sqlite3.sql"});
        return "DRIVER=ZELSQLite3;DATABASE=" + file_;
    }
    std::vector<Row> rows(const std::string& sql) override
    {
        return split(run({"/usr/bin/sqlite3", "-batch", "-separator", "\x1f", "-newline", "\x1e", "-nullvalue", kNull, file_, sql}));
    }
    void exec(const std::string& sql) override { run({"/usr/bin/sqlite3", file_, sql}); }
    std::string hex(const std::string& column) override { return "nullif(hex(" + column + "), '')"; }
    std::string rejectFrameTrigger(const std::string& id) override
    {
        return "CREATE TRIGGER REJECT_FRAME BEFORE INSERT ON ID3V2_FRAME WHEN NEW.FRAME_ID = '" + id +
               "' BEGIN SELECT RAISE(ABORT, 'frame rejected'); END;";
    }
    const std::string& file() const { return file_; }

private:
    std::string run(const std::vector<std::string>& argv)
    {
        auto r = testsupport::runProgram(argv, testsupport::plainEnvironment("C.UTF-8"));
        if (r.status != 0) throw std::runtime_error("sqlite3: " + r.err);
        return r.out;
    }
    testsupport::TempDir dir_;
    std::string file_;
};

// Settings of the test server, "SERVER=...;PORT=...;USER=...;PASSWORD=...".
inline std::string postgresSettings()
{
    const char* s = std::getenv("SONARCAT_TEST_POSTGRES");
    return s ? s : "";
}

inline std::string settingOf(const std::string& settings, const std::string& key)
{
    size_t p = settings.find(key + "=");
    if (p == std::string::npos) return "";
    p += key.size() + 1;
    return settings.substr(p, settings.find(';', p) - p);
}

class PostgresCatalogue : public Catalogue {
public:
    // settings: a server other than the test server, in the same form.
    explicit PostgresCatalogue(std::string settings = postgresSettings()) : settings_(std::move(settings)) {}
    ~PostgresCatalogue() override
    {
        if (!db_.empty()) psql("postgres", {"-c", "DROP DATABASE IF EXISTS " + db_ + " WITH (FORCE)"}, false);
    }
    std::string create() override
    {
        if (settings_.empty()) return "";
        static std::atomic<int> serial{0};
        db_ = "sonarcat_test_" + std::to_string(::getpid()) + "_" + std::to_string(serial++);
        psql("postgres", {"-c", "CREATE DATABASE " + db_});
        psql(db_, {"-f", std::string(SONARCAT_SCHEMA_DIR) + "/postgresql.sql"});
        return "DRIVER=ZELPostgreSQL;" + settings_ + ";DATABASE=" + db_;
    }
    std::vector<Row> rows(const std::string& sql) override
    {
        return split(psql(db_, {"-At", "-F", "\x1f", "-R", "\x1e", "-P", "null=" + kNull, "-c", sql}));
    }
    void exec(const std::string& sql) override { psql(db_, {"-c", sql}); }
    std::string hex(const std::string& column) override { return "upper(encode(" + column + ", 'hex'))"; }
    std::string rejectFrameTrigger(const std::string& id) override
    {
        return "CREATE FUNCTION REJECT_FRAME() RETURNS trigger AS $$ BEGIN IF NEW.FRAME_ID = '" + id +
               "' THEN RAISE EXCEPTION 'frame rejected'; END IF; RETURN NEW; END $$ LANGUAGE plpgsql;"
               "CREATE TRIGGER REJECT_FRAME BEFORE INSERT ON ID3V2_FRAME FOR EACH ROW EXECUTE FUNCTION REJECT_FRAME();";
    }
    const std::string& database() const { return db_; }

private:
    std::string psql(const std::string& db, std::vector<std::string> args, bool check = true)
    {
        const std::string& s = settings_;
        std::vector<std::string> argv = {"/usr/bin/psql", "-X", "-q", "-v", "ON_ERROR_STOP=1", "-h", settingOf(s, "SERVER"), "-p", settingOf(s, "PORT"),
                                         "-U", settingOf(s, "USER"), "-d", db};
        argv.insert(argv.end(), args.begin(), args.end());
        auto env = testsupport::plainEnvironment("C.UTF-8");
        env.push_back("PGPASSWORD=" + settingOf(s, "PASSWORD"));
        auto r = testsupport::runProgram(argv, env);
        if (check && r.status != 0) throw std::runtime_error("psql: " + r.err);
        return r.out;
    }
    std::string settings_, db_;
};

inline std::unique_ptr<Catalogue> makeCatalogue(const std::string& kind)
{
    if (kind == "PostgreSQL") return std::make_unique<PostgresCatalogue>();
    return std::make_unique<SQLiteCatalogue>();
}

} // namespace e2e
