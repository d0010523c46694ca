#include <Platform/base/detail/Wipe.h>

namespace Platform::detail {

void* WipedWhenFreed<true>::operator new(std::size_t size) {
    return ::operator new(size);
}

void WipedWhenFreed<true>::operator delete(void* memory, std::size_t size) noexcept {
    wipe(memory, size);
    ::operator delete(memory, size);
}

} // namespace Platform::detail
