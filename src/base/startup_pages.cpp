#include "base/startup_pages.h"

#include <bit>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/* Segments that are not mapped writable have no content but that of their file. */
int release_object(struct dl_phdr_info *object, size_t /*size*/, void * /*user*/)
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0)
            continue;
        const uintptr_t begin = (object->dlpi_addr + segment.p_vaddr) / page * page;
        const uintptr_t end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        (void)madvise(std::bit_cast<void *>(begin), end - begin, MADV_DONTNEED);
    }
    return 0;
}

} // namespace

void release_startup_pages()
{
    (void)dl_iterate_phdr(release_object, nullptr);
}
