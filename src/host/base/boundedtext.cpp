#include "host/base/boundedtext.h"

#include <cstdio>
#include <cstring>

bool BoundedText::formatCutV(const char* format, va_list values) {
    const int wanted = vsnprintf(text + used, room() + 1, format, values);
    const bool fits = wanted < 0 || static_cast<size_t>(wanted) <= room();
    used += wanted < 0 ? 0 : strlen(text + used);
    text[used] = '\0';
    return fits;
}

bool BoundedText::formatCut(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const bool fits = formatCutV(format, values);
    va_end(values);
    return fits;
}

bool BoundedText::formatWhole(const char* format, ...) {
    const size_t before = used;
    va_list values;
    va_start(values, format);
    const bool fits = formatCutV(format, values);
    va_end(values);
    if (!fits) {
        used = before;
        text[used] = '\0';
    }
    return fits;
}
