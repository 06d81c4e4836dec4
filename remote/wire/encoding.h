// How a call travels: its request, its answer, and an answer to a call that was not asked yet.
//
// A request holds the arguments in their order. A value stands as itself, a text or an array as its length in bytes and
// its bytes, what only leads out as a word that says whether there is a place for it.
// An answer begins with a word of flags and a fixed part: the result, then what leads out, in order. The elements of an
// array follow, in a place that both ends know before the call is made, so that the client library writes them there;
// the error record comes last.
// An answer ahead is the entry's number, the request and the answer. Elements of a fetched array that were saved one by
// one, without an error, have a shorter form, savedRun and how many of them: those elements of the array, in order,
// that are ordinary objects.
#pragma once

#include "wire/entries.h"
#include "wire/stream.h"

#include <algorithm>
#include <utility>

namespace remote {

enum AnswerFlags : uint32_t { answerHasError = 1 };

constexpr uint32_t savedRun = entryCount;

// The entries that are asked ahead: each call changes nothing, but for a save, which can be undone.
constexpr bool isAskedAhead(EntryId id) {
    switch (id) {
    case EntryId::KciSaveObjs:
    case EntryId::KciFetchObjInfo:
    case EntryId::KciFetchNamedOop:
    case EntryId::KciIsKindOf:
    case EntryId::KciNewOop:
    case EntryId::KciOopToBool:
    case EntryId::KciOopToChr:
    case EntryId::KciOopToFlt:
    case EntryId::KciOopToLong:
        return true;
    default:
        return false;
    }
}

// Identifiers that are passed over when elements are described: they need no call.
constexpr bool needsNoCall(OopType oop) {
    return oop == KCI_OOP_ILLEGAL || oop == KCI_OOP_NIL || (oop & 3) == 3;
}

template <class T>
using Pointee = std::remove_cv_t<std::remove_pointer_t<T>>;

template <class Row, class Body>
constexpr void forEachArgument(Body body) {
    [&]<size_t... i>(std::index_sequence<i...>) {
        (body(std::integral_constant<size_t, i>()), ...);
    }
    (std::make_index_sequence<Row::arity>());
}

// The array of an entry that has one.
template <class Row>
struct ArrayOf {
    static constexpr size_t in = Row::find(Role::arrayIn);
    static constexpr size_t out = Row::find(Role::arrayOut);
    static constexpr size_t at = std::min(in, out);
    static constexpr bool exists = at < Row::arity;
    static constexpr size_t elementSize = [] {
        if constexpr (exists) {
            return sizeof(Pointee<typename Row::template Argument<at>>);
        } else {
            return size_t{0};
        }
    }();

    // How many elements the arguments describe.
    static uint64_t count(const typename Row::Arguments& arguments) {
        if constexpr (Row::has(Role::count)) {
            return static_cast<uint32_t>(std::get<Row::find(Role::count)>(arguments));
        } else if constexpr (Row::has(Role::countInOut)) {
            const auto* const room = std::get<Row::find(Role::countInOut)>(arguments);
            return room != nullptr ? *room : 0;
        } else {
            return 0;
        }
    }
    static uint64_t bytes(const typename Row::Arguments& arguments) {
        if constexpr (exists) {
            return std::get<at>(arguments) != nullptr ? count(arguments) * elementSize : 0;
        } else {
            return 0;
        }
    }
};

// What the fixed part of an answer takes.
template <class Row>
constexpr size_t fixedAnswerSize = [] {
    size_t size = sizeof(uint32_t);
    if constexpr (!std::is_void_v<typename Row::Result> && !std::is_pointer_v<typename Row::Result>) {
        static_assert(sameOnBothSizes<typename Row::Result>);
        size += padded(sizeof(typename Row::Result));
    }
    forEachArgument<Row>([&](auto i) {
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::recordOut || role == Role::countOut || role == Role::countInOut) {
            size += padded(sizeof(Pointee<typename Row::template Argument<i>>));
        } else if constexpr (role == Role::resultCell) {
            size += 2 * sizeof(uint32_t);
        }
    });
    return size;
}();

// How many elements of an outgoing array with room for `room` there are to copy: as many as the call claims, within it.
template <class Row>
uint64_t elementsReturned(const typename Row::Arguments& arguments, int64_t result, uint64_t room) {
    int64_t claimed = result;
    if constexpr (Row::has(Role::countOut)) {
        // Bytes of a body: the count is of what the body holds, bytes or identifiers. Who does not want to know how
        // many gets the whole room.
        const auto* const count = std::get<Row::find(Role::countOut)>(arguments);
        const auto* const record = std::get<Row::find(Role::recordOut)>(arguments);
        const bool holdsIdentifiers = record != nullptr && record->objImpl != KCI_IMPL_BYTE;
        claimed = count != nullptr ? int64_t{*count} * (holdsIdentifiers ? int64_t{sizeof(OopType)} : 1) : INT64_MAX;
        if (result == 0) {
            claimed = 0;
        }
    } else if constexpr (Row::has(Role::countInOut)) {
        const auto* const count = std::get<Row::find(Role::countInOut)>(arguments);
        claimed = count != nullptr ? int64_t{*count} : 0;
    }
    return static_cast<uint64_t>(std::clamp(claimed, int64_t{0}, static_cast<int64_t>(room)));
}

