#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

// How boardreport talks to people.

inline void Complain(const std::string& sentence) {
    std::fprintf(stderr, "boardreport: %s\n", sentence.c_str());
}

// Whether a terminal may be coloured: NO_COLOR, where it isn't empty, says no.
inline bool WantsColour() {
    const char* const no_colour = std::getenv("NO_COLOR");
    return no_colour == nullptr || *no_colour == '\0';
}
