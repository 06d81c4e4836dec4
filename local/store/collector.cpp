// Collects what no session, no suspended process and no kernel object reaches.
#include "store/store.h"

#include <algorithm>

namespace local {

void Store::collect(Roots& roots) {
    std::vector<Oop> pending;
    const std::function<void(Oop)> mark = [&](Oop oop) {
        uint32_t index = indexOf(oop);
        if (isReference(oop) && index < entries.size() && entries[index].object && !entries[index].marked) {
            entries[index].marked = true;
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
    markFrom(pending, roots, mark);
    roots.swept([this](Oop oop) { return indexOf(oop) < entries.size() && entries[indexOf(oop)].marked; });
    sweep();
    // Not so late that garbage alone could fill the store, and never at once again.
    size_t next = memoryUsed + std::clamp<size_t>(memoryUsed / 2, 4u << 20, 64u << 20);
    collectAt = std::min(next, std::max(memoryLimit - maxBytes, memoryUsed + (8u << 20)));
}

// Every version of a marked object is followed: what one session has dropped another may still see.
void Store::markFrom(std::vector<Oop>& pending, Roots& roots, const std::function<void(Oop)>& mark) {
    auto follow = [&](Oop oop, const Object& object) {
        mark(object.shape.cls);
        for (Oop value : object.slots) {
            if (isReference(value)) {
                mark(value);
            }
        }
        if (!object.slots.empty()) {
            roots.visit(oop, object.shape.cls, object.slots.front(), mark);
        }
    };
    while (!pending.empty()) {
        Oop oop = pending.back();
        pending.pop_back();
        const Entry& entry = entries[indexOf(oop)];
        follow(oop, *entry.object);
        if (entry.copies != 0) {
            for (const auto& [session, state] : sessions) {
                if (auto copy = state.writeSet.find(oop); copy != state.writeSet.end()) {
                    follow(oop, *copy->second.object);
                }
            }
        }
    }
}

void Store::sweep() {
    auto isDead = [this](Oop oop) { return !entries[indexOf(oop)].marked; };
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
        if (entry.object && !entry.marked) {
            memoryUsed -= entry.object->memory();
            --liveObjects;
            entry = Entry{};
            freeIndices.push_back(index);
        }
        entry.marked = false;
    }
}

} // namespace local
