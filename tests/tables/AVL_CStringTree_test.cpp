#include "kernel/tables/AVL_CStringTree.h"

#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

#include <string>

using namespace kernel;

namespace {

// A node that is counted, with a letter to tell it from its equals.
class Counted : public AVL_CStringNode {
public:
    Counted(const char *string, char letter) : AVL_CStringNode(string), letter_(letter) { ++living; }
    ~Counted() override { --living; }
    char Letter() const { return letter_; }
    static inline int living = 0;

private:
    const char letter_;
};

std::string Shown(AVL_CStringNode *node)
{
    if (!node) return "end";
    const auto *const counted = dynamic_cast<Counted *>(node);
    return (node->GetString() ? node->GetString() : "(null)") + std::string(1, counted ? counted->Letter() : ' ');
}

std::string All_Of(AVL_CStringTree &tree)
{
    std::string all;
    for (AVL_CStringNode *node = tree.WalkMin(); node; node = tree.WalkNext()) all += Shown(node);
    return all;
}

}  // namespace

TEST(AVL_CStringTree, keeps_strings_sorted_and_equal_ones_in_the_order_of_insertion)
{
    AVL_CStringTree tree;
    EXPECT_TRUE(!tree.WalkNext() && !tree.WalkMin() && !tree.Search("a") && !tree.TestKey(nullptr));
    for (const char letter : {'1', '2', '3'}) tree.Insert(new Counted("b", letter));
    for (const char *string : {"a", "B", "c", ""}) EXPECT_STREQ(tree.Insert(string)->GetString(), string);
    EXPECT_EQ(All_Of(tree), " B a b1b2b3c ");
    EXPECT_EQ(tree.WalkNext(), nullptr);  // the end stays the end
    EXPECT_STREQ(tree.Insert(static_cast<const char *>(nullptr))->GetString(), nullptr);
    EXPECT_EQ(Shown(tree.WalkMin()), "(null) ");
    EXPECT_TRUE(tree.TestKey(nullptr) && tree.TestKey("B") && !tree.TestKey("C"));
    tree.DeleteKey(nullptr);

    EXPECT_EQ(Shown(tree.Search("b")), "b1");
    tree.DeleteNode(tree.Search("b"));
    EXPECT_EQ(Shown(tree.Search("b")), "b2");
    for (tree.WalkMin(); tree.WalkNext() != tree.Search("b");) continue;
    tree.DeleteKey("b");  // also the one that the walk is on
    EXPECT_EQ(Shown(tree.WalkNext()), "c ");
    tree.DeleteNode(tree.Search("c"));
    EXPECT_EQ(tree.WalkNext(), nullptr);
    EXPECT_EQ(All_Of(tree), " B a ");
    EXPECT_EQ(Counted::living, 0);
    EXPECT_EQ(AVL_CStringNode::Get_OffsetLeft() + AVL_CStringNode::Get_OffsetRight() * AVL_CStringNode::Get_OffsetBal(),
              8 + 12 * 16);
    EXPECT_EQ(AVL_CStringNode::compare(tree.Search("B"), "a"), 1);
    EXPECT_EQ(AVL_CStringNode::GetString(nullptr), nullptr);
}

TEST(AVL_CStringTree, owns_its_nodes_until_they_are_removed_or_change_to_another_tree)
{
    AVL_CStringTree tree;
    {
        AVL_CStringTree other;
        auto *const first = new Counted("b", '1');
        auto *const second = new Counted("b", '2');
        for (Counted *node : {first, second, first}) EXPECT_EQ(other.Insert(node), node);
        EXPECT_EQ(All_Of(other), "b1b2");
        EXPECT_FALSE(tree.RemoveNode(first));
        tree.Insert(new Counted("b", '3'));
        EXPECT_FALSE(tree.RemoveNode(first));  // its string is there, it is not
        EXPECT_EQ(tree.Insert(first), first);
        EXPECT_EQ(All_Of(other), "b2");
        EXPECT_TRUE(tree.RemoveNode(first) && !tree.RemoveNode(first));
        delete first;
        other.Insert(new Counted("x", '4'));
        delete other.Search("x");
        EXPECT_EQ(All_Of(other), "b2");

        EXPECT_EQ(AVL_CStringNode::AVL_MallocFunc("z", second), nullptr);  // it stands under "b"
        EXPECT_EQ(AVL_CStringNode::AVL_FreeFunc(second, nullptr, &other), second);
    }
    EXPECT_EQ(All_Of(tree), "b3");
    tree.DeleteTree();
    EXPECT_EQ(All_Of(tree), "");
    EXPECT_EQ(Counted::living, 0);

    auto *const node = new Counted("a", '5');
    EXPECT_TRUE(AVL_CStringNode::AVL_MallocFunc("z", node) == node && Shown(node) == "z5");
    EXPECT_EQ(AVL_CStringNode::AVL_FreeFunc(node, nullptr, node), nullptr);
    EXPECT_EQ(Counted::living, 0);
    EXPECT_TRUE(!tree.Insert(static_cast<AVL_CStringNode *>(nullptr)) && !tree.RemoveNode(nullptr));
}

TEST(AVL_CStringTree, is_unchanged_when_memory_is_short)
{
    AVL_CStringTree tree, other;
    EXPECT_EQ(Refused_Without_Memory([&] { return tree.Insert("b") != nullptr; }), 3);  // text, node, place
    AVL_CStringNode *const node = tree.Search("b");
    EXPECT_EQ(Refused_Without_Memory([&] {
                  const bool moved = other.Insert(node) != nullptr;
                  EXPECT_TRUE(moved || tree.TestKey("b"));
                  return moved;
              }),
              1);
    const Short_Memory none(0);
    AVL_CStringTree hollow;
    EXPECT_TRUE(!hollow.Insert(node) && !hollow.WalkMin() && !hollow.WalkNext() && !hollow.TestKey("b"));
    hollow.DeleteKey("b");
}
