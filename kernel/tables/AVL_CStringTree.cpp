#include "kernel/tables/AVL_CStringTree.h"

#include "kernel/base/text_internal.h"
#include "kernel/tables/ordered_tree_internal.h"

#include <cstring>
#include <new>
#include <utility>

namespace kernel {

namespace {

// As strcmp. Null stands before all.
int Compare(const char *a, const char *b)
{
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    return std::strcmp(a, b);
}

AVL_CStringNode *Node(void *data) { return static_cast<AVL_CStringNode *>(data); }

}  // namespace

// --- Nodes

AVL_CStringNode::AVL_CStringNode(const char *string)
{
    if (string) string_ = Copy_Text(string);
}

AVL_CStringNode::~AVL_CStringNode()
{
    if (tree_) tree_->RemoveNode(this);
}

int AVL_CStringNode::compare(const void *node, const void *key)
{
    const int order = Compare(static_cast<const AVL_CStringNode *>(node)->GetString(), static_cast<const char *>(key));
    return order < 0 ? 1 : order > 0 ? -1 : 0;
}

void *AVL_CStringNode::AVL_MallocFunc(const void *key, void *node)
{
    const auto *const string = static_cast<const char *>(key);
    AVL_CStringNode *const given = Node(node);
    if (given && Compare(given->GetString(), string) == 0) return given;
    if (given && given->tree_) return nullptr;
    std::unique_ptr<char[]> copy = string ? Copy_Text(string) : nullptr;
    if (string && !copy) return nullptr;
    AVL_CStringNode *const stored = given ? given : new (std::nothrow) AVL_CStringNode(nullptr);
    if (stored) stored->string_ = std::move(copy);
    return stored;
}

void *AVL_CStringNode::AVL_FreeFunc(void *node, const void *, const void *user)
{
    if (user && user != node) return node;
    DeleteNode(Node(node));
    return nullptr;
}

void AVL_CStringNode::AVL_KillFunc(void *node, const void *) { DeleteNode(Node(node)); }

// Without its tree the destructor does not look for the node there, among all that are equal to it.
void *AVL_CStringNode::Let_Go(void *node, const void *key, const void *user)
{
    Node(node)->ClearNote();
    return AVL_FreeFunc(node, key, user);
}

void AVL_CStringNode::DeleteNode(AVL_CStringNode *node) { delete node; }

void AVL_CStringNode::ClearNote() { tree_ = nullptr; }

// --- Trees

struct AVL_CStringTree::Inside {
    AVL_CStringNode *Walked(void *data)
    {
        if (!data) cursor = AVL_Cursor();  // a step from the end would lead to the first node
        return Node(data);
    }

    S_AVL_WorkFunc tree{
        {AVL_CStringNode::AVL_MallocFunc, AVL_CStringNode::Let_Go, AVL_CStringNode::AVL_KillFunc},
        AVL_CStringNode::compare,
    };
    AVL_Cursor cursor;  // of the walk
};

AVL_CStringTree::AVL_CStringTree() : inside_(new (std::nothrow) Inside) {}

AVL_CStringTree::~AVL_CStringTree() { DeleteTree(); }

AVL_CStringNode *AVL_CStringTree::Insert(const char *string)
{
    AVL_CStringNode *const node = Node(AVL_CStringNode::AVL_MallocFunc(string, nullptr));
    if (!node || Insert(node)) return node;
    AVL_CStringNode::DeleteNode(node);
    return nullptr;
}

AVL_CStringNode *AVL_CStringTree::Insert(AVL_CStringNode *node)
{
    if (!node || node->tree_ == this) return node;
    if (!inside_ || !AVL_InsertStabil(&inside_->tree, node->GetString(), node)) return nullptr;
    if (node->tree_) node->tree_->RemoveNode(node);
    node->tree_ = this;
    return node;
}

AVL_CStringNode *AVL_CStringTree::Search(const char *string) const
{
    return inside_ ? Node(AVL_SearchKey(&inside_->tree, string)) : nullptr;
}

bool AVL_CStringTree::TestKey(const char *string) const { return Search(string) != nullptr; }

AVL_CStringNode *AVL_CStringTree::WalkMin()
{
    if (!inside_) return nullptr;
    inside_->cursor = AVL_MakeMin(&inside_->tree);
    return inside_->Walked(inside_->cursor.Data());
}

AVL_CStringNode *AVL_CStringTree::WalkNext()
{
    return inside_ ? inside_->Walked(AVL_WalkSuccInorder(&inside_->tree, inside_->cursor)) : nullptr;
}

void AVL_CStringTree::DeleteKey(const char *string)
{
    if (inside_) AVL_DelBetweenKey(&inside_->tree, string, string, nullptr);
}

void AVL_CStringTree::DeleteNode(AVL_CStringNode *node) { AVL_CStringNode::DeleteNode(node); }

bool AVL_CStringTree::RemoveNode(AVL_CStringNode *node)
{
    if (!node || node->tree_ != this) return false;
    AVL_Cursor at = AVL_MakeFirstKey(&inside_->tree, node->GetString());
    while (at.Data() && at.Data() != node) AVL_WalkSuccInorder(&inside_->tree, at);
    if (!AVL_GetPfad(&inside_->tree, at)) return false;
    node->ClearNote();
    return true;
}

void AVL_CStringTree::DeleteTree()
{
    if (inside_) AVL_DelTree(&inside_->tree, nullptr);
}

}  // namespace kernel
