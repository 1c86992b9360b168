#include "checks_built.h"

// The assembler takes the file in as it is, whatever machine it is for.
__asm__(".section .rodata\nchecks_begin:\n.incbin \"" CHECKS_FILE "\"\nchecks_end:\n.previous");
extern "C" const char checks_begin[];
extern "C" const char checks_end[];

namespace reader {

std::string_view ChecksBuilt() {
    return {checks_begin, checks_end};
}

}  // namespace reader
