// Statement texts as a driver takes them: the layer's placeholders (":NAME",
// "?") rewritten in the driver's own form.
#pragma once

#include <string>
#include <vector>

#include "zel/SQLDriver.h"
#include "zel/String.h"

namespace ZELd {

struct SQLTranslation {
    std::string text;          // UTF-8, with the driver's placeholders
    std::vector<String> names; // the statement's parameters in order of first appearance; "" for each "?"
    std::vector<size_t> slots; // for each index of the driver, the statement's parameter bound there
};

// Rewrites each ":NAME" and "?" outside quotes and comments as the driver's
// placeholder. A name met again is the same parameter: a driver that numbers
// its placeholders gets the same index for it, one that does not (its
// placeholder is the same for every index) gets one index for each place.
SQLTranslation translatePlaceholders(const String& sql, sqldriver::Connection& driver);

} // namespace ZELd
