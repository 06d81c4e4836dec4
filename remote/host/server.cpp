#include "host/server.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace remote {

namespace {

constexpr int waitStep = 1'000; // milliseconds
constexpr auto relaxed = std::memory_order_relaxed;
constexpr uint32_t longestRun = 32;

// Makes room for one more. FALSE when there is no memory.
template <class Element>
bool makeRoom(Element*& elements, size_t& room, size_t wanted) {
    if (wanted <= room) {
        return true;
    }
    const size_t next = std::max(wanted, room * 2 + 64);
    auto* const larger = static_cast<Element*>(realloc(elements, next * sizeof(Element)));
    if (larger == nullptr) {
        return false;
    }
    elements = larger;
    room = next;
    return true;
}

template <EntryId... ids>
uint32_t lackingOf(const KciRtlJumpSType& table, EntryList<ids...>) {
    uint32_t bits = 0;
    uint32_t bit = 1;
    ((bits |= table.*EntryRow<ids>::member == nullptr ? bit : 0, bit <<= 1), ...);
    return bits;
}

} // namespace

Server::Server(const KciRtlJumpSType& clientTable, Block& sharedBlock) : table(clientTable), block(sharedBlock) {
    block.control().lacking.store(lackingOf(table, OptionalEntries()), relaxed);
}

Server::~Server() {
    free(request);
    free(madeAhead);
    free(asked);
    while (exports != nullptr) {
        Exported* const next = exports->next;
        exports->~Exported();
        free(exports);
        exports = next;
    }
}

// --- what sessions hold --------------------------------------------------------------------------------------------

OopSet* Server::exportedSet() {
    afterAnswer();
    return setOf(session);
}

OopSet* Server::setOf(KciSessionIdType id) {
    for (Exported* each = exports; each != nullptr; each = each->next) {
        if (each->session == id) {
            return &each->oops;
        }
    }
    void* const place = malloc(sizeof(Exported));
    if (place == nullptr) {
        return nullptr;
    }
    exports = new (place) Exported{exports, id, {}};
    return &exports->oops;
}

void Server::exported(OopType oop) {
    if ((oop & 2) == 0) {
        OopSet* const set = exportedSet();
        forgetful = set == nullptr || !set->insert(oop) || forgetful;
    }
}

// Notes what a call did to the current session and to what it holds.
template <EntryId id, class Result>
void Server::follow(const ReceivedCall<RowOf<id>>& call, Result result, bool failed) {
    [[maybe_unused]] const auto& arguments = call.arguments;
    if constexpr (id == EntryId::KciInit) {
        initialized = true;
    } else if constexpr (id == EntryId::KciShutdown || id == EntryId::KciUnload) {
        initialized = false;
    } else if constexpr (id == EntryId::KciGetSessionId) {
        session = result;
    } else if constexpr (id == EntryId::KciLogin) {
        session = 0;
    } else if constexpr (id == EntryId::KciLogout) {
        if (OopSet* const set = failed ? nullptr : exportedSet()) {
            set->clear();
        }
        session = 0;
    } else if constexpr (id == EntryId::KciSetSessionId) {
        if (!failed) {
            session = std::get<0>(arguments);
        }
    } else if constexpr (id == EntryId::KciSaveObjs) {
        // One that is made ahead counts when it is asked for.
        for (ArraySizeType i = 0;
             !makingAhead && !failed && std::get<0>(arguments) != nullptr && i < std::get<1>(arguments); ++i) {
            exported(std::get<0>(arguments)[i]);
        }
    } else if constexpr (id == EntryId::KciReleaseOops) {
        if (OopSet* const set = failed || std::get<0>(arguments) == nullptr ? nullptr : exportedSet()) {
            for (ArraySizeType i = 0; i < std::get<1>(arguments); ++i) {
                set->remove(std::get<0>(arguments)[i]);
            }
        }
    } else if constexpr (id == EntryId::KciNewOop || id == EntryId::KciNewDateTime || id == EntryId::KciFltToOop ||
                         id == EntryId::KciLongToOop || id == EntryId::KciContinueWith) {
        if (!failed && makingAhead) {
            heldAhead = result;
        } else if (!failed) {
            exported(result);
        }
    }
}

