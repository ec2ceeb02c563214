// The settings of a connection string, as the SQL layer hands them to a driver.
#pragma once

#include "zel/SQLDriver.h"
#include "zel/String.h"

namespace ZELd {

// Splits "KEY=value" pairs separated by ";" into settings: keys upper-cased,
// blanks around keys and values dropped, pairs without "=" or key left out.
sqldriver::Settings parseConnectionString(const String& connectionString);

} // namespace ZELd
