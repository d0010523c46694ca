#include <Platform/system/ExtendedAttributes.h>

#include <Platform/base/Errno.h>
#include <Platform/base/Text.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/system/detail/TreeAttribute.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Platform {
namespace {

using detail::SystemCall;
using Options = ExtendedAttributes::Options;

/// -1 and `errno` when there is none. Made without the caller's options, whatever they are.
std::ptrdiff_t attributeSize(const char* path, const char* name) {
    return detail::trySystemCall(SystemCall::getAttribute, [&] {
        return detail::getAttribute(path, name, nullptr, 0, Options{});
    });
}

} // namespace

std::filesystem::path ExtendedAttributes::Visit::path() const {
    return walk_->path();
}

ExtendedAttributes::ExtendedAttributes(std::filesystem::path filePath)
    : filePath_(std::move(filePath)) {}

Data ExtendedAttributes::data(const ExtendedAttributeName& name, Options options) const {
    const std::ptrdiff_t size = attributeSize(filePath_.c_str(), name.rawValue.c_str());
    if (size < 0) detail::throwErrno();
    Data result;
    const auto buffer = result.appendUninitialized(static_cast<std::size_t>(size));
    std::ranges::fill(buffer, std::byte{});
    detail::systemCall(SystemCall::getAttribute, [&] {
        return detail::getAttribute(filePath_.c_str(), name.rawValue.c_str(), buffer.data(),
                                    buffer.size(), options);
    });
    return result;
}

std::string ExtendedAttributes::string(const ExtendedAttributeName& name, Options options) const {
    return decodeUTF8(data(name, options));
}

void ExtendedAttributes::setData(std::span<const std::byte> bytes,
                                 const ExtendedAttributeName& name, Options options) const {
    detail::systemCall(SystemCall::setAttribute, [&] {
        return detail::setAttribute(filePath_.c_str(), name.rawValue.c_str(), bytes.data(),
                                    bytes.size(), options);
    });
}

void ExtendedAttributes::setString(std::string_view text, const ExtendedAttributeName& name,
                                   Options options) const {
    setData(std::as_bytes(std::span(text)), name, options);
}

bool ExtendedAttributes::hasAttribute(const ExtendedAttributeName& name) const noexcept {
    return attributeSize(filePath_.c_str(), name.rawValue.c_str()) >= 0;
}

void ExtendedAttributes::removeAttribute(const ExtendedAttributeName& name, Options options) const {
    detail::systemCall(SystemCall::removeAttribute, [&] {
        return detail::removeAttribute(filePath_.c_str(), name.rawValue.c_str(), options);
    });
}

void ExtendedAttributes::removeAttributeRecursive(const ExtendedAttributeName& name,
                                                  Options options) const {
    removeFromTree(name, options, nullptr);
}

void ExtendedAttributes::removeAttributeRecursive(const ExtendedAttributeName& name,
                                                  Options options, const Observer& visit) const {
    removeFromTree(name, options, &visit);
}

void ExtendedAttributes::removeFromTree(const ExtendedAttributeName& name, Options options,
                                        const Observer* visit) const {
    detail::TreeWalk walk(filePath_.c_str());
    const detail::TreeAttribute attribute(name.rawValue.c_str());
    do {
        bool removed = false;
        int failure = 0;
        if (attribute.isAt(walk)) {
            removed = detail::trySystemCall(SystemCall::removeAttribute,
                                            [&] { return attribute.removeAt(walk, options); }) == 0;
            if (!removed) failure = errno;
        }
        if (visit) {
            (*visit)(Visit(walk, removed, failure));
        } else if (failure != 0) {
            throw Errno(failure, walk.path());
        }
    } while (walk.next());
}

} // namespace Platform
