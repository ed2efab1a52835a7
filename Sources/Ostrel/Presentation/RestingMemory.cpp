#include "RestingMemory.h"

#include <cstddef>
#include <cstdint>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ostrel::memory {

namespace {

// Called with the loader's lock held: no library comes or goes meanwhile.
int giveBackLibrary(dl_phdr_info* library, std::size_t, void*) {
  // A page that was relocated or otherwise written exists nowhere else. Those lie in writable segments, but
  // for libraries that ask for relocations in their code.
  const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (int i = 0; i < library->dlpi_phnum; ++i) {
    const auto& segment = library->dlpi_phdr[i];
    if (segment.p_type != PT_DYNAMIC) continue;
    const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(library->dlpi_addr + segment.p_vaddr);
    for (; entry->d_tag != DT_NULL; ++entry) {
      if (entry->d_tag == DT_TEXTREL || (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0))
        return 0;
    }
  }
  for (int i = 0; i < library->dlpi_phnum; ++i) {
    const auto& segment = library->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    // Only whole pages: the first and the last may be shared with a neighbour.
    const std::uintptr_t begin = library->dlpi_addr + segment.p_vaddr;
    const std::uintptr_t first = (begin + page - 1) / page * page;
    const std::uintptr_t last = (begin + segment.p_memsz) / page * page;
    if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
  }
  return 0;
}

}  // namespace

void giveBack() {
  ::malloc_trim(0);
  ::dl_iterate_phdr(giveBackLibrary, nullptr);
}

}  // namespace ostrel::memory
