// The command-line parser.
//
// Long options "--name", "--name=VALUE" and "--name VALUE"; the one-letter
// forms of the ids ("-v", "-d VALUE", "-dVALUE", "-sv"); "--" ends the options.
// "--help" prints the usage screen, "--version" the banner; both make parse()
// return false, so that nothing runs. A refused command line prints why and a
// hint to --help on the error writer.
#pragma once

#include "zel/Array.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Writer;

class Arguments : public Object {
public:
    struct Option {
        const wchar_t* name;      // long name; null for a heading row
        int id;                   // the one-letter form's character code; 0 for a heading row
        const wchar_t* valueName; // null for a switch
        const wchar_t* fallback;  // shown as the default value in the usage screen, when set
        const wchar_t* help;      // help text; a heading row carries only this
    };

    // programName: value0() when the command line does not give one.
    // options: rows ended by a row whose fields are all empty.
    Arguments(Writer& output, Writer& errout, const wchar_t* programName, const wchar_t* banner, const wchar_t* contact,
              const wchar_t* synopsis, const wchar_t* description, const Option* options);

    // valuesRequired: a command line without a value is refused.
    bool parse(int argc, char** argv, bool valuesRequired);

    const StringArray& values() const { return values_; }
    // The program's name as it was started.
    const String& value0() const { return value0_; }
    Writer& output() const { return output_; }
    Writer& errout() const { return errout_; }

    void usage() const;

protected:
    virtual void onOption(int id, const String& value) = 0;
    // Called after a successful parse; false refuses the command line.
    virtual bool onValidate();
    // Prints why and the hint to --help on the error writer; returns false.
    bool refuse(const String& why) const;

private:
    // Each takes the option argument argv[i] (and its value, advancing i);
    // false ends the parse: a refused option, --help or --version.
    bool parseLong(const String& arg, int& i, int argc, char** argv);
    bool parseShort(const String& arg, int& i, int argc, char** argv);
    const Option* findLong(const String& name) const;
    const Option* findShort(wchar_t id) const;

    Writer& output_;
    Writer& errout_;
    const wchar_t* banner_;
    const wchar_t* contact_;
    const wchar_t* synopsis_;
    const wchar_t* description_;
    const Option* options_;
    String value0_;
    StringArray values_;
};

} // namespace ZELd
