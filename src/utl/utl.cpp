#include "utl.h"

#include <cstring>
#include <string_view>

int UtlMemcmp(const void* a, const void* b, size_t n) {
    return n == 0 ? 0 : memcmp(a, b, n);
}

int HostStrCompare(const char* a, const char* b, size_t lengthA, size_t lengthB) {
    const int order = std::string_view(a, lengthA).compare(std::string_view(b, lengthB));
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

BoolType UtlValidateSwizzleTransforms(const ByteType transform[4], const ByteType shortTransform[2]) {
    unsigned seen = 0;
    for (int i = 0; i < 4; ++i) {
        if (transform[i] > 3) {
            return FALSE;
        }
        seen |= 1U << transform[i];
    }
    const bool shortValid = shortTransform[0] <= 1 && shortTransform[1] <= 1 && shortTransform[0] != shortTransform[1];
    return static_cast<BoolType>(seen == 0xF && shortValid);
}
