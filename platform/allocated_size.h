// The usable size of a block from the C library's malloc: what an allocation really holds.
#pragma once

#include <cstddef>
#include <cstdlib>

#include <malloc.h>

namespace Morvek::Tivalo {

inline std::size_t allocated_size(void* block) {
#ifdef _WIN32
  return block ? _msize(block) : 0;
#else
  return block ? malloc_usable_size(block) : 0;
#endif
}

}  // namespace Morvek::Tivalo