// --- the request ---------------------------------------------------------------------------------------------------

template <class Row>
uint64_t requestSize(const typename Row::Arguments& arguments) {
    uint64_t size = 0;
    forEachArgument<Row>([&](auto i) {
        const auto& argument = std::get<i>(arguments);
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::value || role == Role::count) {
            size += padded(sizeof argument);
        } else {
            size += sizeof(uint32_t);
            if constexpr (role == Role::text) {
                size += argument != nullptr ? padded(uint64_t{std::strlen(argument)} + 1) : 0;
            } else if constexpr (role == Role::arrayIn) {
                size += padded(ArrayOf<Row>::bytes(arguments));
            } else if constexpr (role == Role::recordIn) {
                size += padded(sizeof *argument);
            } else if constexpr (role == Role::countOut || role == Role::countInOut) {
                size += sizeof *argument;
            }
        }
    });
    return size;
}

template <class Row>
void writeRequest(Writer& to, const typename Row::Arguments& arguments) {
    forEachArgument<Row>([&](auto i) {
        const auto& argument = std::get<i>(arguments);
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::value || role == Role::count) {
            static_assert(sameOnBothSizes<std::remove_cvref_t<decltype(argument)>>);
            to.put(argument);
        } else if constexpr (role == Role::text) {
            to.text(argument);
        } else if constexpr (role == Role::arrayIn) {
            const uint64_t bytes = ArrayOf<Row>::bytes(arguments);
            to.put(argument != nullptr ? static_cast<uint32_t>(bytes) : absent);
            to.bytes(argument, bytes);
        } else {
            to.put(argument != nullptr ? uint32_t{1} : uint32_t{0});
            if constexpr (role == Role::recordIn || role == Role::countOut || role == Role::countInOut) {
                static_assert(sameOnBothSizes<std::remove_cvref_t<decltype(*argument)>>);
                if (argument != nullptr) {
                    to.put(*argument);
                }
            }
        }
    });
}

// Whether a request that lies there was made from the very arguments; what only leads out says nothing.
template <class Row>
bool matchesRequest(Reader& from, const typename Row::Arguments& arguments) {
    bool same = true;
    forEachArgument<Row>([&](auto i) {
        const auto& argument = std::get<i>(arguments);
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::value || role == Role::count) {
            const auto sent = from.template get<std::remove_cvref_t<decltype(argument)>>();
            same = same && std::memcmp(&sent, &argument, sizeof sent) == 0;
        } else if constexpr (role == Role::arrayIn) {
            const uint64_t bytes = ArrayOf<Row>::bytes(arguments);
            const ByteType* sent = nullptr;
            same = same && argument != nullptr && from.template get<uint32_t>() == bytes &&
                   (sent = from.take(bytes)) != nullptr && std::memcmp(sent, argument, bytes) == 0;
        } else {
            static_assert(role == Role::arrayOut || role == Role::countOut || role == Role::recordOut);
            same = same && (from.template get<uint32_t>() != 0) == (argument != nullptr);
            if constexpr (role == Role::countOut) {
                if (argument != nullptr) {
                    from.template get<uint32_t>();
                }
            }
        }
    });
    return same && from.ok();
}

// Arguments that were read from a request, with the storage that they point at.
template <class Row>
struct ReceivedCall {
    typename Row::Arguments arguments{};
    bool cellWanted = false;
    void* cell = nullptr;

    // FALSE when the request is none of the entry's. It must lie where the other side cannot change it.
    bool read(Reader& from) {
        uint64_t arrayBytes = 0;
        forEachArgument<Row>([&](auto i) {
            auto& argument = std::get<i>(arguments);
            using Argument = std::remove_cvref_t<decltype(argument)>;
            constexpr Role role = Row::roles[i];
            if constexpr (role == Role::value || role == Role::count) {
                argument = from.template get<Argument>();
            } else if constexpr (role == Role::text) {
                argument = from.text();
            } else if constexpr (role == Role::arrayIn) {
                const auto length = from.template get<uint32_t>();
                if (length != absent) {
                    argument = reinterpret_cast<Argument>(from.take(length));
                    arrayBytes = length;
                }
            } else if (from.template get<uint32_t>() != 0) {
                if constexpr (role == Role::recordIn || role == Role::countOut || role == Role::countInOut) {
                    std::get<i>(storage) = from.template get<Pointee<Argument>>();
                }
                if constexpr (role == Role::resultCell) {
                    cellWanted = true;
                    argument = &cell;
                } else if constexpr (role == Role::arrayOut) {
                    arrayWanted = true;
                } else {
                    argument = &std::get<i>(storage);
                }
            }
        });
        room = arrayWanted ? ArrayOf<Row>::count(arguments) : 0;
        if constexpr (Row::has(Role::arrayIn)) {
            const bool given = std::get<ArrayOf<Row>::in>(arguments) != nullptr;
            return from.ok() && (!given || arrayBytes == ArrayOf<Row>::bytes(arguments));
        }
        return from.ok();
    }

