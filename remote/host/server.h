// The host side: takes requests from the block, calls the client library, and answers.
//
// One thread serves, so that the client library sees one thread's calls; another makes the calls that break one off.
#pragma once

#include "channel/block.h"
#include "host/ahead.h"
#include "host/oopset.h"

namespace remote {

class Server {
public:
    // Tells the near side at once what the client library lacks.
    Server(const KciRtlJumpSType& clientTable, Block& sharedBlock);
    ~Server();

    // Serves until the near side is gone: TRUE; or has sent what is no request: FALSE.
    bool serve();
    // Waits for breaks and makes them; to be run in a thread of its own. Returns when the near side is gone.
    void serveBreaks();

    // Takes one request, as it lies in the block. FALSE when it is none.
    bool answerRequest();
    // What can wait until the answer is out.
    void afterAnswer();

    // Whether the client library was initialized and not shut down.
    [[nodiscard]] bool inUse() const { return initialized; }

private:
    // A piece of the block that an answer is written to.
    struct Piece {
        ByteType* at;
        ByteType* end;
    };
    // The identifiers that a session was asked to save, or made, and has not released.
    struct Exported {
        Exported* next;
        KciSessionIdType session;
        OopSet oops;
    };

    // Without memory for the request it is NULL, and the answer an error.
    using Execute = bool (Server::*)(const ByteType* request, size_t size, Piece& piece);
    static const Execute executes[entryCount];
    template <EntryId id>
    bool execute(const ByteType* request, size_t size, Piece& piece);
    template <EntryId id, class Result>
    void follow(const ReceivedCall<RowOf<id>>& call, Result result, bool failed);

    // Makes what the near side will ask next, as far as it is known, and appends the answers.
    void lookAhead(Piece& piece);
    bool makeAhead(const NextCall& call, Piece& piece);
    bool saveElements(Piece& piece);
    void handOn(const Piece& piece);
    bool canNote();
    void settleAhead(uint32_t used);
    void exported(OopType oop);
    OopSet* setOf(KciSessionIdType id);
    OopSet* exportedSet();

    // A private copy of a request; one with an array or a text has its own place.
    alignas(answerAlignment) ByteType smallRequest[256];
    const KciRtlJumpSType& table;
    Block& block;
    uint32_t sequence = 0;
    Spinning spinning;
    ByteType* request = nullptr;
    size_t requestRoom = 0;

    Sequence ahead;
    // What was made ahead with the last answer: the step, and what the session holds by it.
    struct Made {
        uint32_t step;
        OopType held;
    };
    Made* madeAhead = nullptr;
    size_t madeRoom = 0;
    size_t madeCount = 0;
    // Those that were asked for and are still to be noted as exported.
    Made* asked = nullptr;
    size_t askedRoom = 0;
    size_t askedCount = 0;
    KciSessionIdType askedBy = 0;
    OopType heldAhead = KCI_OOP_NONE; // what the session holds by the call that is being made ahead
    bool initialized = false;
    bool makingAhead = false;
    bool arrayInBlock = false; // the answer that is being made holds the elements
    bool handedOn = false;     // and is out, while answers ahead are still being made

    KciSessionIdType session = 0;
    Exported* exports = nullptr;
    bool forgetful = false; // there was no memory to note one: nothing is taken for unsaved any more
};

} // namespace remote
