#include "kernel/tables/ordered_tree_internal.h"

#include <iterator>
#include <new>

namespace kernel {

// What the AVL_ functions do with the inside of trees and cursors.
struct Tree_Access {
    using Tree = S_AVL_WorkFunc;
    using Nodes = Tree::Nodes;
    using Place = Nodes::const_iterator;
    enum class Duplicates { allowed, refused };

    static Tree::Element Key(const Tree &tree, const void *const &key, void *node = nullptr)
    {
        return {node, tree.rank_ ? tree.rank_(key) : 0, &key};
    }
    static void *Data(const Tree &tree, Place at) { return at == tree.nodes_.end() ? nullptr : at->data; }

    static Place First_Not_Less(const Tree &tree, const void *key) { return tree.nodes_.lower_bound(Key(tree, key)); }
    static Place First_Greater(const Tree &tree, const void *key) { return tree.nodes_.upper_bound(Key(tree, key)); }
    static bool Is_Equal(const Tree &tree, Place at, const void *key)
    {
        return at != tree.nodes_.end() && tree.nodes_.key_comp().compare(at->data, key) == 0;
    }
    static bool Is_Up_To(const Tree &tree, Place at, const void *key)
    {
        return at != tree.nodes_.end() && tree.nodes_.key_comp().compare(at->data, key) >= 0;
    }
    static Place First(const Tree &tree) { return tree.nodes_.begin(); }
    static Place Last(const Tree &tree) { return Before(tree, tree.nodes_.end()); }
    // The one before, or the end.
    static Place Before(const Tree &tree, Place at)
    {
        return at == tree.nodes_.begin() ? tree.nodes_.end() : std::prev(at);
    }

    static AVL_Cursor Cursor(Tree *tree, Place at, bool in_gap = false)
    {
        AVL_Cursor cursor;
        cursor.at_ = at;
        cursor.in_gap_ = in_gap;
        cursor.Enter(tree);
        return cursor;
    }

    static bool Insert(Tree &tree, const void *key, void *data, Duplicates duplicates)
    {
        if (duplicates == Duplicates::refused && Is_Equal(tree, First_Not_Less(tree, key), key)) return false;
        void *const node = tree.functions_.malloc_func(key, data);
        if (!node) return false;
        try {
            // An element without a hint goes behind its equals. It is a key until it has found its place.
            tree.nodes_.insert(Key(tree, key, node))->key = nullptr;
            return true;
        } catch (const std::bad_alloc &) {
            if (node != data) tree.functions_.kill_func(node, nullptr);
            return false;
        }
    }

    // The node's data; cursors that stood on it go into the gap. Those in a gap before it stay there: before the next
    // one.
    static void *Take(Tree &tree, Place at)
    {
        if (at == tree.nodes_.end()) return nullptr;
        for (AVL_Cursor *cursor = tree.cursors_; cursor; cursor = cursor->next_) {
            if (cursor->at_ != at) continue;
            ++cursor->at_;
            cursor->in_gap_ = true;
        }
        void *const data = at->data;
        tree.nodes_.erase(at);
        return data;
    }
    static void Release(Tree &tree, Place at, const void *key, const void *user)
    {
        tree.functions_.free_func(Take(tree, at), key, user);
    }

