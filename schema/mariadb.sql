-- The catalogue's seven tables for MariaDB, then what --all-formats adds.
-- mariadb -h HOST -P PORT -u USER -p --default-character-set=utf8mb4 -e 'CREATE DATABASE music'
-- mariadb -h HOST -P PORT -u USER -p --default-character-set=utf8mb4 music < schema/mariadb.sql
-- Text is utf8mb4 (every Unicode character) with a binary collation: names
-- that differ only in letter case or trailing blanks stay different. Unsigned
-- 32-bit values are BIGINT, the file size BIGINT UNSIGNED; times are local
-- wall-clock times with milliseconds (DATETIME, no time zone). Text has no
-- length limit below LONGTEXT's, but for TAG_PROPERTY.KEY_, which is part of
-- an index.

CREATE TABLE STOR_DIR (
    DIR_ID      INTEGER         NOT NULL PRIMARY KEY,
    PATH        LONGTEXT        NOT NULL,
    CREA_TS     DATETIME(3)     NOT NULL,
    MODI_TS     DATETIME(3)     NOT NULL
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE STOR_FILE (
    FILE_ID     BIGINT          NOT NULL PRIMARY KEY,
    NAME        LONGTEXT        NOT NULL,
    USER_ID     INTEGER         NOT NULL,
    STOR_ID     INTEGER         NOT NULL,
    TYPE_ID     INTEGER         NOT NULL,
    DIR_ID      INTEGER         NOT NULL,
    FILE_NM     LONGTEXT        NOT NULL,
    FILE_SZ     BIGINT UNSIGNED NOT NULL,
    FILE_AT     DATETIME(3)     NOT NULL,
    FILE_MT     DATETIME(3)     NOT NULL,
    FILE_CT     DATETIME(3)     NOT NULL,
    FILE_ER     LONGTEXT        NOT NULL,
    MEDI_FM     LONGTEXT        NOT NULL,
    MEDI_WI     BIGINT          NOT NULL,
    MEDI_HE     BIGINT          NOT NULL,
    MEDI_DU     BIGINT          NOT NULL,
    MEDI_NF     LONGTEXT        NOT NULL,
    READ_CO     INTEGER         NOT NULL,
    CREA_TS     DATETIME(3)     NOT NULL,
    MODI_TS     DATETIME(3)     NOT NULL,
    INDEX STOR_FILE_DIR (DIR_ID),
    FOREIGN KEY (DIR_ID) REFERENCES STOR_DIR (DIR_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE ID3V1 (
    FILE_ID     BIGINT          NOT NULL PRIMARY KEY,
    TITLE       LONGTEXT        NOT NULL,
    ARTIST      LONGTEXT,
    ALBUM       LONGTEXT,
    YEAR_       LONGTEXT,
    COMMENT_    LONGTEXT,
    TRACK       INTEGER         NOT NULL,
    GENRE       INTEGER         NOT NULL,
    FOREIGN KEY (FILE_ID) REFERENCES STOR_FILE (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE ID3V2 (
    FILE_ID     BIGINT          NOT NULL PRIMARY KEY,
    VERSION     INTEGER         NOT NULL,
    FLAGS       INTEGER         NOT NULL,
    SIZE_       BIGINT          NOT NULL,
    FSBITS      BIGINT          NOT NULL,
    FOREIGN KEY (FILE_ID) REFERENCES STOR_FILE (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE ID3V2_FRAME (
    FILE_ID     BIGINT          NOT NULL,
    NO_         INTEGER         NOT NULL,
    FRAME_ID    LONGTEXT        NOT NULL,
    SIZE_       BIGINT          NOT NULL,
    FLAGS       SMALLINT        NOT NULL,
    ENCODING    INTEGER         NOT NULL,
    TYPE_       INTEGER         NOT NULL,
    URL         LONGTEXT,
    DESCRIPTION LONGTEXT,
    TEXT_       LONGTEXT,
    BINARY_     VARBINARY(100),
    PRIMARY KEY (FILE_ID, NO_),
    FOREIGN KEY (FILE_ID) REFERENCES ID3V2 (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE APE (
    FILE_ID     BIGINT          NOT NULL PRIMARY KEY,
    VERSION     BIGINT          NOT NULL,
    SIZE_       BIGINT          NOT NULL,
    COUNT_      BIGINT          NOT NULL,
    FLAGS       INTEGER         NOT NULL,
    FOREIGN KEY (FILE_ID) REFERENCES STOR_FILE (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE APE_ITEM (
    FILE_ID     BIGINT          NOT NULL,
    NO_         INTEGER         NOT NULL,
    SIZE_       BIGINT          NOT NULL,
    FLAGS       INTEGER         NOT NULL,
    KEY_        LONGTEXT        NOT NULL,
    VALUE_      LONGTEXT,
    PRIMARY KEY (FILE_ID, NO_),
    FOREIGN KEY (FILE_ID) REFERENCES APE (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

-- With --all-formats: each value of each tag of a file under the name that
-- TagLib gives it, numbered from 1 in the file's order (the best tag first),
-- with the kind of tag it came from; a key longer than 200 characters is
-- stored as its first 200. The view TRACK gives one row per stored file: its
-- path, format and play time, and of each common key the value of the file's
-- first row with that key (NULL when there is none). The program makes what
-- follows this comment only in a run with that option, also in a catalogue
-- that holds the seven tables above.

CREATE TABLE TAG_PROPERTY (
    FILE_ID     BIGINT          NOT NULL,
    NO_         INTEGER         NOT NULL,
    SOURCE_     LONGTEXT        NOT NULL,
    KEY_        VARCHAR(200)    NOT NULL,
    VALUE_      LONGTEXT        NOT NULL,
    PRIMARY KEY (FILE_ID, NO_),
    INDEX TAG_PROPERTY_KEY (FILE_ID, KEY_),
    FOREIGN KEY (FILE_ID) REFERENCES STOR_FILE (FILE_ID)
) ENGINE = InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE VIEW TRACK AS
SELECT f.FILE_ID AS FILE_ID, CONCAT(d.PATH, f.NAME) AS PATH, f.MEDI_FM AS FORMAT, f.MEDI_DU AS DURATION,
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
