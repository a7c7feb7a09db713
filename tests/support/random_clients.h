// Clients that answer at random and do something at random inside their messages, and what is needed to run a model of
// what they are connected to beside it: the same dice, a record of what each client heard, and of who was deleted.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What happened, in order: client and message, or client and `deleted`.
using Happened = std::vector<std::pair<int, int>>;
constexpr int deleted = -1;

// Where two plays part, and what happened before: "" when they do not.
inline std::string Difference(const Happened &a, const Happened &b)
{
    if (a == b) return "";
    std::string text;
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        for (const Happened *play : {&a, &b})
            text += i < play->size() ? std::to_string((*play)[i].first) + ':' + std::to_string((*play)[i].second) + ' '
                                     : "- ";
        if (i >= std::min(a.size(), b.size()) || a[i] != b[i]) break;
    }
    return text;
}

// One play: the n-th thing that happens is answered by the n-th throw, in the play and in its model alike.
class Play {
public:
    explicit Play(unsigned int seed) : seed_(seed) {}

    // A number below `sides`; of the n-th thing. `use` tells several throws for the same thing apart.
    unsigned int Dice(unsigned int sides, unsigned int use) const
    {
        std::uint64_t x = (std::uint64_t{seed_} << 48) + (std::uint64_t{turn_} << 24) + happened.size() * 8 + use;
        for (int round = 0; round < 3; ++round) x = (x ^ (x >> 29)) * 0xBF58476D1CE4E5B9u;
        return static_cast<unsigned int>((x >> 33) % sides);
    }
    // A client hears a message, may do something (`act` with a number from 0), and answers.
    template <class Act>
    bool Hear(int client, int message, Act act)
    {
        happened.emplace_back(client, message);
        const bool answer = Dice(5, 0) != 0;
        const unsigned int action = Dice(24, 1);
        if (depth_ >= most_depth || action >= 8) return answer;
        ++depth_;
        act(action, Dice(1000, 2));
        --depth_;
        return answer;
    }

    // The next step: what has happened is compared, and forgotten.
    void Turn()
    {
        ++turn_;
        happened.clear();
    }
    // From here on clients only answer: what they are connected to goes.
    void End() { depth_ = most_depth; }

    Happened happened;

private:
    static constexpr int most_depth = 3;
    const unsigned int seed_;
    unsigned int turn_ = 0;
    int depth_ = 0;
};

// A client of the play. It may be deleted inside its own message: it does not touch itself after that.
class Random_Client : public kernel::Byte_Client {
public:
    // All of a play, by number; those that are left at the end are deleted then.
    struct Alive : std::map<int, Random_Client *> {
        ~Alive();
    };

    Random_Client(Play &play, Alive &alive, int number) : Object("random"), play_(play), alive_(alive), number_(number)
    {
        alive_[number] = this;
    }
    ~Random_Client() override
    {
        play_.happened.emplace_back(number_, deleted);
        alive_.erase(number_);
    }
    int Number() const { return number_; }

protected:
    Play &play_;

private:
    Alive &alive_;
    const int number_;
};

inline Random_Client::Alive::~Alive()
{
    while (!empty()) delete begin()->second;
}