// --- one call ------------------------------------------------------------------------------------------------------

template <EntryId id>
bool Server::execute(const ByteType* requestBytes, size_t size, Piece& piece) {
    using Row = RowOf<id>;
    ReceivedCall<Row> call;
    Reader reader(requestBytes, size);
    if (requestBytes != nullptr && !call.read(reader)) {
        return false;
    }
    const uint64_t arraySize = call.arrayRoom() * ArrayOf<Row>::elementSize;
    const auto room = static_cast<uint64_t>(piece.end - piece.at);
    if (fixedAnswerSize<Row> + padded(arraySize) + sizeof(KciErrSType) > room) {
        return false;
    }
    call.placeArray(piece.at + fixedAnswerSize<Row>);
    if constexpr (Row::has(Role::countOut)) {
        // Who does not say how much it wrote is handed on whole.
        if (std::get<Row::find(Role::countOut)>(call.arguments) == nullptr) {
            memset(piece.at + fixedAnswerSize<Row>, 0, static_cast<size_t>(arraySize));
        }
    }

    constexpr bool isVoid = std::is_void_v<typename Row::Result>;
    std::conditional_t<isVoid, int, typename Row::Result> result{};
    KciErrSType error;
    bool failed = false;
    const auto entry = table.*EntryRow<id>::member;
    if (requestBytes == nullptr || entry == nullptr) {
        const bool withoutMemory = requestBytes == nullptr;
        result = failedResult<decltype(result)>();
        error = {};
        error.category = KCI_CATEGORY_SYSTEM;
        error.number = withoutMemory ? 2208 : 4101; // out of memory; not supported
        error.context = KCI_OOP_NIL;
        snprintf(error.message, sizeof error.message, "%s",
                 withoutMemory ? "the host process has no memory for the request"
                               : "the client library does not have the entry that was called");
        failed = true;
    } else if constexpr (isVoid) {
        std::apply(entry, call.arguments);
    } else {
        result = std::apply(entry, call.arguments);
    }
    // Before it is initialized and after it was shut down a library is asked nothing that the caller did not ask.
    constexpr bool ends = id == EntryId::KciShutdown || id == EntryId::KciUnload;
    if (!failed && !ends && (initialized || id == EntryId::KciInit) && table.KciErr != nullptr) {
        failed = table.KciErr(&error) != FALSE;
    }

    const OopType* cell = nullptr;
    if constexpr (Row::has(Role::resultCell)) {
        cell = result == KCI_RESULT_READY && !failed ? static_cast<const OopType*>(call.cell) : nullptr;
        if (cell != nullptr) {
            exported(*cell);
        }
    }
    Writer answer(piece.at, static_cast<size_t>(room));
    if (!writeAnswer<Row>(answer, call, result, cell, failed ? &error : nullptr)) {
        return false;
    }
    piece.at = answer.position();
    follow<id>(call, result, failed);
    ahead.made<id>(call, result, cell, failed, requestBytes, size);
    return true;
}

const Server::Execute Server::executes[entryCount] = {
#define ROW(name, ...) &Server::execute<EntryId::name>,
#define SECRET ROW
#include "wire/rows.inc"
#undef SECRET
#undef ROW
};

// --- requests ------------------------------------------------------------------------------------------------------

// Before anything is made, since what is made must be noted.
bool Server::canNote() {
    return makeRoom(madeAhead, madeRoom, madeCount + 1);
}

