#define ZEL_SOURCE "media/FilesInFlight"
#include "media/FilesInFlight.h"

#include <algorithm>

#include "zel/Files.h"
#include "zel/Process.h"

namespace ZELd {

namespace {

constexpr unsigned kPerCoreOnNetwork = 8;
// Where helpers wait for a server, this many keep its round trips
// overlapped; each holds a few MB of its own.
constexpr unsigned kMostOnNetwork = 16;

} // namespace

FilesInFlight FilesInFlight::forTree(const String& path, unsigned jobs)
{
    const unsigned cores = std::max(1u, static_cast<unsigned>(ZELUsableCores()));
    FilesInFlight inFlight;
    if (jobs != 0) inFlight.probes = inFlight.readers = jobs;
    else if (Files::onNetwork(path)) inFlight.probes = inFlight.readers = std::min(kPerCoreOnNetwork * cores, kMostOnNetwork);
    else inFlight.probes = cores;
    inFlight.tagBytes = inFlight.readers != 0;
    return inFlight;
}

} // namespace ZELd
