// The forwarded entries by number, and what their rows say about them.
#pragma once

#include "kcitable.h"

#include <cstddef>
#include <tuple>
#include <type_traits>

namespace remote {

enum class Role : uint8_t {
    value,
    count,
    text,
    arrayIn,
    arrayOut,
    countOut,
    countInOut,
    recordIn,
    recordOut,
    resultCell,
};

// Both ends are built from the same rows; an entry's number is its row's place.
enum class EntryId : uint32_t {
#define ROW(name, ...) name,
#define SECRET ROW
#include "wire/rows.inc"
#undef SECRET
#undef ROW
    end
};
constexpr uint32_t entryCount = static_cast<uint32_t>(EntryId::end);

template <EntryId id>
struct EntryRow;

// What an entry looks like to the wire; many entries look alike.
template <class Function, Role... givenRoles>
struct Shape;

template <class R, class... A, Role... givenRoles>
struct Shape<R (*)(A...), givenRoles...> {
    static_assert(sizeof...(A) == sizeof...(givenRoles), "an argument has one role");
    using Result = R;
    using Arguments = std::tuple<A...>;
    static constexpr size_t arity = sizeof...(A);
    static constexpr Role roles[arity + 1] = {givenRoles...};

    // The place of the first argument of a role, or arity.
    static constexpr size_t find(Role role) {
        size_t i = 0;
        while (i < arity && roles[i] != role) {
            ++i;
        }
        return i;
    }
    static constexpr bool has(Role role) { return find(role) < arity; }

    template <size_t i>
    using Argument = std::tuple_element_t<i, Arguments>;
};

#define ROW(name, ...)                                                                                                 \
    template <>                                                                                                        \
    struct EntryRow<EntryId::name> {                                                                                   \
        using enum Role;                                                                                               \
        using Type = Shape<decltype(KciRtlJumpSType::name) __VA_OPT__(, ) __VA_ARGS__>;                                \
        static constexpr auto member = &KciRtlJumpSType::name;                                                         \
    };
#define SECRET ROW
#include "wire/rows.inc"
#undef SECRET
#undef ROW

template <EntryId id>
using RowOf = typename EntryRow<id>::Type;

// Entries that a client library may lack, and that their callers look for; the others are always called. Their places
// here are their bits in Control::lacking.
template <EntryId...>
struct EntryList {};
using OptionalEntries = EntryList<EntryId::KciAbort, EntryId::KciBegin, EntryId::KciCommit, EntryId::KciHardBreak,
                                  EntryId::KciNbContinueWith, EntryId::KciSoftBreak>;

constexpr bool isSecret[entryCount] = {
#define ROW(name, ...) false,
#define SECRET(name, ...) true,
#include "wire/rows.inc"
#undef SECRET
#undef ROW
};

// What crosses as raw bytes has one layout on both word sizes: 32-bit integers and characters, and double, which is
// aligned differently and therefore copied, never pointed at.
template <class T>
constexpr bool sameOnBothSizes = std::is_same_v<T, KciErrSType> || std::is_same_v<T, KciDateTimeSType> ||
                                 std::is_same_v<T, KciObjInfoSType> || std::is_same_v<T, double> ||
                                 std::is_same_v<T, float> ||
                                 (std::is_integral_v<T> && sizeof(T) <= 4) || std::is_enum_v<T>;
static_assert(sizeof(KciErrSType) == 464 && alignof(KciErrSType) == 4);
static_assert(sizeof(KciObjInfoSType) == 24 && alignof(KciObjInfoSType) == 4);
static_assert(sizeof(KciDateTimeSType) == 16 && alignof(KciDateTimeSType) == 4);
static_assert(sizeof(double) == 8 && sizeof(KciNbProgressEType) == 4);

} // namespace remote
