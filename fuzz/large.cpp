#include "large.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>

#include "fuzz.h"

namespace {

constexpr size_t kLarge = size_t{1024} * 1024;
constexpr size_t kSmall = 48;
constexpr size_t kMostHeap = size_t{6} * 1024 * 1024;

size_t g_heap, g_most; // a target has one thread

void count_new(size_t size)
{
    g_heap += size;
    g_most = std::max(g_most, g_heap);
}

} // namespace

extern "C" {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
size_t __sanitizer_get_allocated_size(const volatile void *block);

void __sanitizer_malloc_hook(const volatile void * /*block*/, size_t size)
{
    count_new(size);
}

void __sanitizer_free_hook(const volatile void *block)
{
    g_heap -= __sanitizer_get_allocated_size(block);
}
#else
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);

void *malloc(size_t size)
{
    void *block = __libc_malloc(size);
    count_new(malloc_usable_size(block));
    return block;
}

void *calloc(size_t count, size_t size)
{
    void *block = __libc_calloc(count, size);
    count_new(malloc_usable_size(block));
    return block;
}

void *realloc(void *block, size_t size)
{
    g_heap -= malloc_usable_size(block);
    void *moved = __libc_realloc(block, size);
    count_new(malloc_usable_size(moved));
    return moved;
}

void free(void *block)
{
    g_heap -= malloc_usable_size(block);
    __libc_free(block);
}
#endif
}

void fuzz_large(std::string_view text, void (*work)(const std::string &answer))
{
    const size_t line = text.find('\n');
    const std::string_view unit = line < text.size() ? text.substr(line + 1) : text;
    if (text.size() > kSmall || unit.empty())
        return;
    std::string answer(line < text.size() ? text.substr(0, line) : "[");
    answer.reserve(kLarge);
    while (answer.size() + unit.size() <= kLarge)
        answer.append(unit);
    const size_t before = g_heap;
    g_most = before;
    work(answer);
    FUZZ_CHECK(g_most - before < kMostHeap);
}
