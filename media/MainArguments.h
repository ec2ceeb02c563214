// The program's options.
#pragma once

#include <optional>

#include "zel/Arguments.h"
#include "zel/IconvDecoder.h"
#include "zel/String.h"

namespace ZELd {

// The program's name: what it calls itself when started without one, what it
// tells database servers, and its folder of driver modules in an install.
inline constexpr wchar_t kProgramName[] = L"sonarcat";

class MainArguments : public Arguments {
public:
    MainArguments(Writer& output, Writer& errout);

    // "sonarcat --verbose=... --summary=... --database=... --dry-run=... values[...]",
    // with " --update=true", " --probe-timeout=...", " --charset=...", " --jobs=..." and " --all-formats" before " values[" when they were
    // given.
    String toString() const override;

    bool verbose() const { return _verbose; }
    bool summary() const { return _summary; }
    const String& database() const { return _database; }
    bool dryrun() const { return _dryrun; }
    // --update: only new and changed files are read, those that are gone are removed.
    bool update() const { return update_; }
    // Seconds a file's MediaInfo probe may take; 0: no limit.
    unsigned probeTimeout() const { return probeTimeout_; }
    // Files read at once, as --jobs asks; 0: as the medium suits.
    unsigned jobs() const { return jobs_; }
    // --all-formats: the tags of every audio format that TagLib reads, and
    // every file's tags under common names (TAG_PROPERTY).
    bool allFormats() const { return allFormats_; }
    // --charset's decoder, opened when the command line was accepted; nullptr without the option.
    IconvDecoder* charset() const { return decoder_ ? &*decoder_ : nullptr; }

protected:
    void onOption(int id, const String& value) override;
    bool onValidate() override;

private:
    bool _dryrun = false;
    bool _summary = false;
    bool _verbose = false;
    String _database;
    bool update_ = false;
    unsigned probeTimeout_ = 10;
    std::optional<String> probeTimeoutText_; // as the command line gave it
    std::optional<String> charset_;
    unsigned jobs_ = 0;
    std::optional<String> jobsText_;
    bool allFormats_ = false;
    mutable std::optional<IconvDecoder> decoder_; // decoding changes its state, not the options
};

} // namespace ZELd
