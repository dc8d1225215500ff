// Ordered collections: a red-black tree of counted nodes with their links inside them. Search, walk
// and comparison are typed and stand here; inserting, removing and balancing are the engine's.
#pragma once

#include "Vomo/Entity.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/StdIterator.h"

namespace Vomo {

// The links of a node. `parent` is the address of the parent's link block; its lowest bit is the
// colour, and a value below 2 means that the node is the root.
struct RbTreeLink {
    U64 parent = 0;
    Ptr<PtrInterface> left;
    Ptr<PtrInterface> right;
};
static_assert(sizeof(RbTreeLink) == 24);

// The engine. Each call is told the distance from the start of a node to its link block.
class RbTreeMapGeneric {
public:
    RbTreeMapGeneric() = default;
    RbTreeMapGeneric(RbTreeMapGeneric const&) = delete;
    RbTreeMapGeneric& operator=(RbTreeMapGeneric const&) = delete;

    // Changes with each structural change; begins at 1.
    U32 version() const { return version_; }
    // Links `child` under `parent`, null for the root of an empty tree, and rebalances.
    void memberNewChild(std::size_t linkDistance, int, PtrInterface* parent,
                        Ptr<PtrInterface> child, bool left);
    // Unlinks `node`, which keeps its key and value.
    void _memberDelG(std::size_t linkDistance, int, PtrInterface* node);
    void memberClearAll();
    // A key was entered that is there.
    [[noreturn]] static void assertDupKey();
    void vomoMarkAllForDeletionG(std::size_t linkDistance, int);
    // The number of members, counted.
    U32 members(std::size_t linkDistance) const;

protected:
    ~RbTreeMapGeneric() = default;

    U32 version_ = 1;
    Ptr<PtrInterface> root_;
};
static_assert(sizeof(RbTreeMapGeneric) == 16);

// Base of a node class.
template <class Key_, class Value_>
class RbTreeNode : public PtrInterface {
public:
    using Key = Key_;
    using Value = Value_;
    RbTreeNode(Key key, Value value) : key_(std::move(key)), value_(std::move(value)) {}
    // The links do not go along.
    RbTreeNode(RbTreeNode const& other)
        : PtrInterface(other), key_(other.key_), value_(other.value_) {}
    Key const& fwkKey() const { return key_; }
    Value const& value() const { return value_; }
    void valueIs(Value v) { value_ = std::move(v); }

private:
    template <class, class, class>
    friend class RbTreeMap;
    Key const key_;
    Value value_;
    RbTreeLink link_;
};

// The one way in which trees are walked.
struct ForwardDirection {};

template <class Node, class Key, class Value>
class RbTreeMap : public RbTreeMapGeneric {
public:
    RbTreeMap() = default;
    RbTreeMap(RbTreeMap const& other) : RbTreeMapGeneric() { *this = other; }
    // Members up to the end mark, which is the default key.
    RbTreeMap(NboAttrLog::In* in, StreamBogon);
    // A deep copy: no node is shared.
    RbTreeMap& operator=(RbTreeMap const& other);

    Node* operator[](Key const& key) const {
        Node* node = root();
        while (node != nullptr && !(key == node->fwkKey()))
            node = child(key < node->fwkKey() ? link(node).left : link(node).right);
        return node;
    }
    U32 members() const { return root_ ? RbTreeMapGeneric::members(distance(root())) : 0; }
    // Enters a node that the caller made; its key must be absent.
    void memberIs(Ptr<Node> const& node);
    void memberDel(Node* node) { _memberDelG(distance(node), 0, node); }
    void markAllForDeletion() {
        if (root_) vomoMarkAllForDeletionG(distance(root()), 0);
    }

    // A walk in order of key. The tree may change under it: a removed node stays readable while the
    // iterator stands on it, and the walk goes on behind its key.
    template <class Direction>
    class BasicIteratorConst {
        static_assert(std::is_same_v<Direction, ForwardDirection>);

    public:
        BasicIteratorConst() = default;
        explicit BasicIteratorConst(RbTreeMap const* map) : map_(map) {
            if (map_ == nullptr) return;
            version_ = map_->version();
            current_ = leftmost(map_->root());
        }
        // At the key, or at the next greater one.
        BasicIteratorConst(RbTreeMap const* map, Key const& key)
            : map_(map), version_(map->version()) {
            current_ = map_->above(key, true);
        }
        using NodeType = Node;
        explicit operator bool() const { return bool(current_); }
        Node const* node() const { return current_.ptr(); }
        Key const& key() const { return current_->fwkKey(); }
        Value const& value() const { return current_->value(); }
        BasicIteratorConst& operator++() noexcept {
            advance();
            return *this;
        }
        // A comparison of keys must not raise.
        void advance() noexcept {
            if (!current_) return;
            if (version_ == map_->version()) {
                current_ = successor(current_.ptr());
            } else {
                current_ = map_->above(current_->fwkKey(), false);
                version_ = map_->version();
            }
        }