bool Server::makeAhead(const NextCall& call, Piece& piece) {
    // A piece that an answer does not fit into stays as it was.
    Writer to(piece.at, static_cast<size_t>(piece.end - piece.at));
    to.put(static_cast<uint32_t>(call.entry));
    to.bytes(call.request, call.size);
    Piece rest = {to.position(), piece.end};
    if (!to.ok() || !canNote()) {
        return false;
    }
    heldAhead = KCI_OOP_NONE;
    if (call.entry == EntryId::KciSaveObjs) {
        memcpy(&heldAhead, call.request + sizeof(uint32_t), sizeof heldAhead);
    }
    makingAhead = true;
    const bool done = (this->*executes[static_cast<uint32_t>(call.entry)])(call.request, call.size, rest);
    makingAhead = false;
    if (done) {
        madeAhead[madeCount++] = {call.step, heldAhead};
        piece.at = rest.at;
    }
    return done;
}

// Lets the near side work on what was made up to here while more is made. With one processor that would only be a
// change of processes each time.
void Server::handOn(const Piece& piece) {
    if (!spinning.severalProcessors()) {
        return;
    }
    Control& control = block.control();
    control.aheadEnd.store(static_cast<uint32_t>(piece.at - block.body()) | moreComing, std::memory_order_release);
    if (!handedOn) {
        handedOn = true;
        publish(control.answer, sequence, control.nearAsleep);
    }
}

// Saves elements of a fetched array as long as nothing else comes between; TRUE when there was one. The save that fails
// is answered in the long form, and the last.
bool Server::saveElements(Piece& piece) {
    Writer to(piece.at, static_cast<size_t>(piece.end - piece.at));
    to.put(savedRun);
    ByteType* const countPlace = to.place(sizeof(uint32_t));
    // Room for that save, whether it comes or not.
    if (countPlace == nullptr || to.room() < 64 + sizeof(KciErrSType)) {
        return false;
    }
    uint32_t count = 0;
    KciErrSType error;
    bool failed = false;
    for (OopType oop = KCI_OOP_NONE; !failed && count < longestRun && (oop = ahead.nextSave()) != KCI_OOP_NONE;) {
        if (!canNote()) {
            ahead.end();
            break;
        }
        table.KciSaveObjs(&oop, 1);
        failed = table.KciErr(&error) != FALSE;
        madeAhead[madeCount++] = {Sequence::saveElement, oop};
        ahead.saved();
        count += failed ? 0 : 1;
        if (failed) {
            if (count == 0) {
                to = Writer(piece.at, static_cast<size_t>(piece.end - piece.at));
            }
            const ArraySizeType one = 1;
            to.put(static_cast<uint32_t>(EntryId::KciSaveObjs));
            writeRequest<RowOf<EntryId::KciSaveObjs>>(to, {&oop, one});
            to.put(uint32_t{answerHasError});
            to.put(error);
            ahead.end();
        }
    }
    if (count > 0) {
        memcpy(countPlace, &count, sizeof count);
    }
    if (count > 0 || failed) {
        piece.at = to.position();
        if (count == longestRun) {
            handOn(piece);
        }
        return true;
    }
    return false;
}

void Server::lookAhead(Piece& piece) {
    NextCall next;
    while ((arrayInBlock && saveElements(piece)) ||
           (ahead.next(next) && ahead.expects(next) && makeAhead(next, piece))) {
    }
}

// What was asked for counts; what was not is undone: a new object, or a save of one that the session did not hold
// before, is released.
void Server::settleAhead(uint32_t used) {
    afterAnswer();
    std::swap(asked, madeAhead);
    std::swap(askedRoom, madeRoom);
    askedCount = std::min<size_t>(used, madeCount);
    askedBy = session;
    const size_t allCount = std::exchange(madeCount, 0);
    if (askedCount == allCount) {
        return;
    }
    ahead.wasNotAsked(asked[askedCount].step);
    const size_t firstUnasked = askedCount;
    for (size_t at = firstUnasked; at < allCount; ++at) {
        const OopType oop = asked[at].held;
        const OopSet* const held = oop != KCI_OOP_NONE ? exportedSet() : nullptr;
        if (held != nullptr && !forgetful && !held->contains(oop)) {
            KciErrSType ignored;
            table.KciReleaseOops(&oop, 1);
            table.KciErr(&ignored);
        }
    }
}

