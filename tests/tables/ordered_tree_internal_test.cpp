#include "kernel/tables/ordered_tree_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <optional>
#include <random>
#include <string>
#include <vector>

using namespace kernel;

namespace {

struct Item {
    int key;
    int cursor = -1;  // in the model: no item, but the place of this cursor between items
};

template <class T>
int Order_Of(const T &a, const T &b)
{
    return a < b ? 1 : b < a ? -1 : 0;
}

int Compare(const void *data, const void *key)
{
    return Order_Of(static_cast<const Item *>(data)->key, *static_cast<const int *>(key));
}

void *Note_Release(void *data, const void *, const void *user)
{
    const auto *released = static_cast<const std::vector<void *> *>(user);
    const_cast<std::vector<void *> *>(released)->push_back(data);
    return nullptr;
}

const AVL_NodeFunc functions = {AVL_Malloc_RetHandleDirekt, Note_Release, [](void *, const void *) {}};

// The naive tree: a list in which items stand in order, and cursors that stand between items among them.
class Model {
public:
    using Place = std::list<Item>::iterator;

    // Behind the last item that is not greater.
    Place Insert(int key)
    {
        Place at = items.begin();
        for (Place next = at; next != items.end(); ++next)
            if (next->cursor < 0 && next->key <= key) at = std::next(next);
        return items.insert(at, {key});
    }
    Item *First(int from, int to)  // of the items with from <= key <= to
    {
        const auto at = std::find_if(items.begin(), items.end(),
                                     [=](const Item &i) { return i.cursor < 0 && i.key >= from && i.key <= to; });
        return at == items.end() ? nullptr : &*at;
    }
    Item *Last(int from, int to)
    {
        Item *last = nullptr;
        for (Item &i : items)
            if (i.cursor < 0 && i.key >= from && i.key <= to) last = &i;
        return last;
    }
    // Out of the list; its cursors stay where it stood. The item itself lives on in `gone`.
    void Remove(Item *item)
    {
        const Place at = Of(item);
        for (int c = 0; c < static_cast<int>(on.size()); ++c) {
            if (on[static_cast<std::size_t>(c)] != at) continue;
            on[static_cast<std::size_t>(c)] = items.insert(at, {0, c});
        }
        gone.splice(gone.end(), items, at);
    }
    Place Of(const Item *item)
    {
        return std::find_if(items.begin(), items.end(), [=](const Item &i) { return &i == item; });
    }
    // A cursor goes to an item (or past the end), or into a gap: behind `before`, or in front of all.
    void Stand(std::size_t cursor, Item *item)
    {
        Leave(cursor);
        on[cursor] = item ? Of(item) : items.end();
    }
    void Stand_Behind(std::size_t cursor, Item *before)
    {
        Leave(cursor);
        Place at = before ? std::next(Of(before)) : items.begin();
        while (at != items.end() && at->cursor >= 0) ++at;
        on[cursor] = items.insert(at, {0, static_cast<int>(cursor)});
    }
    Item *Data(std::size_t cursor) const
    {
        return on[cursor] == items.end() || on[cursor]->cursor >= 0 ? nullptr : &*on[cursor];
    }
    void Step(std::size_t cursor, bool forward)
    {
        Place at = on[cursor];
        do {  // the end stands between the last and the first
            if (forward)
                at = at == items.end() ? items.begin() : std::next(at);
            else
                at = at == items.begin() ? items.end() : std::prev(at);
        } while (at != items.end() && at->cursor >= 0);
        Leave(cursor);
        on[cursor] = at;
    }

    std::list<Item> items, gone;
    std::vector<Place> on = std::vector<Place>(4, items.end());

private:
    void Leave(std::size_t cursor)
    {
        if (on[cursor] != items.end() && on[cursor]->cursor >= 0) items.erase(on[cursor]);
    }
};

constexpr int least = -1000, most = 1000;

// One random operation on both; false when they differ.
class Contest {
public:
    explicit Contest(AVL_Rank rank) : tree_(AVL_Konstruktor(functions, Compare, rank)) {}
    ~Contest() { AVL_Destruktor(tree_); }