    private:
        friend RbTreeMap;
        RbTreeMap const* map_ = nullptr;
        Ptr<Node> current_;
        U32 version_ = 0;
    };
    using IteratorConst = BasicIteratorConst<ForwardDirection>;
    // What mutators take; the right to write is that of who holds the map, see `nodeAt`.
    using Iterator = IteratorConst;
    using TIterator = IteratorConst;
    // The node on which a walk of this map stands; null at the end and if the node has left.
    Node* nodeAt(Iterator const& at) {
        Node* const node = at.current_.ptr();
        bool const in = node != nullptr && at.map_ == this &&
                        (at.version_ == version() || (*this)[node->fwkKey()] == node);
        return in ? node : nullptr;
    }
    // The nodes, which may change meanwhile.
    auto begin() const { return StdIterator(IteratorConst(this)); }
    std::default_sentinel_t end() const { return {}; }

    friend bool operator==(RbTreeMap const& a, RbTreeMap const& b) {
        Node *x = leftmost(a.root()), *y = leftmost(b.root());
        for (; x != nullptr && y != nullptr; x = successor(x), y = successor(y))
            if (!(x->fwkKey() == y->fwkKey()) || !(x->value() == y->value())) return false;
        return x == y;
    }
    // By key, then value, pair by pair; a beginning of the other is less.
    friend bool operator<(RbTreeMap const& a, RbTreeMap const& b) {
        Node *x = leftmost(a.root()), *y = leftmost(b.root());
        for (; x != nullptr && y != nullptr; x = successor(x), y = successor(y)) {
            if (!(x->fwkKey() == y->fwkKey())) return x->fwkKey() < y->fwkKey();
            if (!(x->value() == y->value())) return x->value() < y->value();
        }
        return x == nullptr && y != nullptr;
    }
    friend NboAttrLog::Out& operator<<(NboAttrLog::Out& out, RbTreeMap const& map) {
        for (Node const& node : map) {
            if (node.fwkKey() == Key()) {
                NboAttrLog::failWithAttrLogValueCollectionDefaultKey();
                break;
            }
            out << node.fwkKey() << node.value();
        }
        return out << Key();
    }

private:
    // From the start of a node to its links; the same for each of them.
    static std::size_t distance(Node* node) {
        return static_cast<std::size_t>(reinterpret_cast<char*>(&link(node)) -
                                        reinterpret_cast<char*>(static_cast<PtrInterface*>(node)));
    }
    static RbTreeLink& link(Node* node) { return node->RbTreeNode<Key, Value>::link_; }
    static Node* child(Ptr<PtrInterface> const& p) { return static_cast<Node*>(p.ptr()); }
    Node* root() const { return child(root_); }
    static Node* parent(Node* node) {
        U64 const word = link(node).parent & ~U64{1};
        if (word == 0) return nullptr;
        return static_cast<Node*>(reinterpret_cast<PtrInterface*>(word - distance(node)));
    }
    static Node* leftmost(Node* node) {
        while (node != nullptr && link(node).left) node = child(link(node).left);
        return node;
    }
    static Node* successor(Node* node) {
        if (link(node).right) return leftmost(child(link(node).right));
        Node* up = parent(node);
        while (up != nullptr && link(up).right.ptr() == node) {
            node = up;
            up = parent(node);
        }
        return up;
    }
    // The node with the smallest key greater than `key`, or equal if wanted.
    Node* above(Key const& key, bool orEqual) const {
        Node *best = nullptr, *node = root();
        while (node != nullptr) {
            bool const equal = key == node->fwkKey();
            if (equal && orEqual) return node;
            if (!equal && key < node->fwkKey()) {
                best = node;
                node = child(link(node).left);
            } else {
                node = child(link(node).right);
            }
        }
        return best;
    }
};

template <class Node, class Key, class Value>
RbTreeMap<Node, Key, Value>::RbTreeMap(NboAttrLog::In* in, StreamBogon) {
    for (Key key = NboAttrLog::next<Key>(in); !(key == Key()); key = NboAttrLog::next<Key>(in)) {
        if ((*this)[key] != nullptr) NboAttrLog::failWithAttrLogValueCollectionDuplicateKey();
        memberIs(Ptr<Node>(new Node(key, NboAttrLog::next<Value>(in))));
    }
}

template <class Node, class Key, class Value>
void RbTreeMap<Node, Key, Value>::memberIs(Ptr<Node> const& node) {
    Node* parent = nullptr;
    bool left = true;
    for (Node* at = root(); at != nullptr;) {
        if (node->fwkKey() == at->fwkKey()) assertDupKey();
        parent = at;
        left = node->fwkKey() < at->fwkKey();
        at = child(left ? link(at).left : link(at).right);
    }
    memberNewChild(distance(node.ptr()), 0, parent, node, left);
}

template <class Node, class Key, class Value>
RbTreeMap<Node, Key, Value>& RbTreeMap<Node, Key, Value>::operator=(RbTreeMap const& other) {
    if (this == &other) return *this;
    memberClearAll();
    for (Node const& node : other) memberIs(Ptr<Node>(new Node(node)));
    return *this;
}

} // namespace Vomo
