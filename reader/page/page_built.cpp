#include "page_built.h"

// The assembler takes the files in as they are, whatever machine it is for.
#define BUILT_FILE(symbol, file)                                  \
    __asm__(".section .rodata\n" #symbol                          \
            "_begin:\n"                                           \
            ".incbin \"" file "\"\n" #symbol "_end:\n.previous"); \
    extern "C" const char symbol##_begin[];                       \
    extern "C" const char symbol##_end[];

BUILT_FILE(page_begin, PAGE_BEGIN_FILE)
BUILT_FILE(page_rest, PAGE_END_FILE)

namespace reader {

std::string_view PageBegin() {
    return {page_begin_begin, page_begin_end};
}

std::string_view PageEnd() {
    return {page_rest_begin, page_rest_end};
}

}  // namespace reader