    // The room that the outgoing array asks for, in elements as it was when the request came, and where it is.
    [[nodiscard]] uint64_t arrayRoom() const { return room; }
    void placeArray(ByteType* where) {
        if constexpr (Row::has(Role::arrayOut)) {
            if (arrayWanted) {
                auto& array = std::get<ArrayOf<Row>::out>(arguments);
                array = reinterpret_cast<std::remove_reference_t<decltype(array)>>(where);
            }
        }
    }

private:
    template <size_t... i>
    static std::tuple<Pointee<typename Row::template Argument<i>>...> storageFor(std::index_sequence<i...>);
    decltype(storageFor(std::make_index_sequence<Row::arity>())) storage{};
    bool arrayWanted = false;
    uint64_t room = 0;
};

// --- the answer ----------------------------------------------------------------------------------------------------

// Writes all of an answer but the array's elements, which lie at their place already. `error` may be NULL. The length
// of a text that is the result comes after its place, which is the array's.
template <class Row, class Result>
bool writeAnswer(Writer& to, const ReceivedCall<Row>& call, Result result, const OopType* cell,
                 const KciErrSType* error) {
    to.put(error != nullptr ? uint32_t{answerHasError} : uint32_t{0});
    if constexpr (!std::is_pointer_v<Result> && !std::is_void_v<typename Row::Result>) {
        to.put(result);
    }
    forEachArgument<Row>([&](auto i) {
        const auto& argument = std::get<i>(call.arguments);
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::recordOut || role == Role::countOut || role == Role::countInOut) {
            const Pointee<std::remove_cvref_t<decltype(argument)>> none{};
            to.put(argument != nullptr ? *argument : none);
        } else if constexpr (role == Role::resultCell) {
            to.put(cell != nullptr ? uint32_t{1} : uint32_t{0});
            to.put(cell != nullptr ? *cell : KCI_OOP_NONE);
        }
    });
    if constexpr (std::is_pointer_v<Result>) {
        to.text(result);
    } else if constexpr (Row::has(Role::arrayOut)) {
        to.place(elementsReturned<Row>(call.arguments, static_cast<int64_t>(result), call.arrayRoom()) *
                 ArrayOf<Row>::elementSize);
    }
    if (error != nullptr) {
        to.put(*error);
    }
    return to.ok();
}

template <class Result>
bool isReady(Result result) {
    if constexpr (std::is_same_v<Result, KciNbProgressEType>) {
        return result == KCI_RESULT_READY;
    }
    return false;
}

// Reads an answer into the caller's arguments. FALSE when it is none of the entry's. `cell` is where the identifier
// that the entry's result cell leads to is put. *error is filled and TRUE left in *hasError when there is an error
// record. A text that is the result stays where it is.
template <class Row, class Result>
bool readAnswer(Reader& from, const typename Row::Arguments& arguments, Result& result, OopType* cell,
                KciErrSType* error, bool* hasError) {
    const auto flags = from.get<uint32_t>();
    const uint64_t room = ArrayOf<Row>::exists && Row::has(Role::arrayOut) ? ArrayOf<Row>::count(arguments) : 0;
    if constexpr (!std::is_pointer_v<Result> && !std::is_void_v<typename Row::Result>) {
        result = from.template get<Result>();
    }
    forEachArgument<Row>([&](auto i) {
        const auto& argument = std::get<i>(arguments);
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::recordOut || role == Role::countOut || role == Role::countInOut) {
            const auto value = from.template get<Pointee<std::remove_cvref_t<decltype(argument)>>>();
            if (argument != nullptr && from.ok() && (role != Role::recordOut || result != Result())) {
                *argument = value;
            }
        } else if constexpr (role == Role::resultCell) {
            const bool given = from.template get<uint32_t>() != 0;
            *cell = from.template get<OopType>();
            if (argument != nullptr && isReady(result)) {
                *argument = given ? cell : nullptr;
            }
        }
    });
    if constexpr (std::is_pointer_v<Result>) {
        result = from.text();
    } else if constexpr (Row::has(Role::arrayOut)) {
        auto* const array = std::get<ArrayOf<Row>::out>(arguments);
        if (array != nullptr) {
            const uint64_t size =
                elementsReturned<Row>(arguments, static_cast<int64_t>(result), room) * ArrayOf<Row>::elementSize;
            if (const ByteType* const elements = from.take(size); elements != nullptr && size > 0) {
                std::memcpy(array, elements, size);
            }
        }
    }
    *hasError = (flags & answerHasError) != 0;
    if (*hasError) {
        *error = from.template get<KciErrSType>();
    }
    return from.ok();
}

// What a call answers when no client library answers it.
template <class Result>
constexpr Result failedResult() {
    if constexpr (std::is_same_v<Result, OopType>) {
        return KCI_OOP_ILLEGAL;
    } else if constexpr (std::is_same_v<Result, KciNbProgressEType>) {
        // Who polls is told to look for the error.
        return KCI_RESULT_READY;
    } else {
        return Result();
    }
}

} // namespace remote
