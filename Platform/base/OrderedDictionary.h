#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace Platform {

/// A hash map that keeps its keys in the order of their first insertion.
///
/// Every operation on one entry takes constant time, removal from the front or the middle included.
/// An entry's value stays at its address until the entry is removed, so pointers from `find` and
/// iterators at other entries survive every change. Movable, leaving an empty dictionary behind;
/// not copyable. Not synchronised.
template <class Key, class Value, class Hash = std::hash<Key>>
class OrderedDictionary {
    struct Links;
    using Node = std::pair<const Key, Links>;

    struct Links {
        Links(Value&& initial, Node* before) : value(std::move(initial)), previous(before) {}
        Value value;
        Node* previous;
        Node* next = nullptr;
    };

    /// The map never moves its nodes, so they can be linked with each other.
    using Map = std::unordered_map<Key, Links, Hash>;

    template <bool isConst>
    class Iterator {
    public:
        using Item = std::pair<const Key&, std::conditional_t<isConst, const Value&, Value&>>;

        Item operator*() const { return {node_->first, node_->second.value}; }
        Iterator& operator++() {
            node_ = node_->second.next;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        friend OrderedDictionary;
        explicit Iterator(Node* node) : node_(node) {}
        Node* node_;
    };

public:
    OrderedDictionary() = default;
    OrderedDictionary(OrderedDictionary&& other) noexcept { swap(other); }
    OrderedDictionary& operator=(OrderedDictionary&& other) noexcept {
        OrderedDictionary taken(std::move(other));
        swap(taken);
        return *this;
    }

    std::size_t size() const noexcept { return map_.size(); }
    bool empty() const noexcept { return map_.empty(); }

    /// Adds an entry at the end, or gives the key's entry a new value in its old place. Returns
    /// true when the key is new.
    bool insert(Key key, Value value) {
        const auto [position, isNew] = map_.try_emplace(std::move(key), std::move(value), last_);
        Node* const node = &*position;
        if (!isNew) {
            node->second.value = std::move(value);
            return false;
        }
        (last_ ? last_->second.next : first_) = node;
        last_ = node;
        return true;
    }

    /// The key's value, in place; null when there is none.
    Value* find(const Key& key) {
        const auto found = map_.find(key);
        return found == map_.end() ? nullptr : &found->second.value;
    }
    const Value* find(const Key& key) const {
        const auto found = map_.find(key);
        return found == map_.end() ? nullptr : &found->second.value;
    }
    bool contains(const Key& key) const { return find(key) != nullptr; }

    /// Takes the key's entry out and returns its value; nothing when there is none.
    std::optional<Value> remove(const Key& key) {
        const auto found = map_.find(key);
        if (found == map_.end()) {
            return std::nullopt;
        }
        return takeOut(found).second;
    }

    /// The value of the first entry, in place; null when empty. Its key: `*begin()`.
    Value* first() { return first_ ? &first_->second.value : nullptr; }
    const Value* first() const { return first_ ? &first_->second.value : nullptr; }

    /// Takes the first entry out and returns it; nothing when empty.
    std::optional<std::pair<Key, Value>> removeFirst() {
        if (!first_) {
            return std::nullopt;
        }
        return takeOut(map_.find(first_->first));
    }

    /// Removes every entry and gives the storage back.
    void clear() noexcept { OrderedDictionary().swap(*this); }

    void swap(OrderedDictionary& other) noexcept {
        map_.swap(other.map_);
        std::swap(first_, other.first_);
        std::swap(last_, other.last_);
    }

    /// Entries in order, as pairs of references to key and value.
    auto begin() { return Iterator<false>(first_); }
    auto end() { return Iterator<false>(nullptr); }
    auto begin() const { return Iterator<true>(first_); }
    auto end() const { return Iterator<true>(nullptr); }

private:
    std::pair<Key, Value> takeOut(typename Map::iterator position) {
        auto handle = map_.extract(position);
        const Links& links = handle.mapped();
        (links.previous ? links.previous->second.next : first_) = links.next;
        (links.next ? links.next->second.previous : last_) = links.previous;
        return {std::move(handle.key()), std::move(handle.mapped().value)};
    }

    Map map_;
    Node* first_ = nullptr;
    Node* last_ = nullptr;
};

} // namespace Platform
