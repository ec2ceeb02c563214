// The program's options.
#pragma once

#include "zel/Arguments.h"
#include "zel/String.h"

namespace ZELd {

// The program's name: what it calls itself when started without one, what it
// tells database servers, and its folder of driver modules in an install.
inline constexpr wchar_t kProgramName[] = L"sonarcat";

class MainArguments : public Arguments {
public:
    MainArguments(Writer& output, Writer& errout);

    // "sonarcat --verbose=... --summary=... --database=... --dry-run=... values[...]"
    String toString() const override;

    bool verbose() const { return _verbose; }
    bool summary() const { return _summary; }
    const String& database() const { return _database; }
    bool dryrun() const { return _dryrun; }
    // Seconds a file's MediaInfo probe may take; 0: no limit.
    unsigned probeTimeout() const { return _probeTimeout; }

protected:
    void onOption(int id, const String& value) override;
    bool onValidate() override;

private:
    bool _dryrun = false;
    bool _summary = false;
    bool _verbose = false;
    String _database;
    unsigned _probeTimeout = 10;
    bool _probeTimeoutGiven = false;
    String _probeTimeoutText; // as the command line gave it
};

} // namespace ZELd