    testing::AssertionResult Step()
    {
        const auto key = static_cast<int>(random_() % 12), to = key + static_cast<int>(random_() % 3);
        const std::size_t c = random_() % cursors_.size();
        AVL_Cursor &cursor = cursors_[c];
        std::vector<void *> released, expected;
        const auto all = [&](int from, int until) {  // what a deletion must release, in order
            while (Item *item = model_.First(from, until)) {
                expected.push_back(item);
                model_.Remove(item);
            }
        };
        void *got = nullptr;
        Item *wanted = nullptr;
        const auto operation = static_cast<int>(random_() % 40);
        switch (operation) {
        case 0: AVL_DelLess(tree_, &key, &released), all(least, key - 1); break;
        case 1: AVL_DelGreater(tree_, &key, &released), all(key + 1, most); break;
        case 2: AVL_DelBetweenKey(tree_, &key, &to, &released), all(key, to); break;
        case 3:
            if (random_() % 20 == 0) AVL_DelTree(tree_, &released), all(least, most);
            break;
        case 4: got = AVL_GetMin(tree_), wanted = Removed(model_.First(least, most)); break;
        case 5: got = AVL_GetMax(tree_), wanted = Removed(model_.Last(least, most)); break;
        case 6:
        case 7: got = AVL_GetPfad(tree_, cursor), wanted = Removed(model_.Data(c)); break;
        case 8: got = AVL_SearchKey(tree_, &key), wanted = model_.First(key, key); break;
        case 9: got = AVL_SearchSucc(tree_, &key), wanted = model_.First(key + 1, most); break;
        case 10: got = AVL_SearchPred(tree_, &key), wanted = model_.Last(least, key - 1); break;
        case 11: got = AVL_SearchGreaterEqual(tree_, &key), wanted = model_.First(key, most); break;
        case 12: got = AVL_SearchLessEqual(tree_, &key), wanted = model_.Last(least, key); break;
        case 13: got = AVL_SearchMin(tree_), wanted = model_.First(least, most); break;
        case 14: got = AVL_SearchMax(tree_), wanted = model_.Last(least, most); break;
        case 15: cursor = AVL_MakeMin(tree_), model_.Stand(c, model_.First(least, most)); break;
        case 16: cursor = AVL_MakeMax(tree_), model_.Stand(c, model_.Last(least, most)); break;
        case 17:
        case 18:
            cursor = (operation == 17 ? AVL_MakeKey : AVL_MakeFirstKey)(tree_, &key);
            if (Item *item = model_.First(key, key))
                model_.Stand(c, item);
            else
                model_.Stand_Behind(c, model_.Last(least, key - 1));
            break;
        case 19: cursor = AVL_MakeLess(tree_, &key), model_.Stand(c, model_.Last(least, key - 1)); break;
        case 20: cursor = AVL_MakePred(tree_, &key), model_.Stand_Behind(c, model_.Last(least, key - 1)); break;
        case 21:
        case 22:
        case 23:
        case 24:
            got = (operation % 2 == 0 ? AVL_WalkSuccInorder : AVL_WalkPredInorder)(tree_, cursor);
            model_.Step(c, operation % 2 == 0);
            wanted = model_.Data(c);
            break;
        case 25:
            cursor = AVL_Cursor(cursor);  // through a copy, which leaves
            break;
        case 26:
        case 27:
        case 28:
            if (model_.First(key, key)) {
                if (AVL_InsertUnique(tree_, &key, this)) return testing::AssertionFailure() << "not unique";
                break;
            }
            [[fallthrough]];
        default:
            if (!(operation < 29 ? AVL_InsertUnique : AVL_InsertStabil)(tree_, &key, &*model_.Insert(key)))
                return testing::AssertionFailure() << "not inserted";
        }
        if (got != wanted) return testing::AssertionFailure() << "operation " << operation << " found another item";
        if (released != expected) return testing::AssertionFailure() << "operation " << operation << " released others";
        for (std::size_t i = 0; i < cursors_.size(); ++i)
            if (cursors_[i].Data() != model_.Data(i))
                return testing::AssertionFailure() << "cursor " << i << " after operation " << operation;
        return testing::AssertionSuccess();
    }

private:
    Item *Removed(Item *item)
    {
        if (item) model_.Remove(item);
        return item;
    }

    std::mt19937 random_{20121014};
    Model model_;
    S_AVL_WorkFunc *const tree_;
    std::vector<AVL_Cursor> cursors_ = std::vector<AVL_Cursor>(4, AVL_MakeMin(tree_));
};

}  // namespace

TEST(ordered_tree, agrees_with_a_sorted_list)
{
    const auto by_half = [](const void *key) { return static_cast<double>(*static_cast<const int *>(key) / 2); };
    for (const AVL_Rank rank : {AVL_Rank{nullptr}, AVL_Rank{by_half}}) {
        Contest contest(rank);
        for (int step = 0; step < 100000; ++step) ASSERT_TRUE(contest.Step()) << step;
    }
}

// As trees of strings use it: the key is a text, and the node is made from it.
TEST(ordered_tree, makes_nodes_and_lets_releases_change_the_tree)
{
    static S_AVL_WorkFunc *tree;
    static int made, killed;
    made = killed = 0;
    const AVL_NodeFunc strings = {
        [](const void *key, void *) -> void * {
            const auto *text = static_cast<const char *>(key);
            return *text ? ++made, new std::string(text) : nullptr;
        },
        [](void *data, const void *, const void *user) -> void * {
            auto *node = static_cast<std::string *>(data);
            if (user && AVL_SearchMax(tree)) delete static_cast<std::string *>(AVL_GetMax(tree));  // takes one along
            delete node;
            return nullptr;
        },
        [](void *, const void *) { ++killed; },
    };
    tree = AVL_Konstruktor(strings, [](const void *data, const void *key) {
        return Order_Of(*static_cast<const std::string *>(data), std::string(static_cast<const char *>(key)));
    });
    for (const char *text : {"b", "a", "b", "d", "c"}) EXPECT_TRUE(AVL_InsertStabil(tree, text, nullptr));
    EXPECT_FALSE(AVL_InsertUnique(tree, "a", nullptr));
    EXPECT_FALSE(AVL_InsertStabil(tree, "", nullptr));  // no node could be made
    EXPECT_EQ(made, 5);
    EXPECT_EQ(killed, 0);

    std::string order;
    AVL_Cursor cursor = AVL_MakeMin(tree);
    for (void *node = cursor.Data(); node; node = AVL_WalkSuccInorder(tree, cursor))
        order += *static_cast<std::string *>(node);
    EXPECT_EQ(order, "abbcd");
    AVL_DelBetweenKey(tree, "b", "b", nullptr);  // both of them
    AVL_DelTree(tree, &order);                   // "a" takes "d" along; then "c" is alone
    EXPECT_EQ(AVL_SearchMin(tree), nullptr);
    AVL_Destruktor(tree);
    EXPECT_EQ(cursor.Data(), nullptr);
    EXPECT_EQ(AVL_WalkSuccInorder(nullptr, cursor), nullptr);
}
