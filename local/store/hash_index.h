// Where the elements of an unordered body stand, by their hash values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace local {

// Chains of positions, the latest first. Large tables are divided, so that no addition has to move many elements.
class HashIndex {
public:
    // The position of an element of this hash for which same(position) is true.
    template <class Same>
    std::optional<uint32_t> find(uint32_t hash, Same same) const {
        if (parts.empty()) {
            return std::nullopt;
        }
        const std::vector<uint32_t>& heads = partOf(hash).heads;
        for (uint32_t at = heads[hash & (heads.size() - 1)]; at != none; at = links[at].next) {
            if (links[at].hash == hash && same(at)) {
                return at;
            }
        }
        return std::nullopt;
    }

    uint32_t hashAt(uint32_t position) const { return links[position].hash; }

    // Adds the position behind the last one.
    void add(uint32_t hash) {
        if (parts.empty()) {
            parts.resize(1);
            parts[0].heads.assign(8, none);
            headCount = 8;
        } else if (parts.size() == 1 && links.size() >= divideAt) {
            divide();
        }
        Part& part = parts[partNumber(hash)];
        if (part.count >= part.heads.size()) {
            grow(part);
        }
        uint32_t& head = part.heads[hash & (part.heads.size() - 1)];
        links.push_back({hash, head});
        head = static_cast<uint32_t>(links.size() - 1);
        ++part.count;
    }

    // The last position takes the place of the removed one.
    void remove(uint32_t position) {
        uint32_t last = static_cast<uint32_t>(links.size() - 1);
        linkTo(position) = links[position].next;
        --parts[partNumber(links[position].hash)].count;
        if (position != last) {
            linkTo(last) = position;
            links[position] = links[last];
        }
        links.pop_back();
    }

    size_t memory() const {
        return sizeof *this + links.capacity() * sizeof(Link) + parts.capacity() * sizeof(Part) +
               headCount * sizeof(uint32_t);
    }

private:
    static constexpr uint32_t none = UINT32_MAX;
    static constexpr uint32_t divideAt = 4096;
    static constexpr uint32_t partBits = 8;

    struct Link {
        uint32_t hash;
        uint32_t next;
    };
    struct Part {
        std::vector<uint32_t> heads; // a power of two
        uint32_t count = 0;
    };

    uint32_t partNumber(uint32_t hash) const { return parts.size() == 1 ? 0 : hash >> (32 - partBits); }
    const Part& partOf(uint32_t hash) const { return parts[partNumber(hash)]; }

    // What leads to a position.
    uint32_t& linkTo(uint32_t position) {
        std::vector<uint32_t>& heads = parts[partNumber(links[position].hash)].heads;
        uint32_t* link = &heads[links[position].hash & (heads.size() - 1)];
        while (*link != position) {
            link = &links[*link].next;
        }
        return *link;
    }

    // Puts the chains of one table into others; each keeps its order, so that equal elements stay latest first.
    template <class HeadOf>
    void relink(const std::vector<uint32_t>& from, std::vector<uint32_t*>& ends, HeadOf headOf) {
        for (uint32_t at : from) {
            while (at != none) {
                uint32_t next = links[at].next;
                uint32_t*& end = ends[headOf(links[at].hash)];
                *end = at;
                end = &links[at].next;
                *end = none;
                at = next;
            }
        }
    }

    void grow(Part& part) {
        std::vector<uint32_t> heads(part.heads.size() * 2, none);
        std::vector<uint32_t*> ends(heads.size());
        for (size_t i = 0; i < heads.size(); ++i) {
            ends[i] = &heads[i];
        }
        relink(part.heads, ends, [&](uint32_t hash) { return hash & (heads.size() - 1); });
        headCount += part.heads.size();
        part.heads.swap(heads);
    }

    void divide() {
        constexpr uint32_t width = 2 * divideAt >> partBits;
        std::vector<Part> divided(1u << partBits);
        std::vector<uint32_t*> ends;
        ends.reserve(divided.size() * width);
        for (Part& part : divided) {
            part.heads.assign(width, none);
            for (uint32_t& head : part.heads) {
                ends.push_back(&head);
            }
        }
        relink(parts[0].heads, ends, [&](uint32_t hash) {
            ++divided[hash >> (32 - partBits)].count;
            return (hash >> (32 - partBits)) * width + (hash & (width - 1));
        });
        headCount = ends.size();
        parts.swap(divided);
    }

    std::vector<Link> links; // by position
    size_t headCount = 0;    // of all parts
    std::vector<Part> parts; // one, or one for each value of a hash's upper bits
};

} // namespace local