    static void *Step(Tree *tree, AVL_Cursor &cursor, bool forward)
    {
        if (!tree || cursor.tree_ != tree) return nullptr;
        const Place end = tree->nodes_.end();
        if (!forward)
            cursor.at_ = Before(*tree, cursor.at_);
        else if (!cursor.in_gap_)
            cursor.at_ = cursor.at_ == end ? tree->nodes_.begin() : std::next(cursor.at_);
        cursor.in_gap_ = false;
        return cursor.Data();
    }
    static Place At(const S_AVL_WorkFunc &tree, const AVL_Cursor &cursor)
    {
        return cursor.tree_ == &tree && !cursor.in_gap_ ? cursor.at_ : tree.nodes_.end();
    }
};

using Access = Tree_Access;

S_AVL_WorkFunc::S_AVL_WorkFunc(const AVL_NodeFunc &functions, AVL_Compare compare, AVL_Rank rank)
    : functions_(functions), rank_(rank), nodes_(Order{compare})
{
}

S_AVL_WorkFunc::~S_AVL_WorkFunc()
{
    while (cursors_) cursors_->Leave();
}

AVL_Cursor &AVL_Cursor::operator=(const AVL_Cursor &other)
{
    if (this == &other) return *this;
    Leave();
    at_ = other.at_;
    in_gap_ = other.in_gap_;
    if (other.tree_) Enter(other.tree_);
    return *this;
}

void *AVL_Cursor::Data() const { return tree_ && !in_gap_ ? Access::Data(*tree_, at_) : nullptr; }

void AVL_Cursor::Enter(S_AVL_WorkFunc *tree)
{
    tree_ = tree;
    previous_ = nullptr;
    next_ = tree->cursors_;
    if (next_) next_->previous_ = this;
    tree->cursors_ = this;
}

void AVL_Cursor::Leave()
{
    if (!tree_) return;
    (previous_ ? previous_->next_ : tree_->cursors_) = next_;
    if (next_) next_->previous_ = previous_;
    tree_ = nullptr;
}

void *AVL_Malloc_RetHandleDirekt(const void *, void *data) { return data; }

S_AVL_WorkFunc *AVL_Konstruktor(const AVL_NodeFunc &functions, AVL_Compare compare, AVL_Rank rank)
{
    return new (std::nothrow) S_AVL_WorkFunc(functions, compare, rank);
}

void AVL_Destruktor(S_AVL_WorkFunc *tree) { delete tree; }

bool AVL_InsertStabil(S_AVL_WorkFunc *tree, const void *key, void *data)
{
    return Access::Insert(*tree, key, data, Access::Duplicates::allowed);
}

bool AVL_InsertUnique(S_AVL_WorkFunc *tree, const void *key, void *data)
{
    return Access::Insert(*tree, key, data, Access::Duplicates::refused);
}

void *AVL_SearchKey(const S_AVL_WorkFunc *tree, const void *key)
{
    const auto at = Access::First_Not_Less(*tree, key);
    return Access::Is_Equal(*tree, at, key) ? at->data : nullptr;
}

void *AVL_SearchSucc(const S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Data(*tree, Access::First_Greater(*tree, key));
}

void *AVL_SearchPred(const S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Data(*tree, Access::Before(*tree, Access::First_Not_Less(*tree, key)));
}

void *AVL_SearchGreaterEqual(const S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Data(*tree, Access::First_Not_Less(*tree, key));
}

void *AVL_SearchLessEqual(const S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Data(*tree, Access::Before(*tree, Access::First_Greater(*tree, key)));
}

AVL_Cursor AVL_MakeMin(S_AVL_WorkFunc *tree) { return Access::Cursor(tree, Access::First(*tree)); }

AVL_Cursor AVL_MakeMax(S_AVL_WorkFunc *tree) { return Access::Cursor(tree, Access::Last(*tree)); }

AVL_Cursor AVL_MakeKey(S_AVL_WorkFunc *tree, const void *key) { return AVL_MakeFirstKey(tree, key); }

AVL_Cursor AVL_MakeFirstKey(S_AVL_WorkFunc *tree, const void *key)
{
    const auto at = Access::First_Not_Less(*tree, key);
    return Access::Cursor(tree, at, !Access::Is_Equal(*tree, at, key));
}

AVL_Cursor AVL_MakeLess(S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Cursor(tree, Access::Before(*tree, Access::First_Not_Less(*tree, key)));
}

AVL_Cursor AVL_MakePred(S_AVL_WorkFunc *tree, const void *key)
{
    return Access::Cursor(tree, Access::First_Not_Less(*tree, key), true);
}

void *AVL_WalkSuccInorder(S_AVL_WorkFunc *tree, AVL_Cursor &cursor) { return Access::Step(tree, cursor, true); }

void *AVL_WalkPredInorder(S_AVL_WorkFunc *tree, AVL_Cursor &cursor) { return Access::Step(tree, cursor, false); }

void *AVL_GetPfad(S_AVL_WorkFunc *tree, const AVL_Cursor &cursor)
{
    return Access::Take(*tree, Access::At(*tree, cursor));
}

void *AVL_GetMin(S_AVL_WorkFunc *tree) { return Access::Take(*tree, Access::First(*tree)); }

void *AVL_GetMax(S_AVL_WorkFunc *tree) { return Access::Take(*tree, Access::Last(*tree)); }

void *AVL_SearchMin(const S_AVL_WorkFunc *tree) { return Access::Data(*tree, Access::First(*tree)); }

void *AVL_SearchMax(const S_AVL_WorkFunc *tree) { return Access::Data(*tree, Access::Last(*tree)); }

// Each round begins anew: a release may change the tree.

void AVL_DelLess(S_AVL_WorkFunc *tree, const void *key, const void *user)
{
    while (Access::First(*tree) != Access::First_Not_Less(*tree, key))
        Access::Release(*tree, Access::First(*tree), key, user);
}

void AVL_DelGreater(S_AVL_WorkFunc *tree, const void *key, const void *user)
{
    while (AVL_SearchSucc(tree, key)) Access::Release(*tree, Access::First_Greater(*tree, key), key, user);
}

void AVL_DelBetweenKey(S_AVL_WorkFunc *tree, const void *from, const void *to, const void *user)
{
    for (;;) {
        const auto at = Access::First_Not_Less(*tree, from);
        if (!Access::Is_Up_To(*tree, at, to)) return;
        Access::Release(*tree, at, from, user);
    }
}

void AVL_DelTree(S_AVL_WorkFunc *tree, const void *user)
{
    while (AVL_SearchMin(tree)) Access::Release(*tree, Access::First(*tree), nullptr, user);
}

}  // namespace kernel
