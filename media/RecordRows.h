// A file's record as rows of the catalogue's tables: a directory row when the
// file's directory is not the current one, the file's row, the rows of its
// ID3v1, ID3v2 (with its frames) and APE (with its items) tags, and, when the
// run stores them (--all-formats), its TAG_PROPERTY rows; each bound value by
// value and each statement prepared once per file. The report gets each
// row's line as the row goes out.
#pragma once

namespace ZELd {

class Catalogue;
class FileReport;
struct FileInfo;

// Writes the rows in the catalogue's open transaction, under ids it hands out.
void insertRecord(Catalogue& catalogue, const FileInfo& file, const FileReport& report);

} // namespace ZELd
