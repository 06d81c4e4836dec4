// What the near side will ask next.
//
// The bridge describes objects in a fixed sequence: save, object information, class history, what kind of string; it
// saves what it fetched one by one; it makes objects of one class and gives each its variables. After each call this
// follows where in such a sequence the near side is and knows the one call that would come next. A step is made ahead
// only after it was seen to come; one that was made and not asked for is not made again until it was seen again.
//
// A session being selected ends every sequence: each native method of the bridge begins with that.
#pragma once

#include "wire/encoding.h"

namespace remote {

// Room for a request of those that are foreseen: none has an array, but one identifier to save.
constexpr size_t foreseenRequestSize = 40;

// One call as it would be requested.
struct NextCall {
    EntryId entry;
    uint32_t step; // which kind of step it is
    uint32_t size;
    ByteType request[foreseenRequestSize];
};

class Sequence {
public:
    ~Sequence();

    // A session was selected, or what follows cannot be told.
    void end() { stage = Stage::none; }

    // A call was made; its request, and what came of it.
    template <EntryId id, class Result>
    void made(const ReceivedCall<RowOf<id>>& call, Result result, const OopType* cell, bool failed,
              const ByteType* request, size_t requestSize);

    // The call that would come next. FALSE when there is none to tell.
    bool next(NextCall& call);

    // The next element to save, when elements are saved ahead; KCI_OOP_NONE when something else comes next.
    [[nodiscard]] OopType nextSave();
    void saved() { ++elementAt; }

    // Whether such a step is to be made ahead, and what was seen of it.
    [[nodiscard]] bool expects(const NextCall& call) const { return (expected >> call.step & 1) != 0; }
    void wasAsked(uint32_t step) { expected |= 1U << step; }
    void wasNotAsked(uint32_t step) { expected &= ~(1U << step); }

    enum Step : uint32_t {
        saveResult,
        specialValue,
        info,
        classHistory,
        stringKind,
        doubleByteKind,
        floatValue,
        datePart,
        saveElement,
        specialElement,
        newObject
    };

private:
    enum class Stage : uint8_t {
        none,
        result,
        saved,
        described,
        withHistory,
        string,
        dateParts,
        elements,
        made,
        filled
    };
    void resultIs(OopType oop);
    void elementsAre(const OopType* oops, uint64_t count);
    void savedOne(OopType oop, bool failed);
    void valueOf(OopType oop);
    void infoOf(OopType oop, const KciObjInfoSType& record, const ByteType* body, ArraySizeType fetched,
                const ByteType* request, size_t requestSize);

    template <EntryId id>
    static bool set(NextCall& call, Step step, const typename RowOf<id>::Arguments& arguments);
    static bool setSave(NextCall& call, Step step, OopType oop);
    static bool setSpecialValue(NextCall& call, Step step, OopType oop);
    bool nextOfBody(NextCall& call);
    bool nextElement(NextCall& call);

    Stage stage = Stage::none;
    uint32_t expected = 1U << info; // which cannot be made before it was seen
    OopType object = KCI_OOP_NONE;
    OopType madeOf = KCI_OOP_NONE; // its class
    KciObjInfoSType description{};
    OopType firstParts[3]{}; // the body's first identifiers
    bool hasParts = false;
    unsigned part = 0;

    // As object information was last asked for; only the identifier differs.
    ByteType infoRequest[foreseenRequestSize]{};
    size_t infoRequestSize = 0;

    OopType* elements = nullptr;
    size_t elementRoom = 0;
    size_t elementCount = 0;
    size_t elementAt = 0;
};

template <EntryId id, class Result>
void Sequence::made(const ReceivedCall<RowOf<id>>& call, Result result, const OopType* cell, bool failed,
                    const ByteType* request, size_t requestSize) {
    [[maybe_unused]] const auto& arguments = call.arguments;
    if constexpr (id == EntryId::KciNbEnd) {
        if (result == KCI_RESULT_READY && cell != nullptr && !failed) {
            return resultIs(*cell);
        }
    } else if constexpr (id == EntryId::KciContinueWith) {
        if (!failed) {
            return resultIs(result);
        }
    } else if constexpr (id == EntryId::KciFetchVaryingOops || id == EntryId::KciFetchNamedOops) {
        if (!failed && std::get<2>(arguments) != nullptr) {
            return elementsAre(std::get<2>(arguments),
                               elementsReturned<RowOf<id>>(arguments, result, call.arrayRoom()));
        }
    } else if constexpr (id == EntryId::KciSaveObjs) {
        if (std::get<1>(arguments) == 1 && std::get<0>(arguments) != nullptr) {
            return savedOne(*std::get<0>(arguments), failed);
        }
    } else if constexpr (id == EntryId::KciFetchObjInfo) {
        const auto* const record = std::get<3>(arguments);
        const auto* const fetched = std::get<5>(arguments);
        if (result != FALSE && std::get<1>(arguments) == 1 && record != nullptr) {
            const ByteType* const body = std::get<4>(arguments);
            const auto available = static_cast<ArraySizeType>(
                body != nullptr && fetched != nullptr ? elementsReturned<RowOf<id>>(arguments, result, call.arrayRoom())
                                                      : 0);
            return infoOf(std::get<0>(arguments), *record, body, available, request, requestSize);
        }
    } else if constexpr (id == EntryId::KciFetchNamedOop) {
        if (stage == Stage::described) {
            stage = Stage::withHistory;
            return;
        }
    } else if constexpr (id == EntryId::KciIsKindOf) {
        if (stage == Stage::withHistory && result != FALSE) {
            stage = Stage::string;
            return;
        }
    } else if constexpr (id == EntryId::KciOopToLong) {
        if (stage == Stage::withHistory || stage == Stage::dateParts) {
            stage = Stage::dateParts;
            ++part;
            return;
        }
    } else if constexpr (id == EntryId::KciNewOop) {
        if (!failed) {
            object = result;
            madeOf = std::get<0>(arguments);
            stage = Stage::made;
            return;
        }
    } else if constexpr (id == EntryId::KciStoreNamedOops) {
        if (stage == Stage::made && !failed && std::get<0>(arguments) == object) {
            stage = Stage::filled;
            return;
        }
    } else if constexpr (id == EntryId::KciOopToBool || id == EntryId::KciOopToChr) {
        return valueOf(std::get<0>(arguments));
    }
    stage = Stage::none;
}

} // namespace remote
