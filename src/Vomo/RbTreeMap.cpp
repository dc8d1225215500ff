#include "Vomo/RbTreeMap.h"

namespace Vomo {
namespace {

using Slot = Ptr<PtrInterface>;

// The tree as the balancing sees it: link blocks, and for each the slot that owns its node.
class Tree {
public:
    Tree(std::size_t distance, Slot& root) : distance_(distance), root_(root) {}

    RbTreeLink* link(PtrInterface* node) const {
        return node == nullptr
                   ? nullptr
                   : reinterpret_cast<RbTreeLink*>(reinterpret_cast<char*>(node) + distance_);
    }
    RbTreeLink* link(Slot const& slot) const { return link(slot.ptr()); }
    PtrInterface* node(RbTreeLink* l) const {
        return reinterpret_cast<PtrInterface*>(reinterpret_cast<char*>(l) - distance_);
    }
    static RbTreeLink* parent(RbTreeLink* l) {
        return reinterpret_cast<RbTreeLink*>(l->parent & ~U64{1});
    }
    static void parentIs(RbTreeLink* l, RbTreeLink* p) {
        if (l != nullptr) l->parent = reinterpret_cast<U64>(p) | (l->parent & 1);
    }
    // A missing child is black.
    static bool red(RbTreeLink* l) { return l != nullptr && (l->parent & 1) != 0; }
    static void redIs(RbTreeLink* l, bool on) {
        if (l != nullptr) l->parent = (l->parent & ~U64{1}) | U64{on};
    }
    RbTreeLink* left(RbTreeLink* l) const { return link(l->left); }
    RbTreeLink* right(RbTreeLink* l) const { return link(l->right); }
    // The slot that owns `l`.
    Slot& slot(RbTreeLink* l) const {
        RbTreeLink* const p = parent(l);
        if (p == nullptr) return root_;
        return p->left.ptr() == node(l) ? p->left : p->right;
    }

    // The child of `x` on side `up` takes its place; `x` becomes its child on the other side.
    void rotate(RbTreeLink* x, Slot RbTreeLink::*up, Slot RbTreeLink::*other) const {
        Slot& place = slot(x);
        RbTreeLink* const above = parent(x);
        Slot risen = std::move(x->*up);
        RbTreeLink* const y = link(risen);
        x->*up = std::move(y->*other);
        parentIs(link(x->*up), x);
        y->*other = std::move(place);
        place = std::move(risen);
        parentIs(y, above);
        parentIs(x, y);
    }
    void rotateLeft(RbTreeLink* x) const { rotate(x, &RbTreeLink::right, &RbTreeLink::left); }
    void rotateRight(RbTreeLink* x) const { rotate(x, &RbTreeLink::left, &RbTreeLink::right); }

    void balanceInserted(RbTreeLink* z) const {
        for (RbTreeLink* p; red(p = parent(z));) {
            RbTreeLink* const g = parent(p);
            bool const isLeft = left(g) == p;
            RbTreeLink* const uncle = isLeft ? right(g) : left(g);
            if (red(uncle)) {
                redIs(p, false);
                redIs(uncle, false);
                redIs(g, true);
                z = g;
                continue;
            }
            if (z == (isLeft ? right(p) : left(p))) {
                isLeft ? rotateLeft(p) : rotateRight(p);
                std::swap(z, p);
            }
            redIs(p, false);
            redIs(g, true);
            isLeft ? rotateRight(g) : rotateLeft(g);
        }
        redIs(link(root_), false);
    }