void Server::afterAnswer() {
    OopSet* const held = askedCount > 0 ? setOf(askedBy) : nullptr;
    for (size_t at = 0; at < askedCount; ++at) {
        forgetful = held == nullptr || !held->insert(asked[at].held) || forgetful;
    }
    askedCount = 0;
}

bool Server::answerRequest() {
    Control& control = block.control();
    const uint32_t entry = control.entry.load(relaxed);
    const size_t size = control.requestSize.load(relaxed);
    const size_t answerAt = control.answerAt.load(relaxed);
    const size_t bodySize = control.bodySize.load(relaxed);
    const bool newFrame = control.newFrame.load(relaxed) != 0;
    const uint32_t used = control.usedAhead.load(relaxed);
    if (entry >= entryCount || bodySize < firstBodySize || !block.follow(bodySize) || answerAt > bodySize ||
        size > answerAt || answerAt % answerAlignment != 0) {
        return false;
    }
    ByteType* const copy = size <= sizeof smallRequest            ? smallRequest
                           : makeRoom(request, requestRoom, size) ? request
                                                                  : nullptr;
    if (copy != nullptr) {
        std::copy_n(block.body(), size, copy);
    }
    settleAhead(used);
    if (newFrame) {
        ahead.end();
    }
    NextCall next;
    if (ahead.next(next) && static_cast<uint32_t>(next.entry) == entry && next.size == size && copy != nullptr &&
        memcmp(next.request, copy, size) == 0) {
        ahead.wasAsked(next.step);
    }

    arrayInBlock = entry == static_cast<uint32_t>(EntryId::KciFetchVaryingOops) ||
                   entry == static_cast<uint32_t>(EntryId::KciFetchNamedOops);
    Piece piece = {block.body() + answerAt, block.body() + bodySize};
    const bool done = (this->*executes[entry])(copy, size, piece);
    if (isSecret[entry] && copy != nullptr) {
        explicit_bzero(copy, size);
    }
    if (!done) {
        return false;
    }
    control.answerEnd.store(static_cast<uint32_t>(piece.at - block.body()), relaxed);
    handedOn = false;
    lookAhead(piece);
    const auto end = static_cast<uint32_t>(piece.at - block.body());
    if (handedOn) {
        publish(control.aheadEnd, end, control.nearAsleep);
    } else {
        control.aheadEnd.store(end, relaxed);
    }
    return true;
}

bool Server::serve() {
    Control& control = block.control();
    for (;;) {
        const uint32_t asked = awaitChange(control.request, sequence, control.hostAsleep, spinning, waitStep);
        if (asked == goneMark) {
            return true;
        }
        if (asked == sequence) {
            continue;
        }
        if (asked != following(sequence)) {
            return false;
        }
        sequence = asked;
        if (!answerRequest()) {
            return false;
        }
        if (!handedOn) {
            publish(control.answer, sequence, control.nearAsleep);
        }
        afterAnswer();
    }
}

void Server::serveBreaks() {
    Control& control = block.control();
    Spinning breakSpinning;
    uint32_t served = 0;
    for (;;) {
        const uint32_t asked = awaitChange(control.breakRequest, served, control.breakAsleep, breakSpinning, waitStep);
        if (asked == goneMark) {
            return;
        }
        if (asked == served) {
            continue;
        }
        const bool hard = control.breakEntry.load(relaxed) == static_cast<uint32_t>(EntryId::KciHardBreak);
        if (const auto entry = hard ? table.KciHardBreak : table.KciSoftBreak) {
            entry();
        }
        served = asked;
        publish(control.breakAnswer, served, control.breakerAsleep);
    }
}

} // namespace remote
