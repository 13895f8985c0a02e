// Aligned memory from anonymous private mappings, in whole pages.  Any thread
// may call these functions at any time.
#pragma once

#include <cstddef>

// Returns at least `size` zeroed, readable and writable bytes at a multiple of
// `alignment` bytes, which is raised to a whole page; 0 means 1.  The caller
// releases them with talg_memalign_free.
// Null with errno EINVAL: the alignment is no power of two, or `size` is 0;
// otherwise null with errno ENOMEM or what the system says.
[[nodiscard]] void *talg_memalign_alloc(std::size_t size, std::size_t alignment);

// Unmaps memory of talg_memalign_alloc; `size` is the size it was asked for.
// Null is allowed.  A failing unmap is reported on standard error and aborts.
void talg_memalign_free(void *memory, std::size_t size) noexcept;