    // `x`, a child of `p` that may be missing, has one black node too few above it.
    void balanceRemoved(RbTreeLink* x, RbTreeLink* p) const {
        while (p != nullptr && !red(x)) {
            bool const isLeft = left(p) == x;
            RbTreeLink* w = isLeft ? right(p) : left(p);
            if (red(w)) {
                redIs(w, false);
                redIs(p, true);
                isLeft ? rotateLeft(p) : rotateRight(p);
                w = isLeft ? right(p) : left(p);
            }
            RbTreeLink* const near = isLeft ? left(w) : right(w);
            RbTreeLink* const far = isLeft ? right(w) : left(w);
            if (!red(near) && !red(far)) {
                redIs(w, true);
                x = p;
                p = parent(x);
                continue;
            }
            if (!red(far)) {
                redIs(near, false);
                redIs(w, true);
                isLeft ? rotateRight(w) : rotateLeft(w);
                w = isLeft ? right(p) : left(p);
            }
            redIs(w, red(p));
            redIs(p, false);
            redIs(isLeft ? right(w) : left(w), false);
            isLeft ? rotateLeft(p) : rotateRight(p);
            x = link(root_);
            break;
        }
        redIs(x, false);
    }

private:
    std::size_t distance_;
    Slot& root_;
};

} // namespace

void RbTreeMapGeneric::memberNewChild(std::size_t linkDistance, int, PtrInterface* parent,
                                      Ptr<PtrInterface> child, bool left) {
    Tree const tree(linkDistance, root_);
    RbTreeLink* const link = tree.link(child);
    link->parent = reinterpret_cast<U64>(tree.link(parent)) | 1;
    Slot& slot = parent == nullptr ? root_
                 : left            ? tree.link(parent)->left
                                   : tree.link(parent)->right;
    slot = std::move(child);
    ++version_;
    tree.balanceInserted(link);
}

void RbTreeMapGeneric::_memberDelG(std::size_t linkDistance, int, PtrInterface* node) {
    Tree const tree(linkDistance, root_);
    RbTreeLink* const z = tree.link(node);
    Slot const keep(node); // released at the end, when the tree is whole
    ++version_;
    if (z->left && z->right) {
        // The successor, which has no left child, takes the node's place and colour.
        RbTreeLink* y = tree.right(z);
        while (y->left) y = tree.left(y);
        bool const wasRed = Tree::red(y);
        RbTreeLink* const x = tree.right(y);
        RbTreeLink* hole = Tree::parent(y); // the parent of x afterwards
        Slot risen = std::move(tree.slot(y));
        if (hole == z) {
            hole = y;
        } else {
            hole->left = std::move(y->right);
            Tree::parentIs(x, hole);
            y->right = std::move(z->right);
            Tree::parentIs(tree.right(y), y);
        }
        y->left = std::move(z->left);
        Tree::parentIs(tree.left(y), y);
        tree.slot(z) = std::move(risen);
        y->parent = z->parent;
        z->parent = 0;
        if (!wasRed) tree.balanceRemoved(x, hole);
        return;
    }
    bool const wasRed = Tree::red(z);
    RbTreeLink* const p = Tree::parent(z);
    Slot child = std::move(z->left ? z->left : z->right);
    RbTreeLink* const x = tree.link(child);
    Tree::parentIs(x, p);
    tree.slot(z) = std::move(child);
    z->parent = 0;
    if (!wasRed) tree.balanceRemoved(x, p);
}

void RbTreeMapGeneric::memberClearAll() {
    if (!root_) return;
    ++version_;
    Slot const tree = std::move(root_); // released as deep as the tree is high
}

void RbTreeMapGeneric::assertDupKey() {
    PLAINASSERT(false, "key is not in the map");
    __builtin_unreachable();
}

namespace {
template <class Visit>
void visitAll(Tree const& tree, RbTreeLink* link, Visit&& visit) {
    if (link == nullptr) return;
    visitAll(tree, tree.left(link), visit);
    visit(tree.node(link));
    visitAll(tree, tree.right(link), visit);
}
} // namespace

void RbTreeMapGeneric::vomoMarkAllForDeletionG(std::size_t linkDistance, int) {
    Tree const tree(linkDistance, root_);
    visitAll(tree, tree.link(root_),
             [](PtrInterface* node) { node->vomoMarkedForDeletionIs(true); });
}

U32 RbTreeMapGeneric::members(std::size_t linkDistance) const {
    Slot root = root_;
    Tree const tree(linkDistance, root);
    U32 count = 0;
    visitAll(tree, tree.link(root_), [&](PtrInterface*) { ++count; });
    return count;
}

} // namespace Vomo
