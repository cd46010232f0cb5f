/* Preloaded, makes one allocation of the process fail: the one chosen by the test. */
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <link.h>
#include <malloc.h>

#include "faults.h"

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

static uintptr_t g_parser;
static size_t g_parser_size;

/* json-c's parser uses the memory that it did not get, and crashes: the daemon cannot prevent that. */
static int is_in_parser(void)
{
    void *frames[16];
    const int depth = backtrace(frames, sizeof(frames) / sizeof(frames[0]));
    for (int i = 0; i < depth; ++i) {
        if ((uintptr_t)frames[i] - g_parser < g_parser_size)
            return 1;
    }
    return 0;
}

__attribute__((constructor)) static void start(void)
{
    Dl_info info;
    void *symbol = NULL;
    void *parser = dlsym(RTLD_DEFAULT, "json_tokener_parse_ex");
    if (parser != NULL && dladdr1(parser, &info, &symbol, RTLD_DL_SYMENT) != 0 && symbol != NULL) {
        g_parser = (uintptr_t)info.dli_saddr;
        g_parser_size = ((ElfW(Sym) *)symbol)->st_size;
    }
    (void)is_in_parser(); /* loads its libraries now */
    follow_faults();
}

static int fails(void)
{
    const uint64_t fail_at = atomic_load(&g_faults->fail_at);
    if (fail_at == 0 || !is_counted_thread() || atomic_fetch_add(&g_faults->allocations, 1) + 1 != fail_at)
        return 0;
    if (is_in_parser()) {
        atomic_fetch_add(&g_faults->fail_at, 1); /* fail the next one instead */
        return 0;
    }
    atomic_fetch_add(&g_faults->failed, 1);
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size)
{
    return fails() ? NULL : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return fails() ? NULL : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return fails() ? NULL : __libc_realloc(block, size);
}

void *memalign(size_t alignment, size_t size)
{
    return fails() ? NULL : __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size)
{
    *block = memalign(alignment, size);
    return *block != NULL ? 0 : ENOMEM;
}
