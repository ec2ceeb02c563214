#define ZEL_SOURCE "media/FileReport"
#include "media/FileReport.h"

#include "zel/Writer.h"

namespace ZELd {

namespace {

constexpr size_t kRuleWidth = 80;

// The report's tags[...] number: the ID3v2 version in the hundreds, the APE
// version counted in tenths of its unit (20 for version 2000), the ID3v1
// version in the ones ("321": ID3v2.3, APE 2, ID3v1.1).
int32_t tagNumber(const FileInfo& file)
{
    return file.id3v2.version() * 100 + static_cast<int32_t>(file.ape.version() / (APEv2::Header::kVersionUnit / 10)) +
           file.id3v1.version();
}

} // namespace

FileReport::FileReport(Writer& out, Writer& errout, bool verbose)
    : out_(out), errout_(errout), verbose_(verbose), fileRule(String().assign(L'=', kRuleWidth)),
      sectionRule(String().assign(L'-', kRuleWidth))
{}

void FileReport::print(const FileInfo& file) const
{
    Writer& out = out_;
    out << fileRule << endl;
    out << L"DIR [" << file.dir << L"]" << endl;
    out << L"FILE[" << file.name << L"]" << endl;
    out.printf(L"    tags[%03d]", tagNumber(file));
    out << L" size[" << static_cast<unsigned long long>(file.size) << L"]" << L" mtime[" << file.mtime.toString() << L"]" << L" notes["
        << file.notes << L"]" << endl;
    const MediaFacts& media = file.media;
    out << L"    format[" << media.format << L"]" << L" width[" << media.width << L"]" << L" height[" << media.height << L"]"
        << L" duration[" << media.duration << L"]" << endl;
    if (!verbose_) return;
    if (file.id3v2.version() > 0) {
        out << sectionRule << endl << file.id3v2.toString() << endl;
        for (const ID3v2Frame* frame : file.id3v2.frames()) out << frame->toString() << endl;
    }
    if (file.ape.version() != 0) {
        out << sectionRule << endl << file.ape.toString() << endl;
        for (const APEv2Item* item : file.ape.items()) out << item->toString() << endl;
    }
    if (file.id3v1.version() > 0) out << sectionRule << endl << file.id3v1.toString() << endl;
    if (!file.properties.empty()) {
        out << sectionRule << endl << L"PROPERTIES count[" << static_cast<unsigned long long>(file.properties.size()) << L"]" << endl;
        for (const TagProperty& p : file.properties)
            out << L"source[" << p.source << L"] key[" << p.key << L"] value[" << p.value << L"]" << endl;
    }
    out << sectionRule << endl;
    out << file.media.inform << endl;
}

void FileReport::rowsBegin() const { out_ << sectionRule << endl; }

void FileReport::dirRow(int32_t dirId, const String& dir) const
{
    out_ << L"    INSERT STOR_DIR [" << dirId << L"][" << dir << L"]" << endl;
}

void FileReport::fileRow(int64_t fileId, const String& name) const
{
    out_ << L"    INSERT STOR_FILE [" << static_cast<long long>(fileId) << L"][" << name << L"]" << endl;
}

void FileReport::id3v1Row() const
{
    if (verbose_) out_ << L"    INSERT ID3V1" << endl;
}

void FileReport::id3v2Rows(size_t frames) const
{
    if (verbose_) out_ << L"    INSERT ID3V2 ID3V2_FRAME[" << static_cast<unsigned long long>(frames) << L"]" << endl;
}

void FileReport::apeRows(size_t items) const
{
    if (verbose_) out_ << L"    INSERT APE APE_ITEM[" << static_cast<unsigned long long>(items) << L"]" << endl;
}

void FileReport::propertyRows(size_t properties) const
{
    if (verbose_) out_ << L"    INSERT TAG_PROPERTY[" << static_cast<unsigned long long>(properties) << L"]" << endl;
}

void FileReport::untitled(const FileInfo& file) const
{
    errout_ << L"Title is NULL " << file.id3v1.toString() << L" [" << file.dir << file.name << L"]" << endl;
}

} // namespace ZELd
