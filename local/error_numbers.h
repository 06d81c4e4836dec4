#pragma once

#include <cstdint>

namespace local {

// The system's error numbers that the local store reports, all under category KCI_CATEGORY_SYSTEM.
enum class ErrorNumber : int32_t {
    BadSubscript = 2004,
    BadMessageParts = 2005, // source that is no expression, or a wrong number of arguments
    DoesNotUnderstand = 2010,
    NotInCollection = 2015,
    BadArgument = 2094,
    BadOffset = 2110,
    NotFloat = 2120,
    MaxRecursion = 2138,
    NoSession = 2139,
    DateTimeOutOfRange = 2161,
    NotLong = 2163,
    NotCharacter = 2164,
    UnknownName = 2189,
    OperationInProgress = 2203,
    OutOfMemory = 2208,
    NotBoolean = 2211,
    CorruptObject = 2261,
    TooManySessions = 4041,
    LoginDenied = 4051,
    BadSessionId = 4100,
    NotSupported = 4101,
    InternalFailure = 4126,
    SoftBreak = 6003,
    HardBreak = 6004,
};

} // namespace local
