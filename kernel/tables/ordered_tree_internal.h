// Ordered trees with stable order among equals, and cursors that stay good while nodes come and go: the AVL_ operations
// that event tables, string trees, resource strings and the T-connector stand on.
#pragma once

#include "kernel/tables/AVL_NodeFunc.h"

#include <set>

namespace kernel {

// The two orders of a pair are the reverse of strcmp's: 1 when the node `data` stands before `key`, 0 when they are
// equal, -1 when it stands behind. Nodes are compared with keys only, never with each other, so that a key may be of
// another type than the nodes: a string where the nodes hold strings.
using AVL_Compare = int (*)(const void *data, const void *key);

// A number that a key stands for. A key of a lesser rank orders before one of a greater rank; among equal ranks the
// comparison decides. Trees keep the rank of each node beside its links, so that a search in a large tree compares
// without a look at the data, which stand elsewhere in memory. A node's rank must not change while it is in a tree.
using AVL_Rank = double (*)(const void *key);

// The malloc_func of trees whose data are nodes already: answers data.
void *AVL_Malloc_RetHandleDirekt(const void *key, void *data);

class AVL_Cursor;

// The tree behind a handle. Use the functions below.
//
// Threads:   not locked, nor are cursors: the owner locks around each operation.
// Ownership: owns its nodes' places, not their data. Data leave by a release (free_func) or are handed back. Keys are
//            used while an operation runs and not kept.
// Errors:    memory shortage is an answer; nothing is reported and nothing throws.
class S_AVL_WorkFunc {
public:
    S_AVL_WorkFunc(const AVL_NodeFunc &functions, AVL_Compare compare, AVL_Rank rank = nullptr);  // null: all equal
    ~S_AVL_WorkFunc();
    S_AVL_WorkFunc(const S_AVL_WorkFunc &) = delete;
    S_AVL_WorkFunc &operator=(const S_AVL_WorkFunc &) = delete;

private:
    friend class AVL_Cursor;
    friend struct Tree_Access;

    // A node of the tree, or (while it is looked for or inserted) a key to compare nodes with.
    struct Element {
        void *data;
        double rank;
        mutable const void *const *key;  // null: a node; else where the key is
    };
    struct Order {
        AVL_Compare compare;
        bool operator()(const Element &a, const Element &b) const
        {
            if (a.rank != b.rank) return a.rank < b.rank;
            return b.key ? compare(a.data, *b.key) > 0 : compare(b.data, *a.key) < 0;
        }
    };
    using Nodes = std::multiset<Element, Order>;

    const AVL_NodeFunc functions_;
    const AVL_Rank rank_;
    Nodes nodes_;
    AVL_Cursor *cursors_ = nullptr;  // all that stand in this tree
};

// A place in a tree: on a node, or in the gap between two nodes, or past the end, which is also before the beginning.
// When the node under a cursor leaves the tree, by whatever operation, the cursor stays in the gap that it leaves: the
// next step leads to the neighbour. A cursor past the end steps on to the first node, or back to the last.
//
// Threads:   as the tree.
// Ownership: refers to the tree; when that is gone it stands nowhere and stays there.
// Errors:    none.
class AVL_Cursor {
public:
    AVL_Cursor() = default;  // in no tree
    AVL_Cursor(const AVL_Cursor &other) : AVL_Cursor() { *this = other; }
    AVL_Cursor &operator=(const AVL_Cursor &other);
    ~AVL_Cursor() { Leave(); }

    void *Data() const;  // of the node under the cursor; null in a gap, past the end, and in no tree

private:
    friend class S_AVL_WorkFunc;
    friend struct Tree_Access;

    void Enter(S_AVL_WorkFunc *tree);
    void Leave();

    S_AVL_WorkFunc *tree_ = nullptr;
    AVL_Cursor *next_ = nullptr, *previous_ = nullptr;  // of the same tree's
    S_AVL_WorkFunc::Nodes::const_iterator at_;
    bool in_gap_ = false;  // just before at_
};

// Null when memory is short. AVL_Destruktor drops what is still in the tree without releasing it; null is ignored.
S_AVL_WorkFunc *AVL_Konstruktor(const AVL_NodeFunc &functions, AVL_Compare compare, AVL_Rank rank = nullptr);
void AVL_Destruktor(S_AVL_WorkFunc *tree);

// Behind all that are equal; or only if none is equal. False: there is one, malloc_func answered null, or memory is
// short: then nothing has changed, and the data stay the caller's.
bool AVL_InsertStabil(S_AVL_WorkFunc *tree, const void *key, void *data);
bool AVL_InsertUnique(S_AVL_WorkFunc *tree, const void *key, void *data);

// The data of a node, or null. Of several equal nodes: the first in order, for Pred and LessEqual the last.
void *AVL_SearchKey(const S_AVL_WorkFunc *tree, const void *key);
void *AVL_SearchSucc(const S_AVL_WorkFunc *tree, const void *key);  // strictly greater
void *AVL_SearchPred(const S_AVL_WorkFunc *tree, const void *key);  // strictly less
void *AVL_SearchGreaterEqual(const S_AVL_WorkFunc *tree, const void *key);
void *AVL_SearchLessEqual(const S_AVL_WorkFunc *tree, const void *key);
void *AVL_SearchMin(const S_AVL_WorkFunc *tree);
void *AVL_SearchMax(const S_AVL_WorkFunc *tree);

// Cursors. Key and FirstKey: on the first equal node; without one in the gap where it would stand. Less: on the last
// node that is less; Pred: in the gap before the first that is not, so that a step back leads to the same node.
AVL_Cursor AVL_MakeMin(S_AVL_WorkFunc *tree);
AVL_Cursor AVL_MakeMax(S_AVL_WorkFunc *tree);
AVL_Cursor AVL_MakeKey(S_AVL_WorkFunc *tree, const void *key);
AVL_Cursor AVL_MakeFirstKey(S_AVL_WorkFunc *tree, const void *key);
AVL_Cursor AVL_MakeLess(S_AVL_WorkFunc *tree, const void *key);
AVL_Cursor AVL_MakePred(S_AVL_WorkFunc *tree, const void *key);

// One step; the data that the cursor then stands on, or null. A cursor of another tree stays where it is.
void *AVL_WalkSuccInorder(S_AVL_WorkFunc *tree, AVL_Cursor &cursor);
void *AVL_WalkPredInorder(S_AVL_WorkFunc *tree, AVL_Cursor &cursor);

// Take a node out without releasing it and answer its data; null when there is none.
void *AVL_GetPfad(S_AVL_WorkFunc *tree, const AVL_Cursor &cursor);
void *AVL_GetMin(S_AVL_WorkFunc *tree);
void *AVL_GetMax(S_AVL_WorkFunc *tree);

// Take nodes out and release them, one by one: a release finds the tree without the node, and may change it. The key
// given to free_func is this call's (null for DelTree, `from` for a range, both ends of which belong to it).
void AVL_DelLess(S_AVL_WorkFunc *tree, const void *key, const void *user);
void AVL_DelGreater(S_AVL_WorkFunc *tree, const void *key, const void *user);
void AVL_DelBetweenKey(S_AVL_WorkFunc *tree, const void *from, const void *to, const void *user);
void AVL_DelTree(S_AVL_WorkFunc *tree, const void *user);

}  // namespace kernel
