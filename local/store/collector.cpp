// Collects what no session, no suspended process and no kernel object reaches, and finds what a commit publishes.
#include "store/store.h"

#include <algorithm>

namespace local {

void Store::collect(Roots& roots) {
    std::vector<Oop> pending;
    ++marking;
    const Mark mark = [&](Oop oop) {
        uint32_t index = indexOf(oop);
        if (isReference(oop) && index < entries.size() && entries[index].object && !isMarked(oop)) {
            entries[index].marked = marking;
            pending.push_back(oop);
        }
    };
    for (uint32_t index = 0; index < std::min<size_t>(firstFreeIndex, entries.size()); ++index) {
        mark(oopAt(index));
    }
    for (const auto& [session, state] : sessions) {
        std::for_each(state.exported.begin(), state.exported.end(), mark);
    }
    roots.addRoots(mark);
    markFrom(
        pending, [&](Oop oop, Oop cls, Oop firstSlot, const Mark&) { roots.visit(oop, cls, firstSlot, mark); }, mark);
    roots.swept([this](Oop oop) { return isMarked(oop); });
    sweep();
    // Not so late that garbage alone could fill the store, and never at once again.
    size_t next = memoryUsed + std::clamp<size_t>(memoryUsed / 2, 4u << 20, 64u << 20);
    collectAt = std::min(next, std::max(memoryLimit - maxBytes, memoryUsed + (8u << 20)));
}

// Marks the session's private objects that its changes lead to.
void Store::markReached(SessionId session, const Visit& visit) {
    std::vector<Oop> pending;
    ++marking;
    const Mark mark = [&](Oop oop) {
        if (isReference(oop) && indexOf(oop) < entries.size() && entries[indexOf(oop)].owner == session &&
            !isMarked(oop)) {
            entries[indexOf(oop)].marked = marking;
            pending.push_back(oop);
        }
    };
    for (const auto& [oop, copy] : sessions.at(session).writeSet) {
        follow(oop, *copy.object, visit, mark);
    }
    markFrom(pending, visit, mark);
}

void Store::follow(Oop oop, const Object& object, const Visit& visit, const Mark& mark) {
    mark(object.shape.cls);
    for (Oop value : object.slots) {
        if (isReference(value)) {
            mark(value);
        }
    }
    if (!object.slots.empty()) {
        visit(oop, object.shape.cls, object.slots.front(), mark);
    }
}

// Every version of a marked object is followed: what one session has dropped another may still see.
void Store::markFrom(std::vector<Oop>& pending, const Visit& visit, const Mark& mark) {
    while (!pending.empty()) {
        Oop oop = pending.back();
        pending.pop_back();
        const Entry& entry = entries[indexOf(oop)];
        follow(oop, *entry.object, visit, mark);
        if (entry.copies != 0) {
            for (const auto& [session, state] : sessions) {
                if (auto copy = state.writeSet.find(oop); copy != state.writeSet.end()) {
                    follow(oop, *copy->second.object, visit, mark);
                }
            }
        }
    }
}

void Store::sweep() {
    auto isDead = [this](Oop oop) { return !isMarked(oop); };
    for (auto& [session, state] : sessions) {
        std::erase_if(state.created, isDead);
        std::erase_if(state.writeSet, [&](const auto& item) {
            if (isDead(item.first)) {
                memoryUsed -= item.second.object->memory();
                return true;
            }
            return false;
        });
    }
    for (uint32_t index = 0; index < entries.size(); ++index) {
        Entry& entry = entries[index];
        if (entry.object && entry.marked != marking) {
            freeIndices.push_back(index);
            memoryUsed -= entry.object->memory();
            --liveObjects;
            entry = Entry{};
        }
    }
}

} // namespace local
