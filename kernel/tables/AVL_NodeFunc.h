// What an ordered tree does with its data.
#pragma once

namespace kernel {

// What a tree does with the data that it is given and that it lets go.
//
// Threads:   called on the thread of the tree's operation.
// Ownership: plain functions.
// Errors:    malloc_func returns null when it cannot make a node; nothing throws.
struct AVL_NodeFunc {
    void *(*malloc_func)(const void *key, void *data);                  // the node to store for data
    void *(*free_func)(void *data, const void *key, const void *user);  // a node is released; the result is not used
    void (*kill_func)(void *data, const void *user);                    // a node was made and could not be inserted
};

}  // namespace kernel
