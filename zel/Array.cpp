#define ZEL_SOURCE "zel/Array"
#include "zel/Array.h"

#include "zel/StringBuilder.h"

namespace ZELd {

const String& StringArray::operator[](size_t index) const
{
    static const String empty;
    ZEL_ASSERT(index < items_.size());
    return index < items_.size() ? items_[index] : empty;
}

String StringArray::toString() const
{
    StringBuilder b(32);
    for (size_t i = 0; i < items_.size(); ++i) {
        if (i) b.append(L", ");
        b.append(items_[i]);
    }
    return b.toString();
}

} // namespace ZELd
