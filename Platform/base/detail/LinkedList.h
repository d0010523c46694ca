#pragma once

#include <Platform/base/Export.h>

namespace Platform::detail {

template <class Element>
class LinkedList;

/// What an object needs in order to stand in a list: derive from it. Allocates nothing; in one list
/// at a time, which outlives it there.
class PLATFORM_EXPORT Link {
public:
    Link() noexcept = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    bool isLinked() const noexcept { return next_ != nullptr; }

    /// Leaves its list. False when it stood in none.
    bool unlink() noexcept {
        if (!isLinked()) return false;
        previous_->next_ = next_;
        next_->previous_ = previous_;
        next_ = nullptr;
        return true;
    }

private:
    template <class Element>
    friend class LinkedList;

    Link* previous_ = nullptr;
    Link* next_ = nullptr;
};

/// Objects derived from `Link`, in the order in which they were appended; owned elsewhere.
template <class Element>
class PLATFORM_EXPORT LinkedList {
public:
    LinkedList() noexcept { ends_.previous_ = ends_.next_ = &ends_; }
    LinkedList(const LinkedList&) = delete;
    LinkedList& operator=(const LinkedList&) = delete;
    ~LinkedList() = default;

    bool empty() const noexcept { return ends_.next_ == &ends_; }

    void append(Element& element) noexcept {
        Link& link = element;
        link.previous_ = ends_.previous_;
        link.next_ = &ends_;
        ends_.previous_->next_ = &link;
        ends_.previous_ = &link;
    }

    /// Takes the oldest out; null when empty.
    Element* takeFirst() noexcept {
        if (empty()) return nullptr;
        Link* const first = ends_.next_;
        first->unlink();
        return static_cast<Element*>(first);
    }

    /// Takes all of `other` out, into this list, which is empty.
    void takeAll(LinkedList& other) noexcept {
        if (other.empty()) return;
        ends_.previous_ = other.ends_.previous_;
        ends_.next_ = other.ends_.next_;
        ends_.previous_->next_ = ends_.next_->previous_ = &ends_;
        other.ends_.previous_ = other.ends_.next_ = &other.ends_;
    }

private:
    Link ends_; ///< Before the first and after the last.
};

} // namespace Platform::detail
