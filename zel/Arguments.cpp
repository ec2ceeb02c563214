#define ZEL_SOURCE "zel/Arguments"
#include "zel/Arguments.h"

#include "zel/FileName.h"
#include "zel/Files.h"
#include "zel/StringBuilder.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

constexpr size_t kHelpColumn = 28; // three tabs and four blanks

bool isEnd(const Arguments::Option& o) { return !o.name && !o.id && !o.valueName && !o.fallback && !o.help; }

} // namespace

Arguments::Arguments(Writer& output, Writer& errout, const wchar_t* programName, const wchar_t* banner, const wchar_t* contact,
                     const wchar_t* synopsis, const wchar_t* description, const Option* options)
    : output_(output), errout_(errout), banner_(banner), contact_(contact), synopsis_(synopsis), description_(description),
      options_(options), value0_(programName ? programName : L"")
{}

const Arguments::Option* Arguments::findLong(const String& name) const
{
    for (const Option* o = options_; o && !isEnd(*o); ++o)
        if (o->name && name == o->name) return o;
    return nullptr;
}

const Arguments::Option* Arguments::findShort(wchar_t id) const
{
    for (const Option* o = options_; o && !isEnd(*o); ++o)
        if (o->name && o->id == static_cast<int>(id)) return o;
    return nullptr;
}

bool Arguments::refuse(const String& why) const
{
    output_.flush();
    errout_ << value0_ << L": " << why << endl;
    errout_ << L"Try '" << value0_ << L" --help' for more information." << endl;
    return false;
}

bool Arguments::onValidate() { return true; }

bool Arguments::parse(int argc, char** argv, bool valuesRequired)
{
    if (argc > 0 && argv[0]) {
        String name = Files::basename(fromNativePath(argv[0]));
        if (!name.isEmpty()) value0_ = name;
    }
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        String arg = fromNativePath(argv[i]);
        if (optionsEnded || arg.length() < 2 || arg[0] != L'-') {
            values_.add(arg);
        } else if (arg == L"--") {
            optionsEnded = true;
        } else if (!(arg[1] == L'-' ? parseLong(arg, i, argc, argv) : parseShort(arg, i, argc, argv))) {
            return false;
        }
    }
    if (valuesRequired && values_.isEmpty()) return refuse(String::format(L"missing %ls", synopsis_));
    return onValidate();
}

bool Arguments::parseLong(const String& arg, int& i, int argc, char** argv)
{
    const size_t eq = arg.indexOf(L'=');
    const String name = arg.substring(2, eq == String::npos ? String::npos : eq - 2);
    const bool help = name == L"help", version = name == L"version";
    const Option* o = findLong(name); // --help and --version are no rows of the table
    if (!o && !help && !version) return refuse(String::format(L"unrecognized option '--%ls'", name));
    if ((!o || !o->valueName) && eq != String::npos) return refuse(String::format(L"option '--%ls' doesn't allow an argument", name));
    if (help) usage();
    if (version) output_ << banner_ << endl;
    if (!o) return false; // --help and --version run nothing
    if (!o->valueName) onOption(o->id, String());
    else if (eq != String::npos) onOption(o->id, arg.substring(eq + 1));
    else if (i + 1 < argc) onOption(o->id, fromNativePath(argv[++i]));
    else return refuse(String::format(L"option '--%ls' requires an argument", name));
    return true;
}

// One or more one-letter options: "-sv", "-dVALUE", "-d VALUE".
bool Arguments::parseShort(const String& arg, int& i, int argc, char** argv)
{
    for (size_t k = 1; k < arg.length(); ++k) {
        const Option* o = findShort(arg[k]);
        if (!o) return refuse(String::format(L"invalid option -- '%lc'", arg[k]));
        if (!o->valueName) {
            onOption(o->id, String());
            continue;
        }
        if (k + 1 < arg.length()) onOption(o->id, arg.substring(k + 1));
        else if (i + 1 < argc) onOption(o->id, fromNativePath(argv[++i]));
        else return refuse(String::format(L"option requires an argument -- '%lc'", arg[k]));
        break;
    }
    return true;
}

void Arguments::usage() const
{
    Writer& out = output_;
    out << banner_ << endl << description_ << endl << endl;
    out << L"Usage: " << value0_ << L" [OPTION]... " << synopsis_ << endl << endl;
    auto row = [&out](const String& label, const wchar_t* help, const wchar_t* fallback) {
        out << label;
        if (label.length() + 1 < kHelpColumn) {
            String pad;
            out << pad.assign(L' ', kHelpColumn - label.length());
        } else {
            String pad;
            out << endl << pad.assign(L' ', kHelpColumn);
        }
        out << (help ? help : L"");
        if (fallback && *fallback) out << L" (default: " << fallback << L")";
        out << endl;
    };
    for (const Option* o = options_; o && !isEnd(*o); ++o) {
        if (!o->name) {
            out << endl << (o->help ? o->help : L"") << endl;
            continue;
        }
        StringBuilder label(32);
        if (o->id > 0 && o->id < 128) label.format(L"  -%lc, --%ls", static_cast<wchar_t>(o->id), o->name);
        else label.format(L"      --%ls", o->name);
        if (o->valueName) label.append(L'=').append(o->valueName);
        row(label.toString(), o->help, o->fallback);
    }
    out << endl;
    row(String(L"      --help"), L"display this help and exit", nullptr);
    row(String(L"      --version"), L"output version information and exit", nullptr);
    if (contact_ && *contact_) out << endl << L"Report bugs to <" << contact_ << L">." << endl;
}

} // namespace ZELd
