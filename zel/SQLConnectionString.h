// The settings of a connection string, as the SQL layer hands them to a driver.
#pragma once

#include "zel/SQLDriver.h"
#include "zel/String.h"

namespace ZELd {

// Splits "KEY=value" pairs separated by ";" into settings: keys upper-cased,
// blanks around keys and values dropped, pairs without "=" or key left out.
sqldriver::Settings parseConnectionString(const String& connectionString);

// The driver that the DRIVER key of a connection string names: the value
// after "DRIVER", blanks and "=", up to the next ";", trimmed; "ZELODBC" for a
// value in braces (an ODBC driver, which the ODBC module hands on). Empty when
// there is no DRIVER key or its value is blank.
String driverOf(const String& connectionString);

} // namespace ZELd
