// Finding and loading the module of an SQL driver by the driver's name.
#pragma once

#include "zel/String.h"

namespace ZELd {

class SharedLibrary;
struct SQLConfiguration;

// Loads libZEL<Name>.so for the driver ZEL<Name> (or <Name>): from the
// program's own directory, then from each of the configuration's module
// directories (relative to it, each ending with "/"), then through the
// loader's search path. Throws SQLException when the name is not made of
// letters, digits and "_", or when no module is found: the message names the
// driver, where it looked, the configuration's install hint for the driver and
// the drivers that are installed there.
SharedLibrary* loadSQLDriverModule(const String& driverName, const SQLConfiguration& setUp);

} // namespace ZELd
