// Where the program's memory comes from.
//
// The C++ library's own nothrow forms throw inside and catch what they threw.  A throw needs memory itself: without
// any they end the process instead of returning null.  These do what they say, and all of a family go together.
#include <cstdlib>
#include <new>

namespace {

void* Allocate(size_t size) {
    return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrAbort(size_t size) {
    void* const block = Allocate(size);
    if (block == nullptr) {
        std::abort();  // nobody could catch what is thrown
    }
    return block;
}

}  // namespace

void* operator new(size_t size) {
    return AllocateOrAbort(size);
}
void* operator new[](size_t size) {
    return AllocateOrAbort(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, size_t) noexcept {
    std::free(block);
}
