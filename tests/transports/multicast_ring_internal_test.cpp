#include "kernel/transports/multicast_ring_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace kernel;

namespace {

using Position = Multicast_Ring::Position;
using Mode = Multicast_Ring::Mode;

// By tail: one long text of all that was ever kept. A reader that is behind gets the newest bytes.
struct Text_Model {
    explicit Text_Model(std::size_t ring) : size(ring), readers(ring + 1, 0) {}

    void Insert(const std::string &data) { kept += data.substr(data.size() - std::min(data.size(), size)); }
    std::size_t Behind(std::size_t reader) const { return (kept.size() - readers[reader]) % size; }
    std::string Read(std::size_t reader, std::size_t n)
    {
        const std::size_t behind = Behind(reader);
        const std::string piece = kept.substr(kept.size() - behind, n);
        readers[reader] = kept.size() - behind + piece.size();
        return piece;
    }
    const std::size_t size;
    std::vector<std::size_t> readers;
    std::string kept;
};

// By mark: one byte after the other, and the rule for positions as it is written down.
struct Byte_Model {
    explicit Byte_Model(std::size_t ring) : size(static_cast<Position>(ring)), bytes(ring), readers(ring + 1, -1) {}

    void Insert(const std::string &data)
    {
        const Position old_head = head, old_tail = tail;
        bool wraps = false;
        for (const char byte : data.substr(data.size() - std::min(data.size(), bytes.size()))) {
            bytes[static_cast<std::size_t>(tail)] = byte;
            if (++tail == size) tail = 0, wraps = true;
        }
        wrapped |= wraps;
        head = head == -1 ? 0 : wrapped ? tail : head;
        for (Position &p : readers) {
            if (p == -1)
                p = old_tail;
            else if (wraps && (p > old_head || p < tail))
                p = head;
            else if (wrapped && !wraps && old_head < p && p < head)
                p = head;
        }
    }
    std::size_t Behind(std::size_t reader) const { return Byte_Model(*this).Read(reader, 2 * bytes.size()).size(); }
    std::string Read(std::size_t reader, std::size_t n)
    {
        std::string piece;
        Position &p = readers[reader];
        while (p != -1 && piece.size() < n) {
            piece += bytes[static_cast<std::size_t>(p)];
            p = (p + 1) % size;
            if (p == tail) p = -1;
        }
        return piece;
    }
    const Position size;
    std::vector<char> bytes;
    std::vector<Position> readers;
    Position head = -1, tail = 0;
    bool wrapped = false;
};

// Readers at every position. The first one reads all after each insert.
template <class Model>
void Compare(std::uint32_t size, Mode mode)
{
    std::mt19937 random(size);
    Multicast_Ring ring(size, mode);
    Model model(size);
    std::vector<Position> positions(size + 1, ring.Start());
    std::string block;
    const auto read = [&](std::size_t reader, std::size_t n) {
        long got = 0;
        block.assign(n, '?');
        positions[reader] =
            ring.Read(positions[reader], reinterpret_cast<unsigned char *>(block.data()), static_cast<long>(n), got);
        block.resize(static_cast<std::size_t>(got));
        const std::string expected = model.Read(reader, n);
        EXPECT_EQ(ring.Unread(positions[reader]), model.Behind(reader));
        EXPECT_EQ(ring.Has_Ended(positions[reader], ring.Tail()), model.Behind(reader) == 0);
        return expected;
    };
    char next = 0;
    for (int step = 0; step < 3000 && !testing::Test::HasFailure(); ++step) {
        if (random() % 3 == 0) {
            std::string data(1 + random() % (2 * size + 1), '\0');
            for (char &byte : data) byte = ++next;
            const auto change =
                ring.Insert(reinterpret_cast<const unsigned char *>(data.data()), static_cast<long>(data.size()));
            if (mode == Mode::by_mark)
                for (Position &p : positions) p = ring.Adapted(change, p);
            model.Insert(data);
            const std::string prompt = read(0, 3 * size);
            EXPECT_EQ(block, prompt);
            if (data.size() < size || mode == Mode::by_mark) {
                EXPECT_EQ(block, data.substr(data.size() - std::min<std::size_t>(data.size(), size)));
            }
        } else {
            const std::string expected = read(1 + random() % size, 1 + random() % (size + 1));
            EXPECT_EQ(block, expected) << "size " << size << ", step " << step;
        }
    }
}

}  // namespace

TEST(Multicast_Ring, moves_the_bytes_of_the_models)
{
    for (std::uint32_t size = 1; size <= 17; ++size) {
        Compare<Text_Model>(size, Mode::by_tail);
        Compare<Byte_Model>(size, Mode::by_mark);
    }
}

TEST(Multicast_Ring, refuses_what_is_impossible)
{
    EXPECT_FALSE(Multicast_Ring(0, Mode::by_tail).Is_Valid());
    unsigned char bytes[4] = {1, 2, 3, 4};
    for (const std::uint32_t size : {0u, 0x80000000u}) {
        Multicast_Ring none(size, Mode::by_mark);
        EXPECT_FALSE(none.Is_Valid());
        EXPECT_EQ(none.Insert(bytes, 4).new_tail, 0);
    }
    Multicast_Ring ring(4, Mode::by_tail);
    for (const long n : {-1L, 0L}) EXPECT_EQ(ring.Insert(bytes, n).new_tail, 0);
    EXPECT_EQ(ring.Insert(nullptr, 3).new_tail, 0);
    EXPECT_EQ(ring.Insert(bytes, 3).new_tail, 3);
    const struct {
        Position position;
        unsigned char *to;
        long n;
    } cases[] = {{-1, bytes, 4}, {4, bytes, 4}, {0, nullptr, 4}, {0, bytes, 0}, {0, bytes, -1}};
    for (const auto &c : cases) {
        long got = 7;
        EXPECT_EQ(ring.Read(c.position, c.to, c.n, got), c.position);
        EXPECT_EQ(got, 0);
    }
}
