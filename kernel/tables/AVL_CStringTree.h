// Sorted sets of strings, in which a string may stand more than once.
#pragma once

#include "kernel/base/kernel_api.h"

#include <memory>

namespace kernel {

class AVL_CStringTree;

// A string and its place in a tree.
//
// Threads:   as the tree that it is in.
// Ownership: owns a copy of the string. A node that is in a tree is the tree's and must come from `new`; a node that
//            was removed, or is in no tree yet, is the caller's. The destructor takes the node out of its tree.
// Errors:    a constructor that finds no memory leaves the string null.
class KERNEL_API AVL_CStringNode {
public:
    explicit AVL_CStringNode(const char *string);  // null stays null
    AVL_CStringNode(const AVL_CStringNode &) = delete;
    AVL_CStringNode &operator=(const AVL_CStringNode &) = delete;
    virtual ~AVL_CStringNode();

    const char *GetString() const { return string_.get(); }  // valid while the node lives
    static const char *GetString(const AVL_CStringNode *node) { return node ? node->GetString() : nullptr; }

    // Numbers of the interface. They say nothing about where this class holds what.
    static int Get_OffsetLeft() { return 8; }
    static int Get_OffsetRight() { return 12; }
    static int Get_OffsetBal() { return 16; }

    // The order of trees: 1 when the node's string stands before the key, 0 when they are equal, -1 when it stands
    // behind. By bytes, so case counts; null stands before every string.
    static int compare(const void *node, const void *key);
    // The node to store under the key. Without a node it is a new one. A node gets a copy of the key in place of
    // another string. Null: memory is short, or the node is in a tree, whose order the new string would break.
    static void *AVL_MallocFunc(const void *key, void *node);
    // Destroys the node and returns null; with a user that is another object than the node, it is kept and returned.
    static void *AVL_FreeFunc(void *node, const void *key, const void *user);
    static void AVL_KillFunc(void *node, const void *user);

private:
    friend class AVL_CStringTree;
    static void *Let_Go(void *node, const void *key, const void *user);  // of a node that has left its tree
    static void DeleteNode(AVL_CStringNode *node);
    void ClearNote();  // in no tree

    std::unique_ptr<char[]> string_;
    AVL_CStringTree *tree_ = nullptr;  // null: in no tree
};

// Nodes in the order of their strings; equal strings in the order in which they were inserted. Null is a string, too,
// before all others.
//
// Threads:   one at a time; the owner locks.
// Ownership: owns its nodes and destroys them with itself. A node that is returned is valid until it is deleted.
// Errors:    lack of memory is a null; without memory for the tree itself it stays empty. Nothing is reported.
class KERNEL_API AVL_CStringTree {
public:
    AVL_CStringTree();
    AVL_CStringTree(const AVL_CStringTree &) = delete;
    AVL_CStringTree &operator=(const AVL_CStringTree &) = delete;
    ~AVL_CStringTree();

    AVL_CStringNode *Insert(const char *string);
    // Takes the node over and returns it; null for a null node. A node that is in another tree changes to this one, one
    // that is in this tree stays where it is. Without memory null, and the node stays what it was.
    AVL_CStringNode *Insert(AVL_CStringNode *node);
    AVL_CStringNode *Search(const char *string) const;  // the first one; null: none
    bool TestKey(const char *string) const;             // is there one?
    // A walk through all nodes: the first one, then one by one; null at the end, and from then on until the next
    // WalkMin. Any node may be deleted meanwhile, also the one that was returned last. A tree has one walk.
    AVL_CStringNode *WalkMin();
    AVL_CStringNode *WalkNext();
    void DeleteKey(const char *string);      // destroys all nodes with this string
    void DeleteNode(AVL_CStringNode *node);  // destroys it, whatever tree it is in
    // Takes this very node out; from then on it is the caller's. False: it is not in this tree.
    bool RemoveNode(AVL_CStringNode *node);
    void DeleteTree();  // destroys all nodes

private:
    struct Inside;
    std::unique_ptr<Inside> inside_;  // null: there was no memory
};

}  // namespace kernel
