#include "unixerr.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "err/system/unixerr_table.h"
#include "host/base/boundedtext.h"
#include "host/base/errnokeeper.h"

namespace {
constexpr int lastErrno = 122;
constexpr int lastTranslatedCode = SYSERR_NOPKG;

// Index: the host's number; 0 where no code stands for it.
constexpr auto codeOfErrno = [] {
    std::array<uint8_t, lastErrno + 1> codes{};
    for (const auto& [errnoValue, code] : errnoPairs) {
        if (codes[errnoValue] == 0) {
            codes[errnoValue] = static_cast<uint8_t>(code);
        }
    }
    return codes;
}();

// Index: the resolver's number (netdb.h names them only for some feature sets).
constexpr std::array<uint8_t, 5> codeOfResolverError{0, SYSERR_HOST_NOT_FOUND, SYSERR_TRY_AGAIN, SYSERR_NO_RECOVERY,
                                                     SYSERR_NO_DATA};

constexpr auto errnoOfCode = [] {
    std::array<int16_t, lastTranslatedCode + 1> numbers{};
    numbers.fill(-1);
    for (const auto& [errnoValue, code] : errnoPairs) {
        numbers[code] = static_cast<int16_t>(errnoValue);
    }
    for (size_t number = 1; number < codeOfResolverError.size(); ++number) {
        numbers[codeOfResolverError[number]] = static_cast<int16_t>(number);
    }
    numbers[SYSERR_NO_ADDRESS] = numbers[SYSERR_NO_DATA];
    return numbers;
}();
} // namespace

int UnixErrOsErrToSysErr(int errCode, SysErrCategoryEType category) {
    const auto index = static_cast<unsigned>(errCode);
    int code = 0;
    if (category == SYSERRCAT_ERRNO && index < codeOfErrno.size()) {
        code = codeOfErrno[index];
    } else if (category == SYSERRCAT_HERRNO && index < codeOfResolverError.size()) {
        code = codeOfResolverError[index];
    }
    // Negated without overflow: the lowest int gives itself.
    return code != 0 ? code : static_cast<int>(0U - index);
}

int UnixErrSysErrToOsErr(int code) {
    const auto index = static_cast<unsigned>(code);
    return index < errnoOfCode.size() ? errnoOfCode[index] : -1;
}

const char* HostGetErrMsg(int errnoValue, char* buf, unsigned size) {
    if (size == 0) {
        return buf;
    }
    const ErrnoKeeper errnoKeeper;
    BoundedText text(buf, size);
    // Not strerror_r: translating the text takes locks and memory, and the fatal report comes here, too.
    if (const char* known = strerrordesc_np(errnoValue); known != nullptr) {
        text.appendCut(known);
    } else {
        text.formatCut("Unknown error %d", errnoValue);
    }
    return buf;
}
