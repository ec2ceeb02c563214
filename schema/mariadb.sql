-- The catalogue's seven tables for MariaDB.
-- mariadb -h HOST -P PORT -u USER -p --default-character-set=utf8mb4 -e 'CREATE DATABASE music'
-- mariadb -h HOST -P PORT -u USER -p --default-character-set=utf8mb4 music < schema/mariadb.sql
-- Text is utf8mb4 (every Unicode character) with a binary collation: names
-- that differ only in letter case or trailing blanks stay different. Unsigned
-- 32-bit values are BIGINT, the file size BIGINT UNSIGNED; times are local
-- wall-clock times with milliseconds (DATETIME, no time zone). No text column
-- is part of a key, so text has no length limit below LONGTEXT's.

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
