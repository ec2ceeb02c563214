// What the program tells the SQL layer about itself, at start-up before its
// first connection (SQLConnection::configure).
#pragma once

#include <utility>
#include <vector>

#include "zel/String.h"

namespace ZELd {

struct SQLConfiguration {
    // Where driver modules are looked for after the program's own directory:
    // directories relative to it, each ending with "/".
    std::vector<String> moduleDirectories;
    // What the message about a driver whose module is missing tells the user
    // to do, per driver name (such as {"ZELPostgreSQL", "install the package
    // ..."}); a driver without an entry gets no advice.
    std::vector<std::pair<String, String>> installHints;
    // How the program names itself to a server that lists its clients; empty: not named.
    String applicationName;
};

} // namespace ZELd
