-- The catalogue's seven tables for PostgreSQL, then what --all-formats adds.
-- psql -d music -f schema/postgresql.sql
-- Unsigned 32-bit values are BIGINT, unsigned 64-bit values NUMERIC(20);
-- times are local wall-clock times without time zone.

CREATE TABLE STOR_DIR (
    DIR_ID      INTEGER      NOT NULL PRIMARY KEY,
    PATH        TEXT         NOT NULL,
    CREA_TS     TIMESTAMP(3) NOT NULL,
    MODI_TS     TIMESTAMP(3) NOT NULL
);

CREATE TABLE STOR_FILE (
    FILE_ID     BIGINT       NOT NULL PRIMARY KEY,
    NAME        TEXT         NOT NULL,
    USER_ID     INTEGER      NOT NULL,
    STOR_ID     INTEGER      NOT NULL,
    TYPE_ID     INTEGER      NOT NULL,
    DIR_ID      INTEGER      NOT NULL REFERENCES STOR_DIR (DIR_ID),
    FILE_NM     TEXT         NOT NULL,
    FILE_SZ     NUMERIC(20)  NOT NULL,
    FILE_AT     TIMESTAMP(3) NOT NULL,
    FILE_MT     TIMESTAMP(3) NOT NULL,
    FILE_CT     TIMESTAMP(3) NOT NULL,
    FILE_ER     TEXT         NOT NULL,
    MEDI_FM     TEXT         NOT NULL,
    MEDI_WI     BIGINT       NOT NULL,
    MEDI_HE     BIGINT       NOT NULL,
    MEDI_DU     BIGINT       NOT NULL,
    MEDI_NF     TEXT         NOT NULL,
    READ_CO     INTEGER      NOT NULL,
    CREA_TS     TIMESTAMP(3) NOT NULL,
    MODI_TS     TIMESTAMP(3) NOT NULL
);
CREATE INDEX STOR_FILE_DIR ON STOR_FILE (DIR_ID);

CREATE TABLE ID3V1 (
    FILE_ID     BIGINT  NOT NULL PRIMARY KEY REFERENCES STOR_FILE (FILE_ID),
    TITLE       TEXT    NOT NULL,
    ARTIST      TEXT,
    ALBUM       TEXT,
    YEAR_       TEXT,
    COMMENT_    TEXT,
    TRACK       INTEGER NOT NULL,
    GENRE       INTEGER NOT NULL
);

CREATE TABLE ID3V2 (
    FILE_ID     BIGINT  NOT NULL PRIMARY KEY REFERENCES STOR_FILE (FILE_ID),
    VERSION     INTEGER NOT NULL,
    FLAGS       INTEGER NOT NULL,
    SIZE_       BIGINT  NOT NULL,
    FSBITS      BIGINT  NOT NULL
);

CREATE TABLE ID3V2_FRAME (
    FILE_ID     BIGINT   NOT NULL REFERENCES ID3V2 (FILE_ID),
    NO_         INTEGER  NOT NULL,
    FRAME_ID    TEXT     NOT NULL,
    SIZE_       BIGINT   NOT NULL,
    FLAGS       SMALLINT NOT NULL,
    ENCODING    INTEGER  NOT NULL,
    TYPE_       INTEGER  NOT NULL,
    URL         TEXT,
    DESCRIPTION TEXT,
    TEXT_       TEXT,
    BINARY_     BYTEA,
    PRIMARY KEY (FILE_ID, NO_)
);

CREATE TABLE APE (
    FILE_ID     BIGINT  NOT NULL PRIMARY KEY REFERENCES STOR_FILE (FILE_ID),
    VERSION     BIGINT  NOT NULL,
    SIZE_       BIGINT  NOT NULL,
    COUNT_      BIGINT  NOT NULL,
    FLAGS       INTEGER NOT NULL
);

CREATE TABLE APE_ITEM (
    FILE_ID     BIGINT  NOT NULL REFERENCES APE (FILE_ID),
    NO_         INTEGER NOT NULL,
    SIZE_       BIGINT  NOT NULL,
    FLAGS       INTEGER NOT NULL,
    KEY_        TEXT    NOT NULL,
    VALUE_      TEXT,
    PRIMARY KEY (FILE_ID, NO_)
);

-- With --all-formats: each value of each tag of a file under the name that
-- TagLib gives it, numbered from 1 in the file's order (the best tag first),
-- with the kind of tag it came from; a key longer than 200 characters is
-- stored as its first 200. The view TRACK gives one row per stored file: its
-- path, format and play time, and of each common key the value of the file's
-- first row with that key (NULL when there is none). The program makes what
-- follows this comment only in a run with that option, also in a catalogue
-- that holds the seven tables above.

CREATE TABLE TAG_PROPERTY (
    FILE_ID     BIGINT       NOT NULL REFERENCES STOR_FILE (FILE_ID),
    NO_         INTEGER      NOT NULL,
    SOURCE_     TEXT         NOT NULL,
    KEY_        VARCHAR(200) NOT NULL,
    VALUE_      TEXT         NOT NULL,
    PRIMARY KEY (FILE_ID, NO_)
);
CREATE INDEX TAG_PROPERTY_KEY ON TAG_PROPERTY (FILE_ID, KEY_);

CREATE VIEW TRACK AS
SELECT f.FILE_ID AS FILE_ID, d.PATH || f.NAME AS PATH, f.MEDI_FM AS FORMAT, f.MEDI_DU AS DURATION,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'TITLE' ORDER BY p.NO_ LIMIT 1) AS TITLE,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'ARTIST' ORDER BY p.NO_ LIMIT 1) AS ARTIST,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'ALBUMARTIST' ORDER BY p.NO_ LIMIT 1) AS ALBUMARTIST,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'ALBUM' ORDER BY p.NO_ LIMIT 1) AS ALBUM,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'TRACKNUMBER' ORDER BY p.NO_ LIMIT 1) AS TRACKNUMBER,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'DISCNUMBER' ORDER BY p.NO_ LIMIT 1) AS DISCNUMBER,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'DATE' ORDER BY p.NO_ LIMIT 1) AS DATE_,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'GENRE' ORDER BY p.NO_ LIMIT 1) AS GENRE,
    (SELECT p.VALUE_ FROM TAG_PROPERTY p WHERE p.FILE_ID = f.FILE_ID AND p.KEY_ = 'COMPOSER' ORDER BY p.NO_ LIMIT 1) AS COMPOSER
FROM STOR_FILE f JOIN STOR_DIR d ON d.DIR_ID = f.DIR_ID;
